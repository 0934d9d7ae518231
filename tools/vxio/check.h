// Checking digest lists: "vxio sha1 -c LIST" and "vxio scan --check LIST"
// read back what "vxio sha1" and "vxio scan" printed (or sha1sum wrote) and
// hash every listed object again through the File backend.
#ifndef VXIO_TOOL_CHECK_H
#define VXIO_TOOL_CHECK_H

#include <string>
#include <vector>

namespace vxio_tool {

// Checks each list in turn ("-" is standard input). Every digest line
// prints "NAME: OK", "NAME: FAILED" (another digest) or "NAME: FAILED open
// or read" (the object could not be read; the reason goes to stderr as
// "vxio: NAME: reason"); a name holding a line break is printed escaped,
// its line starting with a backslash. After each list, stderr gets the
// warnings "vxio: WARNING: N line(s) ... improperly formatted", "... listed
// file(s) could not be read" and "... computed checksum(s) did NOT match"
// for the counts that are not 0, or "vxio: LIST: no properly formatted
// checksum lines found" when no line was a digest line.
//
// Names are UTF-8 (as the tool prints them) and are opened by their full
// path, so that a file named like a device ("nul.txt") is read as the file
// it is. With streams, a name "path:stream" (a line of "vxio scan") is the
// named data stream of path.
//
// Returns kExitOk when every digest line matched, else kExitUnreadable
// (a mismatch, an unreadable object or list, a list without digest lines).
// Improperly formatted lines alone do not fail the check.
int run_check(const std::vector<std::string> &files_or_dash, bool streams);

}  // namespace vxio_tool

#endif  // VXIO_TOOL_CHECK_H
