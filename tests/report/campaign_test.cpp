// Campaign decoding and its mapping onto the interval structures; rejected campaigns.
#include "report/campaign.h"

#include <gtest/gtest.h>

#include <string>

#include "tarn_stats.pb.h"

namespace {

struct Intervals {
    PowerIntervalCfg power;
    ThermalIntervalCfg thermal;
    StabilityIntervalCfg stability;
};

Intervals map(const BigDataCampaignConfig& cfg) {
    Intervals out;
    memset(&out, 0x5A, sizeof(out));
    campaign_to_intervals(cfg, &out.power, &out.thermal, &out.stability);
    return out;
}

TEST(CampaignMappingTest, PeriodsAndLow32BitsOfFlags) {
    BigDataCampaignConfig cfg;
    cfg.set_version(9);
    PowerCampaignCfg* p = cfg.mutable_powercfg();
    p->set_sampling_flag(0xFFFFFFFFFFFFFFFFULL);
    p->set_battery_period(2);
    p->set_cpu_fre_period(3);
    p->set_gpu_fre_period(4);
    p->set_ddr_fre_period(5);
    p->set_lpm_period(6);
    p->set_ps_period(7);
    p->set_bright_period(8);
    p->set_fps_period(9);
    cfg.mutable_thermalcfg()->set_sampling_flag(0x4000000000000000ULL);
    cfg.mutable_thermalcfg()->set_sampling_period(10);
    cfg.mutable_stabilitycfg()->set_sampling_flag(0x100000002ULL);
    cfg.mutable_stabilitycfg()->set_sampling_period(11);

    Intervals in = map(cfg);
    EXPECT_EQ(0xFFFFFFFFu, in.power.enable_flag);
    EXPECT_EQ(3, in.power.tcpu);
    EXPECT_EQ(4, in.power.tgpu);
    EXPECT_EQ(2, in.power.tbat);
    EXPECT_EQ(5, in.power.tddr);
    EXPECT_EQ(6, in.power.tlpm);
    EXPECT_EQ(7, in.power.tps);
    EXPECT_EQ(8, in.power.tbri);
    EXPECT_EQ(9, in.power.tfps);
    EXPECT_EQ(0u, in.thermal.enable_flag) << "the all-bit never comes from a campaign";
    EXPECT_EQ(10, in.thermal.ttherm);
    EXPECT_EQ(2u, in.stability.enable_flag);
    EXPECT_EQ(11, in.stability.tstab);
}

TEST(CampaignMappingTest, PeriodsOfTwoToTheThirtyOneAndMoreTurnRowsOff) {
    BigDataCampaignConfig cfg;
    cfg.mutable_powercfg()->set_battery_period(4294967295u);
    cfg.mutable_powercfg()->set_cpu_fre_period(2147483648u);
    cfg.mutable_powercfg()->set_gpu_fre_period(2147483647u);
    Intervals in = map(cfg);
    EXPECT_EQ(-1, in.power.tbat);
    EXPECT_LT(in.power.tcpu, 1);
    EXPECT_EQ(2147483647, in.power.tgpu);
}

TEST(CampaignMappingTest, AbsentSubMessagesReadAsZero) {
    BigDataCampaignConfig cfg;
    cfg.mutable_thermalcfg()->set_sampling_period(10);
    cfg.mutable_thermalcfg()->set_sampling_flag(7);
    std::string bytes = cfg.SerializeAsString();

    BigDataCampaignConfig decoded;
    ASSERT_TRUE(decoded.ParseFromArray(bytes.data(), static_cast<int>(bytes.size())));
    Intervals in = map(decoded);
    EXPECT_EQ(0, in.power.tbat);
    EXPECT_EQ(0, in.power.tfps);
    EXPECT_EQ(0u, in.power.enable_flag);
    EXPECT_EQ(7u, in.thermal.enable_flag);
    EXPECT_EQ(10, in.thermal.ttherm);
    EXPECT_EQ(0u, in.stability.enable_flag);
    EXPECT_EQ(0, in.stability.tstab);
}

// Rejected campaigns return before the sampling core is looked at, so they run here without one.
TEST(CampaignHandlerTest, ZeroBytesAndMalformedBytesAreRejected) {
    const uint8_t valid[] = {0x08, 0x01};
    EXPECT_EQ(-1, start_campaign_handler(&g_zel_collector, valid, 0));
    EXPECT_EQ(-1, start_campaign_handler(&g_zel_collector, nullptr, 0));
    const uint8_t truncated_varint[] = {0x08, 0x80};
    EXPECT_EQ(-1, start_campaign_handler(&g_zel_collector, truncated_varint, 2));
    const uint8_t overlong_length[] = {0x1A, 0x10, 0x08, 0x01};
    EXPECT_EQ(-1, start_campaign_handler(&g_zel_collector, overlong_length, 4));
    const uint8_t bad_tag[] = {0x00};
    EXPECT_EQ(-1, start_campaign_handler(&g_zel_collector, bad_tag, 1));
}

}  // namespace
