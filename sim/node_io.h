// Reading and rewriting the nodes of the simulated device from outside the sandbox.
#pragma once

#include <string>

namespace node_io {

// Whole content of a file; false (and `*text` empty) when it cannot be opened.
bool read_text(const std::string& path, std::string* text);

// First whitespace-separated word of a file, or "" when it has none or cannot be read.
std::string read_word(const std::string& path);

// The file's first word as a decimal number; false unless the whole word is one.
bool read_number(const std::string& path, long long* value);

// Replaces an existing file's content in place (a node missing from the image stays missing): the
// new text is written over the old one and the file is then cut to its length. Nodes are never
// replaced by rename because the daemon keeps them open, and a reader that keeps the file open
// never meets an empty file.
void write_in_place(const std::string& path, const std::string& text);

}  // namespace node_io
