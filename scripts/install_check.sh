#!/usr/bin/env bash
# scripts/install_check.sh BUILD_DIR: installs a configured and built tree into
# temporary prefixes and uses it as a project outside this repository would:
# the example consumer is built once with find_package and once with plain g++
# and pkg-config, and run; the installed tool runs from its prefix; a device
# install (component library) carries no host stand-ins and still configures.
set -euo pipefail
cd "$(dirname "$0")/.."
build=$(realpath "$1")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# Runs a command quietly, showing its output only when it fails.
quiet() { "$@" >"$work/out" 2>&1 || { cat "$work/out"; echo "FAILED: $*"; exit 1; }; }

prefix=$work/prefix
quiet cmake --install "$build" --prefix "$prefix"
lib=$(dirname "$(find "$prefix" -name libdofra_depth.so)")
soname=$(readelf -d "$lib/libdofra_depth.so" | sed -n 's/.*(SONAME).*\[\(.*\)\]/\1/p')
[ "$soname" = libdofra_depth.so ] || { echo "FAILED: soname '$soname'"; exit 1; }

echo "-- installed tool"
quiet "$prefix/bin/dofra" bench --size 64x48 --frames 1

export LD_LIBRARY_PATH=$lib:$lib/dofra_depth/host
echo "-- consumer with find_package(dofra_depth)"
quiet cmake -S examples/consumer -B "$work/consumer" -DCMAKE_PREFIX_PATH="$prefix"
quiet cmake --build "$work/consumer"
quiet "$work/consumer/dofra_consumer"

echo "-- consumer with pkg-config"
flags=$(PKG_CONFIG_PATH=$lib/pkgconfig pkg-config --cflags --libs dofra_depth dofra_depth-host)
# shellcheck disable=SC2086  # the flags are separate words
quiet g++ -std=c++17 -Wall -Wextra -Werror examples/consumer/consumer.cpp $flags \
  -o "$work/pc_consumer"
quiet "$work/pc_consumer"

echo "-- device install: library component only"
device=$work/device
quiet cmake --install "$build" --prefix "$device" --component library
if find "$device" -mindepth 1 | sed "s|^$device||" | grep -q host; then
  echo "FAILED: host files in a device install"; exit 1
fi
mkdir "$work/device_check"
cat >"$work/device_check/CMakeLists.txt" <<'CMAKE'
cmake_minimum_required(VERSION 3.16)
project(device_check NONE)
find_package(dofra_depth REQUIRED)
if(NOT TARGET dofra_depth::dofra_depth OR TARGET dofra_depth::host_ui)
  message(FATAL_ERROR "wrong imported targets")
endif()
CMAKE
quiet cmake -S "$work/device_check" -B "$work/device_check/build" -DCMAKE_PREFIX_PATH="$device"
echo "install check passed"
