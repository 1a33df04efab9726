#!/usr/bin/env bash
# The 320x240 face network on one core, in one run: the library (kernel family per layer,
# and each conv method), OpenCV DNN and ONNX Runtime, with the ratio to ONNX Runtime.
#   bench_face_peers.sh [REPETITIONS]
# ONNX Runtime comes from npm (onnxruntime-node), installed once into build/ortnode.
set -euo pipefail
cd "$(dirname "$0")/.."
reps=${1:-5}
bash scripts/setup.sh bench
command -v node >/dev/null || { echo "bench_face_peers: node is needed for ONNX Runtime" >&2; exit 1; }
cmake -S . -B build/bench -G Ninja -DCMAKE_BUILD_TYPE=Release -DORU_BUILD_BENCH=ON -DORU_BUILD_TESTS=OFF >/dev/null
cmake --build build/bench -j "$(nproc)" --target bench_face >/dev/null
if [ ! -d build/ortnode/node_modules/onnxruntime-node ]; then
  mkdir -p build/ortnode
  (cd build/ortnode && npm init -y >/dev/null && npm install --ignore-scripts onnxruntime-node >/dev/null)
fi
model=models/ultraface/version-slim-320_without_postprocessing.onnx
/usr/bin/python3 bench/strip_initializer_inputs.py "$model" build/ortnode/face-ort.onnx >/dev/null

export OMP_NUM_THREADS=1 OPENBLAS_NUM_THREADS=1
build/bench/bench/bench_face --benchmark_filter='BM_FaceInference' --benchmark_repetitions="$reps" \
  --benchmark_report_aggregates_only=true --benchmark_out=build/ortnode/face.json --benchmark_out_format=json >/dev/null 2>&1
ort=$(NODE_PATH=build/ortnode/node_modules node bench/ort_face.js build/ortnode/face-ort.onnx 500)

/usr/bin/python3 - "$ort" <<'EOF'
import json, re, sys
ort_ms = float(re.search(r"cpu mean ([0-9.]+) ms", sys.argv[1]).group(1))
rows = []
for b in json.load(open("build/ortnode/face.json"))["benchmarks"]:
    if b.get("aggregate_name") != "median":
        continue
    name = b["run_name"].replace("BM_FaceInference", "library").replace("/method:255", ", per layer")
    name = name.replace("/method:", ", conv method ").replace("libraryOpenCvDnn", "OpenCV DNN")
    rows.append((name, b["cpu_time"] * {"ms": 1.0, "us": 1e-3, "ns": 1e-6}[b["time_unit"]]))
rows.append(("ONNX Runtime", ort_ms))
print(f"{'320x240 face network, one core':40s} {'CPU ms':>8s} {'vs ONNX Runtime':>16s}")
for name, ms in rows:
    print(f"{name:40s} {ms:8.3f} {ms / ort_ms:15.2f}x")
EOF
