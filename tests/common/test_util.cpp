#include "common/test_util.h"

#include <errno.h>
#include <stdlib.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

namespace tarn_test {

void make_dirs(const std::string& path) {
    for (size_t pos = 1; pos != std::string::npos;) {
        pos = path.find('/', pos + 1);
        mkdir(path.substr(0, pos).c_str(), 0755);
    }
}

void write_file(const std::string& path, const std::string& content) {
    size_t slash = path.rfind('/');
    if (slash != std::string::npos && slash > 0) make_dirs(path.substr(0, slash));
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << content;
}

std::string read_file(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream ss;
    ss << in.rdbuf();
    return ss.str();
}

std::vector<std::string> split_lines(const std::string& text) {
    std::vector<std::string> lines;
    size_t start = 0, nl;
    for (; (nl = text.find('\n', start)) != std::string::npos; start = nl + 1) {
        lines.push_back(text.substr(start, nl - start));
    }
    return lines;
}

bool wait_until(const std::function<bool()>& cond, std::chrono::milliseconds timeout) {
    auto deadline = std::chrono::steady_clock::now() + timeout;
    while (!cond()) {
        if (std::chrono::steady_clock::now() >= deadline) return cond();
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return true;
}

TempDir::TempDir() {
#ifdef __ANDROID__
    char tmpl[] = "/data/local/tmp/tarn_test.XXXXXX";  // a device has no /tmp
#else
    char tmpl[] = "/tmp/tarn_test.XXXXXX";
#endif
    if (mkdtemp(tmpl) != nullptr) path = tmpl;
}

TempDir::~TempDir() {
    std::error_code ec;
    if (!path.empty()) std::filesystem::remove_all(path, ec);
}

const std::string& device_root() {
    static const TempDir dir;
    return dir.path;
}

}  // namespace tarn_test
