#!/usr/bin/env bash
# Applies tools/checks/layout_moves.txt: moves each path that still exists with `git mv`, then
# rewrites every mention of the old paths (include lines, comments, build files) in the text
# files under git, longest path first, so a branch made before the moves can be brought along.
# Usage: tools/checks/apply_layout_moves.sh [--rewrite-only]   (then build: the process ports of
# os/native_ports.h replace the adapters' Process*() definitions by hand)
set -euo pipefail
cd "$(dirname "$0")/../.."
moves=tools/checks/layout_moves.txt
if [[ "${1:-}" != --rewrite-only ]]; then
  grep -v '^#' "$moves" | while read -r old new; do
    [[ -e "$old" ]] || continue
    [[ -d "$old" && -n "$(git ls-files "$old" | head -1)" || -f "$old" ]] || continue
    mkdir -p "$(dirname "$new")"
    git mv "$old" "$new"
  done
fi
# The mentions: "src/" and "tests/" are dropped, as include lines name paths below them.
script=$(grep -v '^#' "$moves" | sed -E 's#^(src|tests)/##; s# (src|tests)/# #' |
  awk '{ print length($1), $1, $2 }' | sort -k1,1nr -s |
  awk '{ gsub(/\./, "\\.", $2); printf "s#(^|[^A-Za-z0-9_])%s([^A-Za-z0-9_]|$)#\\1%s\\2#g;\n", $2, $3 }')
git ls-files -z src tests tools bench cmake docs packaging .ci CMakeLists.txt README.md |
  grep -zv -e '^tools/checks/layout_moves.txt$' -e '^tools/checks/apply_layout_moves.sh$' |
  xargs -0 grep -IlZ -E 'platform/|security/codec' 2>/dev/null |
  xargs -0 -r sed -E -i "$script"
# Rewritten include lines may now sort differently.
git diff --name-only -- '*.h' '*.cpp' | xargs -r clang-format -i
