// The words of the security-descriptor command language and their values:
// permission words into access masks (per object type), access masks back
// into listing words, ACE types and ACE flags into words, and the root
// words of registry key paths.
//
// Everything here is a pure conversion: no system object is touched and no
// Windows header is needed, so the fuzzers build it natively. Resolving
// trustees to SIDs is the engine's business, not this file's.
//
// Words are compared without regard to case for ASCII letters only. The
// engine works in the ANSI code page; a locale-dependent comparison would
// make the language's meaning depend on the machine it runs on.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "acl/command.h"

namespace vxio::acl {

// Texts of the listing are built in buffers of this many characters, the
// terminator included; a word that would not fit is left out.
constexpr size_t kWordTextSize = 260;

// Turns the permission words of every request into its access mask, before
// anything is written. Masks are ORed into AceRequest::mask (the parser
// leaves it 0).
//
// First each request of access mode 11 (both audits) becomes mode 6 (audit
// failure), and a copy of it with mode 5 (audit success) is appended to the
// end of the list, in the order of the originals; the copies then get their
// masks like every other request. Copies that a printer word makes
// ("man_docs" or "full" without inheritance words) are appended after every
// request has been converted, so they are never converted again.
//
// Returns kOk; kBadArgument when a request's permission text holds no word
// at all (empty, or only ","); kUnknownPermission for a word that matches
// nothing in the object type's table, and for an object type without a
// table. On failure the list is left partly converted; the engine drops the
// whole command then. Entry counts of the lists are not this function's.
uint32_t apply_permission_words(std::vector<AceRequest> &requests, uint32_t objectType);

// The listing's words for an access mask of an entry of an object of
// objectType, joined by "+" (for example "change+WRITE_DAC" for a file).
// An object type without words gives "".
std::string mask_to_words(uint32_t mask, uint32_t objectType);

// "allow", "deny", "audit", ... for ACE types 0 to 8; "" for any other.
std::string ace_type_word(uint32_t type);

// The inheritance and audit words of ACE flags joined by "+"
// ("container_inherit+object_inherit"); "no_inheritance" when none is set.
std::string ace_flags_words(uint32_t flags);

// Copies text and its terminator to dest when text's length + 1 is at most
// destSize and returns true; otherwise leaves dest as it was and returns
// false. A null dest takes nothing.
bool copy_if_fits(const std::string &text, char *dest, size_t destSize);

// Root keys that a registry key path may begin with.
enum class RegistryRoot { None, CurrentUser, ClassesRoot, Users, LocalMachine };

// The root named by the first component of a key path: "hkey_current_user",
// "current_user", "hkcu"; "hkey_classes_root", "classes_root", "hkcr";
// "hkey_users", "users"; "hkey_local_machine", "machine", "hklm". The whole
// component must be the word (in any case): "usersx" is no root, and
// "users" must not be taken for the start of a longer name. Anything else
// is RegistryRoot::None.
RegistryRoot registry_root_word(const std::string &word);

}  // namespace vxio::acl
