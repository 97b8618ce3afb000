#!/usr/bin/env bash
# Runs the daemon on the simulated phone8 device for 30 seconds with a period for every collector
# and prints each record as it arrives: seconds since start, the kind of record, the foreground
# application and the record itself. The records, with their times, are kept in build/demo.records;
# at the end tools/tarn_records draws them in build/demo.png, writes them as a trace that
# Perfetto opens in build/demo.json and prints their summary. The daemon's own log goes to
# build/demo.log.
set -uo pipefail

cd "$(dirname "$0")/.."
BUILD=${BUILD:-build}
DURATION=${DURATION:-30}
LOG="$BUILD/demo.log"
RECORDS="$BUILD/demo.records"
PICTURE="$BUILD/demo.png"
TRACE="$BUILD/demo.json"

declare -A KIND=(
    [2]=battery [3]=cpu [4]=gpu [5]=ddr [6]=low-power [7]=processes [8]=brightness
    [9]="frame rate" [1000]="thermal zone" [1001]=cooling [1002]=clocks
    [2000]="status file" [2001]=tombstone [2002]="anr trace" [3000]=mtbf
)

show_records() {
    local stamp kpi line shown=0
    while IFS=$'\t' read -r stamp kpi line; do
        # The line: version, manufacturer, model, serial, build id, application, then the record.
        IFS=, read -r version maker model serial build app _ <<<"$line"
        if [ "$shown" = 0 ]; then
            printf 'device: %s %s, serial %s, build %s (%s)\n\n' \
                "$maker" "$model" "$serial" "$build" "$version"
            shown=1
        fi
        local prefix="$version,$maker,$model,$serial,$build,$app,"
        local record=${line:${#prefix}}
        record=${record//\\n/ | }
        [ "${#record}" -gt 150 ] && record="${record:0:147}..."
        printf '[%7ss] %-13s %-24s %s\n' "$stamp" "${KIND[$kpi]:-kpi $kpi}" "$app" "$record"
    done
}

# Activity hints from the simulated perf HAL change the application that the records carry.
send_hints() {
    sleep $((DURATION / 3))
    "$BUILD/tarn_sim" hint --root "$ROOT" 0x1001 org.sample.camera/.Viewfinder >/dev/null 2>&1
    sleep $((DURATION / 3))
    "$BUILD/tarn_sim" hint --root "$ROOT" 0x1003 com.android.launcher3/.Home >/dev/null 2>&1
}

ROOT=$(mktemp -d)
trap 'rm -rf "$ROOT"' EXIT

# The picture needs matplotlib.
bash tools/install-deps.sh plot || exit 1

echo "tarn_stats demo on phone8 for ${DURATION} s (the daemon's log goes to $LOG)"
echo
send_hints &
"$BUILD/tarn_sim" run --image sim/devices/phone8 --root "$ROOT" --animate --timestamps \
    --duration "$DURATION" -- \
    "$BUILD/tarn_stats" --daemon --bat 2 --cpu 1 --gpu 2 --ddr 2 --lpm 5 --ps 10 --bri 3 \
    --fps 3 --therm 5 --stab 10 2>"$LOG" | tee "$RECORDS" | show_records
status=${PIPESTATUS[0]}
wait
echo
echo "daemon and simulator exited with status $status"
echo
tools/tarn_records --summary --plot "$PICTURE" --perfetto "$TRACE" "$RECORDS" || status=1
echo
echo "the run in one picture: $PICTURE (records in $RECORDS)"
echo "the run as a trace: $TRACE (open it at ui.perfetto.dev, or in trace_processor)"
exit "$status"
