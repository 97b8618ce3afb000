// Process entry: command line, then the start-up sequence, then serving binder calls.
#define TARN_LOG_TAG TAG_MAIN

#include <aidl/vendor/orv/hardware/perf2/IPerf.h>
#include <android/binder_manager.h>
#include <android/binder_process.h>
#include <signal.h>

#include <memory>
#include <string>

#include "campaign.h"
#include "device_properties.h"
#include "options.h"
#include "power_bigdata_callback.h"
#include "power_bigdata_core.h"
#include "tarn_log.h"
#include "zel_helper.h"

using aidl::vendor::orv::hardware::perf2::IPerf;
using aidl::vendor::orv::hardware::perf2::PowerBigDataCallback;

// Fixed client id under which the callback is known to the perf HAL.
#define PERF_CLIENT_ID 372204423

#define EXIT_NO_CALLBACK 1
#define EXIT_NO_WORKER 1
#define EXIT_NO_PERF_HAL 14

std::shared_ptr<IPerf> g_perf_hal;
std::shared_ptr<PowerBigDataCallback> mPowerBigDataCallback;

int main(int argc, char* argv[]) {
    // A write to the local record file that fails (a FIFO whose reader has gone, the file-size
    // limit) is an error that the upload ignores, not the end of the process.
    (void)signal(SIGPIPE, SIG_IGN);
    (void)signal(SIGXFSZ, SIG_IGN);

    CommandLineConfig cfg;
    if (parse_command_line(argc, argv, &cfg) == ParseResult::Usage) {
        print_usage();
        return 0;
    }

    DeviceProperties::getInstance();
    PowerZELHelper::getInstance();
    connect_core_to_report();
    if (registerCollector() != 0) {
        TLOGE("registerCollector failed ret:%d", -1);
        return -1;
    }

    PowerBigDataCore::setDeviceRoot("/");
    PowerBigDataCore* core = PowerBigDataCore::getInstance();
    if (!core->hasWorker()) return EXIT_NO_WORKER;
    core->ConfigurePowerCoreParam(cfg.power, cfg.thermal, cfg.stability);

    TLOGW("service bigdata is going to register");
    mPowerBigDataCallback = ndk::SharedRefBase::make<PowerBigDataCallback>(core);
    if (mPowerBigDataCallback == nullptr) {
        TLOGE("mPowerBigDataCallback is null register service failed");
        return EXIT_NO_CALLBACK;
    }

    const std::string instance = std::string(IPerf::descriptor) + "/default";
    ndk::SpAIBinder perfBinder(AServiceManager_checkService(instance.c_str()));
    if (perfBinder.get() == nullptr) {
        TLOGE("perfBinder.get() failed");
        return EXIT_NO_PERF_HAL;
    }
    g_perf_hal = IPerf::fromBinder(perfBinder);
    if (g_perf_hal == nullptr) {
        TLOGE("perfBinder.get() failed");
        return EXIT_NO_PERF_HAL;
    }
    TLOGW("got IPerf Hal successfully");

    // A callback left registered by an earlier run of the daemon is removed first.
    int32_t ret = 0;
    TLOGW("try to Deregister callback clientId:%d", PERF_CLIENT_ID);
    ndk::ScopedAStatus status =
        g_perf_hal->perfCallbackDeregister(mPowerBigDataCallback, PERF_CLIENT_ID, &ret);
    TLOGD("perfCallbackDeregister() _aidl_return: %d _aidl_status: %d", ret, status.isOk() ? 1 : 0);
    TLOGW("try to register callback secondly, clientId:%d", PERF_CLIENT_ID);
    status = g_perf_hal->perfCallbackRegister(mPowerBigDataCallback, PERF_CLIENT_ID, &ret);
    TLOGD("perfCallbackRegister() _aidl_return: %d _aidl_status: %d", ret, status.isOk() ? 1 : 0);

    if (cfg.startAtOnce) {
        core->startSampling();
        TLOGW("StartCampaign to sample data!!");
    }

    ABinderProcess_startThreadPool();
    ABinderProcess_joinThreadPool();
    TLOGW("service is end");
    return 0;
}
