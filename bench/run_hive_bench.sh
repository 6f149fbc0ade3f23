#!/bin/sh
# Measures the hive engine against independent readers on one generated hive (see README.md).
#   bench/run_hive_bench.sh [BUILD_DIR]     default BUILD_DIR: build/bench (configured Release)
set -eu
root=$(cd "$(dirname "$0")/.." && pwd)
build=${1:-$root/build/bench}
if [ ! -x "$build/bench/hive_bench" ]; then
  cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DTARNWICK_BUILD_TESTS=OFF >/dev/null
  cmake --build "$build" --target hive_bench -j2 >/dev/null
fi
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
hive="$work/bench.hiv"
"$build/bench/hive_bench" generate "$hive"
size=$(stat -c %s "$hive")
echo "hive file: $size bytes"

# Runs a command under /usr/bin/time; prints "<seconds> <peak KB>".
measure() {
  /usr/bin/time -f "%e %M" -o "$work/time" "$@" >"$work/out" 2>"$work/err" || {
    echo "failed: $*" >&2; cat "$work/err" >&2; exit 1; }
  cat "$work/time"
}

set -- $(measure "$build/bench/hive_bench" walk "$hive" "$work/saved.hiv")
ours=$1; ours_kb=$2
cat "$work/out"
set -- $(measure reglookup "$hive")
reg=$1; reg_kb=$2
echo "reglookup: $(wc -l <"$work/out") lines"
hivex="-"; hivex_kb="-"
if command -v hivexregedit >/dev/null; then
  set -- $(measure hivexregedit --export "$hive" '\')
  hivex=$1; hivex_kb=$2
fi

echo
printf '%-34s %10s %12s\n' "run" "seconds" "peak KB"
printf '%-34s %10s %12s\n' "engine open + walk + save" "$ours" "$ours_kb"
printf '%-34s %10s %12s\n' "reglookup (read)" "$reg" "$reg_kb"
printf '%-34s %10s %12s\n' "hivexregedit --export (read)" "$hivex" "$hivex_kb"
awk -v o="$ours" -v r="$reg" -v k="$ours_kb" -v s="$size" 'BEGIN {
  printf "engine / reglookup time: %.2f (goal: below 1)\n", (r > 0 ? o / r : 0);
  printf "engine peak memory / file size: %.2f (goal: below 4)\n", k * 1024 / s;
}'
