#!/usr/bin/env bash
# The Debian package as an administrator meets it: builds it in a Release build folder, checks
# its content (dpkg-deb -x) and lintian's verdict (no error), installs it with apt-get, runs the
# installed programs and man pages, migrates a generated sample share with the installed program
# (share map in /etc/tarnwick) and checks that its log lands in /var/log/tarnwick, then purges the
# package and puts /etc/tarnwick back as it was. Needs root (it installs a package).
#   tests/package/package_test.sh [BUILD_DIR]   (default build/package)
set -euo pipefail
root=$(cd "$(dirname "$0")/../.." && pwd)
build=${1:-$root/build/package}
if [ "$(id -u)" -ne 0 ]; then
  echo "package test: SKIPPED, needs root (it installs the package)" >&2
  exit 77
fi
fail() { echo "package test: FAILED: $*" >&2; exit 1; }

cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DTARNWICK_BUILD_TESTS=OFF \
  -DCMAKE_CXX_FLAGS=-Wno-restrict >/dev/null
build=$(cd "$build" && pwd)
cmake --build "$build" --target package
version=$(sed -n 's/^project(tarnwick VERSION \([0-9.]*\).*/\1/p' "$root/CMakeLists.txt")
deb=$build/tarnwick_${version}_$(dpkg --print-architecture).deb
[ -f "$deb" ] || fail "no $deb"
echo "== package $deb"
dpkg-deb -I "$deb"

work=$(mktemp -d)
saved_etc=""
cleanup() {
  apt-get purge -y -q tarnwick >/dev/null 2>&1 || true
  rm -rf /etc/tarnwick
  if [ -n "$saved_etc" ]; then mv "$saved_etc" /etc/tarnwick; fi
  rm -rf "$work"
}
trap cleanup EXIT
if [ -e /etc/tarnwick ]; then
  saved_etc=$work/etc-tarnwick
  mv /etc/tarnwick "$saved_etc"
fi

echo "== content"
dpkg-deb -x "$deb" "$work/x"
for path in usr/sbin/tarnwick usr/bin/tarnwick-hive usr/share/man/man8/tarnwick.8.gz \
            usr/sbin/tarnwick-survey usr/share/man/man8/tarnwick-survey.8.gz \
            usr/share/man/man1/tarnwick-hive.1.gz usr/share/doc/tarnwick/copyright \
            usr/share/doc/tarnwick/changelog.gz usr/share/doc/tarnwick/README.md \
            usr/share/tarnwick/default-profile/ntuser.dat etc/tarnwick/shares.conf.example; do
  [ -e "$work/x/$path" ] || fail "missing /$path"
done
[ -d "$work/x/var/log/tarnwick" ] || fail "missing /var/log/tarnwick"
[ "$(stat -c %a "$work/x/var/log/tarnwick")" = 750 ] || fail "/var/log/tarnwick is not 0750"
[ -e "$work/x/usr/sbin/tarnwick-batch" ] || fail "missing /usr/sbin/tarnwick-batch"
[ -e "$work/x/usr/share/man/man8/tarnwick-batch.8.gz" ] || fail "missing tarnwick-batch.8.gz"
[ ! -e "$work/x/usr/bin/default-profile" ] || fail "a default profile in /usr/bin"
gzip -t "$work/x/usr/share/man/man8/tarnwick.8.gz" || fail "tarnwick.8.gz is no gzip file"
dpkg-deb -f "$deb" Depends | grep -q libpugixml || fail "dependencies not computed"

echo "== lintian"
lintian_out=$(lintian --fail-on error "$deb" 2>&1 | grep -v "root privileges" || true)
echo "$lintian_out"
if echo "$lintian_out" | grep -q '^E:'; then fail "lintian reports errors"; fi

echo "== install"
apt-get install -y -q "$deb" >/dev/null
[ -x /usr/sbin/tarnwick ] || fail "no /usr/sbin/tarnwick after installing"
/usr/sbin/tarnwick /help > "$work/help.txt" || true
grep -q "/takeownership" "$work/help.txt" || fail "tarnwick /help printed no usage text"
/usr/sbin/tarnwick-survey --help | grep -q -- "--json" || fail "tarnwick-survey --help printed no usage"
/usr/sbin/tarnwick-batch --help | grep -q -- "--jobs" || fail "tarnwick-batch --help printed no usage"
for page in /usr/share/man/man8/tarnwick.8.gz /usr/share/man/man1/tarnwick-hive.1.gz \
            /usr/share/man/man8/tarnwick-survey.8.gz /usr/share/man/man8/tarnwick-batch.8.gz; do
  warnings=$(LC_ALL=C.UTF-8 MANWIDTH=80 man --warnings -l "$page" 2>&1 >/dev/null || true)
  [ -z "$warnings" ] || fail "man -l $page: $warnings"
  LC_ALL=C.UTF-8 MANWIDTH=80 man -l "$page" | grep -q "SYNOPSIS" || fail "man -l $page shows no page"
done
man -w tarnwick >/dev/null || fail "man tarnwick finds no page"

echo "== the installed program migrates the sample share"
"$build/tools/sample_share/tarnwick-sample-share" "$work/demo" >/dev/null
mkdir -p /etc/tarnwick
cp "$work/demo/shares.conf" /etc/tarnwick/shares.conf
rm -f /var/log/tarnwick/tarnwick.log
unset TARNWICK_SHARES TARNWICK_SMB_CONF TARNWICK_LOG_DIR TARNWICK_DEFAULT_PROFILE TARNWICK_PROFILE_ROOT
(cd "$work" && /usr/sbin/tarnwick '/s:\\sample\profiles\alice') | tee "$work/console.txt"
grep -q "1 profiles were migrated" "$work/console.txt" || fail "the migration did not succeed"
[ -f "$work/demo/share/alice.V2/ntuser.dat" ] || [ -f "$work/demo/share/alice.V2/NTUSER.DAT" ] ||
  fail "no ntuser.dat in the target"
grep -q "Starting tarnwick" /var/log/tarnwick/tarnwick.log || fail "no log in /var/log/tarnwick"
# The installed batch runs the installed tarnwick and finds each run's lines in that log.
(cd "$work" && /usr/sbin/tarnwick-batch --report "$work/batch.json" '\\sample\profiles\bob') |
  tee "$work/batch.txt"
grep -q "1 profiles: 1 migrated" "$work/batch.txt" || fail "the batch did not migrate bob"
python3 -c 'import json,sys; r=json.load(open(sys.argv[1])); sys.exit(0 if r["profiles"][0]["log"] else 1)' \
  "$work/batch.json" || fail "the batch report holds no log lines of the run"
[ ! -e /usr/sbin/tarnwick.log ] || fail "a log beside the installed program"
TARNWICK_LOG_DIR=$work/logs bash -c "mkdir -p '$work/logs' && cd '$work' && /usr/sbin/tarnwick /help >/dev/null" || true
grep -q "Starting tarnwick" "$work/logs/tarnwick.log" || fail "TARNWICK_LOG_DIR not honoured"

echo "== purge"
apt-get purge -y -q tarnwick >/dev/null
[ ! -e /usr/sbin/tarnwick ] || fail "/usr/sbin/tarnwick left after purging"
rm -f /var/log/tarnwick/tarnwick.log /var/log/tarnwick/"tarnwick (previous).log"
rmdir /var/log/tarnwick 2>/dev/null || true
echo "package test: passed"
