// __android_log_print on a host: one threadtime line per message line on standard error.
#include <android/log.h>
#include <errno.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

namespace {

constexpr size_t kTextMax = 4068;  // longest message text kept, as the device's logger does
constexpr size_t kOutMax = 8192;

char priority_char(int prio) {
    switch (prio) {
        case ANDROID_LOG_VERBOSE:
            return 'V';
        case ANDROID_LOG_DEBUG:
            return 'D';
        case ANDROID_LOG_INFO:
            return 'I';
        case ANDROID_LOG_WARN:
            return 'W';
        case ANDROID_LOG_ERROR:
            return 'E';
        case ANDROID_LOG_FATAL:
            return 'F';
        default:
            return '?';
    }
}

void write_stderr(const char* buf, size_t len) {
    while (len > 0) {
        ssize_t n = write(STDERR_FILENO, buf, len);
        if (n < 0) {
            if (errno == EINTR) continue;
            return;
        }
        buf += n;
        len -= static_cast<size_t>(n);
    }
}

// Writes `text` under `tag`, one prefixed line per line of text.
void write_message(int prio, const char* tag, const char* text) {
    timeval tv;
    gettimeofday(&tv, nullptr);
    time_t secs = tv.tv_sec;
    tm local;
    localtime_r(&secs, &local);
    char prefix[160];
    int plen = snprintf(
        prefix, sizeof(prefix), "%02d-%02d %02d:%02d:%02d.%03d %5d %5d %c %-8s: ", local.tm_mon + 1,
        local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec,
        static_cast<int>(tv.tv_usec / 1000), static_cast<int>(getpid()),
        static_cast<int>(syscall(SYS_gettid)), priority_char(prio), tag != nullptr ? tag : "");
    if (plen < 0) plen = 0;
    if (static_cast<size_t>(plen) >= sizeof(prefix)) plen = sizeof(prefix) - 1;

    // Each line of the text gets its own prefix; a final newline ends the last line instead of
    // opening an empty one. The whole message goes out in one write so that lines from
    // concurrent threads never interleave.
    char out[kOutMax];
    size_t used = 0;
    const char* line = text;
    size_t text_len = strlen(text);
    const char* end = text + text_len;
    do {
        const char* nl = static_cast<const char*>(memchr(line, '\n', end - line));
        size_t llen =
            nl != nullptr ? static_cast<size_t>(nl - line) : static_cast<size_t>(end - line);
        if (used + plen + llen + 1 > sizeof(out)) {
            write_stderr(out, used);
            used = 0;
        }
        size_t room = sizeof(out) - 1 - plen;
        if (llen > room) llen = room;
        memcpy(out + used, prefix, plen);
        used += plen;
        memcpy(out + used, line, llen);
        used += llen;
        out[used++] = '\n';
        line = nl != nullptr ? nl + 1 : end;
    } while (line < end);
    write_stderr(out, used);
}

}  // namespace

// Every entry point keeps errno: callers log strerror(errno) and may test errno afterwards.
extern "C" int __android_log_vprint(int prio, const char* tag, const char* fmt, va_list ap) {
    int saved_errno = errno;
    char text[kTextMax + 1];
    text[0] = '\0';
    if (fmt != nullptr) vsnprintf(text, sizeof(text), fmt, ap);
    write_message(prio, tag, text);
    errno = saved_errno;
    return 1;
}

extern "C" int __android_log_print(int prio, const char* tag, const char* fmt, ...) {
    va_list ap;
    va_start(ap, fmt);
    int ret = __android_log_vprint(prio, tag, fmt, ap);
    va_end(ap);
    return ret;
}

extern "C" int __android_log_write(int prio, const char* tag, const char* text) {
    return __android_log_print(prio, tag, "%s", text != nullptr ? text : "");
}
