#!/usr/bin/env bash
# vxio.exe boot under Wine: the boot sectors of a disk image made here (two
# partitions whose first sector ends in 0xAA55, one without it, one entry
# starting at sector 0 that never counts), each listed with its offset and
# the SHA-1 of its 512 bytes as sha1sum computes it (a table with its
# header, and JSON); bad usage; an unreadable image; a drive number past
# the device path's limit.
# Usage: boot_tool_test.sh PATH/TO/vxio.exe
set -u
# shellcheck source=lib.sh
source "$(dirname "$0")/lib.sh" "$1"

# write_bytes FILE OFFSET HEXBYTES: patches bytes into FILE in place.
write_bytes() { printf "$(echo "$3" | sed 's/\(..\)/\\x\1/g')" |
                dd of="$1" bs=1 seek="$2" conv=notrunc status=none; }
# partition FILE SLOT TYPE START_SECTOR SECTORS (little-endian fields)
le32() { printf '%02x%02x%02x%02x' $(($1 & 255)) $(($1 >> 8 & 255)) $(($1 >> 16 & 255)) $(($1 >> 24 & 255)); }
# entry: boot flag, 3 CHS bytes, type, 3 CHS bytes, first sector, sector count
partition() { write_bytes "$1" $((446 + 16 * $2)) "00000000$(printf %02x "0x$3")000000$(le32 "$4")$(le32 "$5")"; }

image=$work/disk.img
truncate -s $((64 * 512)) "$image"
write_bytes "$image" 510 55aa
partition "$image" 0 7 16 8    # signed boot sector at 8192
partition "$image" 1 c 32 8    # signed boot sector at 16384
partition "$image" 2 7 48 8    # no signature: not listed
partition "$image" 3 7 0 8     # starts at sector 0: never a boot sector
for sector in 16 32; do
  head -c 510 /dev/urandom | dd of="$image" bs=1 seek=$((sector * 512)) conv=notrunc status=none
  write_bytes "$image" $((sector * 512 + 510)) 55aa
done
sector_sum() { dd if="$image" bs=512 skip="$1" count=1 status=none | sha1sum | cut -d' ' -f1; }

out=$(vxio boot --image "$image" 2>"$work/err" | tr -d '\r'); status=$?
[ "$status" -eq 0 ] && pass || fail "image: exit status $status"
want=$(printf 'OFFSET\tSHA1\n8192\t%s\n16384\t%s' "$(sector_sum 16)" "$(sector_sum 32)")
[ "$out" == "$want" ] && pass || fail "image: listing '$out' (want '$want')"
out=$(vxio boot --json --no-header --image="$image" | tr -d '\r')
if WANT="$want" python3 -c '
import json, os, sys
got = [json.loads(line) for line in sys.stdin]
want = [dict(offset=int(o), sha1=s) for o, s in (l.split("\t") for l in os.environ["WANT"].split("\n")[1:])]
assert got == want, got
' <<<"$out"; then pass; else fail "image json: $out"; fi

vxio boot --image "$work/none.img" >/dev/null 2>&1; status=$?
[ "$status" -eq 1 ] && pass || fail "missing image: exit status $status"
vxio boot 138 >/dev/null 2>&1; status=$?
[ "$status" -eq 1 ] && pass || fail "drive 138: exit status $status"
for args in "" "x" "--image" "--bogus 2" "256" "-1" "2x" "2 3" "--json=1 2" "--image $image 2"; do
  # shellcheck disable=SC2086
  err=$(vxio boot $args 2>&1 >/dev/null); status=$?
  [ "$status $(tail -n 1 <<<"$err")" == "2 Try 'vxio boot --help'." ] && pass ||
    fail "bad usage '$args': exit status $status, '$err'"
done
summary
