#!/usr/bin/env bash
# Builds the benchmarks against their peers and runs them single-threaded:
#   bench.sh [FILTER]   e.g. bench.sh bench_gemm ; JSON results go to build/bench/results/
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh bench
cmake -S . -B build/bench -G Ninja -DCMAKE_BUILD_TYPE=Release -DORU_BUILD_BENCH=ON -DORU_BUILD_TESTS=OFF >/dev/null
cmake --build build/bench -j "$(nproc)"
mkdir -p build/bench/results
export OMP_NUM_THREADS=1 OPENBLAS_NUM_THREADS=1
for b in build/bench/bench/bench_*; do
  name=$(basename "$b")
  [[ -n "${1:-}" && "$name" != *"$1"* ]] && continue
  "$b" --benchmark_out="build/bench/results/$name.json" --benchmark_out_format=json
done
