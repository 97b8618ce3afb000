// The MTBF handler inside the simulator sandbox: its flag and ready rules and its record.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <string>
#include <vector>

#include "collectors/collectors.h"
#include "common/capture.h"
#include "common/test_util.h"
#include "core/power_bigdata_core.h"
#include "core/tarn_log.h"

namespace {

tarn_test::LineReader* g_records;
const char* kProps = "/data/mtbf_test.prop";

// The record text of each line uploaded since the previous call: what follows the application
// name's comma.
std::vector<std::string> records() {
    std::vector<std::string> texts;
    for (const std::string& line : g_records->take())
        texts.push_back(line.substr(line.rfind(',') + 1));
    return texts;
}

class MtbfTest : public ::testing::Test {
  protected:
    static void SetUpTestSuite() {
        g_local_file = tmpfile();
        g_records = new tarn_test::LineReader(g_local_file);
        PowerBigDataCore::getInstance();
        // Properties are read afresh from this file at every lookup.
        setenv("TARN_HOST_PROPERTIES", kProps, 1);
    }

    void SetUp() override {
        tarn_test::write_file(kProps, "ro.product.model=FX-1\n");
        collect_mtbf_info_init();
        g_records->take();
    }
};

TEST_F(MtbfTest, RecordIsTheCrashCounter) {
    EXPECT_EQ(collect_mtbf_stats_hndl(0x8), 0);
    EXPECT_EQ(records(), std::vector<std::string>{"0"});

    tarn_test::write_file(kProps, "persist.vendor.crash.cnt=17\n");
    tarn_test::LogCapture log;
    EXPECT_EQ(collect_mtbf_stats_hndl(0x8000000000000000ULL), 0);
    std::string text = log.text();
    EXPECT_EQ(records(), std::vector<std::string>{"17"});
    EXPECT_NE(text.find("getprop key:persist.vendor.crash.cnt value:17 default:0"),
              std::string::npos);
    EXPECT_NE(text.find("sys crash times: 17"), std::string::npos);
}

TEST_F(MtbfTest, FlagAndReadyRules) {
    for (uint64_t flag : {0x0ULL, 0x1ULL, 0x7ULL, 0x4000000000000000ULL}) {
        EXPECT_EQ(collect_mtbf_stats_hndl(flag), -1) << std::hex << flag;
    }
    EXPECT_TRUE(records().empty());

    collect_mtbf_info_exit();
    EXPECT_EQ(collect_mtbf_stats_hndl(0x8000000000000008ULL), -1);
    EXPECT_TRUE(records().empty());

    collect_mtbf_info_init();
    EXPECT_EQ(collect_mtbf_stats_hndl(0x8), 0);
    EXPECT_EQ(records().size(), 1u);
}

}  // namespace
