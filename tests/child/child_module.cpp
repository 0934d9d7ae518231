// The module the inspection tests' child process loads, so that module
// lists have a known name to find.
#include <windows.h>

extern "C" __declspec(dllexport) int vxio_child_marker() { return 0x5A5A; }
