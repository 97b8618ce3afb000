// The in-memory node stream against the C library's stream on the same bytes: a script of reads
// (line pieces of several sizes, single bytes, the decimal and word conversions, blank skips) is
// run on both, and every read must give the same result, the same bytes, the same position and
// the same end-of-file flag.
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <string>

#include "node_fuzz.h"
#include "node_reader.h"

namespace {

using node_fuzz::check;

enum Op { GETS, GETC, SCAN_LL, SCAN_ULL, SCAN_WORD, SKIP_SPACE, SCAN_I32, SCAN_U32 };

// Line-piece sizes a reader is likely to meet: short ones that cut lines, and a collector's.
int piece_size(unsigned param) {
    return param == 31 ? 1024 : (int)param + 2;
}

// One read on both streams; aborts when they disagree.
void step(unsigned op, FILE* fp, mem_stream* in) {
    unsigned param = op >> 3;
    switch (op & 7) {
        case GETS: {
            char want[1024], got[1024];
            memset(want, 'x', sizeof(want));
            memset(got, 'x', sizeof(got));
            int size = piece_size(param);
            long before = ftell(fp);
            char* w = fgets(want, size, fp);
            char* g = mem_gets(got, size, in);
            check((w == nullptr) == (g == nullptr));
            if (w != nullptr) {
                size_t n = (size_t)(ftell(fp) - before);
                check(n < (size_t)size && got[n] == '\0' && memcmp(want, got, n + 1) == 0);
            } else {
                check(got[0] == 'x');  // left as it was
            }
            break;
        }
        case GETC:
            check(fgetc(fp) == mem_getc(in));
            break;
        case SCAN_LL:
        case SCAN_I32: {
            long long w = 77, g = 77;
            int wi = 77;
            int wret = (op & 7) == SCAN_LL ? fscanf(fp, "%lld", &w) : fscanf(fp, "%d", &wi);
            int gret = mem_scan_ll(in, &g);
            check(wret == gret);
            if (gret == 1) check((op & 7) == SCAN_LL ? w == g : wi == (int)g);
            if (gret != 1) check(g == 77);
            break;
        }
        case SCAN_ULL:
        case SCAN_U32: {
            unsigned long long w = 77, g = 77;
            unsigned wu = 77;
            int wret = (op & 7) == SCAN_ULL ? fscanf(fp, "%llu", &w) : fscanf(fp, "%u", &wu);
            int gret = mem_scan_ull(in, &g);
            check(wret == gret);
            if (gret == 1) check((op & 7) == SCAN_ULL ? w == g : wu == (unsigned)g);
            if (gret != 1) check(g == 77);
            break;
        }
        case SCAN_WORD: {
            size_t width = param % 8 + 1;
            char fmt[8];
            snprintf(fmt, sizeof(fmt), "%%%zus", width);
            char want[10], got[10];
            memset(want, 'x', sizeof(want));
            memset(got, 'x', sizeof(got));
            // The width is the input's; the C library takes it only from the format.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
            int wret = fscanf(fp, fmt, want);
#pragma GCC diagnostic pop
            int gret = mem_scan_word(in, got, width);
            check(wret == gret);
            // The same bytes taken (NUL bytes among them), one terminator, nothing beyond.
            check(memcmp(want, got, sizeof(want)) == 0);
            break;
        }
        case SKIP_SPACE: {
            int r = fscanf(fp, " ");
            (void)r;
            mem_skip_space(in);
            break;
        }
    }
    check(ftell(fp) == (long)in->pos);
    check((feof(fp) != 0) == in->eof);
}

}  // namespace

// Input: a count of reads (1 to 16), one byte per read (low three bits the read, the rest its
// size or width), then the bytes of the node.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2 || size > 8192) return 0;
    size_t ops = data[0] % 16 + 1;
    if (size < 1 + ops) return 0;
    std::string text(reinterpret_cast<const char*>(data + 1 + ops), size - 1 - ops);
    if (text.empty()) return 0;  // a stream of no bytes cannot be opened in memory
    FILE* fp = fmemopen(&text[0], text.size(), "r");
    if (fp == nullptr) return 0;
    mem_stream in = mem_open(text.data(), text.size());
    for (size_t i = 0; i < ops; i++) step(data[1 + i], fp, &in);
    fclose(fp);
    return 0;
}
