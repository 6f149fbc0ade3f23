#!/bin/sh
# Times tarnwick-survey over a generated share of profiles against cp -a of the same share, in the
# same run (see bench/README.md).
#   bench/survey/run_survey_bench.sh [BUILD_DIR] [PROFILES]
#     BUILD_DIR default build/bench (configured Release without tests), PROFILES default 1000
#   TARNWICK_BENCH_ROUNDS  rounds of every timed step (default 3); the medians are compared
#   TARNWICK_BENCH_CACHE=warm  reads the share before each step instead of dropping the caches
# The share: PROFILES V1 profiles of the sample layout, each with its own owner. The survey runs
# twice: as it is (every clean ntuser.dat opened to find redirected folders) and with
# --base-blocks-only (hives read by their base blocks alone).
set -eu
root=$(cd "$(dirname "$0")/../.." && pwd)
build=${1:-$root/build/bench}
count=${2:-1000}
rounds=${TARNWICK_BENCH_ROUNDS:-3}
mkdir -p "$build"
build=$(cd "$build" && pwd)
if [ ! -f "$build/CMakeCache.txt" ]; then
  cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DTARNWICK_BUILD_TESTS=OFF \
    -DCMAKE_CXX_FLAGS=-Wno-restrict >/dev/null
fi
cmake --build "$build" --target tarnwick-survey tarnwick-sample-share -j2 >/dev/null
survey=$build/src/tarnwick-survey
generator=$build/tools/sample_share/tarnwick-sample-share

work=$(mktemp -d "${TMPDIR:-/tmp}/tarnwick-survey-bench.XXXXXX")
trap 'rm -rf "$work"' EXIT

mkdir -p "$work/layouts"
cp "$root/tools/sample_share/xp_profile.txt" "$work/layouts/"
{
  printf 'share \\\\bench\\v1\n'
  grep '^default ' "$root/tools/sample_share/share.txt"
  i=1
  while [ "$i" -le "$count" ]; do
    printf 'profile user%04d xp_profile.txt S-1-5-21-1111111111-2222222222-3333333333-%d\n' \
      "$i" $((10000 + i))
    i=$((i + 1))
  done
} >"$work/layouts/share.txt"
echo "generating $count V1 profiles ..."
"$generator" --layouts "$work/layouts" "$work/v1" >/dev/null
export TARNWICK_SHARES="$work/v1/shares.conf"
files=$(find "$work/v1/share" -type f | wc -l)
echo "share: $files files, $(du -sk "$work/v1/share" | cut -f1) KB"

now() { date +%s.%N; }
elapsed() { awk -v a="$1" -v b="$2" 'BEGIN { printf "%.3f", b - a }'; }
record() { echo "$2" >>"$work/times.$1"; }
# Every step starts from the same state of the page cache: as root the caches are dropped before
# each step (cold: the share is read from the disk, as on a server that has not served it for a
# while); otherwise, or with TARNWICK_BENCH_CACHE=warm, the share is read once beforehand (warm).
if [ -w /proc/sys/vm/drop_caches ]; then cache=cold; else cache=warm; fi
[ "${TARNWICK_BENCH_CACHE:-}" = warm ] && cache=warm
prepare() {
  sync
  if [ "$cache" = cold ]; then
    echo 3 >/proc/sys/vm/drop_caches
  else
    find "$work/v1/share" -type f -exec cat {} + >/dev/null
  fi
}

round=1
while [ "$round" -le "$rounds" ]; do
  echo "round $round of $rounds ..."
  prepare
  t0=$(now)
  cp -a "$work/v1/share" "$work/copy.$round"
  record cp "$(elapsed "$t0" "$(now)")"
  prepare
  t0=$(now)
  status=0
  "$survey" --json '\\bench\v1' >"$work/survey.json" || status=$?
  record survey "$(elapsed "$t0" "$(now)")"
  [ "$status" -le 1 ] || { echo "the survey failed ($status)" >&2; exit 1; }
  prepare
  t0=$(now)
  "$survey" --base-blocks-only '\\bench\v1' >/dev/null || true
  record survey-fast "$(elapsed "$t0" "$(now)")"
  rows=$(grep -c '"kind": "V1"' "$work/survey.json")
  [ "$rows" -eq "$count" ] || { echo "the survey saw $rows V1 profiles, not $count" >&2; exit 1; }
  round=$((round + 1))
done

median() {
  sort -n "$work/times.$1" | awk '{ v[NR] = $1 } END {
    if (NR % 2) printf "%.3f", v[(NR + 1) / 2]; else printf "%.3f", (v[NR / 2] + v[NR / 2 + 1]) / 2 }'
}
cp_time=$(median cp)
echo
echo "$count profiles, rounds: $rounds, page cache before each step: $cache"
printf '%-44s %9s %11s %6s\n' run "median s" profiles/s ratio
for step in cp survey survey-fast; do
  t=$(median "$step")
  case $step in
    cp) label="cp -a of the share" ;;
    survey) label="tarnwick-survey --json" ;;
    survey-fast) label="tarnwick-survey --base-blocks-only" ;;
  esac
  awk -v l="$label" -v t="$t" -v c="$cp_time" -v n="$count" \
    'BEGIN { printf "%-44s %9.3f %11.1f %6.3f\n", l, t, n / t, t / c }'
done
echo "ratio: median time over the median time of cp -a of the same share; goal: below 0.1"
