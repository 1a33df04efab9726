#!/usr/bin/env bash
# Builds the library four ways and runs every test:
#   clang++ with -Werror plus the fuzz targets (60 s of fuzzing),
#   g++ with AddressSanitizer and UndefinedBehaviorSanitizer,
#   a cross build for arm64 run under qemu-user,
#   and last a g++ Release build, whose ctest summary closes the run.
# The arm64 and Release builds also make their Debian packages (build/*/packages/).
set -uo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh test || exit 1

jobs=$(nproc)
launcher=()
command -v ccache >/dev/null && launcher=(-DCMAKE_C_COMPILER_LAUNCHER=ccache -DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
results=()
failed=0

stage() {  # stage NAME COMMAND...
  local name=$1; shift
  local start=$SECONDS
  echo "==== stage $name"
  if "$@"; then
    results+=("STAGE $name: PASS ($((SECONDS - start)) s)")
  else
    results+=("STAGE $name: FAIL ($((SECONDS - start)) s)")
    failed=1
  fi
  echo "${results[-1]}"
}

configure_and_build() {  # DIR CMAKE-ARGS...
  local dir=$1; shift
  cmake -S . -B "$dir" -G Ninja "${launcher[@]}" "$@" >/dev/null && cmake --build "$dir" -j "$jobs"
}

make_package() { (cd "$1" && cpack -G DEB >/dev/null && dpkg-deb --info packages/liborucore_*.deb | grep Architecture); }
run_ctest() { (cd "$1" && ctest -j "$jobs" --output-on-failure --timeout 900); }

clang_stage() {
  CC=clang CXX=clang++ configure_and_build build/clang -DCMAKE_BUILD_TYPE=Release -DORU_BUILD_FUZZ=ON &&
    bash scripts/fuzz.sh build/clang 60
}
sanitizer_stage() {
  # -O1 with line tables only: quicker to build, and it keeps the inline functions out of
  # line, so the instruction-set isolation check sees them.
  configure_and_build build/asan -DCMAKE_BUILD_TYPE=RelWithDebInfo -DORU_SANITIZE=address,undefined \
    -DCMAKE_CXX_FLAGS_RELWITHDEBINFO="-O1 -g1" -DCMAKE_C_FLAGS_RELWITHDEBINFO="-O1 -g1" &&
    ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1 run_ctest build/asan
}
arm64_stage() {
  configure_and_build build/arm64 -DCMAKE_BUILD_TYPE=Release \
    -DCMAKE_TOOLCHAIN_FILE=cmake/aarch64-toolchain.cmake && run_ctest build/arm64 && make_package build/arm64
}
release_stage() { configure_and_build build/gcc -DCMAKE_BUILD_TYPE=Release && make_package build/gcc; }

stage clang-werror-fuzz clang_stage
stage asan-ubsan sanitizer_stage
stage arm64-qemu arm64_stage
stage gcc-release-build release_stage
printf '%s\n' "${results[@]}"
echo "==== stage gcc-release-tests"
run_ctest build/gcc || failed=1
exit $failed
