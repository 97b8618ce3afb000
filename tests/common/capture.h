// Capturing what the daemon writes while a test drives it in-process: the lines of the local
// record file, and the log (standard error on the host).
#pragma once

#include <stdio.h>

#include <string>
#include <vector>

namespace tarn_test {

// Reads a growing file of lines, such as the daemon's local record file, from where it last
// stopped.
class LineReader {
  public:
    explicit LineReader(FILE* fp) : mFile(fp) {}
    // Complete lines appended since the previous call, without their newlines.
    std::vector<std::string> take();

  private:
    FILE* mFile;
    long mConsumed = 0;
};

// Redirects standard error into a temporary file from construction until text() or destruction.
class LogCapture {
  public:
    LogCapture();
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;
    // Stops capturing and returns everything captured.
    std::string text();

  private:
    void restore();
    int mSaved = -1;
    FILE* mFile = nullptr;
};

}  // namespace tarn_test
