#!/usr/bin/env bash
# Builds tarnwick and runs every test suite (unit and end-to-end) with CTest.
# Usage: tools/run-tests.sh [linux|asan|tsan]   (default: linux)
set -euo pipefail
cd "$(dirname "$0")/.."
preset="${1:-linux}"
cmake --preset "$preset" >/dev/null
cmake --build --preset "$preset"
ctest --preset "$preset"
