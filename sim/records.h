// The records file: one line per uploaded blob, "KPI<TAB>escaped bytes", optionally preceded by
// the seconds since the start of the run and a tab.
#pragma once

#include <stdint.h>

#include <chrono>
#include <mutex>
#include <string>

// The line for one blob, newline included: the KPI id in decimal, a tab, then the bytes with
// backslash, newline, tab and carriage return written as \\ \n \t \r, every other byte below 0x20
// and 0x7F as \x and two lowercase hex digits, and every other byte as it is.
std::string format_record(uint32_t kpi_id, const std::string& bytes);

class RecordsWriter {
  public:
    RecordsWriter() = default;
    ~RecordsWriter();
    RecordsWriter(const RecordsWriter&) = delete;
    RecordsWriter& operator=(const RecordsWriter&) = delete;

    // Appends to `path` (created when missing); "" means standard output.
    bool open(const std::string& path, std::string* err);
    // From now on every line starts with the seconds since this call, with milliseconds
    // ("12.345"), and a tab.
    void start_timestamps();
    // Writes the line in one write, so that it reaches the file at once and whole.
    void write(uint32_t kpi_id, const std::string& bytes);

  private:
    std::mutex mMu;
    int mFd = -1;
    bool mTimestamps = false;
    std::chrono::steady_clock::time_point mStart;
    bool mOwned = false;
};
