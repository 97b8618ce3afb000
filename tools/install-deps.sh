#!/usr/bin/env bash
# Installs the Debian packages the build and the tests need, only those that are missing.
# Extra sets on request: "arm64" (cross build run under emulation), "aosp" (the genuine AOSP
# log and cutils headers and libraries), "checks" (Android.bp formatter, SELinux policy tools),
# "plot" (matplotlib for the picture of tools/tarn_records), "bench" (collectd and strace for
# make bench, without their recommendations), "lint" (clang-format and clang-tidy).
set -euo pipefail
pkgs=(cmake make g++ clang libclang-rt-14-dev libprotobuf-dev protobuf-compiler libgtest-dev
      libgmock-dev libbenchmark-dev libjsoncpp-dev)
arm64=no
opts=()
for set in "$@"; do
    case "$set" in
        arm64)
            arm64=yes
            pkgs+=(g++-aarch64-linux-gnu libprotobuf-dev:arm64 libgtest-dev:arm64
                   libgmock-dev:arm64 libbenchmark-dev:arm64 libjsoncpp-dev:arm64)
            ;;
        aosp) pkgs+=(android-liblog-dev android-libcutils-dev) ;;
        checks) pkgs+=(blueprint-tools checkpolicy m4) ;;
        plot) pkgs+=(python3-matplotlib) ;;
        bench)
            pkgs+=(collectd-core strace)
            opts=(--no-install-recommends)
            ;;
        lint) pkgs+=(clang-format-14 clang-tidy-14) ;;
        *) echo "install-deps.sh: unknown set '$set'" >&2; exit 2 ;;
    esac
done

installed() { dpkg-query -W -f='${Status}' "$1" 2>/dev/null | grep -q 'install ok installed'; }
missing=()
for p in "${pkgs[@]}"; do
    installed "$p" || missing+=("$p")
done
# Either build of the user-mode emulator will do.
if [ "$arm64" = yes ] && ! installed qemu-user-static && ! installed qemu-user; then
    missing+=(qemu-user-static)
fi
[ ${#missing[@]} -eq 0 ] && exit 0
echo "installing: ${missing[*]}" >&2
sudo=""
[ "$(id -u)" -eq 0 ] || sudo="sudo"
if [ "$arm64" = yes ] && ! dpkg --print-foreign-architectures | grep -qx arm64; then
    $sudo dpkg --add-architecture arm64
fi
$sudo apt-get update -qq
DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq "${opts[@]}" "${missing[@]}" >/dev/null
