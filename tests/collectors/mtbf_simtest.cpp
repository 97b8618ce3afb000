// The MTBF handler: its flag and ready rules and its record, the crash counter property.
#include <gtest/gtest.h>
#include <stdlib.h>

#include "collectors/collectors.h"
#include "common/capture.h"
#include "common/test_util.h"
#include "core/tarn_log.h"

namespace {

TEST(MtbfTest, FlagReadyAndRecord) {
    g_local_file = tmpfile();
    tarn_test::LineReader records(g_local_file);
    // Properties are read afresh from this file at every lookup.
    tarn_test::write_file("/data/mtbf.prop", "ro.product.model=FX-1\n");
    setenv("TARN_HOST_PROPERTIES", "/data/mtbf.prop", 1);

    collect_mtbf_info_exit();
    EXPECT_EQ(collect_mtbf_stats_hndl(0x8000000000000008ULL), -1);
    collect_mtbf_info_init();
    for (uint64_t flag : {0x0ULL, 0x1ULL, 0x7ULL, 0x4000000000000000ULL}) {
        EXPECT_EQ(collect_mtbf_stats_hndl(flag), -1) << std::hex << flag;
    }
    EXPECT_EQ(collect_mtbf_stats_hndl(0x8), 0);
    tarn_test::write_file("/data/mtbf.prop", "persist.vendor.crash.cnt=17\n");
    EXPECT_EQ(collect_mtbf_stats_hndl(0x8000000000000000ULL), 0);

    std::vector<std::string> lines = records.take();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0].substr(lines[0].rfind(',')), ",0");
    EXPECT_EQ(lines[1].substr(lines[1].rfind(',')), ",17");
}

}  // namespace
