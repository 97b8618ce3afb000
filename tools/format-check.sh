#!/usr/bin/env bash
# make format-check: every C and C++ source the repository tracks must be formatted as the
# repository's .clang-format says. Generated sources (the protobuf classes) live in the build
# folders and are not tracked; *.pb.* are left out in case one is ever committed.
set -euo pipefail
cd "$(dirname "$0")/.."
bash tools/install-deps.sh lint
mapfile -t files < <(git ls-files '*.c' '*.cc' '*.cpp' '*.h' '*.hpp' | grep -v '\.pb\.')
if ! clang-format-14 --dry-run --Werror "${files[@]}"; then
    echo "format-check: run clang-format-14 -i on the files above" >&2
    exit 1
fi
echo "format-check: ${#files[@]} files formatted"
