// The stability handler inside the simulator sandbox: which kinds each flag selects, their order,
// the results, and the one-file-per-call drain of a backlog.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "collectors/collectors.h"
#include "common/capture.h"
#include "common/test_util.h"
#include "core/power_bigdata_core.h"
#include "core/tarn_log.h"

namespace fs = std::filesystem;
using tarn_test::write_file;

namespace {

tarn_test::LineReader* g_records;

// Paths of the files uploaded since the previous call, in upload order. A file line is the
// header, the application name, the path, then the content; the tests' contents hold no comma.
std::vector<std::string> uploaded_paths() {
    std::vector<std::string> paths;
    for (const std::string& line : g_records->take()) {
        size_t end = line.rfind(',');
        size_t start = line.rfind(',', end - 1) + 1;
        paths.push_back(line.substr(start, end - start));
    }
    return paths;
}

class StabilityTest : public ::testing::Test {
  protected:
    static void SetUpTestSuite() {
        g_local_file = tmpfile();
        g_records = new tarn_test::LineReader(g_local_file);
        PowerBigDataCore::getInstance();
    }

    void SetUp() override {
        for (const char* dir : {"/sdcard/Perfdump", "/data/tombstones", "/data/anr"}) {
            fs::remove_all(dir);
            fs::create_directories(dir);
        }
        collect_stability_info_init();
        g_records->take();
    }
};

TEST_F(StabilityTest, FlagBitsSelectKindsInOrder) {
    write_file("/sdcard/Perfdump/status_1", "s");
    write_file("/data/tombstones/tombstone_1", "t");
    write_file("/data/anr/anr_1", "a");

    // The all-bit collects every kind, status first and ANR last; the result is the ANR upload's.
    EXPECT_GT(collect_stability_stats_hndl(0x8000000000000000ULL), 0);
    EXPECT_EQ(uploaded_paths(),
              (std::vector<std::string>{"/sdcard/Perfdump/status_1", "/data/tombstones/tombstone_1",
                                        "/data/anr/anr_1"}));

    write_file("/sdcard/Perfdump/status_2", "s");
    write_file("/data/tombstones/tombstone_2", "t");
    write_file("/data/anr/anr_2", "a");
    EXPECT_GT(collect_stability_stats_hndl(0x2), 0);
    EXPECT_EQ(uploaded_paths(), std::vector<std::string>{"/data/tombstones/tombstone_2"});
    EXPECT_GT(collect_stability_stats_hndl(0x4), 0);
    EXPECT_EQ(uploaded_paths(), std::vector<std::string>{"/data/anr/anr_2"});

    // Bits other than 0 to 2 and 63 select nothing.
    EXPECT_EQ(collect_stability_stats_hndl(0x4000000000000008ULL), 0);
    EXPECT_TRUE(uploaded_paths().empty());
    EXPECT_TRUE(fs::exists("/sdcard/Perfdump/status_2"));
}

TEST_F(StabilityTest, ResultIsTheLastKindsEvenWhenAnEarlierOneShipped) {
    write_file("/sdcard/Perfdump/status_1", "s");
    EXPECT_EQ(collect_stability_stats_hndl(0x3), -1);
    EXPECT_EQ(uploaded_paths(), std::vector<std::string>{"/sdcard/Perfdump/status_1"});

    // A missing directory is one failed kind; the next still runs.
    fs::remove_all("/data/tombstones");
    write_file("/data/anr/anr_1", "a");
    EXPECT_GT(collect_stability_stats_hndl(0x6), 0);
    EXPECT_EQ(uploaded_paths(), std::vector<std::string>{"/data/anr/anr_1"});
}

TEST_F(StabilityTest, BacklogDrainsOneFilePerCall) {
    for (int i = 0; i < 3; i++) write_file("/data/tombstones/tombstone_0" + std::to_string(i), "t");
    for (int i = 0; i < 3; i++) {
        EXPECT_GT(collect_stability_stats_hndl(0x8000000000000002ULL), 0);
        EXPECT_EQ(uploaded_paths().size(), 1u);
    }
    EXPECT_EQ(collect_stability_stats_hndl(0x2), -1);
    EXPECT_TRUE(uploaded_paths().empty());
    for (int i = 0; i < 3; i++) {
        EXPECT_TRUE(fs::exists("/data/tombstones/tombstone_0" + std::to_string(i) + "_readed"));
    }
}

TEST_F(StabilityTest, NotReadyShipsNothing) {
    write_file("/data/tombstones/tombstone_1", "t");
    collect_stability_info_exit();
    EXPECT_EQ(collect_stability_stats_hndl(0x8000000000000000ULL), -1);
    EXPECT_EQ(collect_stability_stats_hndl(0x10), 0);
    EXPECT_TRUE(uploaded_paths().empty());
    EXPECT_TRUE(fs::exists("/data/tombstones/tombstone_1"));

    collect_stability_info_init();
    EXPECT_GT(collect_stability_stats_hndl(0x2), 0);
    EXPECT_EQ(uploaded_paths(), std::vector<std::string>{"/data/tombstones/tombstone_1"});
}

}  // namespace
