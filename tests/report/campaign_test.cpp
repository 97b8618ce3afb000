// A campaign's mapping onto the interval structures.
#include "report/campaign.h"

#include <gtest/gtest.h>

#include "tarn_stats.pb.h"

namespace {

TEST(CampaignTest, Low32BitsOfFlagsAndSignedPeriods) {
    BigDataCampaignConfig cfg;
    PowerCampaignCfg* p = cfg.mutable_powercfg();
    p->set_sampling_flag(~0ULL);
    p->set_battery_period(4294967295u);
    p->set_cpu_fre_period(2147483648u);
    p->set_gpu_fre_period(2147483647u);
    p->set_lpm_period(6);
    p->set_fps_period(9);
    cfg.mutable_thermalcfg()->set_sampling_flag(0x4000000000000007ULL);
    cfg.mutable_thermalcfg()->set_sampling_period(10);
    cfg.mutable_stabilitycfg()->set_sampling_flag(0x100000002ULL);

    PowerIntervalCfg power;
    ThermalIntervalCfg thermal;
    StabilityIntervalCfg stability;
    campaign_to_intervals(cfg, &power, &thermal, &stability);
    EXPECT_EQ(0xFFFFFFFFu, power.enable_flag);
    EXPECT_EQ(-1, power.tbat);
    EXPECT_LT(power.tcpu, 0);
    EXPECT_EQ(2147483647, power.tgpu);
    EXPECT_EQ(0, power.tddr);
    EXPECT_EQ(6, power.tlpm);
    EXPECT_EQ(9, power.tfps);
    EXPECT_EQ(7u, thermal.enable_flag) << "the all-bit never comes from a campaign";
    EXPECT_EQ(10, thermal.ttherm);
    EXPECT_EQ(2u, stability.enable_flag);
    EXPECT_EQ(0, stability.tstab);

    campaign_to_intervals(BigDataCampaignConfig(), &power, &thermal, &stability);
    EXPECT_EQ(0, power.tbat);
    EXPECT_EQ(0u, thermal.enable_flag);
    EXPECT_EQ(0, stability.tstab);
}

}  // namespace
