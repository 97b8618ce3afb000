// Log tags, the debug level and the three message classes of the daemon.
//
// A source file names the tag it logs under once, before its includes:
//
//     #define TARN_LOG_TAG TAG_POWER
//
// and then logs with TLOGE, TLOGW and TLOGD. The macros put "%s() %d: " in front of the format and
// fill it with the logging function's name and the statement's line, so a format holds only the
// message's own text. The _FN variants name another routine in the prefix (a step folded into a
// helper, a handler's closing message); the _AT variants also take the tag, for the few messages a
// file writes under a tag other than its own. Errors are always written; warnings when the debug
// level is 4 or more; debug messages when it is 7 or more. A guarded message evaluates none of its
// arguments when the level test fails. The format check of __android_log_print covers the prefix
// and the message together.
#pragma once

#include <log/log.h>
#include <stdint.h>

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

#define TARN_LOG_PREFIX "%s() %d: "

#define TLOGE_AT(tag, fn, fmt, ...) \
    __android_log_print(ANDROID_LOG_ERROR, tag, TARN_LOG_PREFIX fmt, fn, __LINE__, ##__VA_ARGS__)

#define TLOGW_AT(tag, fn, fmt, ...)                                                       \
    do {                                                                                  \
        if (g_debug_level >= TARN_LEVEL_WARN)                                             \
            __android_log_print(ANDROID_LOG_WARN, tag, TARN_LOG_PREFIX fmt, fn, __LINE__, \
                                ##__VA_ARGS__);                                           \
    } while (0)

#define TLOGD_AT(tag, fn, fmt, ...)                                                        \
    do {                                                                                   \
        if (g_debug_level >= TARN_LEVEL_DEBUG)                                             \
            __android_log_print(ANDROID_LOG_DEBUG, tag, TARN_LOG_PREFIX fmt, fn, __LINE__, \
                                ##__VA_ARGS__);                                            \
    } while (0)

#define TLOGE(fmt, ...) TLOGE_AT(TARN_LOG_TAG, __func__, fmt, ##__VA_ARGS__)
#define TLOGW(fmt, ...) TLOGW_AT(TARN_LOG_TAG, __func__, fmt, ##__VA_ARGS__)
#define TLOGD(fmt, ...) TLOGD_AT(TARN_LOG_TAG, __func__, fmt, ##__VA_ARGS__)

#define TLOGE_FN(fn, fmt, ...) TLOGE_AT(TARN_LOG_TAG, fn, fmt, ##__VA_ARGS__)
#define TLOGW_FN(fn, fmt, ...) TLOGW_AT(TARN_LOG_TAG, fn, fmt, ##__VA_ARGS__)
#define TLOGD_FN(fn, fmt, ...) TLOGD_AT(TARN_LOG_TAG, fn, fmt, ##__VA_ARGS__)
