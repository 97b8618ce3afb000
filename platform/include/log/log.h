// Host stand-in for <log/log.h>: the NDK calls plus the ALOG macros of the platform header.
//
// LOG_TAG names the tag of the ALOG macros (null unless the source defines it before the
// include). ALOGV is compiled out when LOG_NDEBUG is set, which it is by default in builds with
// NDEBUG; its arguments are then checked but never evaluated.
#pragma once

#include <android/log.h>

#ifndef LOG_TAG
#define LOG_TAG NULL
#endif

#ifndef LOG_NDEBUG
#ifdef NDEBUG
#define LOG_NDEBUG 1
#else
#define LOG_NDEBUG 0
#endif
#endif

#define ALOGE(...) ((void)__android_log_print(ANDROID_LOG_ERROR, LOG_TAG, __VA_ARGS__))
#define ALOGW(...) ((void)__android_log_print(ANDROID_LOG_WARN, LOG_TAG, __VA_ARGS__))
#define ALOGI(...) ((void)__android_log_print(ANDROID_LOG_INFO, LOG_TAG, __VA_ARGS__))
#define ALOGD(...) ((void)__android_log_print(ANDROID_LOG_DEBUG, LOG_TAG, __VA_ARGS__))
#if LOG_NDEBUG
#define ALOGV(...)                                                                   \
    do {                                                                             \
        if (0) (void)__android_log_print(ANDROID_LOG_VERBOSE, LOG_TAG, __VA_ARGS__); \
    } while (0)
#else
#define ALOGV(...) ((void)__android_log_print(ANDROID_LOG_VERBOSE, LOG_TAG, __VA_ARGS__))
#endif
