#define TARN_LOG_TAG TAG_HELP

#include "campaign.h"

#include <atomic>
#include <climits>

#include "tarn_log.h"
#include "tarn_stats.pb.h"
#include "zel_helper.h"

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

// Written once at start-up, before the SDK can call a handler.
std::atomic<bool (*)(const CampaignIntervals&)> sStart{nullptr};
std::atomic<void (*)()> sStop{nullptr};

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

void set_campaign_sink(CampaignSink sink) {
    sStart.store(sink.start, std::memory_order_release);
    sStop.store(sink.stop, std::memory_order_release);
}

int32_t start_campaign_handler(zel_collector* /*collector*/, const uint8_t* data, uint32_t size) {
    BigDataCampaignConfig cfg;
    // The decoder takes a signed 32-bit length; a count beyond that is not a campaign.
    bool decoded =
        size <= static_cast<uint32_t>(INT_MAX) && cfg.ParseFromArray(data, static_cast<int>(size));
    TLOGW("start campaign called size:%d ret:%d", static_cast<int>(size), decoded ? 1 : 0);
    if (size == 0 || !decoded) return -1;

    CampaignIntervals intervals;
    campaign_to_intervals(cfg, &intervals.power, &intervals.thermal, &intervals.stability);
    // A campaign that races the process's exit finds nothing to take it and is refused.
    auto start = sStart.load(std::memory_order_acquire);
    return start != nullptr && start(intervals) ? 0 : -1;
}

int32_t stop_campaign_handler(zel_collector* /*collector*/) {
    TLOGW("stop campaign called");
    auto stop = sStop.load(std::memory_order_acquire);
    if (stop != nullptr) stop();
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
