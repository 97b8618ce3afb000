#define TARN_LOG_TAG TAG_TARN_STATS

#include "power_bigdata_core.h"

#include <sys/prctl.h>
#include <time.h>

#include <chrono>
#include <system_error>

#include "collector_table.h"
#include "collectors.h"
#include "device_properties.h"
#include "tarn_log.h"
#include "zel_helper.h"

#define HINT_ACTIVITY_START 0x1001u
#define HINT_ACTIVITY_STOP 0x1002u
#define HINT_ACTIVITY_RESUME 0x1003u
#define HINT_ACTIVITY_PAUSE 0x1004u

namespace {

// The core's lifetime guard: the number of Refs alive and the mark set once the core's teardown
// has begun. Allocated once and never destroyed, so that a binder or SDK thread that calls in
// after the exit handlers have run still finds it intact.
struct LifeGuard {
    std::mutex mutex;
    std::condition_variable idle;  // signalled when the last Ref ends after the mark is set
    uint32_t calls = 0;
    bool gone = false;
};

LifeGuard& life_guard() {
    static LifeGuard* const guard = new LifeGuard;
    return *guard;
}

// Read once, by the constructor.
const char* sDeviceRoot = "/";

int64_t monotonic_ns() {
    struct timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<int64_t>(ts.tv_sec) * 1000000000LL + ts.tv_nsec;
}

// Names of the activity hints, for the log. A constant table: binder threads may look a name up
// at any moment, also while the process's exit handlers run, so it must have no destructor.
struct HintName {
    uint32_t code;
    const char* name;
};

constexpr HintName kHintNames[] = {
    {HINT_ACTIVITY_START, "START"},
    {HINT_ACTIVITY_STOP, "STOP"},
    {HINT_ACTIVITY_RESUME, "RESUME"},
    {HINT_ACTIVITY_PAUSE, "PAUSE"},
};

const char* hint_name(int32_t hint) {
    for (const HintName& entry : kHintNames) {
        if (entry.code == static_cast<uint32_t>(hint)) return entry.name;
    }
    return "NotActivityAction";
}

}  // namespace

BigDataCore::~BigDataCore() = default;

void BigDataCore::notifyListeners() {
    for (BigDataListener* listener : mListeners) listener->onNotify(0);
}

PowerBigDataCore::Ref::Ref() : mCore(nullptr) {
    LifeGuard& guard = life_guard();
    {
        std::lock_guard<std::mutex> lock(guard.mutex);
        if (guard.gone) return;
        ++guard.calls;
    }
    // Counted in: the teardown cannot get past its wait until this Ref ends.
    mCore = PowerBigDataCore::getInstance();
}

PowerBigDataCore::Ref::~Ref() {
    if (mCore == nullptr) return;
    LifeGuard& guard = life_guard();
    std::lock_guard<std::mutex> lock(guard.mutex);
    if (--guard.calls == 0 && guard.gone) guard.idle.notify_all();
}

void PowerBigDataCore::setDeviceRoot(const char* root) {
    sDeviceRoot = root;
}

PowerBigDataCore* PowerBigDataCore::getInstance() {
    static PowerBigDataCore instance;
    return &instance;
}

PowerBigDataCore::PowerBigDataCore() : mStarted(false), mRunning(true), mAppName(DEFAULT_APP_NAME) {
    // Handlers upload through these two; building them first makes them outlive the core.
    DeviceProperties::getInstance();
    PowerZELHelper::getInstance();
    Start();
    try {
        mThread = std::thread(&PowerBigDataCore::MainThread, this);
    } catch (const std::system_error& e) {
        // No worker (no memory for its stack, a thread limit): start-up ends with an error.
        TLOGE("cannot create the sampling thread: %s", e.what());
    }
}

bool PowerBigDataCore::hasWorker() const {
    return mThread.joinable();
}

PowerBigDataCore::~PowerBigDataCore() {
    {
        // Refuse calls from other threads from now on, and let those already in the core finish.
        LifeGuard& guard = life_guard();
        std::unique_lock<std::mutex> lock(guard.mutex);
        guard.gone = true;
        guard.idle.wait(lock, [&guard] { return guard.calls == 0; });
    }
    {
        std::lock_guard<std::mutex> lock(mStartMutex);
        mRunning = false;
    }
    mStartCond.notify_all();
    // The worker finishes its tick before the collectors release what their handlers use.
    if (mThread.joinable()) {
        if (mThread.get_id() == std::this_thread::get_id()) {
            mThread.detach();
        } else {
            mThread.join();
        }
    }
    Stop();
}

int32_t PowerBigDataCore::Start() {
    const char* root = sDeviceRoot;
    if (collect_battery_stats_init(root) < 0) return -1;
    collect_lpm_stats_init(root);
    if (collect_cpu_stats_init(root) < 0) {
        collect_battery_stats_exit();
        collect_cpu_stats_exit();
        collect_stability_info_exit();
        collect_thermal_stats_exit();
        return -1;
    }
    collect_stability_info_init(root);
    if (collect_thermal_stats_init(root) < 0) {
        collect_stability_info_exit();
        collect_thermal_stats_exit();
        return -1;
    }
    collect_mtbf_info_init(root);
    TLOGW("service init finished");
    return 0;
}

int32_t PowerBigDataCore::Stop() {
    collect_cpu_stats_exit();
    collect_thermal_stats_exit();
    collect_battery_stats_exit();
    collect_stability_info_exit();
    collect_mtbf_info_exit();
    TLOGW("service exit");
    return 0;
}

int32_t PowerBigDataCore::MainThread() {
    prctl(PR_SET_NAME, "tarn_worker");  // lets tools pick the sampling thread out of the process
    while (mRunning) {
        {
            std::unique_lock<std::mutex> lock(mStartMutex);
            // The one-second sleep waits on the gate's condition so that shutdown cuts it short;
            // other wake-ups (starts, hints) just resume the sleep.
            auto wake = std::chrono::steady_clock::now() + std::chrono::seconds(1);
            mStartCond.wait_until(lock, wake, [this] { return !mRunning; });
            mStartCond.wait(lock, [this] { return mStarted || !mRunning; });
        }
        if (!mRunning) return 0;
        if (mStarted) Tick();
    }
    return 0;
}

void PowerBigDataCore::Tick() {
    int64_t t0 = monotonic_ns();
    run_collector_tick(g_collector_table, mTableMutex);
    notifyListeners();
    int64_t t1 = monotonic_ns();
    TLOGD_FN("MainThread", "delay time(ms):%ld runtime(us):%ld", 1000L,
             static_cast<long>((t1 - t0) / 1000));
}

void PowerBigDataCore::ConfigurePowerCoreParam(PowerIntervalCfg power, ThermalIntervalCfg thermal,
                                               StabilityIntervalCfg stability) {
    std::lock_guard<std::mutex> lock(mTableMutex);
    configure_collector_table(g_collector_table, power, thermal, stability);
}

void PowerBigDataCore::setBigDataCfg(const CampaignIntervals& cfg) {
    const PowerIntervalCfg& power = cfg.power;
    const ThermalIntervalCfg& thermal = cfg.thermal;
    const StabilityIntervalCfg& stability = cfg.stability;
    TLOGW("power: enable_flag:0x%lX tcpu:%d tgpu:%d tbat:%d tddr:%d tlpm:%d",
          static_cast<unsigned long>(power.enable_flag), power.tcpu, power.tgpu, power.tbat,
          power.tddr, power.tlpm);
    TLOGW("therm: enable_flag:0x%lX ttherm:%d", static_cast<unsigned long>(thermal.enable_flag),
          thermal.ttherm);
    TLOGW("stab: enable_flag:0x%lX tstab:%d", static_cast<unsigned long>(stability.enable_flag),
          stability.tstab);
    ConfigurePowerCoreParam(power, thermal, stability);
}

void PowerBigDataCore::startSampling() {
    {
        // Set under the gate's mutex: a worker that has just seen the gate closed is either not
        // yet waiting (and will see the flag) or already waiting (and gets the notification).
        std::lock_guard<std::mutex> lock(mStartMutex);
        mStarted = true;
    }
    mStartCond.notify_all();
}

void PowerBigDataCore::stopSampling() {
    mStarted = false;
}

std::string PowerBigDataCore::getAppName() {
    std::lock_guard<std::mutex> lock(mAppNameMutex);
    return mAppName;
}

void PowerBigDataCore::sendEvent(int32_t hint, const std::string& userDataStr, int32_t userData1,
                                 int32_t userData2, const std::vector<int32_t>& /*reserved*/) {
    if (userDataStr.empty()) return;
    std::string appName = userDataStr.substr(0, userDataStr.find('/'));
    TLOGD("hint:0x%X [%s] userDataStr:%s appName:%s userData1:%d userData2:%d",
          static_cast<unsigned>(hint), hint_name(hint), userDataStr.c_str(), appName.c_str(),
          userData1, userData2);

    uint32_t code = static_cast<uint32_t>(hint);
    if (code == HINT_ACTIVITY_START || code == HINT_ACTIVITY_RESUME) {
        {
            std::lock_guard<std::mutex> lock(mAppNameMutex);
            mAppName = appName;
        }
        mStartCond.notify_all();
    } else if (code == HINT_ACTIVITY_STOP || code == HINT_ACTIVITY_PAUSE) {
        mStartCond.notify_all();
    }
}

namespace {

std::string core_app_name() {
    return PowerBigDataCore::getInstance()->getAppName();
}

bool core_start_campaign(const CampaignIntervals& intervals) {
    // A campaign that races the process's exit finds no core and is refused.
    PowerBigDataCore::Ref core;
    if (core.get() == nullptr) return false;
    core->setBigDataCfg(intervals);
    core->startSampling();
    return true;
}

void core_stop_campaign() {
    PowerBigDataCore::Ref core;
    if (core.get() != nullptr) core->stopSampling();
}

}  // namespace

void connect_core_to_report() {
    set_app_name_provider(core_app_name);
    set_campaign_sink({core_start_campaign, core_stop_campaign});
}
