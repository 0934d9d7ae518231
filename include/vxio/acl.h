/* vxio: the security-descriptor command engine.
 *
 * A command is one text of arguments separated by ">>", for example
 *   --objectName>>C:\data\a.txt>>--objectType>>file>>--action>>List>>sddl>>dacl,sacl>>No>>Yes>>None
 * It lists, clears, changes and restores the owner, group, DACL and SACL
 * of files, directories, registry keys, services, printers and shares. */
#ifndef VXIO_ACL_H
#define VXIO_ACL_H

#include "base.h"

VXIO_EXTERN_C_BEGIN

/* Parses command and runs it. text/textSize is the caller's buffer: when
 * text holds a non-empty string it is the command's input (the records of
 * "Restore>>FromVOXAStruct", at most 8319 characters); when it is empty
 * (first byte 0) it receives the listing of "List", if the listing and its
 * terminator fit in textSize bytes (otherwise it is left empty and the call
 * still succeeds). A null text or a textSize of 0 means no buffer.
 * Returns 1 when the whole command parsed and ran, 0 otherwise (nothing is
 * written to the buffer then). */
VXIO_API uint8_t VOXA_ACLs_ExecCommand(const char *command, char *text,
                                       uint32_t textSize) VXIO_NOEXCEPT;

VXIO_EXTERN_C_END

#endif /* VXIO_ACL_H */
