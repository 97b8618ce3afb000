#!/usr/bin/env bash
# make check-aosp: compiles every daemon source with clang against the genuine AOSP headers of
# liblog and libcutils (Debian's host builds of them), placed ahead of the host stand-ins for
# <log/log.h>, <android/log.h> and <cutils/properties.h>, and links the daemon against the genuine
# liblog.so. The other platform pieces (binder, perf HAL, SDK, properties) still come from the
# stand-ins, which have no genuine host build.
set -euo pipefail
cd "$(dirname "$0")/.."
JOBS=${JOBS:-2}
OUT=$(realpath -m "${BUILD_AOSP:-build-aosp}")
AOSP_INC=/usr/include/android
AOSP_LIB=/usr/lib/$(gcc -print-multiarch)/android

bash tools/install-deps.sh aosp
rm -rf "$OUT" && mkdir -p "$OUT/gen" "$OUT/obj"
protoc --cpp_out="$OUT/gen" -Idaemon/report daemon/report/tarn_stats.proto

# Both are -I on purpose: a directory given with -isystem is searched after every -I directory,
# so the stand-ins would win.
flags=(-std=c++17 -Wall -Wextra -Wformat=2 -Wshadow -Werror -O1 -I"$AOSP_INC" -Idaemon -Idaemon/base -Idaemon/report
       -Idaemon/collectors -Idaemon/sched -Iplatform/include
       -Iplatform/wire -I"$OUT/gen" -I/usr/include/jsoncpp)
export OUT
compile() { # source [extra flags...]: one object per source, named after its path
    local src=$1 rel
    shift
    rel=${src#"$OUT"/}
    rel=${rel%.*}
    clang++ "$@" -c "$src" -o "$OUT/obj/${rel//\//_}.o" || { echo "check-aosp: $src does not compile" >&2; return 1; }
}
export -f compile

daemon_srcs=(daemon/*.cpp daemon/*/*.cpp "$OUT/gen/tarn_stats.pb.cc")
# The stand-ins the genuine libraries do not replace; the stand-in logger stays out.
standin_srcs=(platform/src/binder.cpp platform/src/perf2.cpp platform/src/properties.cpp
              platform/src/zel.cpp platform/wire/tarn_wire.cpp)
printf '%s\n' "${daemon_srcs[@]}" "${standin_srcs[@]}" |
    xargs -P "$JOBS" -I{} bash -c 'compile "$@"' _ {} "${flags[@]}"

# The genuine headers must be the ones compiled: ask the preprocessor which files it took.
deps=$(clang++ "${flags[@]}" -M daemon/base/tarn_log.cpp daemon/base/device_properties.cpp)
for header in log/log.h android/log.h cutils/properties.h; do
    if ! grep -q "$AOSP_INC/$header" <<<"$deps" || grep -q "platform/include/$header" <<<"$deps"; then
        echo "check-aosp: <$header> did not come from $AOSP_INC" >&2
        exit 1
    fi
done

clang++ -o "$OUT/tarn_stats" "$OUT"/obj/*.o -L"$AOSP_LIB" -Wl,-rpath,"$AOSP_LIB" -llog \
    -lprotobuf -ljsoncpp -pthread
# Tools' output is taken whole before grep reads it: with pipefail, grep -q leaving early would
# fail the pipe on the writer's SIGPIPE.
symbols=$(nm "$OUT/tarn_stats")
if grep -q ' T __android_log_print' <<<"$symbols"; then
    echo "check-aosp: the daemon carries its own __android_log_print" >&2
    exit 1
fi
# The genuine liblog is the one loaded, and the daemon starts with it (usage text, status 0).
libs=$(ldd "$OUT/tarn_stats")
grep -q "$AOSP_LIB/liblog.so" <<<"$libs" || { echo "check-aosp: the daemon does not load $AOSP_LIB/liblog.so" >&2; exit 1; }
"$OUT/tarn_stats" --help >/dev/null 2>&1 || { echo "check-aosp: tarn_stats --help failed" >&2; exit 1; }
echo "check-aosp: $(ls "$OUT"/obj | wc -l) sources compiled against $AOSP_INC; linked with $AOSP_LIB/liblog.so"
