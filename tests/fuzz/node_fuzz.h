// Pieces shared by the harnesses of the collectors' node parsers.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>

#include <algorithm>
#include <string>
#include <vector>

#include "tarn_log.h"

namespace node_fuzz {

inline void check(bool ok) {
    if (!ok) abort();
}

// Errors only: a message per input would drown the fuzzer's output.
inline void quiet_logs() {
    g_debug_level = 3;
}

// An input of one byte choosing what the text is, then the text; false when the input is empty or
// longer than `max`.
inline bool split_input(const uint8_t* data, size_t size, size_t max, uint8_t* choice,
                        std::string* text) {
    if (size < 1 || size > max) return false;
    *choice = data[0];
    text->assign(reinterpret_cast<const char*>(data + 1), size - 1);
    return true;
}

// Where each line piece starts that a reader of `size`-byte line buffers cuts from `text`.
inline std::vector<size_t> piece_starts(const std::string& text, size_t size) {
    std::vector<size_t> starts;
    for (size_t start = 0; start < text.size();) {
        starts.push_back(start);
        size_t nl = text.find('\n', start);
        size_t end = nl == std::string::npos ? text.size() : nl + 1;
        start = std::min(end, start + size - 1);
    }
    return starts;
}

}  // namespace node_fuzz
