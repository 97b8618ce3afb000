// Frame-rate node text through the frame-rate parser: the last line piece alone decides the rate
// (no earlier line leaves anything behind), and a piece that is one bare word gives that word's
// number.
#include <math.h>
#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <string>

#include "node_fuzz.h"
#include "node_parsers.h"

namespace {

using node_fuzz::check;

bool same(double a, double b) {
    return (isnan(a) && isnan(b)) || a == b;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    node_fuzz::quiet_logs();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size > 16384) return 0;
    std::string text(reinterpret_cast<const char*>(data), size);
    double rate = fps_parse(text.data(), text.size());

    // The last line piece that a reader of 1024-byte lines cuts.
    std::vector<size_t> starts = node_fuzz::piece_starts(text, 1024);
    size_t last = starts.empty() ? 0 : starts.back();
    std::string piece = text.substr(last);
    check(same(rate, fps_parse(piece.data(), piece.size())));

    if (!piece.empty() && piece.back() == '\n') piece.pop_back();
    piece = piece.c_str();
    if (piece.find_first_of(": ") == std::string::npos)
        check(same(rate, strtod(piece.c_str(), nullptr)));
    return 0;
}
