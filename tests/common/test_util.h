// Small helpers shared by the tests.
#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <vector>

namespace tarn_test {

// Writes `content` to `path` in place (truncating), creating missing parent directories.
void write_file(const std::string& path, const std::string& content);
// Whole content of `path`, or "" when it cannot be read.
std::string read_file(const std::string& path);
void make_dirs(const std::string& path);
// The complete lines of `text`, without their newlines (an unterminated last line is dropped).
std::vector<std::string> split_lines(const std::string& text);
// Polls `cond` every 20 ms until it holds or `timeout` passes; returns its last value.
bool wait_until(const std::function<bool()>& cond,
                std::chrono::milliseconds timeout = std::chrono::seconds(30));

// A new directory under /tmp (/data/local/tmp on a device; "" when none could be made), removed
// with its content at the end.
struct TempDir {
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;
    std::string path;
};

// The device tree of the collector tests: a temporary directory, made once per process, that
// stands for the device's "/". at() places a device path under it.
const std::string& device_root();
inline std::string at(const std::string& device_path) {
    return device_root() + device_path;
}

}  // namespace tarn_test
