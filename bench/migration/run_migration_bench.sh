#!/bin/sh
# Migrates a generated share of profiles and compares tarnwick's wall time with cp -a of the same
# share (see bench/README.md).
#   bench/migration/run_migration_bench.sh [BUILD_DIR] [PROFILES]
#     BUILD_DIR default build/bench (configured Release without tests), PROFILES default 200
#   TARNWICK_BENCH_ROUNDS  rounds of every timed step (default 3); the medians are compared
#   TARNWICK_BENCH_KEEP=1  keeps the work folder (shares, targets, log) for profiling
#   TARNWICK_BENCH_CACHE=warm  reads each step's share beforehand instead of dropping the caches
set -eu
root=$(cd "$(dirname "$0")/../.." && pwd)
build=${1:-$root/build/bench}
count=${2:-200}
rounds=${TARNWICK_BENCH_ROUNDS:-3}
mkdir -p "$build"
build=$(cd "$build" && pwd)
if [ ! -x "$build/src/tarnwick" ] || [ ! -x "$build/src/tarnwick-batch" ] || [ ! -x "$build/tools/sample_share/tarnwick-sample-share" ]; then
  # -Wno-restrict: GCC 12 at -O3 reports a false -Wrestrict inside std::string for the sample
  # share generator's description parser.
  cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DTARNWICK_BUILD_TESTS=OFF \
    -DCMAKE_CXX_FLAGS=-Wno-restrict >/dev/null
fi
cmake --build "$build" --target tarnwick tarnwick-sample-share tarnwick-batch tarnwick-survey -j2 \
  >/dev/null
tarnwick=$build/src/tarnwick
generator=$build/tools/sample_share/tarnwick-sample-share
layouts_src=$root/tools/sample_share

# A memory file system for the temporary profiles (and, in one variant, the log): /run where it
# is one, else /dev/shm.
memory_fs=""
for candidate in /run /dev/shm; do
  if [ -d "$candidate" ] && [ -w "$candidate" ] &&
     [ "$(stat -f -c %T "$candidate" 2>/dev/null)" = tmpfs ]; then
    memory_fs=$candidate
    break
  fi
done
[ -n "$memory_fs" ] || { echo "no memory file system (/run or /dev/shm) to use" >&2; exit 1; }

work=$(mktemp -d "${TMPDIR:-/tmp}/tarnwick-bench.XXXXXX")
memory=$(mktemp -d "$memory_fs/tarnwick-bench.XXXXXX")
if [ -n "${TARNWICK_BENCH_KEEP:-}" ]; then
  echo "work folder (kept): $work"
  trap 'rm -rf "$memory"' EXIT
else
  trap 'rm -rf "$work" "$memory"' EXIT
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
export TARNWICK_DEFAULT_PROFILE="$build/src/default-profile"
memory_profiles="$memory/profiles"
disk_profiles="$work/profiles"
mkdir -p "$work/trash" "$memory/app"
cp "$tarnwick" "$work/tarnwick"
cp "$tarnwick" "$memory/app/tarnwick"
cp "$build/src/tarnwick-batch" "$work/tarnwick-batch"  # beside the tarnwick it runs
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

# Nothing made by a timed step is deleted while the script runs: copies and targets are moved
# (renamed) into the trash folder. On ext4 without a journal, a file created within half a
# minute of many deletions waits while the allocator passes over the recently freed inodes, so a
# deletion would slow the following steps down for reasons of the script.
record() {  # $1 step name, $2 seconds: appends to the step's list of times
  echo "$2" >>"$work/times.$1"
}

# cp -a of a share. $1 step name, $2 share folder.
time_copy() {
  prepare "$2"
  t0=$(now)
  cp -a "$2" "$work/trash/$1.$round"
  t1=$(now)
  record "$1" "$(elapsed "$t0" "$t1")"
}

# Ends a timed run of the tool that began at t0: records its time, checks that every target was
# made and moves the targets into the trash. $1 step name, $2 the share, $3 the targets' suffix.
finish_run() {
  t1=$(now)
  record "$1" "$(elapsed "$t0" "$t1")"
  migrated=$(ls -d "$2"/*."$3" | wc -l)
  [ "$migrated" -eq "$count" ] || { echo "only $migrated $3 targets ($1)" >&2; exit 1; }
  mkdir "$work/trash/$1.$round"
  mv "$2"/*."$3" "$work/trash/$1.$round/"
}

# One "*.V5" run to V6. $1 step name, $2 the tool, $3 the profile root.
time_v5() {
  prepare "$work/v5/share"
  t0=$(now)
  TARNWICK_PROFILE_ROOT=$3 "$2" '/s:\\bench\v5\*.V5' /V5TOV6 >"$work/$1.out" || {
    echo "the *.V5 run ($1) failed:" >&2; tail -5 "$work/$1.out" >&2; exit 1; }
  finish_run "$1" "$work/v5/share" V6
}

# V1 to V2 with one run per profile. $1 step name, $2 the tool, $3 the profile root.
time_v1() {
  prepare "$work/v1/share"
  t0=$(now)
  i=1
  while [ "$i" -le "$count" ]; do
    name=$(printf 'user%03d' "$i")
    TARNWICK_PROFILE_ROOT=$3 "$2" "/s:\\\\bench\\v1\\$name" >"$work/$1.out" || {
      echo "the run of $name failed:" >&2; tail -5 "$work/$1.out" >&2; exit 1; }
    i=$((i + 1))
  done
  finish_run "$1" "$work/v1/share" V2
}

# tarnwick-batch over a whole share (--share), temporary profiles in memory. $1 step name,
# $2 runs at once, $3 share (v1|v5), $4 mode, $5 the targets' suffix.
time_batch() {
  prepare "$work/$3/share"
  t0=$(now)
  TARNWICK_PROFILE_ROOT=$memory_profiles "$work/tarnwick-batch" --jobs "$2" --mode "$4" \
    --share "\\\\bench\\$3" >"$work/$1.out" || {
    echo "the batch ($1) failed:" >&2; tail -5 "$work/$1.out" >&2; exit 1; }
  finish_run "$1" "$work/$3/share" "$5"
}

# tarnwick-survey --json of a share (everything the survey reports, each clean ntuser.dat opened
# for redirected folders). $1 step name, $2 share (v1|v5). Exit value 1 (some profile would fail)
# is an answer, not a failure.
time_survey() {
  prepare "$work/$2/share"
  t0=$(now)
  status=0
  "$build/src/tarnwick-survey" --json "\\\\bench\\$2" >"$work/$1.json" || status=$?
  t1=$(now)
  [ "$status" -le 1 ] || { echo "the survey ($1) failed ($status)" >&2; exit 1; }
  rows=$(grep -c '"kind": "V[15]"' "$work/$1.json")
  [ "$rows" -eq "$count" ] || { echo "the survey ($1) saw $rows profiles, not $count" >&2; exit 1; }
  record "$1" "$(elapsed "$t0" "$t1")"
}

# The steps, in rounds. The main runs keep the temporary profiles on the memory file system, as
# recommended (README, TARNWICK_PROFILE_ROOT). Two variants show what moves the figures:
#   disk-profiles: the temporary profiles on the share's own disk;
#   memory-log: the tool, and so its log (which is flushed to disk after every line, as its
#   design requires), on the memory file system as well.
round=1
while [ "$round" -le "$rounds" ]; do
  echo "round $round of $rounds ..."
  time_copy cp-v1 "$work/v1/share"
  time_copy cp-v5 "$work/v5/share"
  time_v5 tw-v5 "$work/tarnwick" "$memory_profiles"
  time_v1 tw-v1 "$work/tarnwick" "$memory_profiles"
  time_v1 tw-v1-memory-log "$memory/app/tarnwick" "$memory_profiles"
  time_v5 tw-v5-memory-log "$memory/app/tarnwick" "$memory_profiles"
  time_v5 tw-v5-disk-profiles "$work/tarnwick" "$disk_profiles"
  time_batch batch-v1-j2 2 v1 v1tov2 V2
  time_batch batch-v1-j1 1 v1 v1tov2 V2
  time_batch batch-v5-j2 2 v5 v5tov6 V6
  time_survey survey-v1 v1
  time_survey survey-v5 v5
  # That variant deleted its temporary profiles on the disk: let their inodes age (see record).
  [ "$round" -lt "$rounds" ] && sleep 35
  round=$((round + 1))
done

median() {  # $1 step name
  sort -n "$work/times.$1" | awk '{ v[NR] = $1 } END {
    if (NR % 2) printf "%.2f", v[(NR + 1) / 2]; else printf "%.2f", (v[NR / 2] + v[NR / 2 + 1]) / 2 }'
}
all() { tr '\n' ' ' <"$work/times.$1"; }
# Each round's time, with its ratio to the same round's cp -a in brackets.
rounds_of() {  # $1 step, $2 reference step ("" for none)
  if [ -n "$2" ]; then
    paste -d ' ' "$work/times.$1" "$work/times.$2" | awk '{ printf "%s (%.2f) ", $1, $1 / $2 }'
  else
    all "$1"
  fi
}
# The median of the rounds' own ratios: each round's times are taken minutes apart, so this one
# is the less moved by a disk that is faster or slower for a while.
paired() {  # $1 step, $2 reference step
  paste -d ' ' "$work/times.$1" "$work/times.$2" | awk '{ print $1 / $2 }' | sort -n | awk '
    { v[NR] = $1 } END {
      if (NR % 2) printf "%.2f", v[(NR + 1) / 2]; else printf "%.2f", (v[NR / 2] + v[NR / 2 + 1]) / 2 }'
}
row() {  # $1 label, $2 step, $3 reference step ("" for none)
  m=$(median "$2")
  if [ -n "$3" ]; then
    ratio=$(awk -v a="$m" -v b="$(median "$3")" 'BEGIN { printf "%.2f", a / b }')
    pairs=$(paired "$2" "$3")
  else
    ratio="-"
    pairs="-"
  fi
  printf '%-44s %8s %11s %6s %7s   %s\n' "$1" "$m" "$(awk -v n="$count" -v s="$m" 'BEGIN { printf "%.1f", n / s }')" \
    "$ratio" "$pairs" "$(rounds_of "$2" "$3")"
}
echo
echo "$count profiles per share, rounds: $rounds, page cache before each step: $cache;"
echo "temporary profiles on $memory_fs ($(stat -f -c %T "$memory_fs")) unless said otherwise"
printf '%-44s %8s %11s %6s %7s   %s\n' "run" "median s" "profiles/s" "ratio" "paired" \
  "each round: s (ratio)"
row "cp -a of the V1 share" cp-v1 ""
row "tarnwick V1 to V2, one run per profile" tw-v1 cp-v1
row "  the same, log on the memory file system" tw-v1-memory-log cp-v1
row "cp -a of the V5 share" cp-v5 ""
row "tarnwick V5 to V6, one *.V5 run" tw-v5 cp-v5
row "  the same, log on the memory file system" tw-v5-memory-log cp-v5
row "  the same, temporary profiles on the disk" tw-v5-disk-profiles cp-v5
row "tarnwick-batch --jobs 2 --share, V1 to V2" batch-v1-j2 cp-v1
row "tarnwick-batch --jobs 1 --share, V1 to V2" batch-v1-j1 cp-v1
row "  --jobs 1 against the one-run-per-profile loop" batch-v1-j1 tw-v1
row "tarnwick-batch --jobs 2 --share, V5 to V6" batch-v5-j2 cp-v5
row "tarnwick-survey --json of the V1 share" survey-v1 cp-v1
row "tarnwick-survey --json of the V5 share" survey-v5 cp-v5
echo "ratio: median time over the median time of cp -a of the same share; paired: the median of"
echo "the rounds' ratios to cp -a of the same share. Goals: tarnwick within 1.5; the batch with"
echo "--jobs 2 below 1.0 (0.8 wished for), with --jobs 1 no slower than the loop; the survey below 0.1"
