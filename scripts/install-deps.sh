#!/usr/bin/env bash
# Installs every Debian package the project needs to build, test, benchmark
# and fuzz, and the npm packages of the tests' storage peer. Idempotent: when
# everything is present it only checks and exits.
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
  doxygen              # make docs: the API reference
  lintian dpkg-dev fakeroot file  # make package: lintian, dpkg-shlibdeps
)

missing=()
for p in "${PACKAGES[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
    missing+=("$p")
  fi
done
# Node.js and npm run the picture storage peer of the tests (below); a
# machine that already has them (Node.js 20 or later) keeps its own.
if ! command -v npm >/dev/null 2>&1; then
  missing+=(nodejs npm)
fi

if [ ${#missing[@]} -gt 0 ]; then
  echo "install-deps: installing ${missing[*]}"
  SUDO=""
  if [ "$(id -u)" -ne 0 ]; then
    SUDO="sudo"
  fi
  export DEBIAN_FRONTEND=noninteractive
  $SUDO apt-get update -qq
  $SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi

# The picture storage peer of the tests: an S3-compatible store that checks
# request signatures, at the exact versions of the committed lock file,
# installed into tests/peer/node_modules (ignored by git). Reinstalled only
# when the lock file changed since the last install.
PEER_DIR="$(cd "$(dirname "$0")/.." && pwd)/tests/peer"
if [ ! -f "$PEER_DIR/node_modules/.package-lock.json" ] ||
   [ "$PEER_DIR/package-lock.json" -nt "$PEER_DIR/node_modules/.package-lock.json" ]; then
  echo "install-deps: installing the storage peer of the tests (npm ci in tests/peer)"
  (cd "$PEER_DIR" && npm ci --no-audit --no-fund --loglevel=error)
fi
