#!/usr/bin/env bash
# Runs every fuzz target of a clang build for a share of SECONDS, starting from the
# seed corpus in fuzz/corpus/<target>. Exit status 1 on the first crash.
set -uo pipefail
build=$1
total=${2:-60}
cd "$(dirname "$0")/.."
targets=("$build"/fuzz/fuzz_*)
[ -x "${targets[0]}" ] || { echo "no fuzz targets in $build/fuzz"; exit 1; }
each=$((total / ${#targets[@]}))
((each < 5)) && each=5
for t in "${targets[@]}"; do
  name=$(basename "$t")
  work=$(mktemp -d)
  seeds=fuzz/corpus/${name#fuzz_}
  echo "fuzzing $name for $each s"
  if ! "$t" -max_total_time="$each" -rss_limit_mb=2048 -print_final_stats=0 "$work" "$seeds" >"$work.log" 2>&1; then
    tail -40 "$work.log"
    echo "fuzz target $name failed"
    exit 1
  fi
  tail -1 "$work.log"
  rm -rf "$work" "$work.log"
done
