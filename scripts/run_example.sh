#!/usr/bin/env bash
# The library's main job end to end: build it, then run the example program.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh example
cmake -S . -B build/example -G Ninja -DCMAKE_BUILD_TYPE=Release -DORU_BUILD_TESTS=OFF >/dev/null
cmake --build build/example -j "$(nproc)"
./build/example/examples/graph_demo
