#!/usr/bin/env bash
# vxio scan over one generated tree, against two references in the same
# run: 10,000 files of 0 to 4 MiB (sizes spread evenly on a log scale, then
# scaled to 1 GiB in all) in 100 directories. Everything reads from the
# page cache (the tree is read once first). Figures:
#  - native sha1sum over the tree;
#  - scan_reference (bench/scan_reference.cpp) under Wine: a FindFirstFileW
#    walk, CreateFileW + ReadFile of every file and the library's SHA-1,
#    with as many hashing threads as vxio scan's --jobs;
#  - vxio scan --jobs 1 and 2 (streams looked for, as by default, and with
#    --no-streams), with its throughput as a ratio of the reference's
#    (target >= 0.9) and of sha1sum's;
#  - the scan with a list of 1,000,000 signatures made here against the
#    scan without (target >= 0.95 of the throughput), and the list's
#    loading time;
#  - the peak memory of a scan of 10,000 and of 100,000 small files (a
#    second generated tree), which must stay flat in the number of files.
# Times are wall times of the whole process (Wine's start included for
# the Windows programs), the best of three runs; a ratio is the reference's
# time / vxio's time, so 1.0 means as fast as the reference. Peak memory is
# the maximum resident set size that GNU time (/usr/bin/time -f %M) reports
# for the Wine process: the program itself, loaded by Wine in the process
# it starts (wineserver runs apart and is not counted).
# Usage: scan_bench.sh PATH/TO/vxio.exe [TREE_DIR]
set -euo pipefail
shopt -s inherit_errexit   # a failed run inside $(...) stops the bench too
exe=$(realpath "$1")
root=$(cd "$(dirname "$0")/.." && pwd)
tree=${2:-$(dirname "$exe")/../scan-bench-tree}
many=$tree-100k
reference=$(dirname "$exe")/scan_reference.exe
wine=$root/scripts/wine-run   # a path, not a function: GNU time runs it

if [ ! -f "$tree/.complete" ]; then
    echo "generating $tree (1 GiB)..." >&2
    rm -rf "$tree"
    python3 - "$tree" <<'PY'
import math, os, random, sys
root = sys.argv[1]
rng = random.Random(20261123)
count, total, largest = 10000, 1 << 30, 4 << 20
raw = [math.exp(rng.uniform(0, math.log(largest))) for _ in range(count)]
scale = total / sum(raw)
sizes = [min(largest, int(r * scale)) for r in raw]
sizes[0] = 0
sizes[-1] += total - sum(sizes)          # exactly 1 GiB
sizes[-1] = min(sizes[-1], largest)
block = os.urandom(largest)
for i, size in enumerate(sizes):
    d = os.path.join(root, "d%02d" % (i % 100))
    os.makedirs(d, exist_ok=True)
    start = (i * 7919) % (largest - size + 1)
    with open(os.path.join(d, "f%05d.bin" % i), "wb") as f:
        f.write(block[start:start + size])
open(os.path.join(root, ".complete"), "w").close()
PY
fi
files=$(find "$tree" -type f ! -name .complete | wc -l)
bytes=$(find "$tree" -type f ! -name .complete -printf '%s\n' | awk '{s += $1} END {print s}')
cat $(find "$tree" -type f) >/dev/null   # page cache

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
timing=$scratch/timing
# A failed run would time nothing (a program being rebuilt meanwhile, a
# scan that stopped early): the bench stops rather than print its time.
timed() {   # timed FORMAT COMMAND...: GNU time's figure of one run
    if ! /usr/bin/time -f "$1" -o "$timing" "${@:2}" >/dev/null 2>"$scratch/stderr"; then
        echo "failed: ${*:2}" >&2
        tail -3 "$scratch/stderr" >&2
        return 1
    fi
    tail -1 "$timing"
}
best() {   # best wall time in seconds of three runs of "$@"
    local best=999999 t
    for _ in 1 2 3; do
        t=$(timed %e "$@")
        best=$(awk -v a="$best" -v b="$t" 'BEGIN {print (b < a) ? b : a}')
    done
    echo "$best"
}
ratio() { awk -v a="$1" -v b="$2" 'BEGIN {printf "%.2f", a / b}'; }

# The reference must have hashed what vxio hashes: every file (the empty
# marker .complete too), no failure.
counted=$("$wine" "$reference" --jobs 2 "$tree") ||
    { echo "scan_reference failed on $tree" >&2; exit 1; }
case $counted in
"$((files + 1)) files, $bytes bytes,"*) ;;
*) echo "scan_reference saw \"$counted\", not $((files + 1)) files of $bytes bytes" >&2; exit 1 ;;
esac

native=$(best bash -c "cd '$tree' && find . -type f ! -name .complete -print0 | xargs -0 sha1sum")
echo "sha1sum:             $files files, $bytes bytes, $native s"
for jobs in 1 2; do
    r=$(best "$wine" "$reference" --jobs $jobs "$tree")
    s=$(best "$wine" "$exe" scan --jobs $jobs "$tree")
    t=$(best "$wine" "$exe" scan --no-streams --jobs $jobs "$tree")
    awk -v j="$jobs" -v r="$r" -v b="$bytes" 'BEGIN {
        printf "scan_reference --jobs %d: %.2f s (%.0f MB/s)\n", j, r, b / r / 1e6 }'
    awk -v j="$jobs" -v s="$s" -v b="$bytes" -v vr="$(ratio "$r" "$s")" \
        -v vn="$(ratio "$native" "$s")" -v t="$t" -v tr="$(ratio "$r" "$t")" 'BEGIN {
        printf "vxio scan --jobs %d:      %.2f s (%.0f MB/s), ratio to reference %.2f (target >= 0.9), to sha1sum %.2f\n",
               j, s, b / s / 1e6, vr, vn
        printf "  with --no-streams:     %.2f s, ratio to reference %.2f\n", t, tr }'
done

# One million signatures of random digests, their sizes those of the
# tree's files, so that the size filter passes every file to the hash and
# the lookup (the worst case). Loading the list is a fixed cost apart from
# the scan's throughput: it is measured alone, as a scan of an empty
# directory with the list, and taken off the scan's time.
find "$tree" -type f ! -name .complete -printf '%s\n' >"$scratch/sizes"
python3 - "$scratch/sizes" "$scratch/million.txt" <<'PY'
import random, sys
sizes = [int(line) for line in open(sys.argv[1])]
rng = random.Random(1000000)
with open(sys.argv[2], "w") as out:
    out.write("# 1,000,000 generated signatures, none of a real file\n")
    for i in range(1000000):
        out.write("%040x:%d:Bench.Generated.%d\n" % (rng.getrandbits(160), rng.choice(sizes), i))
PY
mkdir -p "$scratch/empty"
load=$(best "$wine" "$exe" scan --signatures "$scratch/million.txt" "$scratch/empty")
start=$(best "$wine" "$exe" scan "$scratch/empty")
without=$(best "$wine" "$exe" scan --jobs 2 "$tree")
with=$(best "$wine" "$exe" scan --signatures "$scratch/million.txt" --jobs 2 "$tree")
awk -v l="$load" -v s="$start" -v w="$with" -v o="$without" 'BEGIN {
    printf "1,000,000 signatures: loaded in %.2f s; vxio scan --jobs 2 with them %.2f s, without %.2f s,\n", l - s, w, o
    printf "  scanning throughput ratio (load taken off) %.2f (target >= 0.95)\n", (o - s) / (w - l) }'

if [ ! -f "$many/.complete" ]; then
    echo "generating $many (100,000 files of 0 to 99 bytes)..." >&2
    rm -rf "$many"
    python3 - "$many" <<'PY'
import os, sys
root = sys.argv[1]
for i in range(100000):
    d = os.path.join(root, "d%03d" % (i // 100))
    if i % 100 == 0:
        os.makedirs(d)
    with open(os.path.join(d, "f%06d.txt" % i), "wb") as f:
        f.write(b"v" * (i % 100))
open(os.path.join(root, ".complete"), "w").close()
PY
fi
"$wine" "$exe" --version >/dev/null   # wineserver up: its start is not measured
idle=$(timed %M "$wine" "$exe" --version)
small=$(timed %M "$wine" "$exe" scan --jobs 2 "$many"/d0??)
large=$(timed %M "$wine" "$exe" scan --jobs 2 "$many")
echo "peak memory (maximum resident set): vxio --version $idle KiB;" \
     "scan --jobs 2 of 10,000 files $small KiB, of 100,000 files $large KiB"
