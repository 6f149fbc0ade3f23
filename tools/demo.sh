#!/usr/bin/env bash
# Builds tarnwick (linux preset), generates the sample share into a fresh folder and migrates it
# as an administrator would on a Linux file server, then shows one migrated profile.
#
# The share map maps \\sample\profiles to the generated share. In the default mode (V1 to V2)
# only the bare path "*" is a wildcard: \\sample\profiles\* would be taken as one folder named
# "*" and yield nothing, so every V1 profile is named in its own run. erin.V2 is named with
# /V2TOV6, and the V5 profiles go in one "*.V5" run with /V5TOV6 (that search does enumerate).
#
# TARNWICK_BUILD_DIR=<folder> builds there instead of the preset's build/linux.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$(pwd)

# Windows security lives in the security.NTACL extended attribute, as the Samba server keeps it,
# and the owners are the server's accounts: only root may write either. The demo runs the way
# the tool runs on a file server, as root (through sudo when started by another user).
if [ "$(id -u)" -ne 0 ]; then
  if command -v sudo >/dev/null; then
    echo "demo: the sample share and the migration need root (security.NTACL, owners); using sudo"
    exec sudo --preserve-env=TARNWICK_BUILD_DIR bash "$root/tools/demo.sh" "$@"
  fi
  echo "demo: run as root: the sample share and the migration write security.NTACL and owners" >&2
  exit 1
fi

if [ -n "${TARNWICK_BUILD_DIR:-}" ]; then
  build=$TARNWICK_BUILD_DIR
  cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
else
  build=$root/build/linux
  cmake --preset linux >/dev/null
fi
cmake --build "$build" --target tarnwick tarnwick-hive tarnwick-sample-share

tarnwick=$build/src/tarnwick
hive_tool=$build/tools/hive/tarnwick-hive
log=$build/src/tarnwick.log

# A fresh folder for every run of the demo.
mkdir -p "$root/build"
demo=$(mktemp -d "$root/build/demo.XXXXXX")
echo
echo "== Generating the sample share in $demo"
"$build/tools/sample_share/tarnwick-sample-share" "$demo"

export TARNWICK_SHARES=$demo/shares.conf
export TARNWICK_PROFILE_ROOT=$demo/profiles
share='\\sample\profiles'

run() {
  echo
  echo "== tarnwick $*"
  "$tarnwick" "$@"
}

for user in alice bob carol dave; do
  run "/s:$share\\$user"
done
run "/s:$share\\erin.V2" /V2TOV6
run "/s:$share\\*.V5" /V5TOV6

echo
echo "== Done"
echo "Source share and results: $demo/share"
echo "  V1 -> V2: alice.V2 bob.V2 carol.V2 dave.V2 (dave's \"Personal\" stays on \\\\sample\\home\\dave\\docs)"
echo "  V2 -> V6: erin.V6    V5 -> V6: frank.V6 grace.V6"
echo "Log file: $log"
echo
echo "== The migrated profile alice.V2 (folders two levels deep, and the files)"
(cd "$demo/share/alice.V2" && find . -maxdepth 2 | sort && find . -mindepth 3 -type f | sort)
echo
echo "== tarnwick-hive dump of alice.V2\\ntuser.dat: User Shell Folders"
"$hive_tool" dump "$demo/share/alice.V2/ntuser.dat" |
  awk '/^key /{show = ($0 ~ /Explorer\\\\User Shell Folders"$/)} show'
