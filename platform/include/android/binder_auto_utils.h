// Host stand-in for the binder NDK C++ RAII helpers.
#pragma once

#include <android/binder_ibinder.h>
#include <android/binder_status.h>

namespace ndk {

// Owns one strong reference to an AIBinder.
class SpAIBinder {
  public:
    SpAIBinder() : mBinder(nullptr) {}
    explicit SpAIBinder(AIBinder* binder) : mBinder(binder) {}
    SpAIBinder(const SpAIBinder& other) : mBinder(other.mBinder) {
        if (mBinder != nullptr) AIBinder_incStrong(mBinder);
    }
    SpAIBinder& operator=(const SpAIBinder& other) {
        if (this != &other) {
            if (other.mBinder != nullptr) AIBinder_incStrong(other.mBinder);
            set(other.mBinder);
        }
        return *this;
    }
    ~SpAIBinder() { set(nullptr); }
    AIBinder* get() const { return mBinder; }
    void set(AIBinder* binder) {
        if (mBinder != nullptr) AIBinder_decStrong(mBinder);
        mBinder = binder;
    }

  private:
    AIBinder* mBinder;
};

// Owns an AStatus.
class ScopedAStatus {
  public:
    ScopedAStatus() : mStatus(nullptr) {}
    explicit ScopedAStatus(AStatus* status) : mStatus(status) {}
    ScopedAStatus(ScopedAStatus&& other) noexcept : mStatus(other.mStatus) {
        other.mStatus = nullptr;
    }
    ScopedAStatus& operator=(ScopedAStatus&& other) noexcept {
        if (this != &other) {
            if (mStatus != nullptr) AStatus_delete(mStatus);
            mStatus = other.mStatus;
            other.mStatus = nullptr;
        }
        return *this;
    }
    ScopedAStatus(const ScopedAStatus&) = delete;
    ScopedAStatus& operator=(const ScopedAStatus&) = delete;
    ~ScopedAStatus() {
        if (mStatus != nullptr) AStatus_delete(mStatus);
    }
    const AStatus* get() const { return mStatus; }
    bool isOk() const { return mStatus != nullptr && AStatus_isOk(mStatus); }
    static ScopedAStatus ok() { return ScopedAStatus(AStatus_newOk()); }
    static ScopedAStatus fromStatus(binder_status_t status) {
        return ScopedAStatus(AStatus_fromStatus(status));
    }

  private:
    AStatus* mStatus;
};

}  // namespace ndk
