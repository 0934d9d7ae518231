#!/usr/bin/env bash
# Installs vxio from a build tree into a private prefix, checks the layout
# and the DLL's imports, builds the C client example against the installed
# package with find_package(vxio), and runs it under Wine.
# Usage: install_test.sh SOURCE_DIR BUILD_DIR
set -u
src=$1 build=$2
# shellcheck source=../support/steps.sh
source "$(dirname "$0")/../support/steps.sh"

check "cmake --install" cmake --install "$build" --prefix "$work/stage"
for f in bin/vxio.dll bin/vxio.exe lib/libvxio.dll.a include/vxio/vxio.h include/vxio/io.h \
         lib/cmake/vxio/vxioConfig.cmake lib/cmake/vxio/vxioTargets.cmake; do
  check "installed $f" test -f "$work/stage/$f"
done

# Only system DLLs may be imported: the runtime is linked statically.
imports() { x86_64-w64-mingw32-objdump -p "$1" | sed -n 's/^[[:space:]]*DLL Name: //p' | tr A-Z a-z; }
check "vxio.dll imports system DLLs only" bash -c \
  "! x86_64-w64-mingw32-objdump -p '$work/stage/bin/vxio.dll' | grep -iE 'DLL Name: (lib|.*pthread|.*stdc|.*gcc)'"
check "vxio.dll does not import the modules it looks up by name" bash -c \
  "! x86_64-w64-mingw32-objdump -p '$work/stage/bin/vxio.dll' | grep -iE 'DLL Name: (netapi32|mpr|psapi|pdh|shell32)'"
check "vxio.dll imports kernel32" bash -c \
  "x86_64-w64-mingw32-objdump -p '$work/stage/bin/vxio.dll' | grep -qi 'DLL Name: kernel32.dll'"

check "configure the C client" cmake -S "$src/examples/c_client" -B "$work/client" -G Ninja \
  -DCMAKE_TOOLCHAIN_FILE="$src/cmake/mingw-w64-x86_64.cmake" -DCMAKE_PREFIX_PATH="$work/stage"
check "build the C client" cmake --build "$work/client"
cp "$work/stage/bin/vxio.dll" "$work/client/" 2>/dev/null
check "run the C client" bash -c "'$src/scripts/wine-run' '$work/client/c_client.exe' | tee /dev/stderr | grep -q '^ok: 0 failure'"

summary
