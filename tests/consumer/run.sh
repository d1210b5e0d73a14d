#!/usr/bin/env bash
# Consumer test of the Debian packages: installs the three packages of
# PACKAGE_DIR with dpkg (as root), builds the tiny host once with
# find_package(oxconfigmgr) and once with pkg-config, runs both on a
# directory laid out by the installed `oxcfg init`, checks it with
# `oxcfg doctor`, and removes the packages again (also on failure).
set -euo pipefail
PACKAGE_DIR="$(cd "${1:?usage: run.sh PACKAGE_DIR}" && pwd)"
HERE="$(cd "$(dirname "$0")" && pwd)"
WORK="$(mktemp -d "${TMPDIR:-/tmp}/oxcfg-consumer-XXXXXX")"
PACKAGES=(oxcfg liboxconfigmgr-dev liboxconfigmgr1)
SUDO=""
[ "$(id -u)" -eq 0 ] || SUDO=sudo

cleanup() {
  $SUDO dpkg --purge "${PACKAGES[@]}" >/dev/null 2>&1 || true
  rm -rf "$WORK"
}
trap cleanup EXIT

debs=()
for p in liboxconfigmgr1 liboxconfigmgr-dev oxcfg; do
  f=$(ls "$PACKAGE_DIR"/${p}_*.deb 2>/dev/null | head -n 1)
  [ -n "$f" ] || { echo "consumer: no ${p}_*.deb in $PACKAGE_DIR" >&2; exit 1; }
  debs+=("$f")
done
echo "consumer: installing ${debs[*]##*/}"
$SUDO dpkg -i "${debs[@]}" >/dev/null

# With find_package: the CMake package of the -dev package.
cmake -S "$HERE" -B "$WORK/cmake-build" -G Ninja -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build "$WORK/cmake-build" >/dev/null
# With pkg-config only.
# shellcheck disable=SC2046
c++ -std=c++17 -O1 -o "$WORK/host-pc" "$HERE/host.cpp" $(pkg-config --cflags --libs oxconfigmgr)

oxcfg init "$WORK/gw" --factory /usr/share/oxconfigmgr/factory >/dev/null
"$WORK/cmake-build/host" "$WORK/gw"
"$WORK/host-pc" "$WORK/gw"
oxcfg -C "$WORK/gw" show network --json | grep -q '"HTTP port": "8081' \
  || { echo "consumer: the host's setting did not persist" >&2; exit 1; }
oxcfg doctor "$WORK/gw"
test -f /usr/share/man/man1/oxcfg.1.gz
test -f /usr/share/bash-completion/completions/oxcfg
test -f /usr/share/doc/liboxconfigmgr-dev/html/index.html
echo "consumer: both hosts built and ran against the installed packages"
