#!/usr/bin/env bash
# Installs the Debian packages the build, tests and tool need, if missing.
# With --bench also OpenCV, which only the benchmark's optional peer uses.
set -euo pipefail
packages=(cmake g++ make pkg-config libgtest-dev libbenchmark-dev
          libpng-dev zlib1g-dev libjpeg62-turbo-dev libyuv-dev qemu-user
          clang-14 libclang-rt-14-dev)
if [ "${1:-}" = "--bench" ]; then packages+=(libopencv-dev); fi
missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if ((${#missing[@]})); then
  echo "installing: ${missing[*]}"
  SUDO=""; [ "$(id -u)" -eq 0 ] || SUDO=sudo
  $SUDO apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -qq "${missing[@]}"
fi
