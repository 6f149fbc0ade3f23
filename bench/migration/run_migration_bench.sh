#!/bin/sh
# Migrates a generated share of profiles and compares tarnwick's wall time with cp -a of the same
# share (see bench/README.md).
#   bench/migration/run_migration_bench.sh [BUILD_DIR] [PROFILES]
#     BUILD_DIR default build/bench (configured Release without tests), PROFILES default 200
set -eu
root=$(cd "$(dirname "$0")/../.." && pwd)
build=${1:-$root/build/bench}
count=${2:-200}
mkdir -p "$build"
build=$(cd "$build" && pwd)
if [ ! -x "$build/src/tarnwick" ] || [ ! -x "$build/tools/sample_share/tarnwick-sample-share" ]; then
  # -Wno-restrict: GCC 12 at -O3 reports a false -Wrestrict inside std::string for the sample
  # share generator's description parser.
  cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DTARNWICK_BUILD_TESTS=OFF \
    -DCMAKE_CXX_FLAGS=-Wno-restrict >/dev/null
fi
cmake --build "$build" --target tarnwick tarnwick-sample-share -j2 >/dev/null
tarnwick=$build/src/tarnwick
generator=$build/tools/sample_share/tarnwick-sample-share
layouts_src=$root/tools/sample_share

work=$(mktemp -d "${TMPDIR:-/tmp}/tarnwick-bench.XXXXXX")
# TARNWICK_BENCH_KEEP=1 keeps the folder (shares, targets, log, tarnwick) for profiling.
if [ -n "${TARNWICK_BENCH_KEEP:-}" ]; then
  echo "work folder (kept): $work"
else
  trap 'rm -rf "$work"' EXIT
fi

# A layout: the sample layout with 300 more files (in ten folders, one of them a special folder)
# and 3,000 more values (150 keys of 20) in its ntuser.dat.
extend_layout() {  # $1 sample layout, $2 special folder for the extra files, $3 output
  awk -v special="$2" '
    function files(  d, i) {
      for (d = 0; d < 10; d++)
        for (i = 0; i < 30; i++)
          printf "file %s\\bench%02d\\file%03d.txt = bench file %d of folder %d of {user}\n",
                 (d == 0 ? special : "Data" d), d, i, i, d
    }
    function keys(  k, v) {
      for (k = 0; k < 150; k++) {
        printf "  key Software\\Bench\\Key%03d\n", k
        for (v = 0; v < 20; v++)
          printf "    value REG_SZ Value%02d = value %d of key %d of {user}\n", v, v, k
      }
    }
    /^hive / { hives++; if (hives == 1) files(); if (hives == 2) keys() }
    { print }
    END { if (hives < 2) keys() }
  ' "$1" >"$3"
}

# Two shares: $count V1 profiles (\\bench\v1) and $count V5 profiles (\\bench\v5), each profile
# with its own owner.
make_share() {  # $1 name (v1|v5), $2 sample layout, $3 special folder, $4 folder suffix
  mkdir -p "$work/layouts-$1"
  extend_layout "$layouts_src/$2" "$3" "$work/layouts-$1/bench.txt"
  {
    printf 'share \\\\bench\\%s\n' "$1"
    grep '^default ' "$layouts_src/share.txt"
    i=1
    while [ "$i" -le "$count" ]; do
      printf 'profile user%03d%s bench.txt S-1-5-21-1111111111-2222222222-3333333333-%d\n' \
        "$i" "$4" $((10000 + i))
      i=$((i + 1))
    done
  } >"$work/layouts-$1/share.txt"
  "$generator" --layouts "$work/layouts-$1" "$work/$1" >/dev/null
}
echo "generating $count V1 and $count V5 profiles ..."
make_share v1 xp_profile.txt 'My Documents' ""
make_share v5 modern_profile.txt Documents ".V5"
cat "$work/v1/shares.conf" "$work/v5/shares.conf" >"$work/shares.conf"
files=$(find "$work/v1/share" -type f | wc -l)
bytes=$(du -sk "$work/v1/share" | cut -f1)
echo "V1 share: $files files, $bytes KB; ntuser.dat of one profile: $(stat -c %s "$work/v1/share/user001/ntuser.dat") bytes"

export TARNWICK_SHARES="$work/shares.conf"
export TARNWICK_PROFILE_ROOT="$work/profiles"
export TARNWICK_DEFAULT_PROFILE="$build/src/default-profile"
sync

now() { date +%s.%N; }
elapsed() { awk -v a="$1" -v b="$2" 'BEGIN { printf "%.2f", b - a }'; }

# Every timed step starts from the same state of the page cache. Some machines (virtual ones with
# free page reporting) evict a file's pages seconds after it was written, so whichever step runs
# first after the generation would find the share in memory and the later ones on disk. As root
# the caches are dropped before each step (cold: everything is read from disk); otherwise the
# step's share is read once beforehand (warm). TARNWICK_BENCH_CACHE=warm asks for the warm way
# as root too.
if [ -w /proc/sys/vm/drop_caches ]; then cache=cold; else cache=warm; fi
[ "${TARNWICK_BENCH_CACHE:-}" = warm ] && cache=warm
prepare() {  # $1: the share the step reads
  sync
  if [ "$cache" = cold ]; then
    echo 3 >/proc/sys/vm/drop_caches
  else
    find "$1" "$build/src/default-profile" -type f -exec cat {} + >/dev/null
  fi
}

# cp -a of each share. The copies stay until the end: on ext4 without a journal, a file created
# within a minute of many deletions waits while the allocator passes over the recently freed
# inodes, so removing the copies here would slow the tool's run down for reasons of the script.
prepare "$work/v1/share"
t0=$(now); cp -a "$work/v1/share" "$work/v1-copy"; t1=$(now); cp_v1=$(elapsed "$t0" "$t1")
prepare "$work/v5/share"
t0=$(now); cp -a "$work/v5/share" "$work/v5-copy"; t1=$(now); cp_v5=$(elapsed "$t0" "$t1")

# V5 to V6: one "*.V5" run. $1 the tool, $2 the share's name under \\bench, $3 its folder, $4 the
# name for the console output; sets tw_elapsed.
run_v5() {
  prepare "$3"
  t0=$(now)
  "$1" "/s:\\\\bench\\$2\\*.V5" /V5TOV6 >"$work/$4.out" || {
    echo "the *.V5 run ($4) failed:" >&2; tail -5 "$work/$4.out" >&2; exit 1; }
  t1=$(now); tw_elapsed=$(elapsed "$t0" "$t1")
  migrated=$(ls -d "$3"/*.V6 | wc -l)
  [ "$migrated" -eq "$count" ] || { echo "only $migrated V6 targets ($4)" >&2; exit 1; }
}
cd "$work"
cp "$tarnwick" "$work/tarnwick"
run_v5 "$work/tarnwick" v5 "$work/v5/share" v5
tw_v5=$tw_elapsed

# V1 to V2: one run per profile.
prepare "$work/v1/share"
t0=$(now)
i=1
while [ "$i" -le "$count" ]; do
  name=$(printf 'user%03d' "$i")
  "$work/tarnwick" "/s:\\\\bench\\v1\\$name" >"$work/v1.out" || {
    echo "the run of $name failed:" >&2; tail -5 "$work/v1.out" >&2; exit 1; }
  i=$((i + 1))
done
t1=$(now); tw_v1=$(elapsed "$t0" "$t1")
migrated=$(ls -d "$work/v1/share"/*.V2 | wc -l)
[ "$migrated" -eq "$count" ] || { echo "only $migrated V2 targets" >&2; exit 1; }

# The log is flushed to disk after every line, as its design requires. To show what that costs
# here, the V5 run is repeated on cp's copy of the share with the tool (and so its log, which
# lives next to it) on a memory file system, where a flush does not wait for the disk. Skipped
# when /dev/shm is missing.
tw_v5m=""
if [ -d /dev/shm ] && [ -w /dev/shm ]; then
  memory=$(mktemp -d /dev/shm/tarnwick-bench.XXXXXX)
  trap 'rm -rf "$memory"; [ -n "${TARNWICK_BENCH_KEEP:-}" ] || rm -rf "$work"' EXIT
  cp "$tarnwick" "$memory/tarnwick"
  printf '\\\\bench\\v5copy = %s\n' "$work/v5-copy" >>"$work/shares.conf"
  run_v5 "$memory/tarnwick" v5copy "$work/v5-copy" v5-memory
  tw_v5m=$tw_elapsed
fi

echo
printf '%-40s %10s %14s %16s\n' "run" "seconds" "profiles/s" "ratio to cp -a"
awk -v n="$count" -v c1="$cp_v1" -v c5="$cp_v5" -v t1="$tw_v1" -v t5="$tw_v5" -v m5="$tw_v5m" 'BEGIN {
  printf "%-40s %10.2f %14.1f %16s\n", "cp -a of the V1 share", c1, n / c1, "-";
  printf "%-40s %10.2f %14.1f %16.2f\n", "tarnwick V1 to V2, one run per profile", t1, n / t1, t1 / c1;
  printf "%-40s %10.2f %14.1f %16s\n", "cp -a of the V5 share", c5, n / c5, "-";
  printf "%-40s %10.2f %14.1f %16.2f\n", "tarnwick V5 to V6, one *.V5 run", t5, n / t5, t5 / c5;
  if (m5 != "")
    printf "%-40s %10.2f %14.1f %16.2f\n", "  the same, log in memory (no disk flush)", m5, n / m5, m5 / c5;
  printf "goal: ratios within 1.5\n";
}'
echo "page cache before each step: $cache"
