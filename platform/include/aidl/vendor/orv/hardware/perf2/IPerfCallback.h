// NDK-backend class of the AIDL interface vendor.orv.hardware.perf2.IPerfCallback.
#pragma once

#include <android/binder_interface_utils.h>

#include <cstdint>
#include <string>
#include <vector>

namespace aidl::vendor::orv::hardware::perf2 {

class IPerfCallback : public ::ndk::ICInterface {
  public:
    static const char* descriptor;

    virtual ::ndk::ScopedAStatus notifyCallback(int32_t in_hint, const std::string& in_userDataStr,
                                                int32_t in_userData1, int32_t in_userData2,
                                                const std::vector<int32_t>& in_reserved) = 0;
};

}  // namespace aidl::vendor::orv::hardware::perf2
