// The real daemon on the animated phone8 device: every power and performance collector uploads
// its record, behind the record header and the application name.
#include <gtest/gtest.h>

#include <regex>
#include <string>
#include <vector>

#include "common/sim_run.h"
#include "e2e/daemon_e2e.h"

namespace {

const char kPrefix[] =
    "tarn-stats-v2.1,Orvane,Kestrel 8,PH8A0042117,KESTREL8.LA.2.0-04411-STD.PROD-1,"
    "com.android.launcher3,";

// The lines of one KPI id that carry the header and the application name, without them.
std::vector<std::string> records_of(const std::vector<std::string>& lines, int kpi) {
    std::vector<std::string> out;
    for (const std::string& l : tarn_e2e::of_kpi(lines, kpi)) {
        if (l.rfind(kPrefix, 0) == 0) out.push_back(l.substr(sizeof(kPrefix) - 1));
    }
    return out;
}

const std::pair<int, const char*> kFormats[] = {
    {2, R"(battery,\d+,\d+,-?\d+,\d+,(Charging|Discharging|Full))"},
    {3, R"(policy(0|4|7),\d+,\d+,\d+\.\d\d,)"},
    {4, R"(GPU,(220|300|381|487|585|680)000000,\d+,\d+\.\d\d,)"},
    {5, R"(DDR,\d+,)"},
    {8, R"(BRI,\d+,)"},
    {9, R"(FPS,\d+\.\d,)"},
};

TEST(PowerCollectorsE2E, EveryCollectorReportsOnTheAnimatedPhone) {
    tarn_test::SimOptions opts;
    opts.animate = true;
    tarn_test::SimRun sim(opts, {tarn_test::daemon_path(), "--daemon", "--bat", "1", "--cpu", "2",
                                 "--gpu", "1", "--ddr", "1", "--bri", "1", "--fps", "1"});

    // Three CPU records per CPU period; wait for two periods so that utilisation has a delta.
    ASSERT_TRUE(sim.wait_for_records(
        [](const std::vector<std::string>& lines) {
            for (auto& [kpi, format] : kFormats) {
                if (records_of(lines, kpi).size() < (kpi == 3 ? 6u : 1u)) return false;
            }
            return true;
        },
        std::chrono::seconds(90)))
        << sim.log();
    std::vector<std::string> lines = sim.records();
    for (auto& [kpi, format] : kFormats) {
        for (const std::string& r : records_of(lines, kpi)) {
            EXPECT_TRUE(std::regex_match(r, std::regex(format))) << kpi << ": " << r;
        }
    }
    EXPECT_EQ(sim.stop(), 0);
}

}  // namespace
