// Log tags, the debug level and the three message classes of the daemon.
//
// Every format passed to these macros starts with "%s() %d: ", which the macros fill with the
// logging function's name and the statement's line. Errors are always written; warnings when the
// debug level is 4 or more; debug messages when it is 7 or more. A guarded message evaluates none
// of its arguments when the level test fails.
#pragma once

#include <log/log.h>
#include <stdint.h>
#include <stdio.h>

#define TAG_TARN_STATS "TARN_STATS"
#define TAG_MAIN "TARN_STATS_MAIN"
#define TAG_HELP "TARN_STATS_HELP"
#define TAG_POWER "TARN_STATS_POWER"
#define TAG_THERMAL "TARN_STATS_THERMAL"
#define TAG_STABILITY "TARN_STATS_STABILITY"
#define TAG_BATTERY "TARN_STATS_BATTERY"
#define TAG_MTBF "TARN_STATS_MTBF"

#define TARN_LEVEL_WARN 4
#define TARN_LEVEL_DEBUG 7

// Process-wide debug level; settled during start-up, read without a lock afterwards.
extern int32_t g_debug_level;

// Local record file opened by --local, or null.
extern FILE* g_local_file;

#define TLOGE(tag, fmt, ...) \
    __android_log_print(ANDROID_LOG_ERROR, tag, fmt, __func__, __LINE__, ##__VA_ARGS__)

#define TLOGW(tag, fmt, ...)                                                                    \
    do {                                                                                        \
        if (g_debug_level >= TARN_LEVEL_WARN)                                                   \
            __android_log_print(ANDROID_LOG_WARN, tag, fmt, __func__, __LINE__, ##__VA_ARGS__); \
    } while (0)

#define TLOGD(tag, fmt, ...)                                                                     \
    do {                                                                                         \
        if (g_debug_level >= TARN_LEVEL_DEBUG)                                                   \
            __android_log_print(ANDROID_LOG_DEBUG, tag, fmt, __func__, __LINE__, ##__VA_ARGS__); \
    } while (0)

// Variants for a statement whose message names a routine other than the C++ function it sits in
// (for example a step that was folded into a helper): `fn` fills the "%s" of the prefix.
#define TLOGE_FN(tag, fn, fmt, ...) \
    __android_log_print(ANDROID_LOG_ERROR, tag, fmt, fn, __LINE__, ##__VA_ARGS__)

#define TLOGW_FN(tag, fn, fmt, ...)                                                       \
    do {                                                                                  \
        if (g_debug_level >= TARN_LEVEL_WARN)                                             \
            __android_log_print(ANDROID_LOG_WARN, tag, fmt, fn, __LINE__, ##__VA_ARGS__); \
    } while (0)

#define TLOGD_FN(tag, fn, fmt, ...)                                                        \
    do {                                                                                   \
        if (g_debug_level >= TARN_LEVEL_DEBUG)                                             \
            __android_log_print(ANDROID_LOG_DEBUG, tag, fmt, fn, __LINE__, ##__VA_ARGS__); \
    } while (0)
