// Internal pieces of the binder stand-in shared by binder.cpp and the AIDL proxy classes.
#pragma once

#include <aidl/vendor/orv/hardware/perf2/IPerfCallback.h>
#include <android/binder_ibinder.h>
#include <android/binder_status.h>

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>

namespace tarn_binder {

using aidl::vendor::orv::hardware::perf2::IPerfCallback;

// One socket connection to a service. A reader thread routes replies to the waiting callers and
// queues incoming calls for the thread pool.
class Connection {
  public:
    Connection(int fd, std::string descriptor) : mFd(fd), mDescriptor(std::move(descriptor)) {}
    ~Connection();
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    const std::string& descriptor() const { return mDescriptor; }
    bool dead() {
        std::lock_guard<std::mutex> lock(mMu);
        return mDead;
    }

    bool send(uint32_t type, const std::string& payload);
    // Synchronous call of `method` with a callback object and a client id. The service's status
    // code, or STATUS_DEAD_OBJECT when the connection is gone; *ret receives its return value.
    binder_status_t call(uint32_t method, uint64_t object, int32_t client_id, int32_t* ret);
    // Id under which the peer addresses `object`; the connection keeps it alive until it closes.
    uint64_t export_object(const std::shared_ptr<IPerfCallback>& object);

    static void reader_main(std::shared_ptr<Connection> self);

  private:
    struct Reply {
        bool done = false;
        int32_t status = 0;
        int32_t value = 0;
    };

    const int mFd;
    const std::string mDescriptor;
    std::mutex mWriteMu;
    std::mutex mMu;
    std::condition_variable mCv;
    bool mDead = false;
    uint32_t mNextCall = 1;
    std::map<uint32_t, Reply> mReplies;
};

std::shared_ptr<Connection> connection_of(AIBinder* binder);

}  // namespace tarn_binder
