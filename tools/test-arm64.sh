#!/usr/bin/env bash
# make test-arm64: cross-builds everything for AArch64 into build-arm64/ and runs every test with
# the arm64 binaries under qemu user-mode emulation.
#
# The simulator and the end-to-end tests start arm64 programs themselves (tarn_sim starts the
# daemon inside a chroot), so the kernel must hand arm64 executables to qemu. That registration
# lives in a private binfmt_misc instance, mounted in a user namespace of our own: it is gone
# with the namespace and never touches the host's. The F flag opens the emulator at registration
# time, so it is found inside tarn_sim's chroot as well. Where the kernel refuses that, ctest
# starts each test binary through qemu directly and the tests that start arm64 programs of their
# own are skipped (and named).
set -euo pipefail
cd "$(dirname "$0")/.."
JOBS=${JOBS:-2}
BUILD=$(realpath -m "${BUILD_ARM64:-build-arm64}")

bash tools/install-deps.sh arm64
cmake -S . -B "$BUILD" -DCMAKE_TOOLCHAIN_FILE="$PWD/cmake/aarch64-linux-gnu.cmake" \
    -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build "$BUILD" -j"$JOBS"

qemu=$(command -v qemu-aarch64-static || command -v qemu-aarch64)
# ELF header of a 64-bit little-endian AArch64 executable or shared object (e_machine 183).
magic='\x7fELF\x02\x01\x01\x00\x00\x00\x00\x00\x00\x00\x00\x00\x02\x00\xb7\x00'
mask='\xff\xff\xff\xff\xff\xff\xff\x00\xff\xff\xff\xff\xff\xff\xff\xff\xfe\xff\xff\xff'

# Runs in the private user and mount namespace: mounts binfmt_misc, registers qemu, checks that
# an arm64 program now starts on its own, then runs the command that follows.
inner=$(
    cat <<'INNER'
set -eu
dir=$(mktemp -d)
mount -t binfmt_misc binfmt_misc "$dir" 2>/dev/null || exit 90
printf ':tarn-aarch64:M::%s:%s:%s:F\n' "$MAGIC" "$MASK" "$QEMU" >"$dir/register" || exit 90
"$PROBE" --help >/dev/null 2>&1 || [ $? -lt 126 ] || exit 90
exec "$@"
INNER
)
in_namespace() {
    MAGIC=$magic MASK=$mask QEMU=$qemu PROBE=$BUILD/tarn_sim \
        unshare --user --map-root-user --mount sh -c "$inner" sh "$@"
}

start=$(date +%s)
status=0
if [ -z "${TARN_ARM64_NO_BINFMT:-}" ] && in_namespace true 2>/dev/null; then
    echo "test-arm64: arm64 binaries run through a private binfmt_misc registration of $qemu"
    (cd "$BUILD" && in_namespace ctest --output-on-failure -j"$JOBS") || status=$?
else
    skip='simtest|^sim_|^e2e_'
    echo "test-arm64: no private binfmt_misc here; tests run through $qemu directly."
    echo "test-arm64: skipped (they start arm64 programs of their own):"
    (cd "$BUILD" && ctest -N -R "$skip" | sed -n 's/^ *Test *#[0-9]*: /  /p')
    (cd "$BUILD" && ctest --output-on-failure -j"$JOBS" -E "$skip") || status=$?
fi
echo "test-arm64: $(($(date +%s) - start)) s of tests under emulation"
exit $status
