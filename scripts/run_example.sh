#!/usr/bin/env bash
# The library's main job end to end: build it, then find the faces in a photograph with
# the example detector, printing one "x0 y0 x1 y1 score" line per face and writing a copy
# of the photograph with the boxes drawn.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh example
cmake -S . -B build/example -G Ninja -DCMAKE_BUILD_TYPE=Release -DORU_BUILD_TESTS=OFF >/dev/null
cmake --build build/example -j "$(nproc)"
./build/example/examples/face_detect data/images/faces-1.bmp -o build/example/faces-1-detected.bmp
echo "boxes drawn on build/example/faces-1-detected.bmp"
