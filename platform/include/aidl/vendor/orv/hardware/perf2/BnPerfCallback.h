// NDK-backend server base of vendor.orv.hardware.perf2.IPerfCallback.
#pragma once

#include <aidl/vendor/orv/hardware/perf2/IPerfCallback.h>

namespace aidl::vendor::orv::hardware::perf2 {

class BnPerfCallback : public ::ndk::BnCInterface<IPerfCallback> {
  public:
    BnPerfCallback() = default;
    virtual ~BnPerfCallback() = default;
};

}  // namespace aidl::vendor::orv::hardware::perf2
