// A campaign's mapping onto the interval structures.
#include "campaign.h"

#include <google/protobuf/text_format.h>
#include <gtest/gtest.h>

#include <climits>
#include <vector>

#include "kpi_ids.h"
#include "tarn_stats.pb.h"

namespace {

// The daemon's ids are the schema's numbers.
#define SAME_ID(name) static_assert(static_cast<int>(kpi::name) == KPI_ID_##name, #name)
SAME_ID(BATTERY_STAT);
SAME_ID(CPUFREQ);
SAME_ID(GPUFREQ);
SAME_ID(DDRFREQ);
SAME_ID(LPM);
SAME_ID(PS);
SAME_ID(BRIGHTNESS);
SAME_ID(FPS);
SAME_ID(DEVFREQ);
SAME_ID(THERMAL_ZONE);
SAME_ID(THERMAL_COOLING);
SAME_ID(THERMAL_CPUINFO);
SAME_ID(PERF);
SAME_ID(TOMBSTONE);
SAME_ID(ANR);
SAME_ID(MTBF);

TEST(CampaignTest, Low32BitsOfFlagsAndSignedPeriods) {
    BigDataCampaignConfig cfg;
    ASSERT_TRUE(google::protobuf::TextFormat::ParseFromString(
        "powerCfg { sampling_flag: 0xFFFFFFFFFFFFFFFF battery_period: 4294967295"
        "  cpu_fre_period: 2147483648 gpu_fre_period: 2147483647 ddr_fre_period: 5"
        "  lpm_period: 6 ps_period: 7 bright_period: 8 fps_period: 9 }"
        "thermalCfg { sampling_flag: 0x4000000000000007 sampling_period: 10 }"
        "stabilityCfg { sampling_flag: 0x100000002 }",
        &cfg));
    PowerIntervalCfg p;
    ThermalIntervalCfg t;
    StabilityIntervalCfg s;
    campaign_to_intervals(cfg, &p, &t, &s);
    EXPECT_EQ(0xFFFFFFFFu, p.enable_flag);
    EXPECT_EQ((std::vector<int32_t>{-1, INT_MIN, INT_MAX, 5, 6, 7, 8, 9}),
              (std::vector<int32_t>{p.tbat, p.tcpu, p.tgpu, p.tddr, p.tlpm, p.tps, p.tbri, p.tfps}));
    EXPECT_EQ(7u, t.enable_flag) << "the all-bit never comes from a campaign";
    EXPECT_EQ(10, t.ttherm);
    EXPECT_EQ(2u, s.enable_flag);
    EXPECT_EQ(0, s.tstab);
}

}  // namespace
