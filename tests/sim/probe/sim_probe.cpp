// A small client of the platform stand-ins that the simulator tests run inside tarn_sim. It
// reports what it sees on standard error, one "probe: ..." line per event.
//
//   sim_probe [pool-first]   registers a collector and a perf callback, then joins the pool;
//                            with pool-first, only after a hint was served by the started pool
#include <aidl/vendor/orv/hardware/perf2/BnPerfCallback.h>
#include <aidl/vendor/orv/hardware/perf2/IPerf.h>
#include <android/binder_manager.h>
#include <android/binder_process.h>
#include <pthread.h>
#include <stdio.h>
#include <string.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <vmk_sdk/zel.h>

#include <condition_variable>
#include <mutex>
#include <string>

using aidl::vendor::orv::hardware::perf2::BnPerfCallback;
using aidl::vendor::orv::hardware::perf2::IPerf;

namespace {

constexpr const char* kPerfInstance = "vendor.orv.hardware.perf2.IPerf/default";
zel_hndl_t g_handle = nullptr;
pid_t g_main_tid = 0;

std::mutex g_mu;
std::condition_variable g_cv;
bool g_first_hint = false;

// The start handler uploads the campaign bytes as a record under KPI 77 and answers 1000 plus
// their count, so that the test sees both directions of the round trip.
int32_t on_start(zel_collector*, const uint8_t* data, uint32_t size) {
    fprintf(stderr, "probe: start size=%u\n", size);
    zel_log_blob(g_handle, 77, data, size);
    return 1000 + static_cast<int32_t>(size);
}

int32_t on_stop(zel_collector*) {
    fprintf(stderr, "probe: stop\n");
    return 7;
}

zel_collector g_collector = {"probe.collector", 1, "/data/probe", on_start, on_stop, 1, {}};

class Callback : public BnPerfCallback {
  public:
    ndk::ScopedAStatus notifyCallback(int32_t hint, const std::string& str, int32_t d1, int32_t d2,
                                      const std::vector<int32_t>& reserved) override {
        char name[32] = "";
        pthread_getname_np(pthread_self(), name, sizeof(name));
        fprintf(stderr, "probe: hint=%d str=[%s] d1=%d d2=%d reserved=%zu main=%d thread=%s\n",
                hint, str.c_str(), d1, d2, reserved.size(),
                static_cast<pid_t>(syscall(SYS_gettid)) == g_main_tid ? 1 : 0, name);
        std::lock_guard<std::mutex> lock(g_mu);
        g_first_hint = true;
        g_cv.notify_all();
        return ndk::ScopedAStatus::ok();
    }
};

int serve(bool pool_first) {
    g_main_tid = static_cast<pid_t>(syscall(SYS_gettid));
    g_handle = zel_register(&g_collector);
    fprintf(stderr, "probe: registered=%d\n", g_handle != nullptr ? 1 : 0);
    ndk::SpAIBinder binder(AServiceManager_checkService(kPerfInstance));
    std::shared_ptr<IPerf> perf = IPerf::fromBinder(binder);
    if (!perf) {
        fprintf(stderr, "probe: no perf HAL\n");
        return 3;
    }
    auto callback = ndk::SharedRefBase::make<Callback>();
    int32_t ret = 5;
    ndk::ScopedAStatus st = perf->perfCallbackDeregister(callback, 11, &ret);
    fprintf(stderr, "probe: deregister ok=%d ret=%d\n", st.isOk() ? 1 : 0, ret);
    st = perf->perfCallbackRegister(callback, 11, &ret);
    fprintf(stderr, "probe: register ok=%d ret=%d\n", st.isOk() ? 1 : 0, ret);

    // The first hint must be served by the pool's own threads: the main thread is not in the
    // pool until it joins.
    ABinderProcess_startThreadPool();
    if (pool_first) {
        std::unique_lock<std::mutex> lock(g_mu);
        g_cv.wait(lock, [] { return g_first_hint; });
    }
    ABinderProcess_joinThreadPool();
    fprintf(stderr, "probe: join returned\n");
    st = perf->perfCallbackRegister(callback, 11, &ret);
    fprintf(stderr, "probe: call after close ok=%d\n", st.isOk() ? 1 : 0);
    zel_deregister(g_handle);
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    return serve(argc > 1 && std::string(argv[1]) == "pool-first");
}
