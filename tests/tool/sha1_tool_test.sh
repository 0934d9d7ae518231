#!/usr/bin/env bash
# vxio.exe sha1 under Wine, against the system's sha1sum run natively on the
# same files: output byte for byte (chunk boundaries, names with spaces,
# "--", escaped backslash names, names outside the ANSI code page or named
# like devices, a path of over 300 characters), "sha1sum -c" on the output,
# standard input from a pipe and from a file read part-way, a file over
# 4 GiB, unreadable files, --json, a reader that stops early, bad usage,
# --version and --help.
# Usage: sha1_tool_test.sh PATH/TO/vxio.exe
set -u
# shellcheck source=lib.sh
source "$(dirname "$0")/lib.sh" "$1"
# check LABEL WANT GOT: strings equal, byte for byte
check() {
    if [ "$2" == "$3" ]; then pass; else
        fail "$1"
        diff <(printf '%s' "$2" | od -c) <(printf '%s' "$3" | od -c) | head -20
    fi
}
# Runs vxio with ARGS in the current directory; sets out, err, status.
# Trailing newlines survive: the captures end in "." that is then cut.
run_vxio() {
    out=$(vxio "$@" 2>"$work/stderr"; s=$?; echo .; exit $s)
    status=$?
    out=${out%.}
    err=$(cat "$work/stderr")
}

mkdir "$work/files" "$work/files/sub" "$work/linux"
cd "$work/files" || exit 1
: >empty.bin
head -c 1 /dev/urandom >one.bin
head -c 64 /dev/urandom >block.bin                 # one SHA-1 block exactly
head -c $((1 << 20)) /dev/urandom >chunk.bin      # one read chunk exactly
head -c $(((1 << 20) + 1)) /dev/urandom >chunk1.bin
head -c $(((2 << 20) + 4097)) /dev/urandom >sub/three.bin
printf 'spaced out' >'name with spaces.txt'
printf 'dash' >-lead.txt
long=$(printf 'L%.0s' {1..100})
mkdir -p "$long/$long/$long"
files=(empty.bin one.bin block.bin chunk.bin chunk1.bin sub/three.bin 'name with spaces.txt'
    nul.txt CON aux.log com1.exe LPT9 "$(printf '\xe4\xb8\xad\xe6\x96\x87').txt"
    "$long/$long/$long/deep.txt")
for name in "${files[@]:7}"; do printf '%s' "$name" >"$name"; done

# Regular files: the same lines as sha1sum, nothing on stderr, and the
# lines check out. "--" makes "-lead.txt" a name.
run_vxio sha1 -- "${files[@]}" -lead.txt
check "files: exit status" 0 "$status"
check "files: same lines as sha1sum" "$(sha1sum -- "${files[@]}" -lead.txt; echo .)" "$out."
check "files: quiet stderr" "" "$err"
printf '%s' "$out" >"$work/sums"
if sha1sum --quiet -c "$work/sums" >/dev/null 2>&1; then pass; else fail "files: sha1sum -c"; fi

# A Windows path with a backslash: printed escaped, exactly as sha1sum
# prints a Linux file whose name holds that backslash, which then checks.
cp sub/three.bin "$work/linux/sub\\three.bin"
# Both backends read the same bytes; the File backend is the default.
run_vxio sha1 --backend handle -- "${files[@]}"
check "handle backend: same lines as sha1sum" "$(sha1sum -- "${files[@]}"; echo .)" "$out."
run_vxio sha1 --backend tape one.bin
check "unknown backend: bad usage" 2 "$status"

run_vxio sha1 'sub\three.bin'
check "backslash: exit status" 0 "$status"
check "backslash: escaped line" "$(cd "$work/linux" && sha1sum 'sub\three.bin'; echo .)" "$out."
printf '%s' "$out" >"$work/sums"
if (cd "$work/linux" && sha1sum --quiet -c "$work/sums" >/dev/null 2>&1); then pass; else
    fail "backslash: sha1sum -c"
fi

# Standard input: a pipe (no size, no seeking), and a file that the shell
# has already read 3 bytes of: the rest is hashed, and a second "-" finds
# nothing left, as with sha1sum.
out=$(cat chunk1.bin | vxio sha1)
check "stdin: pipe" "$(sha1sum <chunk1.bin)" "$out"
out=$( (dd bs=1 count=3 of=/dev/null 2>/dev/null && vxio sha1 - -) <block.bin)
check "stdin: file read part-way" "$( (dd bs=1 count=3 of=/dev/null 2>/dev/null && sha1sum - -) <block.bin)" "$out"

# Unreadable operands are reported and skipped; the others still hashed.
mkfifo fifo
run_vxio sha1 one.bin missing.bin nodir/x.bin sub fifo empty.bin
check "unreadable: exit status" 1 "$status"
check "unreadable: readable files hashed" "$(sha1sum one.bin empty.bin; echo .)" "$out."
check "unreadable: reasons" "vxio: missing.bin: No such file or directory
vxio: nodir/x.bin: No such file or directory
vxio: sub: Is a directory
vxio: fifo: not a regular file (a pipe or FIFO)" "$err"

# Bad usage: exit 2, help or a message on stderr, nothing hashed.
for args in "" "frob" "--bogus" "sha1 -x one.bin" "sha1 one.bin --bogus" "sha1 --backend" \
    "sha1 --json=yes one.bin" "sha1 -c --backend=file one.bin"; do
    # shellcheck disable=SC2086
    run_vxio $args
    check "usage '$args': exit status" 2 "$status"
    check "usage '$args': nothing on stdout" "" "$out"
    [ -n "$err" ] && pass || fail "usage '$args': no message on stderr"
done

# JSON: one object a line, the unreadable one with its reason.
run_vxio sha1 --json one.bin missing.bin
check "json: exit status" 1 "$status"
if printf '%s' "$out" | python3 -c '
import json, sys
a, b = map(json.loads, sys.stdin)
assert a == {"path": "one.bin", "kind": "file", "size": 1, "sha1": sys.argv[1]}, a
assert b["sha1"] is None and b["error"] == "No such file or directory", b' \
    "$(sha1sum one.bin | cut -c1-40)"; then pass; else fail "json: $out"; fi

# A reader that stops early ends the command quietly, with status 0.
mapfile -t many < <(yes one.bin | head -3000)  # 24 KB of command line
out=$(vxio sha1 "${many[@]}" 2>"$work/stderr" | head -1; exit "${PIPESTATUS[0]}")
check "closed pipe: status, stderr" "0 []" "$? [$(cat "$work/stderr")]"

# --version gives the project version (VXIO_VERSION, which ctest passes
# from project() in CMakeLists.txt); the help texts go to stdout.
version=${VXIO_VERSION:?"the project version, e.g. VXIO_VERSION=0.1.0"}
run_vxio --version
check "--version" "vxio $version
." "$out."
for args in "--help" "-h" "sha1 --help"; do
    # shellcheck disable=SC2086
    run_vxio $args
    check "help '$args': exit status" 0 "$status"
    case $out in *"sha1"*) pass ;; *) fail "help '$args': no sha1 in the text" ;; esac
done

# A sparse file of 4 GiB + 5 zero bytes: the true size must be used, not
# its low 32 bits (which would hash 5 bytes). The digest is the one sha1sum
# gives for it, fixed here because computing it takes sha1sum far longer.
if truncate -s $(((4 << 30) + 5)) "$work/big.bin" 2>/dev/null; then
    out=$(cd "$work" && vxio sha1 big.bin)
    check "over 4 GiB" "7ce9d83c5eacca17b354408ce637473229a7d5e2  big.bin" "$out"
    rm -f "$work/big.bin"
else
    echo "SKIP: over 4 GiB (no sparse files in $work)"
fi

summary
