// Version-information text through the device properties' parser: every entry it keeps is a key
// that occurs between the first two quotes of some brace-free line, the first value seen wins,
// and nothing leaves the bounds of the text.
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>

#include <map>
#include <string>

#include "core/device_properties.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0 || size > 65536) return 0;
    std::string text(reinterpret_cast<const char*>(data), size);
    FILE* fp = fmemopen(&text[0], text.size(), "r");
    if (fp == nullptr) return 0;
    std::map<std::string, std::string> info;
    parse_version_info(fp, &info);
    fclose(fp);

    // A second pass over the same text changes nothing: the first occurrence of a key wins.
    std::map<std::string, std::string> again = info;
    fp = fmemopen(&text[0], text.size(), "r");
    if (fp == nullptr) return 0;
    parse_version_info(fp, &again);
    fclose(fp);
    if (again != info) abort();

    for (const auto& entry : info) {
        // Each key and each value is text of the input, without its line's newline.
        if (text.find(entry.first) == std::string::npos) abort();
        if (text.find(entry.second) == std::string::npos) abort();
        if (entry.first.find('\n') != std::string::npos) abort();
        if (entry.second.find('\n') != std::string::npos) abort();
        if (entry.first.find('"') != std::string::npos) abort();
    }
    return 0;
}
