#include "node_io.h"

#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

namespace node_io {

bool read_text(const std::string& path, std::string* text) {
    text->clear();
    FILE* fp = fopen(path.c_str(), "re");
    if (fp == nullptr) return false;
    char buf[512];
    size_t n;
    while ((n = fread(buf, 1, sizeof(buf), fp)) > 0) text->append(buf, n);
    fclose(fp);
    return true;
}

std::string read_word(const std::string& path) {
    std::string text;
    read_text(path, &text);
    size_t begin = text.find_first_not_of(" \t\n");
    if (begin == std::string::npos) return "";
    size_t end = text.find_first_of(" \t\n", begin);
    return text.substr(begin, end == std::string::npos ? std::string::npos : end - begin);
}

bool read_number(const std::string& path, long long* value) {
    std::string word = read_word(path);
    if (word.empty()) return false;
    char* end = nullptr;
    *value = strtoll(word.c_str(), &end, 10);
    return *end == '\0';
}

void write_in_place(const std::string& path, const std::string& text) {
    int fd = open(path.c_str(), O_WRONLY | O_CLOEXEC);
    if (fd < 0) return;
    size_t done = 0;
    while (done < text.size()) {
        ssize_t n = pwrite(fd, text.data() + done, text.size() - done, (off_t)done);
        if (n <= 0) break;
        done += (size_t)n;
    }
    if (ftruncate(fd, (off_t)text.size()) != 0) {
        // Nothing to recover: the next tick writes the file again.
    }
    close(fd);
}

}  // namespace node_io
