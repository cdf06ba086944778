#!/usr/bin/env bash
# scripts/deps.sh PURPOSE...: installs the Debian packages that each purpose
# needs, if missing (see usage below).
set -euo pipefail
cd "$(dirname "$0")/.."

usage() {
  cat <<'TEXT'
usage: scripts/deps.sh PURPOSE...
Installs the Debian packages each purpose needs, if missing (as root, else through sudo).
  demo     compiler, CMake, pkg-config and the dofra tool's libraries (PNG, JPEG,
           libyuv, cpp-httplib, nlohmann-json): all that scripts/demo.sh needs
  test     the rest of the test toolchain: GoogleTest, Google Benchmark, clang with
           libFuzzer, the arm64 cross compiler and arm64 libraries, qemu, Python
           (scripts/mutate.py, scripts/speed_report.py)
  browser  Chromium for the browser tests; checks that node and npm are there
  bench    OpenCV, for the benchmark's optional peer
Package-manager output goes to out/deps.log, shown only when it fails.
TEXT
}

# The arm64 packages come from Debian's multiarch archive, in the same
# versions as the native ones.
packages_for() {
  case $1 in
    demo) echo cmake g++ make pkg-config libpng-dev zlib1g-dev libjpeg62-turbo-dev libyuv-dev \
      libcpp-httplib-dev nlohmann-json3-dev ;;
    test) echo libgtest-dev libbenchmark-dev clang-14 libclang-rt-14-dev g++-aarch64-linux-gnu \
      qemu-user libgtest-dev:arm64 libpng-dev:arm64 zlib1g-dev:arm64 libjpeg62-turbo-dev:arm64 \
      libyuv-dev:arm64 python3 ;;
    browser) echo chromium ;;
    bench) echo libopencv-dev ;;
    *) return 1 ;;
  esac
}

if [ $# -eq 0 ]; then usage >&2; exit 2; fi
packages=()
for purpose in "$@"; do
  case $purpose in -h | --help) usage; exit 0 ;; esac
  list=$(packages_for "$purpose") || { echo "deps: unknown purpose '$purpose'" >&2; usage >&2; exit 2; }
  read -ra words <<<"$list"
  packages+=("${words[@]}")
done

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
log=out/deps.log
mkdir -p out
if ((${#missing[@]})); then
  echo "-- deps ($*): installing ${missing[*]} (output in $log)"
  SUDO=""
  [ "$(id -u)" -eq 0 ] || SUDO=sudo
  if ! {
    if [[ " ${missing[*]}" == *:arm64* ]] && ! dpkg --print-foreign-architectures | grep -qx arm64; then
      $SUDO dpkg --add-architecture arm64
    fi
    $SUDO apt-get update -q &&
      DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -q "${missing[@]}"
  } >"$log" 2>&1; then
    tail -n 60 "$log"
    echo "FAILED: installing packages for $* (whole output in $log)" >&2
    exit 1
  fi
else
  echo "-- deps ($*): all ${#packages[@]} packages installed"
fi

if [[ " $* " == *" browser "* ]] && ! { command -v node && command -v npm; } >/dev/null; then
  echo "-- deps (browser): node or npm is missing; the browser tests need both (Debian: nodejs npm)"
fi
