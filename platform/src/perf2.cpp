// Client side of the AIDL package vendor.orv.hardware.perf2: the IPerf proxy and the descriptors.
#include <aidl/vendor/orv/hardware/perf2/BnPerfCallback.h>
#include <aidl/vendor/orv/hardware/perf2/IPerf.h>

#include "binder_internal.h"
#include "tarn_wire.h"

namespace aidl::vendor::orv::hardware::perf2 {

const char* IPerf::descriptor = "vendor.orv.hardware.perf2.IPerf";
const char* IPerfCallback::descriptor = "vendor.orv.hardware.perf2.IPerfCallback";

namespace {

class BpPerf : public IPerf {
  public:
    BpPerf(const ::ndk::SpAIBinder& binder, std::shared_ptr<tarn_binder::Connection> conn)
        : mBinder(binder), mConn(std::move(conn)) {}

    bool isRemote() override { return true; }

    ::ndk::ScopedAStatus perfCallbackRegister(const std::shared_ptr<IPerfCallback>& in_callback,
                                              int32_t in_clientId, int32_t* _aidl_return) override {
        return transact(tarn_wire::kPerfCallbackRegister, in_callback, in_clientId, _aidl_return);
    }

    ::ndk::ScopedAStatus perfCallbackDeregister(const std::shared_ptr<IPerfCallback>& in_callback,
                                                int32_t in_clientId,
                                                int32_t* _aidl_return) override {
        return transact(tarn_wire::kPerfCallbackDeregister, in_callback, in_clientId, _aidl_return);
    }

  private:
    ::ndk::ScopedAStatus transact(uint32_t method, const std::shared_ptr<IPerfCallback>& callback,
                                  int32_t client_id, int32_t* aidl_return) {
        if (!callback || aidl_return == nullptr) {
            return ::ndk::ScopedAStatus::fromStatus(STATUS_UNEXPECTED_NULL);
        }
        int32_t value = 0;
        binder_status_t status =
            mConn->call(method, mConn->export_object(callback), client_id, &value);
        if (status != STATUS_OK) return ::ndk::ScopedAStatus::fromStatus(status);
        *aidl_return = value;
        return ::ndk::ScopedAStatus::ok();
    }

    ::ndk::SpAIBinder mBinder;  // keeps the service reference for the proxy's lifetime
    std::shared_ptr<tarn_binder::Connection> mConn;
};

}  // namespace

std::shared_ptr<IPerf> IPerf::fromBinder(const ::ndk::SpAIBinder& binder) {
    std::shared_ptr<tarn_binder::Connection> conn = tarn_binder::connection_of(binder.get());
    if (!conn || conn->descriptor() != descriptor) return nullptr;
    return ::ndk::SharedRefBase::make<BpPerf>(binder, conn);
}

}  // namespace aidl::vendor::orv::hardware::perf2
