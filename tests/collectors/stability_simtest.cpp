// The stability and MTBF handlers: the kinds each flag selects, their order, the ready rules and
// the handlers' results.
#include <gtest/gtest.h>
#include <stdlib.h>

#include "collectors.h"
#include "common/capture.h"
#include "common/test_util.h"
#include "tarn_log.h"

namespace {

using Lines = std::vector<std::string>;

class StabilityTest : public ::testing::Test {
  protected:
    // The last field of each line uploaded since the previous look.
    Lines sent() {
        Lines last;
        for (const std::string& l : mRecords.lines()) last.push_back(l.substr(l.rfind(',') + 1));
        return last;
    }
    tarn_test::RecordCapture mRecords;
};

TEST_F(StabilityTest, FlagSelectsKindsInOrder) {
    // Each file holds its own path, which ends the uploaded line.
    auto drop = [](const std::string& n) {
        for (std::string f :
             {"/sdcard/Perfdump/status_", "/data/tombstones/tombstone_", "/data/anr/anr_"})
            tarn_test::write_file(f + n, f + n);
    };
    collect_stability_info_init("/");
    drop("1");
    EXPECT_GT(collect_stability_stats_hndl(0x8000000000000000ULL), 0);
    EXPECT_EQ(sent(), (Lines{"/sdcard/Perfdump/status_1", "/data/tombstones/tombstone_1",
                             "/data/anr/anr_1"}));
    drop("2");
    EXPECT_GT(collect_stability_stats_hndl(0x2), 0);
    EXPECT_EQ(sent(), Lines{"/data/tombstones/tombstone_2"});
    EXPECT_EQ(collect_stability_stats_hndl(0x4000000000000008ULL), 0);
    EXPECT_EQ(sent(), Lines{});
    // No tombstone is left: the result is that call's -1 though a status dump was sent.
    EXPECT_EQ(collect_stability_stats_hndl(0x3), -1);
    EXPECT_EQ(sent(), Lines{"/sdcard/Perfdump/status_2"});
    EXPECT_GT(collect_stability_stats_hndl(0x4), 0);
    EXPECT_EQ(sent(), Lines{"/data/anr/anr_2"});
}

TEST_F(StabilityTest, MtbfFlagReadyAndRecord) {
    // Properties are read afresh from this file at every lookup.
    tarn_test::write_file("/data/mtbf.prop", "ro.product.model=FX-1\n");
    setenv("TARN_HOST_PROPERTIES", "/data/mtbf.prop", 1);
    collect_mtbf_info_exit();
    EXPECT_EQ(collect_mtbf_stats_hndl(0x8000000000000008ULL), -1);
    collect_mtbf_info_init("/");
    for (uint64_t flag : {0x0ULL, 0x1ULL, 0x7ULL, 0x4000000000000000ULL})
        EXPECT_EQ(collect_mtbf_stats_hndl(flag), -1) << std::hex << flag;
    EXPECT_EQ(sent(), Lines{});
    EXPECT_EQ(collect_mtbf_stats_hndl(0x8), 0);  // no counter yet
    tarn_test::write_file("/data/mtbf.prop", "persist.vendor.crash.cnt=17\n");
    EXPECT_EQ(collect_mtbf_stats_hndl(0x8000000000000000ULL), 0);
    EXPECT_EQ(sent(), (Lines{"0", "17"}));
}

}  // namespace
