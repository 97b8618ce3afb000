#include "node_reader.h"

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <string.h>
#include <unistd.h>

#include "text.h"

// Reads that end on a multiple of this may be one page of a node served a page at a time.
#define NODE_PAGE_CHUNK 4096

ssize_t node_pread(int fd, char* buf, size_t size) {
    size_t len = 0;
    while (len < size) {
        ssize_t n = pread(fd, buf + len, size - len, (off_t)len);
        if (n < 0) {
            if (errno == EINTR) continue;
            if (errno == ESPIPE) break;  // a FIFO, which has no offsets: nothing to read
            if (len == 0) return -errno;
            break;
        }
        if (n == 0) break;
        len += (size_t)n;
        if ((size_t)n % NODE_PAGE_CHUNK != 0) break;
    }
    return (ssize_t)len;
}

int node_open(const char* path) {
    // Never waits: a FIFO put in a node's place opens at once instead of waiting for a writer.
    return open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC);
}

void node_close(int* fd) {
    if (*fd < 0) return;
    (void)close(*fd);
    *fd = -1;
}

ssize_t node_read_path(const char* path, char* buf, size_t size) {
    int fd = node_open(path);
    if (fd < 0) return -1;
    ssize_t n = node_pread(fd, buf, size);
    int err = n < 0 ? (int)-n : 0;
    close(fd);
    errno = err;
    return n < 0 ? 0 : n;
}

mem_stream mem_open(const char* data, size_t len) {
    return mem_stream{data, len, 0, false};
}

mem_stream mem_open_str(const char* text) {
    return mem_open(text, strlen(text));
}

int mem_getc(mem_stream* in) {
    if (in->pos >= in->len) {
        in->eof = true;
        return EOF;
    }
    return (unsigned char)in->data[in->pos++];
}

char* mem_gets(char* line, int size, mem_stream* in) {
    if (size <= 0) return nullptr;
    if (in->pos >= in->len) {
        in->eof = true;
        return nullptr;
    }
    size_t room = (size_t)size - 1;
    size_t n = 0;
    while (n < room) {
        if (in->pos >= in->len) {
            in->eof = true;
            break;
        }
        char c = in->data[in->pos++];
        line[n++] = c;
        if (c == '\n') break;
    }
    line[n] = '\0';
    return line;
}

char* mem_get_line(char* line, int size, mem_stream* in) {
    if (mem_gets(line, size, in) == nullptr) return nullptr;
    strip_newline(line);
    return line;
}

static bool is_space(int c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' || c == '\r';
}

static bool is_digit(int c) {
    return c >= '0' && c <= '9';
}

void mem_skip_space(mem_stream* in) {
    while (in->pos < in->len && is_space((unsigned char)in->data[in->pos])) in->pos++;
    if (in->pos >= in->len) in->eof = true;
}

// The sign and magnitude of a decimal number at the stream's position, the magnitude saturated
// at ULLONG_MAX. Returns 1, 0 or EOF as the conversions below.
static int scan_decimal(mem_stream* in, bool* negative, unsigned long long* magnitude,
                        bool* overflow) {
    mem_skip_space(in);
    if (in->pos >= in->len) return EOF;
    *negative = false;
    char c = in->data[in->pos];
    if (c == '+' || c == '-') {
        *negative = c == '-';
        in->pos++;
    }
    if (in->pos >= in->len) {
        in->eof = true;
        return 0;
    }
    if (!is_digit((unsigned char)in->data[in->pos])) return 0;
    unsigned long long v = 0;
    *overflow = false;
    while (in->pos < in->len && is_digit((unsigned char)in->data[in->pos])) {
        unsigned digit = (unsigned)(in->data[in->pos++] - '0');
        if (v > (ULLONG_MAX - digit) / 10) *overflow = true;
        if (!*overflow) v = v * 10 + digit;
    }
    if (in->pos >= in->len) in->eof = true;
    *magnitude = *overflow ? ULLONG_MAX : v;
    return 1;
}

int mem_scan_ll(mem_stream* in, long long* value) {
    bool negative = false, overflow = false;
    unsigned long long m = 0;
    int ret = scan_decimal(in, &negative, &m, &overflow);
    if (ret != 1) return ret;
    const unsigned long long limit = (unsigned long long)LLONG_MAX;
    if (negative) {
        *value = m > limit ? LLONG_MIN : -(long long)m;
    } else {
        *value = m > limit ? LLONG_MAX : (long long)m;
    }
    return 1;
}

int mem_scan_ull(mem_stream* in, unsigned long long* value) {
    bool negative = false, overflow = false;
    unsigned long long m = 0;
    int ret = scan_decimal(in, &negative, &m, &overflow);
    if (ret != 1) return ret;
    *value = negative && !overflow ? 0 - m : m;
    return 1;
}

int mem_scan_word(mem_stream* in, char* word, size_t width) {
    mem_skip_space(in);
    if (in->pos >= in->len) return EOF;
    size_t n = 0;
    while (n < width && in->pos < in->len && !is_space((unsigned char)in->data[in->pos])) {
        word[n++] = in->data[in->pos++];
    }
    // A word cut at its width has not looked at the byte after it.
    if (n < width && in->pos >= in->len) in->eof = true;
    word[n] = '\0';
    return 1;
}
