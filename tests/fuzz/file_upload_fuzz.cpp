// Found crash files through the upload's path composition and line framing: a path is handed out
// whole (with room for its comma and NUL) or not at all, and a framed line is the header, the
// application name and a comma, then as much of the content as fits with a NUL after it.
#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <string>
#include <vector>

#include "file_upload.h"

namespace {

char g_line[kFileBufSize];
const char g_zeros[kFileBufSize] = {};

void check(bool ok) {
    if (!ok) abort();
}

// Takes the next field of the input: a length byte, then that many bytes (cut at a NUL, as the
// C strings the upload sees would be).
std::string field(const uint8_t** data, size_t* size, size_t max) {
    if (*size == 0) return "";
    size_t len = **data % (max + 1);
    ++*data;
    --*size;
    if (len > *size) len = *size;
    std::string out(reinterpret_cast<const char*>(*data), len);
    *data += len;
    *size -= len;
    return out.c_str();
}

}  // namespace

// Input: the top directory, the searched directory, the file name, the header, the
// application name (each a length byte and its bytes), two bytes scaling the content, then the
// content.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size > 8192) return 0;
    std::string cwd = field(&data, &size, 255);
    std::string dir = field(&data, &size, 255);
    std::string name = field(&data, &size, 255);
    std::string header = field(&data, &size, 255);
    std::string app = field(&data, &size, 255);

    check(file_name_qualifies(name.c_str(), "tombstone_", 10) ==
          (name.compare(0, 10, "tombstone_") == 0 && name.find("_readed") == std::string::npos &&
           name.find(".pb") == std::string::npos));

    char path[kFilePathSize];
    memset(path, 'x', sizeof(path));
    bool fits = compose_found_path(cwd.c_str(), dir.c_str(), name.c_str(), path);
    std::string want =
        dir.compare(0, cwd.size(), cwd) == 0 ? cwd + "/" + name : cwd + "/" + dir + "/" + name;
    check(fits == (want.size() + 2 <= kFilePathSize));
    check(fits ? std::string(path) == want : path[0] == '\0');

    // The content is repeated so that short inputs can still reach the end of the line.
    size_t repeat = 1;
    if (size >= 2) {
        repeat = 1 + (static_cast<size_t>(data[0]) << 8 | data[1]) % 300;
        data += 2;
        size -= 2;
    }
    std::vector<char> content;
    for (size_t r = 0; r < repeat && content.size() <= kFileBufSize; ++r) {
        content.insert(content.end(), data, data + size);
    }

    memset(g_line, 0x55, sizeof(g_line));
    memcpy(g_line, header.data(), header.size());
    size_t written = 0;
    const char* bytes = content.empty() ? "" : content.data();  // the file buffer is never null
    uint32_t line_size = frame_line(g_line, sizeof(g_line), static_cast<uint32_t>(header.size()),
                                    app.c_str(), bytes, content.size(), &written);
    const size_t head = header.size() + app.size() + 1;
    check(line_size < kFileBufSize);
    check(line_size == head + written);
    check(written == std::min(content.size(), kFileBufSize - 1 - head));
    check(memcmp(g_line, header.data(), header.size()) == 0);
    check(memcmp(g_line + header.size(), app.data(), app.size()) == 0);
    check(g_line[head - 1] == ',');
    check(memcmp(g_line + head, bytes, written) == 0);
    check(memcmp(g_line + line_size, g_zeros, kFileBufSize - line_size) == 0);
    return 0;
}
