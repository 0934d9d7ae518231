// Native paths as process and driver lists report them ("\??\C:\...",
// "\SystemRoot\...", "\WINDOWS\...") turned into lower-case Win32 paths.
#pragma once

namespace vxio::fs {

// Rewrites path in place. The size of the caller's buffer is not known, so
// a rewrite is made only when the result is shorter than the path given.
//
//   "\??\C:\A.EXE"                       -> "c:\a.exe"
//   "\SystemRoot\System32\drivers\x.sys" -> "c:\windows\system32\drivers\x.sys"
//   "\WINDOWS\x"                          unchanged, false: "C:\Windows\x" is longer
//   "C:\Program Files\App.EXE"           -> "c:\program files\app.exe"
//
// True when the path was rewritten or only lower-cased, and for null; false
// (the path untouched) when the Windows directory cannot be had or the
// joined path would not fit in 260 bytes or in the path given.
bool NormalizeNativePath(char *path) noexcept;

}  // namespace vxio::fs
