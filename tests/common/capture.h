// Reads the lines that the daemon appends to a file, such as its local record file, from where
// the previous read stopped.
#pragma once

#include <stdio.h>
#include <unistd.h>

#include <string>
#include <vector>

namespace tarn_test {

class LineReader {
  public:
    explicit LineReader(FILE* fp) : mFile(fp) {}
    // Complete lines appended since the previous call, without their newlines.
    std::vector<std::string> take() {
        fflush(mFile);
        std::string all;
        char buf[65536];
        ssize_t n;
        while ((n = pread(fileno(mFile), buf, sizeof(buf), mDone + (off_t)all.size())) > 0)
            all.append(buf, static_cast<size_t>(n));
        std::vector<std::string> lines;
        size_t start = 0, nl;
        for (; (nl = all.find('\n', start)) != std::string::npos; start = nl + 1)
            lines.push_back(all.substr(start, nl - start));
        mDone += static_cast<off_t>(start);
        return lines;
    }

  private:
    FILE* mFile;
    off_t mDone = 0;
};

}  // namespace tarn_test
