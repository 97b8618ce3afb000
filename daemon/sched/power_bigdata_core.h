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

#include "campaign.h"
#include "interval_cfg.h"

class BigDataListener {
  public:
    virtual ~BigDataListener() = default;
    virtual void onNotify(int32_t event) = 0;
};

class BigDataCore {
  public:
    virtual ~BigDataCore();
    // Calls every listener, in insertion order, with 0.
    void notifyListeners();

  protected:
    std::list<BigDataListener*> mListeners;  // not owned
};

class PowerBigDataCore : public BigDataCore {
  public:
    // The one instance; the first call builds it (running the collectors' inits and starting the
    // worker). It is destroyed at process exit, before the upload helper and device properties.
    static PowerBigDataCore* getInstance();
    // The root of the device tree the collectors' inits are given when getInstance builds the
    // core: "/" unless set before.
    static void setDeviceRoot(const char* root);
    ~PowerBigDataCore() override;

    // Access for threads that may still call in while the process exits (the SDK's campaign
    // threads, binder threads). A live Ref counts as a call in flight: the core's teardown marks
    // the core gone and then waits until no call is in flight, so a Ref either holds a live core
    // for its whole life or, once the teardown has begun, holds none (get() is null). Taking and
    // dropping a Ref locks only the guard's own mutex, briefly; no lock is held while the Ref
    // lives, so calls on different threads run side by side.
    class Ref {
      public:
        Ref();
        ~Ref();
        Ref(const Ref&) = delete;
        Ref& operator=(const Ref&) = delete;
        PowerBigDataCore* get() const { return mCore; }
        PowerBigDataCore* operator->() const { return mCore; }

      private:
        PowerBigDataCore* mCore;
    };

    void ConfigurePowerCoreParam(PowerIntervalCfg power, ThermalIntervalCfg thermal,
                                 StabilityIntervalCfg stability);
    // Applies a decoded campaign's periods and flags through ConfigurePowerCoreParam.
    void setBigDataCfg(const CampaignIntervals& cfg);
    void sendEvent(int32_t hint, const std::string& userDataStr, int32_t userData1,
                   int32_t userData2, const std::vector<int32_t>& reserved);
    // Opens the start gate and wakes the worker.
    void startSampling();
    // Closes the start gate; the worker parks after its current sleep or tick.
    void stopSampling();
    std::string getAppName();
    // False when the sampling thread could not be created; the daemon then ends.
    bool hasWorker() const;

  private:
    PowerBigDataCore();
    int32_t Start();
    int32_t Stop();
    int32_t MainThread();
    void Tick();

    // Locks. None is ever taken while another is held, and none is held across a handler call.
    //  - mTableMutex: the period and flag of every row of the collector table, held for the copy
    //    of one row on a tick or for a whole configuration pass.
    //  - mStartMutex with mStartCond: the start gate; held by the worker while it tests the gate
    //    and waits, and by startSampling and shutdown while they change what the worker tests.
    //  - mAppNameMutex: mAppName, held for one copy or one assignment.
    //  - the lifetime guard's mutex (outside the object, so that it outlives the core): the count
    //    of Refs alive and the gone mark, held only to change or test those two.
    std::thread mThread;
    std::condition_variable mStartCond;
    std::mutex mStartMutex;
    std::mutex mAppNameMutex;
    std::mutex mTableMutex;
    std::atomic<bool> mStarted;
    std::atomic<bool> mRunning;
    std::string mAppName;
};

// Hands the upload helper the core's application name and the campaign handlers the core's
// configuration and start gate. Called once at start-up, before the collector registers with the
// telemetry SDK.
void connect_core_to_report();
