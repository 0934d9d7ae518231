#!/usr/bin/env bash
# vxio.exe sha1 -c and scan --check under Wine, against the system's
# sha1sum -c run natively on the same lists and files: the same results on
# stdout, the same messages and warnings on stderr (with the tool's name),
# the same exit status, for a list mixing matches, a changed file, a
# missing file, bad lines, CR LF, binary marks and an escaped name, over
# names that are non-ANSI, device-like and longer than 260 characters; a
# list from standard input, one without digest lines, a missing list; and
# the scan's own output checked back.
# Usage: check_tool_test.sh PATH/TO/vxio.exe
set -u
# shellcheck source=lib.sh
source "$(dirname "$0")/lib.sh" "$1"

cd "$work" || exit 1
long=$(printf 'long%.0s' {1..30})  # 120 characters, three deep: over 260
mkdir -p names/sub "names/$long/$long/$long"
printf 'cjk' >"names/$(printf '\xe6\x97\xa5\xe6\x9c\xac').txt"
printf 'accent' >"names/caf$(printf '\xc3\xa9').txt"
for device in nul.txt CON aux.log com1.exe Lpt9; do printf '%s' "$device" >"names/$device"; done
printf 'deep' >"names/$long/$long/$long/f.txt"
printf 'same' >names/sub/f.txt
printf 'same' >'names\sub\f.txt'  # what sha1sum reads for the escaped line
printf 'before' >changed.txt
(cd names && find . -type f | sed 's|^\./|names/|') >files
mapfile -t files <files
sha1sum "${files[@]}" >good
sha1sum changed.txt >>good
printf 'after' >changed.txt
hash() { sha1sum "$1" | cut -c1-40; }
{
    cat good
    printf '%s  missing.txt\n' "$(hash names/CON)"
    printf 'not a digest line\n\n'
    printf '%s *names/sub/f.txt\r\n' "$(hash names/sub/f.txt)"
    printf '\\%s  names\\\\sub\\\\f.txt\n' "$(hash names/sub/f.txt)"
    printf '\\%s  bad\\tescape\n' "$(hash names/sub/f.txt)"
    printf '%s  names/nul.txt' "$(hash names/sub/f.txt)"  # no final line feed
} >mixed
printf 'junk\n' >junk

# Each row: the tool's arguments, sha1sum's arguments, standard input.
rows=("sha1 -c mixed|-c mixed|/dev/null"
      "sha1 --check good|-c good|/dev/null"
      "scan --check -|-c -|mixed"
      "sha1 -c junk -|-c junk -|good"
      "sha1 -c nolist|-c nolist|/dev/null")
for row in "${rows[@]}"; do
    IFS='|' read -r ours theirs input <<<"$row"
    # shellcheck disable=SC2086
    out=$(vxio $ours <"$input" 2>"$work/stderr")
    status=$?
    err=$(cat "$work/stderr")
    # shellcheck disable=SC2086
    want=$(sha1sum $theirs <"$input" 2>"$work/stderr")
    want_status=$?
    want_err=$(sed 's/^sha1sum:/vxio:/' "$work/stderr")
    check "$ours: results" "$want" "$out"
    check "$ours: messages" "$want_err" "$err"
    check "$ours: exit status" "$want_status" "$status"
done

# What the scan prints, the check accepts whole.
vxio scan names/ >scanned 2>/dev/null
out=$(vxio scan --check scanned 2>"$work/stderr")
check "scan output: exit status" 0 $?
check "scan output: every line OK" "$(sed 's/^\\//; s/^[0-9a-f]*  \(.*\)$/\1: OK/' scanned)" "$out"
check "scan output: quiet stderr" "" "$(cat "$work/stderr")"
[ "$(wc -l <scanned)" -ge 9 ] && pass || fail "scan output: too few lines: $(cat scanned)"

summary
