// Bounded copies of C strings, for the fixed field and line buffers of the collectors.
#pragma once

#include <stddef.h>

// Copies at most size - 1 characters of `src` into `dst` and always terminates it.
void copy_bounded(char* dst, const char* src, size_t size);

// Appends `src` to the terminated `dst` of `size` bytes, cutting what does not fit.
void cat_bounded(char* dst, const char* src, size_t size);

// Removes one trailing newline.
void strip_newline(char* line);
