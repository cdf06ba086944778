#!/usr/bin/env bash
# Installs the Debian packages the build, tests and tool need, if missing.
set -euo pipefail
packages=(cmake g++ make pkg-config libgtest-dev libbenchmark-dev
          libpng-dev libjpeg62-turbo-dev libyuv-dev clang-14 libclang-rt-14-dev)
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
