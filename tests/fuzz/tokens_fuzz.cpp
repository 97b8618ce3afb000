// Lines of kernel text through the token helpers the frame-rate reading uses: the token handed
// back is the whole text when the separator does not occur, otherwise the token at the index as a
// plain character-set split finds it (or empty text), and it never contains a separator character.
#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <string>
#include <vector>

#include "tokens.h"

namespace {

std::vector<std::string> reference_split(const std::string& text, const std::string& sep) {
    std::vector<std::string> out;
    size_t i = 0;
    while (i < text.size() && out.size() < TOKEN_MAX) {
        i = text.find_first_not_of(sep, i);
        if (i == std::string::npos) break;
        size_t end = text.find_first_of(sep, i);
        if (end == std::string::npos) end = text.size();
        out.push_back(text.substr(i, end - i));
        i = end;
    }
    return out;
}

}  // namespace

// Input: one byte of index, one byte of separator length (1 to 3), the separator, then the text
// (up to its first NUL, as a C string would end).
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 3 || size > 2048) return 0;
    int32_t index = static_cast<int8_t>(data[0]);
    size_t sep_len = 1 + data[1] % 3;
    if (size < 2 + sep_len) return 0;
    std::string sep(reinterpret_cast<const char*>(data + 2), sep_len);
    sep = sep.c_str();
    if (sep.empty()) return 0;
    std::string text(reinterpret_cast<const char*>(data + 2 + sep_len), size - 2 - sep_len);
    text = text.c_str();

    std::vector<char> buf(text.begin(), text.end());
    buf.push_back('\0');
    char* tok = extract_fps_info(buf.data(), sep.c_str(), index);
    std::string got(tok);
    if (text.find(sep) == std::string::npos) {
        if (tok != buf.data() || got != text) abort();
    } else {
        std::vector<std::string> ref = reference_split(text, sep);
        std::string want = index >= 0 && index < static_cast<int32_t>(ref.size()) ? ref[index] : "";
        if (got != want) abort();
        if (got.find_first_of(sep) != std::string::npos) abort();
    }

    // The second-token helper of the same family, on a fresh copy.
    std::vector<char> buf2(text.begin(), text.end());
    buf2.push_back('\0');
    std::string second(split_stats_string(buf2.data(), sep.c_str()));
    if (text.find(sep) == std::string::npos) {
        if (second != text) abort();
    } else {
        std::vector<std::string> ref = reference_split(text, sep);
        if (second != (ref.size() > 1 ? ref[1] : "")) abort();
    }
    return 0;
}
