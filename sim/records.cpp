#include "records.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include "tarn_wire.h"

std::string format_record(uint32_t kpi_id, const std::string& bytes) {
    static const char kHex[] = "0123456789abcdef";
    std::string line = std::to_string(kpi_id);
    line += '\t';
    line.reserve(line.size() + bytes.size() + 16);
    for (unsigned char c : bytes) {
        switch (c) {
            case '\\':
                line += "\\\\";
                break;
            case '\n':
                line += "\\n";
                break;
            case '\t':
                line += "\\t";
                break;
            case '\r':
                line += "\\r";
                break;
            default:
                if (c < 0x20 || c == 0x7F) {
                    line += "\\x";
                    line += kHex[c >> 4];
                    line += kHex[c & 0xF];
                } else {
                    line += static_cast<char>(c);
                }
        }
    }
    line += '\n';
    return line;
}

RecordsWriter::~RecordsWriter() {
    if (mOwned && mFd >= 0) close(mFd);
}

bool RecordsWriter::open(const std::string& path, std::string* err) {
    if (path.empty()) {
        mFd = STDOUT_FILENO;
        return true;
    }
    mFd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    if (mFd < 0) {
        *err = "cannot open records file " + path + ": " + strerror(errno);
        return false;
    }
    mOwned = true;
    return true;
}

void RecordsWriter::start_timestamps() {
    std::lock_guard<std::mutex> lock(mMu);
    mStart = std::chrono::steady_clock::now();
    mTimestamps = true;
}

void RecordsWriter::write(uint32_t kpi_id, const std::string& bytes) {
    std::string line = format_record(kpi_id, bytes);
    std::lock_guard<std::mutex> lock(mMu);
    if (mTimestamps) {
        // Taken under the lock, so that the times in the file never go backwards.
        auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(
                      std::chrono::steady_clock::now() - mStart)
                      .count();
        char stamp[32];
        int n = snprintf(stamp, sizeof(stamp), "%lld.%03lld\t", static_cast<long long>(ms / 1000),
                         static_cast<long long>(ms % 1000));
        if (n > 0) line.insert(0, stamp, static_cast<size_t>(n));
    }
    if (mFd >= 0) tarn_wire::write_all(mFd, line.data(), line.size());
}
