#!/usr/bin/env bash
# make tidy-check: clang-tidy over every daemon source, with the checks of daemon/.clang-tidy and
# the compile commands of the g++ build (BUILD, default "build"). Any finding fails the check.
set -euo pipefail
cd "$(dirname "$0")/.."
BUILD=${BUILD:-build}
JOBS=${JOBS:-2}
bash tools/install-deps.sh lint
if [ ! -f "$BUILD/compile_commands.json" ]; then
    echo "tidy-check: $BUILD/compile_commands.json missing (make build first)" >&2
    exit 1
fi
log=$(mktemp)
trap 'rm -f "$log"' EXIT
if ! run-clang-tidy-14 -p "$BUILD" -j "$JOBS" -quiet "^$PWD/daemon/" >"$log" 2>&1; then
    sed 's/\x1b\[[0-9;]*m//g' "$log" | grep -E -A3 '(warning|error):' >&2 || cat "$log" >&2
    echo "tidy-check: findings above" >&2
    exit 1
fi
echo "tidy-check: $(grep -c "\"file\": \"$PWD/daemon/" "$BUILD/compile_commands.json") daemon sources clean"
