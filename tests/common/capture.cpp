#include "common/capture.h"

#include <unistd.h>

namespace tarn_test {

std::vector<std::string> LineReader::take() {
    std::vector<std::string> lines;
    if (mFile == nullptr) return lines;
    fflush(mFile);
    std::string all;
    char buf[65536];
    ssize_t n;
    while ((n = pread(fileno(mFile), buf, sizeof(buf), mConsumed + static_cast<long>(all.size()))) >
           0) {
        all.append(buf, static_cast<size_t>(n));
    }
    size_t start = 0, nl;
    while ((nl = all.find('\n', start)) != std::string::npos) {
        lines.push_back(all.substr(start, nl - start));
        start = nl + 1;
    }
    mConsumed += static_cast<long>(start);
    return lines;
}

LogCapture::LogCapture() {
    fflush(stderr);
    mFile = tmpfile();
    mSaved = dup(2);
    dup2(fileno(mFile), 2);
}

LogCapture::~LogCapture() {
    restore();
    fclose(mFile);
}

void LogCapture::restore() {
    if (mSaved < 0) return;
    fflush(stderr);
    dup2(mSaved, 2);
    close(mSaved);
    mSaved = -1;
}

std::string LogCapture::text() {
    restore();
    std::string all;
    char buf[4096];
    size_t n;
    rewind(mFile);
    while ((n = fread(buf, 1, sizeof(buf), mFile)) > 0) all.append(buf, n);
    return all;
}

}  // namespace tarn_test
