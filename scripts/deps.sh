#!/usr/bin/env bash
# Installs the Debian packages the build, tests and tool need, if missing.
# With --bench also OpenCV, which only the benchmark's optional peer uses.
set -euo pipefail
# The arm64 build: Debian's cross compiler, the emulator, and the target's
# libraries from the arm64 multiarch archive (same versions as the native ones).
packages=(cmake g++ make pkg-config libgtest-dev libbenchmark-dev
          libpng-dev zlib1g-dev libjpeg62-turbo-dev libyuv-dev
          clang-14 libclang-rt-14-dev g++-aarch64-linux-gnu qemu-user
          libgtest-dev:arm64 libpng-dev:arm64 zlib1g-dev:arm64 libjpeg62-turbo-dev:arm64
          libyuv-dev:arm64)
if [ "${1:-}" = "--bench" ]; then packages+=(libopencv-dev); fi
# dofra view: its HTTP and JSON libraries, and the browser its page is tested in.
packages+=(libcpp-httplib-dev nlohmann-json3-dev chromium)
missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if ((${#missing[@]})); then
  echo "installing: ${missing[*]}"
  SUDO=""; [ "$(id -u)" -eq 0 ] || SUDO=sudo
  dpkg --print-foreign-architectures | grep -qx arm64 || $SUDO dpkg --add-architecture arm64
  $SUDO apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -qq "${missing[@]}"
fi
