#!/usr/bin/env bash
# Runs every fuzzer for SECONDS each on its corpus (kept in BUILD/corpus between
# runs, started from the seeds) and fails on the first finding, which is kept in
# BUILD/findings.
#   fuzz/run.sh BUILD CORV SECONDS
set -euo pipefail
build=$1
corv=$2
seconds=$3
here="$(cd "$(dirname "$0")" && pwd)"
"$here/make_seeds.sh" "$corv" "$build/seeds"
mkdir -p "$build/findings"
for target in envi library_csv band_maths hsz slz workspace; do
  mkdir -p "$build/corpus/$target"
  echo "fuzzing $target for ${seconds} s"
  # Leaks of the HDF5 and GDAL libraries' own caches are not findings.
  ASAN_OPTIONS=detect_leaks=0 "$build/bin/${target}_fuzzer" -max_total_time="$seconds" \
    -timeout=60 -rss_limit_mb=3072 -print_final_stats=1 \
    -artifact_prefix="$build/findings/${target}-" \
    "$build/corpus/$target" "$build/seeds/$target" 2>"$build/findings/${target}.log" ||
    { tail -40 "$build/findings/${target}.log"; exit 1; }
  grep -E "^stat::number_of_executed_units|^stat::new_units_added" \
    "$build/findings/${target}.log" | tr '\n' ' '
  echo
done
