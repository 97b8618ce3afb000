// Kernel nodes read without stdio: a node's whole content from offset 0 into a fixed buffer,
// then parsed from memory by helpers that behave like the stream reads they stand for: line
// pieces as fgets cuts them and scanf's decimal and word conversions.
//
// Reading the bytes ourselves costs one read per node and no allocation, and it does not depend
// on how a C library buffers, flushes or seeks an input stream.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <sys/types.h>

// Room for the largest node a kernel serves in one page (64 KiB pages on some AArch64 kernels).
#define NODE_BUF_LEN 65536

// Reads the file behind `fd` from offset 0 into `buf`, at most `size` bytes. Returns the number
// of bytes read, or -errno when the first read fails. A read that ends on a page boundary may
// have more behind it (some nodes are served a page per read), so reading goes on until a read
// ends elsewhere, returns nothing or the buffer is full; a longer node is cut at `size`. A node
// that cannot be read at an offset (a FIFO) reads as empty.
ssize_t node_pread(int fd, char* buf, size_t size);

// Opens `path` read-only for reads with node_pread, kept open: the descriptor, or -1 with errno.
// It never waits: a FIFO put in a node's place opens at once and reads as empty.
int node_open(const char* path);
// Closes a descriptor of node_open and sets it to -1; nothing when it is -1 already.
void node_close(int* fd);

// Opens `path` read-only, reads it as node_pread does and closes it. Returns the length, or -1
// when the file cannot be opened. A file that opens but cannot be read reads as empty; errno is
// then the read's error, and 0 after a read that worked.
ssize_t node_read_path(const char* path, char* buf, size_t size);

// Bytes read from a node, consumed like an input stream from its start.
struct mem_stream {
    const char* data;
    size_t len;
    size_t pos;
    bool eof;  // a read ran into the end of the bytes, as feof would say
};

mem_stream mem_open(const char* data, size_t len);

// The next byte, or EOF at the end.
int mem_getc(mem_stream* in);

// fgets: the next line piece of at most size - 1 bytes, up to and including a newline, stored
// NUL-terminated in `line`. At the end of the bytes returns null and leaves `line` as it was.
// A NUL byte inside the piece is copied like any other byte.
char* mem_gets(char* line, int size, mem_stream* in);

// mem_gets without the piece's trailing newline.
char* mem_get_line(char* line, int size, mem_stream* in);

// The blank directive of a scanf format: skips white space.
void mem_skip_space(mem_stream* in);

// scanf's decimal conversions (%d, %ld, %lld and %u, %lu, %llu): skip white space, take an
// optional sign and the digits. Return 1 with the value that strtoll or strtoull gives (the
// caller narrows it as scanf would), 0 when no number starts there (the destination is left
// alone), or EOF when the bytes end before the conversion starts.
int mem_scan_ll(mem_stream* in, long long* value);
int mem_scan_ull(mem_stream* in, unsigned long long* value);

// scanf's %<width>s: skips white space and stores at most `width` non-white bytes and a NUL.
// Returns 1, or EOF when the bytes end first.
int mem_scan_word(mem_stream* in, char* word, size_t width);

// The C-string view of a line: a NUL byte ends its text.
mem_stream mem_open_str(const char* text);
