// Captures what the daemon uploads, through its local record file: for the capture's life the
// local record file is a temporary file that the capture reads from where its previous read
// stopped.
#pragma once

#include <stdio.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "zel_helper.h"

namespace tarn_test {

class RecordCapture {
  public:
    RecordCapture() : mFile(tmpfile()) { g_local_file = mFile; }
    ~RecordCapture() {
        if (g_local_file == mFile) g_local_file = nullptr;
        fclose(mFile);
    }
    RecordCapture(const RecordCapture&) = delete;
    RecordCapture& operator=(const RecordCapture&) = delete;

    // Complete lines appended since the previous call, without their newlines.
    std::vector<std::string> lines() {
        fflush(mFile);
        std::string all;
        char buf[65536];
        ssize_t n;
        while ((n = pread(fileno(mFile), buf, sizeof(buf), mDone + (off_t)all.size())) > 0)
            all.append(buf, static_cast<size_t>(n));
        std::vector<std::string> out;
        size_t start = 0, nl;
        for (; (nl = all.find('\n', start)) != std::string::npos; start = nl + 1)
            out.push_back(all.substr(start, nl - start));
        mDone += static_cast<off_t>(start);
        return out;
    }

    // The record texts of those lines: what follows the header's five fields and the application
    // name. A line without the header (the rest of a record that holds line ends) stays whole.
    std::vector<std::string> records() {
        std::vector<std::string> out;
        for (const std::string& line : lines()) {
            size_t at = 0;
            for (int field = 0; field < 6 && line.rfind("tarn-stats-v2.1,", 0) == 0; field++) {
                size_t comma = line.find(',', at);
                if (comma == std::string::npos) break;
                at = comma + 1;
            }
            out.push_back(line.substr(at));
        }
        return out;
    }

  private:
    FILE* mFile;
    off_t mDone = 0;
};

}  // namespace tarn_test
