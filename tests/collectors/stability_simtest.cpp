// The stability handler: the kinds each flag selects, their order and the handler's result.
#include <gtest/gtest.h>

#include <filesystem>

#include "collectors/collectors.h"
#include "common/capture.h"
#include "common/test_util.h"
#include "core/tarn_log.h"

namespace {

using Paths = std::vector<std::string>;
const char* const kDirs[] = {"/sdcard/Perfdump/", "/data/tombstones/", "/data/anr/"};
const char* const kPrefixes[] = {"status_", "tombstone_", "anr_"};

TEST(StabilityTest, FlagSelectsKindsInOrder) {
    g_local_file = tmpfile();
    tarn_test::LineReader records(g_local_file);
    // Each line ends in "path,x": the paths of the files uploaded since the last look.
    auto sent = [&records] {
        Paths paths;
        for (std::string l : records.take()) {
            l.resize(l.size() - 2);
            paths.push_back(l.substr(l.rfind(',') + 1));
        }
        return paths;
    };
    auto drop = [](const std::string& n) {
        for (int i = 0; i < 3; i++) tarn_test::write_file(kDirs[i] + (kPrefixes[i] + n), "x");
    };
    collect_stability_info_init();

    drop("1");
    EXPECT_GT(collect_stability_stats_hndl(0x8000000000000000ULL), 0);
    EXPECT_EQ(sent(), (Paths{"/sdcard/Perfdump/status_1", "/data/tombstones/tombstone_1",
                             "/data/anr/anr_1"}));
    drop("2");
    EXPECT_GT(collect_stability_stats_hndl(0x2), 0);
    EXPECT_EQ(sent(), Paths{"/data/tombstones/tombstone_2"});
    EXPECT_EQ(collect_stability_stats_hndl(0x4000000000000008ULL), 0);
    EXPECT_EQ(sent(), Paths{});
    // No tombstone is left: the result is that call's -1 though a status dump was sent.
    EXPECT_EQ(collect_stability_stats_hndl(0x3), -1);
    EXPECT_EQ(sent(), Paths{"/sdcard/Perfdump/status_2"});

    collect_stability_info_exit();
    EXPECT_EQ(collect_stability_stats_hndl(0x4), -1);
    EXPECT_EQ(sent(), Paths{});
    collect_stability_info_init();
    EXPECT_GT(collect_stability_stats_hndl(0x4), 0);
    EXPECT_EQ(sent(), Paths{"/data/anr/anr_2"});
}

}  // namespace
