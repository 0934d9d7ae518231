// Removing the files a signature scan detected: "vxio scan --signatures
// FILE --remove". Deletion goes through the library (VOXA_IO_DeleteFile),
// which has the system delete at the next restart a file it cannot delete
// now (one that is in use).
#ifndef VXIO_TOOL_REMOVE_H
#define VXIO_TOOL_REMOVE_H

#include <stddef.h>
#include <stdio.h>

#include <string>

namespace vxio_tool {

struct RemoveOutcome {
    enum Kind { kRemoved, kAtRestart, kFailed };
    Kind kind;
    // What happened, for "PATH: MESSAGE": "removed", "in use, will be
    // removed at the next restart", "not removed (Permission denied)".
    std::string message;
};

// Deletes the file (or named stream) called path: the name the library
// read it by, not the UTF-8 name printed. A read-only, hidden or system
// file has those attributes cleared first (put back if it stays); a file
// whose permissions refuse deletion is opened for writing through the
// File backend, whose protected path clears its DACL, and then deleted.
RemoveOutcome remove_detected(const std::string &path);

// Asks once, before the first deletion: "remove N detected files? [y/N]"
// on err, the answer read from in (y or yes, either case, says yes; an
// end of input says no). yes (--yes) answers without asking.
bool confirm_once(size_t detected, bool yes, FILE *in = stdin, FILE *err = stderr);

}  // namespace vxio_tool

#endif  // VXIO_TOOL_REMOVE_H
