#!/usr/bin/env bash
# Fails when any C++ file of the sources, tests, tools or benchmarks differs from .clang-format.
# Usage: tools/checks/format.sh   (run from anywhere; clang-format must be on the PATH)
set -euo pipefail
cd "$(dirname "$0")/../.."
mapfile -t files < <(git ls-files 'src/*' 'tests/*' 'tools/*' 'bench/*' | grep -E '\.(c|cc|cpp|h|hpp)$')
clang-format --dry-run --Werror "${files[@]}"
echo "format: ${#files[@]} files match .clang-format"
