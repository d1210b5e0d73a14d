#!/usr/bin/env bash
# Installs what the aarch64 cross-build and its test run need (make
# test-arm64): Debian's cross compiler, qemu-user to run the arm64 test
# binary, and the arm64 builds of the library's dependencies through
# multiarch. Idempotent: when everything is present it only checks and exits.
#
# Usage: install-cross-deps.sh OVERLAY_DIR
#
# Two development packages (SQLCipher's and log4cxx's) cannot be installed
# for arm64 beside their amd64 versions (they are not co-installable and
# apt would remove the native ones). Their arm64 runtime libraries are
# installed normally; the development files are unpacked into OVERLAY_DIR
# instead, which the cross toolchain file (cmake/toolchain-aarch64.cmake)
# searches. The native packages are left untouched.
#
# Tests start the project's own programs (oxcfg, the table generator), so the
# kernel must hand arm64 programs to the emulator: the script registers
# qemu-user-static's binfmt handler when nothing else (systemd-binfmt) has.
set -euo pipefail

OVERLAY="${1:?usage: install-cross-deps.sh OVERLAY_DIR}"
HOST_PACKAGES=(g++-aarch64-linux-gnu qemu-user-static)
ARM64_PACKAGES=(
  libpugixml-dev libssl-dev libcurl4-openssl-dev libgtest-dev libgmock-dev
  libsqlcipher0 liblog4cxx15
)
OVERLAY_PACKAGES=(libsqlcipher-dev liblog4cxx-dev)
MULTIARCH=/usr/lib/aarch64-linux-gnu

SUDO=""
if [ "$(id -u)" -ne 0 ]; then
  SUDO="sudo"
fi
export DEBIAN_FRONTEND=noninteractive

missing=()
for p in "${HOST_PACKAGES[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
    missing+=("$p")
  fi
done
for p in "${ARM64_PACKAGES[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p:arm64" 2>/dev/null | grep -q "install ok installed"; then
    missing+=("$p:arm64")
  fi
done

if [ ${#missing[@]} -gt 0 ]; then
  echo "install-cross-deps: installing ${missing[*]}"
  if ! dpkg --print-foreign-architectures | grep -qx arm64; then
    $SUDO dpkg --add-architecture arm64
  fi
  $SUDO apt-get update -qq
  $SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi

binfmt=/proc/sys/fs/binfmt_misc
if [ ! -e "$binfmt/qemu-aarch64" ]; then
  if [ ! -e "$binfmt/register" ]; then
    $SUDO mount -t binfmt_misc binfmt_misc "$binfmt"
  fi
  $SUDO sh -c "cat /usr/lib/binfmt.d/qemu-aarch64.conf > $binfmt/register"
fi
if ! grep -qx enabled "$binfmt/qemu-aarch64"; then
  echo "install-cross-deps: the kernel cannot start arm64 programs through qemu" >&2
  exit 1
fi

stamp="$OVERLAY/.complete"
if [ -f "$stamp" ]; then
  exit 0
fi
echo "install-cross-deps: unpacking ${OVERLAY_PACKAGES[*]} (arm64) into $OVERLAY"
rm -rf "$OVERLAY"
mkdir -p "$OVERLAY/debs"
(cd "$OVERLAY/debs" && apt-get download -qq "${OVERLAY_PACKAGES[@]/%/:arm64}" 2>/dev/null)
for deb in "$OVERLAY"/debs/*.deb; do
  dpkg-deb -x "$deb" "$OVERLAY"
done
lib="$OVERLAY/usr/lib/aarch64-linux-gnu"
# The link-time names point at the installed arm64 runtime libraries.
ln -sfn "$(readlink -f "$MULTIARCH/libsqlcipher.so.0")" "$lib/libsqlcipher.so"
for f in "$MULTIARCH"/liblog4cxx.so.*; do
  ln -sfn "$f" "$lib/$(basename "$f")"
done
ln -sfn "$MULTIARCH/liblog4cxx.so.15" "$lib/liblog4cxx.so"
sed -i "s|^prefix=.*|prefix=$OVERLAY/usr|" "$lib/pkgconfig/sqlcipher.pc" "$lib/pkgconfig/liblog4cxx.pc"
touch "$stamp"
