#!/usr/bin/env bash
# Builds the libFuzzer targets with clang, AddressSanitizer and UndefinedBehaviorSanitizer
# (build/fuzz) and runs the hive target over a seed corpus made from the test hives and their
# transaction logs, for a bounded time. Any finding (crash, sanitizer report, leak, timeout,
# memory limit) fails the run; the input is left as build/fuzz/findings/<kind>-<sha1>.
# Usage: tools/run-fuzz.sh [SECONDS]   (default: 120)
set -euo pipefail
cd "$(dirname "$0")/.."
seconds="${1:-120}"
build=build/fuzz
CC=clang CXX=clang++ cmake --preset asan -B "$build" -DTARNWICK_FUZZ=ON \
  -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build "$build" --target hive_reader_fuzz -j2

seeds="$build/hive-seeds"
corpus="$build/hive-corpus"
findings="$build/findings"
rm -rf "$seeds"
mkdir -p "$corpus" "$findings"
python3 tests/fuzz/make_hive_seeds.py "$seeds" tests/data/hives
# The target's private folder goes under TMPDIR: libFuzzer ends without the exit handlers that
# would remove it, so it is kept in the build folder and removed here.
export TMPDIR="$PWD/$build/tmp"
rm -rf "$TMPDIR"
mkdir -p "$TMPDIR"
trap 'rm -rf "$TMPDIR"' EXIT
# The inputs found by earlier runs (kept in the build folder) are merged with the seeds.
"$build/tests/fuzz/hive_reader_fuzz" -max_total_time="$seconds" -timeout=20 \
  -rss_limit_mb=2560 -print_final_stats=1 -artifact_prefix="$findings/" "$corpus" "$seeds"
