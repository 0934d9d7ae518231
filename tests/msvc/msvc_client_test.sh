#!/usr/bin/env bash
# vxio as an MSVC developer gets it: installs the build tree into a private
# prefix, compiles tests/msvc/msvc_client.c against the installed headers
# alone with clang in MSVC mode (clang-cl, /W4 /WX, freestanding: no MSVC
# runtime; as C++ too, for the headers), links it with lld-link against the
# installed lib/vxio.lib alone and runs it under Wine beside the installed
# vxio.dll. The client's exit status names the check that failed (see
# msvc_client.c).
# Usage: msvc_client_test.sh SOURCE_DIR BUILD_DIR
# Exits 77 (ctest: skipped) only when clang or lld-link is missing;
# scripts/setup installs both.
set -u
src=$1 build=$2
for tool in clang lld-link; do
  command -v "$tool" >/dev/null 2>&1 || { echo "skipped: no $tool (scripts/setup installs it)"; exit 77; }
done
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
stage=$work/stage
step() { # what, command...: stops the test at the first failing step
  local what=$1; shift
  "$@" >"$work/out" 2>&1 || { echo "FAILED: $what"; tail -20 "$work/out"; exit 1; }
}

step "cmake --install" cmake --install "$build" --prefix "$stage"
step "installed lib/vxio.lib" test -f "$stage/lib/vxio.lib"
# clang-cl OPTIONS...: the client compiled against the installed headers,
# every warning an error, no runtime. A path that starts with "/" reads as
# an option to clang-cl: "--" ends them.
clang_cl() {
  clang --driver-mode=cl --target=x86_64-pc-windows-msvc /nologo /c /W4 /WX /GS- /Zl /X \
    -Xclang -ffreestanding "-I$stage/include" "$@" -- "$src/tests/msvc/msvc_client.c"
}
step "compile the client as MSVC C" clang_cl /TC "/Fo$work/msvc_client.obj"
step "the headers compile as MSVC C++ too" clang_cl /TP "/Fo$work/msvc_client_cpp.obj"
step "link against vxio.lib alone" lld-link /nologo /entry:vxio_client_entry /subsystem:console \
  /nodefaultlib "/out:$work/msvc_client.exe" "$work/msvc_client.obj" "$stage/lib/vxio.lib"
cp "$stage/bin/vxio.dll" "$work/"
"$src/scripts/wine-run" "$work/msvc_client.exe"
status=$?
[ "$status" -eq 0 ] || { echo "FAILED: msvc_client.exe exited with $status"; exit 1; }
echo "msvc_client.exe: every check passed"
