// DDR record from the bus node, read from its start every period.
#include <errno.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "collectors/collectors.h"
#include "collectors/power_fixture.h"
#include "common/test_util.h"

using power_test::call;
using tarn_test::write_file;
using V = std::vector<std::string>;

namespace {

const char kDdr[] = "/sys/devices/system/cpu/bus_dcvs/DDR/cur_freq";

class Ddr : public ::testing::Test {
  protected:
    static void SetUpTestSuite() {
        power_test::write_minimal_device();
        write_file(kDdr, "1555000\n");
        power_test::start_core();
    }
};

TEST_F(Ddr, ReportsTheCurrentContent) {
    auto c = call(collect_ddr_stats_hndl);
    EXPECT_EQ(c.records, V{"DDR,1555000,"});
    EXPECT_EQ(c.ret, 12);
    write_file(kDdr, "547\n");
    EXPECT_EQ(call(collect_ddr_stats_hndl).records, V{"DDR,547,"});
    write_file(kDdr, "not a number\n");
    EXPECT_EQ(call(collect_ddr_stats_hndl).records, V{"DDR,0,"});
}

TEST_F(Ddr, NodeMissingAtStartFailsUntilReopened) {
    unlink(kDdr);
    ASSERT_EQ(power_test::reopen_nodes(), 0);
    write_file(kDdr, "768000\n");  // appears after the table was opened
    auto c = call(collect_ddr_stats_hndl);
    EXPECT_EQ(c.ret, -EINVAL);
    EXPECT_TRUE(c.records.empty());
    ASSERT_EQ(power_test::reopen_nodes(), 0);
    EXPECT_EQ(call(collect_ddr_stats_hndl).records, V{"DDR,768000,"});
}

}  // namespace
