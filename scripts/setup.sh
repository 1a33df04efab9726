#!/usr/bin/env bash
# Installs the Debian packages a build needs, only those that are missing.
#   setup.sh example   what the example program needs
#   setup.sh test      everything the test command needs (tests, oracles, cross build, fuzzing)
#   setup.sh bench     the benchmarks and their peers
set -euo pipefail
want=(cmake ninja-build g++ make)
case "${1:-test}" in
  example) ;;
  test)
    want+=(clang libclang-rt-14-dev libgtest-dev googletest ccache python3 python3-numpy python3-scipy python3-onnx
           python3-opencv g++-aarch64-linux-gnu qemu-user binutils libopenblas-dev valgrind
           pkg-config python3-setuptools python3-pytest)
    ;;
  bench)
    want+=(libbenchmark-dev libopencv-dev libeigen3-dev libopenblas-dev libxnnpack-dev libpthreadpool-dev libssl-dev libyuv-dev python3-opencv)
    ;;
esac
missing=()
for p in "${want[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if ((${#missing[@]})); then
  echo "installing: ${missing[*]}"
  SUDO=""; [ "$(id -u)" = 0 ] || SUDO="sudo"
  $SUDO apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -qq "${missing[@]}" >/dev/null
fi
