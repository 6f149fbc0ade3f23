#!/usr/bin/env bash
# The Windows zip of a MinGW build: made with CPack, it holds tarnwick.exe, tarnwick-hive.exe,
# tarnwick-survey.exe, tarnwick-batch.exe,
# offreg-dll\offreg.dll and README.txt (CR LF lines) in one top folder, and nothing else.
#   tests/package/windows_zip_test.sh [MINGW_BUILD_DIR]   (default build/mingw)
set -euo pipefail
root=$(cd "$(dirname "$0")/../.." && pwd)
build=$(cd "${1:-$root/build/mingw}" && pwd)
fail() { echo "windows zip test: FAILED: $*" >&2; exit 1; }

cmake --build "$build" --target package >/dev/null
version=$(sed -n 's/^project(tarnwick VERSION \([0-9.]*\).*/\1/p' "$root/CMakeLists.txt")
name=tarnwick-$version-windows-x64
zip=$build/$name.zip
[ -f "$zip" ] || fail "no $zip"
listing=$(unzip -Z1 "$zip" | grep -v '/$' | sort)
expected=$(printf '%s\n' "$name/README.txt" "$name/offreg-dll/offreg.dll" \
  "$name/tarnwick-hive.exe" "$name/tarnwick.exe" "$name/tarnwick-survey.exe" \
  "$name/tarnwick-batch.exe" | sort)
[ "$listing" = "$expected" ] || fail "the zip holds:"$'\n'"$listing"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
unzip -q "$zip" -d "$work"
grep -q $'offreg.dll\r$' "$work/$name/README.txt" || fail "README.txt without CR LF lines"
grep -q "$version" "$work/$name/README.txt" || fail "README.txt without the version"
cmp -s "$work/$name/tarnwick.exe" "$build/src/tarnwick.exe" || fail "tarnwick.exe differs"
echo "windows zip test: passed ($zip)"
