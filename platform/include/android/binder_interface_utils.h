// Host stand-in for the binder NDK C++ interface helpers.
#pragma once

#include <android/binder_auto_utils.h>

#include <memory>
#include <utility>

namespace ndk {

// Base of every reference-counted binder object; create objects with make<T>().
class SharedRefBase : public std::enable_shared_from_this<SharedRefBase> {
  public:
    virtual ~SharedRefBase() = default;

    template <class T, class... Args>
    static std::shared_ptr<T> make(Args&&... args) {
        return std::shared_ptr<T>(new T(std::forward<Args>(args)...));
    }

    template <class T>
    std::shared_ptr<T> ref() {
        return std::static_pointer_cast<T>(shared_from_this());
    }
};

// Base of every AIDL interface.
class ICInterface : public SharedRefBase {
  public:
    virtual bool isRemote() = 0;
};

// Server-side base: the object lives in this process and receives calls.
template <class INTERFACE>
class BnCInterface : public INTERFACE {
  public:
    bool isRemote() override { return false; }
};

}  // namespace ndk
