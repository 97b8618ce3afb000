// NDK-backend class of the AIDL interface vendor.orv.hardware.perf2.IPerf.
#pragma once

#include <aidl/vendor/orv/hardware/perf2/IPerfCallback.h>
#include <android/binder_auto_utils.h>

#include <memory>

namespace aidl::vendor::orv::hardware::perf2 {

class IPerf : public ::ndk::ICInterface {
  public:
    static const char* descriptor;

    // Wraps a binder of the perf HAL in a proxy; null when `binder` is null or not an IPerf.
    static std::shared_ptr<IPerf> fromBinder(const ::ndk::SpAIBinder& binder);

    virtual ::ndk::ScopedAStatus perfCallbackRegister(
        const std::shared_ptr<IPerfCallback>& in_callback, int32_t in_clientId,
        int32_t* _aidl_return) = 0;
    virtual ::ndk::ScopedAStatus perfCallbackDeregister(
        const std::shared_ptr<IPerfCallback>& in_callback, int32_t in_clientId,
        int32_t* _aidl_return) = 0;
};

}  // namespace aidl::vendor::orv::hardware::perf2
