// Helpers shared by the daemon's end-to-end tests.
#pragma once

#include <string>
#include <vector>

namespace tarn_e2e {

// Number of non-overlapping occurrences of `needle` in `text`.
inline size_t count(const std::string& text, const std::string& needle) {
    size_t n = 0;
    for (size_t pos = text.find(needle); pos != std::string::npos;
         pos = text.find(needle, pos + needle.size()))
        ++n;
    return n;
}

// Position of `needle` in `text`, or npos; for checking the order of log messages.
inline size_t at(const std::string& text, const std::string& needle) {
    return text.find(needle);
}

// Records (KPI id, tab, line) of one KPI id.
inline std::vector<std::string> of_kpi(const std::vector<std::string>& records, int kpi) {
    std::vector<std::string> out;
    std::string prefix = std::to_string(kpi) + "\t";
    for (auto& r : records)
        if (r.compare(0, prefix.size(), prefix) == 0) out.push_back(r.substr(prefix.size()));
    return out;
}

}  // namespace tarn_e2e
