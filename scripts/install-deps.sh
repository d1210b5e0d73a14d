#!/usr/bin/env bash
# Installs every Debian package the project needs to build, test, benchmark
# and fuzz. Idempotent: when everything is present it only checks and exits.
set -euo pipefail

PACKAGES=(
  build-essential cmake ninja-build pkg-config git
  libpugixml-dev
  libsqlcipher-dev sqlcipher sqlite3
  libssl-dev openssl
  liblog4cxx-dev
  libcurl4-openssl-dev
  libcpp-httplib-dev
  p7zip-full
  nginx-light  # the web server the certificate tests start on their own port
  libgtest-dev libgmock-dev googletest
  libbenchmark-dev
  tzdata iproute2
  clang
)

missing=()
for p in "${PACKAGES[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
    missing+=("$p")
  fi
done

if [ ${#missing[@]} -eq 0 ]; then
  exit 0
fi

echo "install-deps: installing ${missing[*]}"
SUDO=""
if [ "$(id -u)" -ne 0 ]; then
  SUDO="sudo"
fi
export DEBIAN_FRONTEND=noninteractive
$SUDO apt-get update -qq
$SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}"
