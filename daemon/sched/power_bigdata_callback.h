// Perf-HAL callback: activity hints tell the core the foreground application's package name.
#pragma once

#include <aidl/vendor/orv/hardware/perf2/BnPerfCallback.h>

#include <string>
#include <vector>

class PowerBigDataCore;

namespace aidl::vendor::orv::hardware::perf2 {

class PowerBigDataCallback : public BnPerfCallback {
  public:
    explicit PowerBigDataCallback(PowerBigDataCore* core);
    ~PowerBigDataCallback() override;

    // Hands the hint to the core; always succeeds.
    ::ndk::ScopedAStatus notifyCallback(int32_t hint, const std::string& userDataStr,
                                        int32_t userData1, int32_t userData2,
                                        const std::vector<int32_t>& reserved) override;

  private:
    PowerBigDataCore* mCore;  // not owned
};

}  // namespace aidl::vendor::orv::hardware::perf2
