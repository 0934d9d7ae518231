#!/usr/bin/env bash
# vxio scan against sha1sum over the same generated tree, in the same run:
# 10,000 files of 0 to 4 MiB (sizes spread evenly on a log scale, then
# scaled to 1 GiB in all) in 100 directories. Both read from the page
# cache (the tree is read once first); vxio's time includes starting Wine.
# Prints the best of three runs of each and the throughput ratio
# (sha1sum's time / vxio's time: 1.0 means as fast as sha1sum).
# Usage: scan_bench.sh PATH/TO/vxio.exe [TREE_DIR]
set -euo pipefail
exe=$(realpath "$1")
root=$(cd "$(dirname "$0")/.." && pwd)
tree=${2:-$(dirname "$exe")/../scan-bench-tree}

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

timing=$(mktemp)
trap 'rm -f "$timing"' EXIT
best() {   # best wall time in seconds of three runs of "$@"
    local best=999999 t
    for _ in 1 2 3; do
        /usr/bin/time -f %e -o "$timing" "$@" >/dev/null 2>&1 || true
        t=$(tail -1 "$timing")
        best=$(awk -v a="$best" -v b="$t" 'BEGIN {print (b < a) ? b : a}')
    done
    echo "$best"
}
ref=$(best bash -c "cd '$tree' && find . -type f ! -name .complete -print0 | xargs -0 sha1sum")
echo "sha1sum:            $files files, $bytes bytes, ${ref} s"
for jobs in 1 2; do
    s=$(best "$root/scripts/wine-run" "$exe" scan --jobs $jobs "$tree")
    t=$(best "$root/scripts/wine-run" "$exe" scan --no-streams --jobs $jobs "$tree")
    awk -v r="$ref" -v t="$t" -v s="$s" -v j="$jobs" -v b="$bytes" 'BEGIN {
        printf "vxio scan --jobs %d: %.2f s (%.0f MB/s), ratio %.2f (--no-streams: %.2f s)\n",
               j, s, b / s / 1e6, r / s, t }'
done
