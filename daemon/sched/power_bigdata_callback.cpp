#include "power_bigdata_callback.h"

#include "power_bigdata_core.h"

namespace aidl::vendor::orv::hardware::perf2 {

PowerBigDataCallback::PowerBigDataCallback(PowerBigDataCore* core) : mCore(core) {}

PowerBigDataCallback::~PowerBigDataCallback() = default;

::ndk::ScopedAStatus PowerBigDataCallback::notifyCallback(int32_t hint,
                                                          const std::string& userDataStr,
                                                          int32_t userData1, int32_t userData2,
                                                          const std::vector<int32_t>& reserved) {
    // Binder threads can still deliver hints while the process exits: skip them once the core
    // has begun its teardown.
    PowerBigDataCore::Ref alive;
    if (alive.get() != nullptr && mCore != nullptr) {
        mCore->sendEvent(hint, userDataStr, userData1, userData2, reserved);
    }
    return ::ndk::ScopedAStatus::ok();
}

}  // namespace aidl::vendor::orv::hardware::perf2
