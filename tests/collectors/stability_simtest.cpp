// The stability handler: the kinds each flag selects, their order and the handler's result.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "collectors/collectors.h"
#include "common/capture.h"
#include "common/test_util.h"
#include "core/tarn_log.h"

namespace fs = std::filesystem;
using Paths = std::vector<std::string>;

namespace {

tarn_test::LineReader* g_records;
const char* const kStems[] = {"/sdcard/Perfdump/status_", "/data/tombstones/tombstone_",
                              "/data/anr/anr_"};

void drop_files(const std::string& n) {
    for (const char* stem : kStems) tarn_test::write_file(stem + n, "x");
}

// Paths of the files uploaded since the previous call: each line ends in "path,x".
Paths uploaded() {
    Paths paths;
    for (const std::string& line : g_records->take()) {
        size_t end = line.size() - 2;
        paths.push_back(
            line.substr(line.rfind(',', end - 1) + 1, end - line.rfind(',', end - 1) - 1));
    }
    return paths;
}

TEST(StabilityTest, FlagSelectsKindsInOrder) {
    for (const char* dir : {"/sdcard/Perfdump", "/data/tombstones", "/data/anr"}) {
        fs::remove_all(dir);
        fs::create_directories(dir);
    }
    g_local_file = tmpfile();
    g_records = new tarn_test::LineReader(g_local_file);
    collect_stability_info_init();

    drop_files("1");
    EXPECT_GT(collect_stability_stats_hndl(0x8000000000000000ULL), 0);
    EXPECT_EQ(uploaded(), (Paths{"/sdcard/Perfdump/status_1", "/data/tombstones/tombstone_1",
                                 "/data/anr/anr_1"}));

    drop_files("2");
    EXPECT_GT(collect_stability_stats_hndl(0x2), 0);
    EXPECT_EQ(uploaded(), Paths{"/data/tombstones/tombstone_2"});
    EXPECT_EQ(collect_stability_stats_hndl(0x4000000000000008ULL), 0);
    EXPECT_EQ(uploaded(), Paths{});
    // The tombstones are drained: the result is that call's -1 though a status dump was sent.
    EXPECT_EQ(collect_stability_stats_hndl(0x3), -1);
    EXPECT_EQ(uploaded(), Paths{"/sdcard/Perfdump/status_2"});

    collect_stability_info_exit();
    EXPECT_EQ(collect_stability_stats_hndl(0x4), -1);
    EXPECT_EQ(uploaded(), Paths{});
    collect_stability_info_init();
    EXPECT_GT(collect_stability_stats_hndl(0x4), 0);
    EXPECT_EQ(uploaded(), Paths{"/data/anr/anr_2"});
}

}  // namespace
