// Frame-rate node text through the frame-rate parser: the last line piece alone decides the rate
// (no earlier line leaves anything behind), and a piece that is one bare word gives that word's
// number.
#include <math.h>
#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <string>

#include "collectors/node_parsers.h"
#include "core/tarn_log.h"

namespace {

void check(bool ok) {
    if (!ok) abort();
}

bool same(double a, double b) {
    return (isnan(a) && isnan(b)) || a == b;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    g_debug_level = 3;
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size > 16384) return 0;
    std::string text(reinterpret_cast<const char*>(data), size);
    double rate = fps_parse(text.data(), text.size());

    // Line pieces as a reader of 1024 bytes cuts them.
    size_t last = 0;
    for (size_t start = 0; start < text.size();) {
        last = start;
        size_t nl = text.find('\n', start);
        size_t end = nl == std::string::npos ? text.size() : nl + 1;
        start = std::min(end, start + 1023);
    }
    std::string piece = text.substr(last);
    check(same(rate, fps_parse(piece.data(), piece.size())));

    if (!piece.empty() && piece.back() == '\n') piece.pop_back();
    piece = piece.c_str();
    if (piece.find_first_of(": ") == std::string::npos)
        check(same(rate, strtod(piece.c_str(), nullptr)));
    return 0;
}
