// The sampling core: collector start-up and shutdown, the one-second worker with its start gate,
// the collector table's lock and the foreground application's name.
#pragma once

#include <pthread.h>

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <list>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

class BigDataCampaignConfig;

struct PowerIntervalCfg {
    uint64_t enable_flag;
    int32_t tcpu;
    int32_t tgpu;
    int32_t tbat;
    int32_t tddr;
    int32_t tlpm;
    int32_t tps;
    int32_t tbri;
    int32_t tfps;
};

struct ThermalIntervalCfg {
    uint64_t enable_flag;
    int32_t ttherm;
};

struct StabilityIntervalCfg {
    uint64_t enable_flag;
    int32_t tstab;
};

class BigDataListener {
public:
    virtual ~BigDataListener() = default;
    virtual void onNotify(int32_t event) = 0;
};

class BigDataCore {
public:
    virtual ~BigDataCore();
    void notifyListeners();

protected:
    std::list<BigDataListener*> mListeners;
};

class PowerBigDataCore : public BigDataCore {
public:
    static PowerBigDataCore* getInstance();
    ~PowerBigDataCore() override;

    void ConfigurePowerCoreParam(PowerIntervalCfg power, ThermalIntervalCfg thermal,
                                 StabilityIntervalCfg stability);
    void setBigDataCfg(const BigDataCampaignConfig& cfg);
    void sendEvent(int32_t hint, const std::string& userDataStr, int32_t userData1,
                   int32_t userData2, const std::vector<int32_t>& reserved);
    void startSampling();
    void stopSampling();
    std::string getAppName();

private:
    PowerBigDataCore();
    int32_t Start();
    int32_t Stop();
    int32_t MainThread();

    std::thread mThread;
    std::condition_variable mStartCond;
    std::mutex mStartMutex;
    std::mutex mTableMutex;
    std::mutex mAppNameMutex;
    std::string mAppName;
    std::atomic<bool> mStarted;
    std::atomic<bool> mRunning;
};
