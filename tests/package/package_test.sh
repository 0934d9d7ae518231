#!/usr/bin/env bash
# Makes the release archive from a build tree with CPack, unpacks it into an
# empty directory, checks its file list and SHA256SUMS, builds the C client
# example against the unpacked tree twice (find_package(vxio) and
# pkg-config) and runs both clients and the archive's vxio.exe under Wine.
# Usage: package_test.sh SOURCE_DIR BUILD_DIR VERSION
set -u
src=$1 build=$2 version=$3
name=vxio-$version-win64
# shellcheck source=../support/steps.sh
source "$(dirname "$0")/../support/steps.sh"

# Into a directory of its own: the build tree's own archive is left alone.
check "cpack" cpack -G ZIP --config "$build/CPackConfig.cmake" -B "$work/pack"
mkdir "$work/unpacked"
check "unpack $name.zip" bash -c "cd '$work/unpacked' && cmake -E tar xf '$work/pack/$name.zip'"
check "one top directory, $name" test "$(ls -A "$work/unpacked")" = "$name"
top=$work/unpacked/$name

expected=(bin/vxio.dll bin/vxio.exe bin/startup_locations.txt lib/libvxio.dll.a
  lib/cmake/vxio/vxioConfig.cmake lib/cmake/vxio/vxioTargets.cmake lib/pkgconfig/vxio.pc
  include/vxio/vxio.h LICENSE SHA256SUMS)
# The MSVC import library ships whenever the build makes one, and every
# page of docs/ that the README links to and the source tree has.
[ -n "$(find "$build" -maxdepth 2 -name vxio.lib -print -quit)" ] && expected+=(lib/vxio.lib)
[ -d "$src/docs" ] && expected+=(docs)
for page in $(grep -o 'docs/[A-Za-z0-9_.-]*\.md' "$src/README.md" 2>/dev/null | sort -u); do
  [ -f "$src/$page" ] && expected+=("$page")
done
for f in "${expected[@]}"; do
  check "archive holds $f" test -e "$top/$f"
done
check "SHA256SUMS lists every other file" bash -c "cd '$top' && diff \
  <(find . -type f ! -path ./SHA256SUMS | sed 's|^\./||' | sort) <(sed 's/^[0-9a-f]\{64\}  //' SHA256SUMS | sort)"
check "sha256sum -c SHA256SUMS" bash -c "cd '$top' && sha256sum --strict -c SHA256SUMS"

check "find_package: configure the C client" cmake -S "$src/examples/c_client" -B "$work/cmake" \
  -G Ninja -DCMAKE_TOOLCHAIN_FILE="$src/cmake/mingw-w64-x86_64.cmake" -DCMAKE_PREFIX_PATH="$top"
check "find_package: build the C client" cmake --build "$work/cmake"
# Only the unpacked tree's vxio.pc may answer, not one installed on the host.
check "pkg-config: version $version" bash -c "[ \"\$(PKG_CONFIG_LIBDIR='$top/lib/pkgconfig' \
  pkg-config --modversion vxio)\" = '$version' ]"
mkdir "$work/pc"
check "pkg-config: build the C client" bash -c "x86_64-w64-mingw32-gcc '$src/examples/c_client/main.c' \
  \$(PKG_CONFIG_LIBDIR='$top/lib/pkgconfig' pkg-config --cflags --libs vxio) -o '$work/pc/c_client.exe'"
for client in cmake pc; do
  cp "$top/bin/vxio.dll" "$work/$client/" 2>/dev/null
  check "$client: run the C client" bash -c \
    "'$src/scripts/wine-run' '$work/$client/c_client.exe' | tee /dev/stderr | grep -q '^ok: 0 failure'"
done
check "vxio.exe --version from the archive" bash -c \
  "'$src/scripts/wine-run' '$top/bin/vxio.exe' --version | tr -d '\r' | grep -qx 'vxio $version'"

summary
