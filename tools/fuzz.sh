#!/usr/bin/env bash
# Runs every libFuzzer harness of tests/fuzz for FUZZ_SECONDS seconds inside tarn_sim on the bare
# fixture device, starting from its corpus in tests/fuzz/corpus/<name>/. New inputs go to a
# working corpus in the build directory; a crashing input is kept in <build>/findings/<name>/.
# Prints one line per harness and a total; exits non-zero on any finding.
set -uo pipefail
cd "$(dirname "$0")/.."
build=${FUZZ_BUILD:-build-fuzz}
seconds=${FUZZ_SECONDS:-60}
src=$(pwd)
harnesses=0
findings=0
for harness in tests/fuzz/*_fuzz.cpp; do
    name=$(basename "$harness" _fuzz.cpp)
    bin=$src/$build/fuzz/${name}_fuzz
    seeds=$src/tests/fuzz/corpus/$name
    work=$src/$build/corpus/$name
    found=$src/$build/findings/$name
    log=$src/$build/logs/$name.log
    rm -rf "$found"
    mkdir -p "$seeds" "$work" "$found" "$(dirname "$log")"
    harnesses=$((harnesses + 1))
    start=$(date +%s)
    "$src/$build/tarn_sim" run --image "$src/tests/fixtures/bare" --no-perf-hal --no-telemetry \
        -- "$bin" -max_total_time="$seconds" -print_final_stats=1 -artifact_prefix="$found/" \
        -timeout=10 -rss_limit_mb=4096 "$work" "$seeds" >"$log" 2>&1
    status=$?
    elapsed=$(($(date +%s) - start))
    execs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log" | tail -n 1)
    crashes=$(find "$found" -type f | wc -l)
    # A harness that failed without leaving an input behind is a finding all the same.
    if [ "$status" -ne 0 ] && [ "$crashes" -eq 0 ]; then
        crashes=1
        echo "$name: exited with status $status without a reproducer, see $log" >&2
    fi
    echo "$name: ${execs:-0} execs in $elapsed s, $crashes crashes"
    if [ "$crashes" -gt 0 ]; then
        tail -n 30 "$log" >&2
        findings=$((findings + crashes))
    fi
done
echo "fuzz: $harnesses harnesses, $findings findings"
[ "$findings" -eq 0 ]
