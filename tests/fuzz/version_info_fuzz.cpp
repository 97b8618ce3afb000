// Version-information text through the device properties' parser: it keeps the same entries
// whether it reads the text whole or line by line, every entry is text of one line of the input,
// a key holds no quote, and nothing leaves the bounds of the text.
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>

#include <map>
#include <string>

#include "device_properties.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0 || size > 65536) return 0;
    std::string text(reinterpret_cast<const char*>(data), size);
    FILE* fp = fmemopen(&text[0], text.size(), "r");
    if (fp == nullptr) return 0;
    std::map<std::string, std::string> info;
    parse_version_info(fp, &info);
    fclose(fp);

    // Fed one line at a time, the parser ends with the same entries: lines are read whole,
    // however long, and one line's text never reaches another's entry.
    std::map<std::string, std::string> by_line;
    for (size_t start = 0; start < text.size();) {
        size_t nl = text.find('\n', start);
        size_t end = nl == std::string::npos ? text.size() : nl + 1;
        std::string line = text.substr(start, end - start);
        start = end;
        fp = fmemopen(&line[0], line.size(), "r");
        if (fp == nullptr) return 0;
        parse_version_info(fp, &by_line);
        fclose(fp);
    }
    if (by_line != info) abort();

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
