#!/usr/bin/env bash
# Builds tarnwick and shows what it does today.
# The migration itself is still being built: for now this runs "tarnwick /help" and shows the
# usage text, then the log file that the run wrote beside the executable.
set -euo pipefail
cd "$(dirname "$0")/.."
cmake --preset linux >/dev/null
cmake --build --preset linux --target tarnwick
exe=build/linux/src/tarnwick
"$exe" /help
echo
echo "Log file: $(pwd)/build/linux/src/tarnwick.log"
