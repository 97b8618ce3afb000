#include "text.h"

#include <string.h>

void copy_bounded(char* dst, const char* src, size_t size) {
    size_t n = strnlen(src, size - 1);
    memcpy(dst, src, n);
    dst[n] = '\0';
}

void cat_bounded(char* dst, const char* src, size_t size) {
    size_t len = strnlen(dst, size);
    if (len + 1 >= size) return;
    copy_bounded(dst + len, src, size - len);
}

void strip_newline(char* line) {
    size_t len = strlen(line);
    if (len > 0 && line[len - 1] == '\n') line[len - 1] = '\0';
}
