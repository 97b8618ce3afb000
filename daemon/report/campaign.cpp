#define TARN_LOG_TAG TAG_HELP

#include "report/campaign.h"

#include <climits>

#include "core/power_bigdata_core.h"
#include "core/tarn_log.h"
#include "report/zel_helper.h"
#include "tarn_stats.pb.h"

zel_collector g_zel_collector = {
    TARN_COLLECTOR_NAME,     // name
    1,                       // type
    TARN_STATS_DATA_DIR,     // data_dir
    start_campaign_handler,  // start_campaign
    stop_campaign_handler,   // stop_campaign
    1,                       // mode
    {},                      // reserved
};

namespace {

uint64_t low32(uint64_t flag) {
    return flag & 0xFFFFFFFFULL;
}

int32_t period(uint32_t value) {
    return static_cast<int32_t>(value);
}

}  // namespace

void campaign_to_intervals(const BigDataCampaignConfig& cfg, PowerIntervalCfg* power,
                           ThermalIntervalCfg* thermal, StabilityIntervalCfg* stability) {
    const PowerCampaignCfg& p = cfg.powercfg();
    const ThermalCampaignCfg& t = cfg.thermalcfg();
    const StabilityCampaignCfg& s = cfg.stabilitycfg();

    power->enable_flag = low32(p.sampling_flag());
    power->tcpu = period(p.cpu_fre_period());
    power->tgpu = period(p.gpu_fre_period());
    power->tbat = period(p.battery_period());
    power->tddr = period(p.ddr_fre_period());
    power->tlpm = period(p.lpm_period());
    power->tps = period(p.ps_period());
    power->tbri = period(p.bright_period());
    power->tfps = period(p.fps_period());

    thermal->enable_flag = low32(t.sampling_flag());
    thermal->ttherm = period(t.sampling_period());

    stability->enable_flag = low32(s.sampling_flag());
    stability->tstab = period(s.sampling_period());
}

void PowerBigDataCore::setBigDataCfg(const BigDataCampaignConfig& cfg) {
    PowerIntervalCfg power;
    ThermalIntervalCfg thermal;
    StabilityIntervalCfg stability;
    campaign_to_intervals(cfg, &power, &thermal, &stability);

    TLOGW_AT(TAG_TARN_STATS, __func__,
             "power: enable_flag:0x%lX tcpu:%d tgpu:%d tbat:%d tddr:%d tlpm:%d",
             static_cast<unsigned long>(power.enable_flag), power.tcpu, power.tgpu, power.tbat,
             power.tddr, power.tlpm);
    TLOGW_AT(TAG_TARN_STATS, __func__, "therm: enable_flag:0x%lX ttherm:%d",
             static_cast<unsigned long>(thermal.enable_flag), thermal.ttherm);
    TLOGW_AT(TAG_TARN_STATS, __func__, "stab: enable_flag:0x%lX tstab:%d",
             static_cast<unsigned long>(stability.enable_flag), stability.tstab);

    ConfigurePowerCoreParam(power, thermal, stability);
}

int32_t start_campaign_handler(zel_collector* /*collector*/, const uint8_t* data, uint32_t size) {
    BigDataCampaignConfig cfg;
    // The decoder takes a signed 32-bit length; a count beyond that is not a campaign.
    bool decoded =
        size <= static_cast<uint32_t>(INT_MAX) && cfg.ParseFromArray(data, static_cast<int>(size));
    TLOGW("start campaign called size:%d ret:%d", static_cast<int>(size), decoded ? 1 : 0);
    if (size == 0 || !decoded) return -1;

    // A campaign that races the process's exit finds no core and is refused.
    PowerBigDataCore::Ref core;
    if (core.get() == nullptr) return -1;
    core->setBigDataCfg(cfg);
    core->startSampling();
    return 0;
}

int32_t stop_campaign_handler(zel_collector* /*collector*/) {
    TLOGW("stop campaign called");
    PowerBigDataCore::Ref core;
    if (core.get() != nullptr) core->stopSampling();
    return 0;
}

int32_t registerCollector() {
    zel_hndl_t hndl = zel_register(&g_zel_collector);
    g_zel_hndl = hndl;
    if (hndl == nullptr) {
        const char* name = g_zel_collector.name;
        TLOGE("g_zel_hndl register failed name:%s", name);
        return -1;
    }
    TLOGW("PowerZELHelper init done");
    return 0;
}
