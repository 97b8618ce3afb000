// Helpers shared by the daemon's end-to-end tests.
#pragma once

#include <string>
#include <vector>

namespace tarn_e2e {

inline size_t count(const std::string& text, const std::string& needle) {
    size_t n = 0;
    for (size_t p = text.find(needle); p != std::string::npos; p = text.find(needle, p + 1)) ++n;
    return n;
}

// The lines of the records of one KPI id.
inline std::vector<std::string> of_kpi(const std::vector<std::string>& records, int kpi) {
    std::vector<std::string> out;
    std::string prefix = std::to_string(kpi) + "\t";
    for (auto& r : records)
        if (r.compare(0, prefix.size(), prefix) == 0) out.push_back(r.substr(prefix.size()));
    return out;
}

}  // namespace tarn_e2e
