#!/usr/bin/env bash
# The Wine suite: runs the Windows build of tarnwick.exe under Wine over the sample share, through
# a UNC path, and compares what it does with the Linux build's run over an identical share.
#
#   tests/wine/run_wine_suite.sh MINGW_BUILD_DIR LINUX_BUILD_DIR
#
# MINGW_BUILD_DIR holds tarnwick.exe, offreg.dll and the test-only userenv.dll
# (tests/wine/userenv, installed into the prefix's system32 for the suite); LINUX_BUILD_DIR holds tarnwick, its "default-profile" template and
# tarnwick-sample-share. Everything happens in a temporary folder: a new Wine prefix (its
# wineserver kept running for the suite and stopped at the end), "dosdevices/unc/sample" linked to
# a folder holding the share folder "profiles" (the server is linked, not the share: a linked
# share reports itself as a reparse point), the exe with offreg.dll beside it, and the test
# userenv.dll with the template installed in the prefix's system32 in place of Wine's own
# userenv.dll (tarnwick loads userenv.dll from the system folder only, and offreg.dll from there,
# else from its own folder). Wine cannot store security descriptors, creation times or READONLY
# on folders, so trees are compared by names, types and contents only.
# TARNWICK_WINE_KEEP=1 keeps the temporary folder for a look afterwards.
# Prints one line per check and "N passed, N failed"; exits 1 when any check failed, 2 on a
# usage or setup error.
set -uo pipefail

if [ $# -ne 2 ]; then
  echo "usage: $0 MINGW_BUILD_DIR LINUX_BUILD_DIR" >&2
  exit 2
fi
mingw=$(cd "$1" && pwd) || exit 2
linux=$(cd "$2" && pwd) || exit 2
here=$(cd "$(dirname "$0")" && pwd)

exe=$mingw/src/tarnwick.exe
offreg=$mingw/src/hive/dll/offreg.dll
userenv=$mingw/tests/wine/userenv/userenv.dll
linux_exe=$linux/src/tarnwick
template=$linux/src/default-profile
generator=$linux/tools/sample_share/tarnwick-sample-share
for needed in "$exe" "$offreg" "$userenv" "$linux_exe" "$generator"; do
  [ -f "$needed" ] || { echo "missing: $needed" >&2; exit 2; }
done
[ -d "$template" ] || { echo "missing: $template" >&2; exit 2; }

# The Debian package wine64 alone gives /usr/lib/wine/wine64 and wineserver64 (the "wine" package
# with the wrappers in /usr/bin is only recommended); wineboot runs as wine64's built-in program.
first_program() {
  local candidate
  for candidate in "$@"; do
    if command -v "$candidate" >/dev/null 2>&1; then
      command -v "$candidate"
      return 0
    fi
  done
  return 1
}
wine=${WINE:-$(first_program /usr/lib/wine/wine64 wine64)} || {
  echo "wine64 is not installed" >&2
  exit 2
}
wineserver=${WINESERVER:-$(first_program /usr/lib/wine/wineserver64 wineserver)} || {
  echo "wineserver is not installed" >&2
  exit 2
}
export WINESERVER=$wineserver

work=$(mktemp -d "${TMPDIR:-/tmp}/tarnwick-wine.XXXXXX")
export WINEPREFIX=$work/prefix WINEDEBUG=-all WINEARCH=win64
# The wineserver's socket folder ("wine-XXXXXX" in the temporary folder) goes with the rest.
mkdir -p "$work/tmp"
export TMPDIR=$work/tmp
unset DISPLAY WAYLAND_DISPLAY
cleanup() {
  "$wineserver" -k >/dev/null 2>&1
  "$wineserver" -w >/dev/null 2>&1
  if [ -n "${TARNWICK_WINE_KEEP:-}" ]; then echo "kept $work"; else rm -rf "$work"; fi
}
trap cleanup EXIT

passed=0
failed=0
pass() {
  passed=$((passed + 1))
  echo "PASS $1"
}
fail() {
  failed=$((failed + 1))
  echo "FAIL $1"
  [ $# -lt 2 ] || printf '%s\n' "$2" | head -n 40 | sed 's/^/     /'
}
# check NAME EXPECTED ACTUAL: equal texts pass.
check() {
  if [ "$2" == "$3" ]; then
    pass "$1"
  else
    fail "$1" "$(diff <(printf '%s\n' "$2") <(printf '%s\n' "$3"))"
  fi
}
# contains NAME TEXT PART
contains() {
  if [[ "$2" == *"$3"* ]]; then pass "$1"; else fail "$1" "not found: $3 in: $2"; fi
}
# lacks NAME TEXT PART
lacks() {
  if [[ "$2" != *"$3"* ]]; then pass "$1"; else fail "$1" "found: $3 in: $2"; fi
}

echo "== Wine prefix in $work"
WINEDLLOVERRIDES="mscoree,mshtml=" "$wine" wineboot -i >/dev/null 2>&1
"$wineserver" -w
"$wineserver" -p
[ -d "$WINEPREFIX/drive_c" ] || { echo "the Wine prefix was not made" >&2; exit 2; }

# The test userenv.dll and its template in system32, Wine's own userenv.dll (a placeholder for
# its built-in one) kept aside. Only tarnwick.exe takes the DLL found there; Wine's own programs
# keep their built-in userenv.dll, whose other functions they call.
system32=$WINEPREFIX/drive_c/windows/system32
cp "$system32/userenv.dll" "$work/wine-userenv.dll" || exit 2
"$wine" reg add 'HKCU\Software\Wine\DllOverrides' /v userenv /d builtin /f >/dev/null 2>&1
"$wine" reg add 'HKCU\Software\Wine\AppDefaults\tarnwick.exe\DllOverrides' /v userenv \
  /d native,builtin /f >/dev/null 2>&1
cp "$userenv" "$system32/userenv.dll" || exit 2
cp -r "$template" "$system32/default-profile" || exit 2
# Puts Wine's own userenv.dll (without CreateProfile and DeleteProfileW) back in system32, or
# the test one.
system_userenv() {
  if [ "$1" = wine ]; then cp "$work/wine-userenv.dll" "$system32/userenv.dll"; else cp "$userenv" "$system32/userenv.dll"; fi
}

# The programs: Windows beside offreg.dll, Linux beside its template.
mkdir -p "$work/app" "$work/linux-app"
cp "$exe" "$offreg" "$work/app/"
cp "$linux_exe" "$work/linux-app/tarnwick"
cp -r "$template" "$work/linux-app/default-profile"
# Without offreg.dll; and with the test userenv.dll planted beside the exe (never loaded from
# there).
mkdir -p "$work/app-no-offreg" "$work/app-planted-userenv"
cp "$exe" "$work/app-no-offreg/"
cp "$exe" "$offreg" "$userenv" "$work/app-planted-userenv/"
cp -r "$template" "$work/app-planted-userenv/default-profile"

# Two identical sample shares: one mapped for Linux, one reached by Wine as \\sample\profiles.
"$generator" "$work/linux-sample" >/dev/null || exit 2
"$generator" "$work/wine-sample" >/dev/null || exit 2
mkdir -p "$work/wine-server"
mv "$work/wine-sample/share" "$work/wine-server/profiles"
mkdir -p "$WINEPREFIX/dosdevices/unc"
ln -s "$work/wine-server" "$WINEPREFIX/dosdevices/unc/sample"
wine_share=$work/wine-server/profiles
linux_share=$work/linux-sample/share

# Runs set out, status (the exit value modulo 256) and, for Wine, the console with the text mode's
# "\r\r\n" turned back into "\r\n". Both run from $work, so relative paths name the same files.
out=""
status=0
run_wine() {
  local app=$1
  shift
  out=$(cd "$work" && "$wine" "$work/$app/tarnwick.exe" "$@" 2>/dev/null | perl -pe 's/\r\r\n/\r\n/g'; exit "${PIPESTATUS[0]}")
  status=$?
}
run_linux() {
  out=$(cd "$work" && TARNWICK_SHARES="$work/linux-sample/shares.conf" \
    TARNWICK_PROFILE_ROOT="$work/linux-profiles" "$work/linux-app/tarnwick" "$@" 2>/dev/null)
  status=$?
}
# Both runs of the same arguments: console and status must be equal.
wine_out=""
wine_status=0
run_both() {
  local name=$1
  shift
  run_linux "$@"
  local linux_out=$out linux_status=$status
  run_wine app "$@"
  wine_out=$out
  wine_status=$status
  check "$name: exit value" "$linux_status" "$wine_status"
  check "$name: console" "$linux_out" "$wine_out"
}

# The listing of a migrated tree (tree_listing.py, with hivex for the hives); a listing that
# cannot be made fails the check that uses it.
python=/usr/bin/python3
listing() {
  "$python" "$here/tree_listing.py" "$1" 2>&1 || echo "LISTING FAILED: $1"
}

# The log lines without their "[date time][0xthread] " prefix.
log_messages() {
  [ -f "$1" ] && perl -pe 's/^\[[^]]*\]\[0x[0-9A-Fa-f]+\] //' "$1"
}

echo "== no arguments and help"
run_both "no arguments"
check "no arguments: exit value is -1" 255 "$wine_status"
contains "no arguments: message" "$wine_out" "No command line args, exiting."
run_both "help" "/?"
contains "help: usage text" "$wine_out" "tarnwick.exe [/s:<source path <version code>>]"

echo "== the log beside the exe"
log=$work/app/tarnwick.log
if [ -f "$log" ]; then
  pass "log: tarnwick.log beside tarnwick.exe"
else
  fail "log: tarnwick.log beside tarnwick.exe"
fi
check "log: every line ends in CR LF" "" "$(perl -ne 'print "$.\n" unless /\r\n\z/' "$log" 2>&1)"
check "log: no NUL bytes (not UTF-16)" "0" "$(tr -cd '\000' <"$log" | wc -c)"
# A name outside ASCII is written in Windows-1252: "zoë" as 7A 6F EB.
run_wine app '/s:\\sample\profiles\zoë'
if LC_ALL=C grep -q $'zo\xeb' "$log" && ! LC_ALL=C grep -q $'zo\xc3\xab' "$log"; then
  pass "log: Windows-1252 bytes"
else
  fail "log: Windows-1252 bytes" "$(LC_ALL=C grep -a zo "$log" | od -c | head -n 8)"
fi

echo "== V1 to V2 migration of every V1 sample profile through \\\\sample\\profiles"
: >"$work/app/tarnwick.log"
: >"$work/linux-app/tarnwick.log"
for user in alice bob carol dave; do
  run_both "V1 to V2 $user" "/s:\\\\sample\\profiles\\$user"
  check "V1 to V2 $user: exit value 0" 0 "$wine_status"
  check "V1 to V2 $user: tree, contents and hives" \
    "$(listing "$linux_share/$user.V2")" "$(listing "$wine_share/$user.V2")"
  # What Wine's run wrote, read independently: the source hive's own value and a copied file.
  wine_listing=$(listing "$wine_share/$user.V2")
  contains "V1 to V2 $user: hive value read with hivex" "$wine_listing" \
    "    Owner 1 $(printf '%s' "$user" | iconv -t UTF-16LE | od -An -tx1 | tr -d ' \n')0000"
  check "V1 to V2 $user: copied document" "Dear $user, this is a letter." \
    "$(cat "$wine_share/$user.V2/My Documents/letter.txt")"
done
# The temporary profile lies in each side's profile root: Linux's (in Windows form) and C:\users.
export linux_root="Z:${work//\//\\}\\linux-profiles\\"
check "V1 to V2: log messages" \
  "$(log_messages "$work/linux-app/tarnwick.log" | perl -pe 's/\Q$ENV{linux_root}\E/<profiles>\\/g')" \
  "$(log_messages "$work/app/tarnwick.log" | perl -pe 's/C:\\users\\/<profiles>\\/g')"
check "V1 to V2: share entries" "$(ls "$linux_share")" "$(ls "$wine_share")"
check "V1 to V2: no temporary profile left" "" \
  "$(ls "$WINEPREFIX/drive_c/users/[ProfileList]" 2>/dev/null)"

echo "== a configuration file read through MSXML"
printf '%s' '<migration><source><profilepath>\\sample\profiles\erin.V2</profilepath><migv2tov6>TRUE</migv2tov6></source><registry><excludekeys>Environment</excludekeys></registry></migration>' \
  >"$work/cfg.xml"
run_both "configuration file" cfg.xml
check "configuration file: exit value 0" 0 "$wine_status"
contains "configuration file: the configured source" "$wine_out" \
  '1 profiles were migrated from \\sample\profiles\erin.V2.'
check "configuration file: tree, contents and hives" \
  "$(listing "$linux_share/erin.V6")" "$(listing "$wine_share/erin.V6")"

echo "== missing DLLs, and where they are loaded from"
run_wine app-no-offreg '/s:\\sample\profiles\alice'
check "without offreg.dll: exit value" 255 "$status"
contains "without offreg.dll: message" "$out" "Offline registry APIs are not available"
# offreg.dll in system32 is found there first.
cp "$offreg" "$system32/offreg.dll"
run_wine app-no-offreg '/s:\\sample\profiles\nobody'
rm -f "$system32/offreg.dll"
lacks "offreg.dll from system32: bound" "$out" "Offline registry APIs are not available"
contains "offreg.dll from system32: the run reaches the profiles" "$out" \
  'The source does not contain any profiles to migrate: \\sample\profiles\nobody'
# Wine's own userenv.dll in system32 and the test one beside the exe: the planted one is never
# loaded, so the user-profile functions are missing.
system_userenv wine
run_wine app-planted-userenv '/s:\\sample\profiles\bob'
check "userenv.dll planted beside the exe, V1 to V2: exit value" 255 "$status"
contains "userenv.dll planted beside the exe, V1 to V2: message" "$out" \
  "Windows 7 APIs are not available"
run_wine app-planted-userenv '/s:\\sample\profiles\erin.V2' /V2TOV6
check "userenv.dll planted beside the exe, V2 to V6: exit value" 255 "$status"
contains "userenv.dll planted beside the exe, V2 to V6: message" "$out" \
  "Windows offline registry APIs are not available"
system_userenv test

echo "== the application manifest"
x86_64-w64-mingw32-objcopy -O binary --only-section=.rsrc "$exe" "$work/rsrc.bin" 2>/dev/null
manifest=$(LC_ALL=C grep -a -o 'level="asInvoker"\|supportedOS Id="{[^}]*}"' "$work/rsrc.bin" 2>/dev/null)
contains "manifest: asInvoker" "$manifest" 'level="asInvoker"'
contains "manifest: Windows 7 supported" "$manifest" '{35138b9a-5d96-4fbd-8e2d-a2440225f93a}'
contains "manifest: Windows 10 and 11 supported" "$manifest" '{8e0f7a12-bfb3-4fe8-b9a5-48fd50a15a9a}'

echo "== tarnwick-batch.exe runs tarnwick.exe beside it, two at a time"
# ivy and jill (copies of bob and alice, so of two owners) through the batch on both builds: the
# same targets, and each Windows run's own log lines found by its main thread's id.
batch_exe=$mingw/src/tarnwick-batch.exe
if [ -f "$batch_exe" ] && [ -x "$linux/src/tarnwick-batch" ]; then
  cp "$batch_exe" "$work/app/"
  cp "$linux/src/tarnwick-batch" "$work/linux-app/"
  for share in "$linux_share" "$wine_share"; do
    cp -a "$share/bob" "$share/ivy"
    cp -a "$share/alice" "$share/jill"
  done
  linux_batch=$(cd "$work" && TARNWICK_SHARES="$work/linux-sample/shares.conf" \
    TARNWICK_PROFILE_ROOT="$work/linux-profiles" "$work/linux-app/tarnwick-batch" --jobs 2 \
    '\\sample\profiles\ivy' '\\sample\profiles\jill' 2>&1)
  linux_batch_status=$?
  wine_report="Z:$(printf '%s' "$work/batch.json" | tr '/' '\\')"
  wine_batch=$(cd "$work" && "$wine" "$work/app/tarnwick-batch.exe" --jobs 2 --report \
    "$wine_report" '\\sample\profiles\ivy' '\\sample\profiles\jill' 2>/dev/null)
  wine_batch_status=$?
  check "batch: exit value 0 (Linux)" 0 "$linux_batch_status"
  contains "batch: both migrated (Linux)" "$linux_batch" "2 profiles: 2 migrated"
  check "batch: exit value 0" 0 "$wine_batch_status"
  contains "batch: both migrated" "$wine_batch" "2 profiles: 2 migrated"
  for name in ivy jill; do
    check "batch: $name.V2 as on Linux" "$(listing "$linux_share/$name.V2")" \
      "$(listing "$wine_share/$name.V2")"
  done
  # Per run: it has log lines, and none of them names the other profile.
  report_logs=$("$python" -c 'import json, sys
r = json.load(open(sys.argv[1]))
names = [p["source"].split("\\")[-1] for p in r["profiles"]]
print(" ".join(str(bool(p["log"]) and not any(other in m for m in p["log"] for other in names
                                               if other != name))
               for p, name in zip(r["profiles"], names)))' "$work/batch.json" 2>&1)
  check "batch: each run's own log lines in the report" "True True" "$report_logs"
else
  fail "batch: tarnwick-batch.exe or the Linux tarnwick-batch not built"
fi

echo "== tarnwick-survey.exe sees the share as the Linux survey does"
# Several folders surveyed at once through the Windows adapters: the same rows as on Linux.
survey_exe=$mingw/src/tarnwick-survey.exe
if [ -f "$survey_exe" ] && [ -x "$linux/src/tarnwick-survey" ]; then
  cp "$survey_exe" "$work/app/"
  (cd "$work" && TARNWICK_SHARES="$work/linux-sample/shares.conf" \
    "$linux/src/tarnwick-survey" --json '\\sample\profiles' >"$work/survey-linux.json" 2>/dev/null)
  linux_survey_status=$?
  (cd "$work" && "$wine" "$work/app/tarnwick-survey.exe" --json '\\sample\profiles' \
    >"$work/survey-wine.json" 2>/dev/null)
  wine_survey_status=$?
  check "survey: exit value as on Linux" "$linux_survey_status" "$wine_survey_status"
  linux_rows=$("$python" "$here/survey_rows.py" "$work/survey-linux.json" 2>&1)
  wine_rows=$("$python" "$here/survey_rows.py" "$work/survey-wine.json" 2>&1)
  contains "survey: rows of the migrated profiles" "$linux_rows" "ivy.V2|V2|"
  check "survey: rows as on Linux" "$linux_rows" "$wine_rows"
else
  fail "survey: tarnwick-survey.exe or the Linux tarnwick-survey not built"
fi

echo "== one run per target: an interrupted target is rebuilt, a failed one deleted"
# hank.V2 carries the marker of a run that has ended (nothing holds it); gina's hive is not a hive,
# so her migration fails after the target was made and marked, and the target, whose marker the
# run holds open, is deleted again.
for share in "$linux_share" "$wine_share"; do
  cp -a "$share/bob" "$share/hank"
  mkdir -p "$share/hank.V2"
  : >"$share/hank.V2/_qzk_mig_marker_"
  echo half >"$share/hank.V2/half.txt"
  cp -a "$share/alice" "$share/gina"
  printf 'not a hive' >"$share/gina/ntuser.dat"
done
run_both "interrupted target" '/s:\\sample\profiles\hank'
check "interrupted target: exit value 0" 0 "$wine_status"
check "interrupted target: rebuilt" "$(listing "$linux_share/hank.V2")" \
  "$(listing "$wine_share/hank.V2")"
check "interrupted target: no marker, nothing of before" "" \
  "$(ls "$wine_share/hank.V2/_qzk_mig_marker_" "$wine_share/hank.V2/half.txt" 2>/dev/null)"
run_both "failed profile" '/s:\\sample\profiles\gina'
check "failed profile: exit value" 255 "$wine_status"
check "failed profile: target deleted" "" "$(ls -d "$wine_share/gina.V2" 2>/dev/null)"

echo "$passed passed, $failed failed"
[ "$failed" -eq 0 ]
