#!/usr/bin/env bash
# Installs the Debian packages that building and testing tarnwick need, when they are missing.
# Runs as root (CI, containers) or through sudo.
set -euo pipefail

packages=(
  g++ cmake ninja-build pkg-config git
  libgtest-dev libgmock-dev libpugixml-dev libbenchmark-dev
  nettle-dev libwbclient-dev libtdb-dev
  g++-mingw-w64-x86-64-posix
  clang libclang-rt-dev clang-format python3
  reglookup python3-hivex libhivex-bin libwin-hivex-perl libregf-utils python3-libregf
  wine64 libwine
  samba samba-vfs-modules smbclient winbind libwbclient-dev samba-dev python3-samba
  attr acl iproute2
  dpkg-dev fakeroot lintian man-db gzip unzip
  nlohmann-json3-dev libcli11-dev
)

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && { echo "install-deps: all packages present"; exit 0; }

as_root=()
[ "$(id -u)" -eq 0 ] || as_root=(sudo)
echo "install-deps: installing ${missing[*]}"
"${as_root[@]}" apt-get update -qq
DEBIAN_FRONTEND=noninteractive "${as_root[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
