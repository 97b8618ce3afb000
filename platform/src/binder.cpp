// Binder NDK subset on a host. A service instance "NAME/INSTANCE" is a Unix socket under
// /dev/socket/binder/; each connection carries calls to the service and, the other way, calls into
// the local objects (callbacks) that were passed to it. Those incoming calls run on the threads
// of the process's binder thread pool.
#include <android/binder_manager.h>
#include <android/binder_process.h>
#include <pthread.h>
#include <stdio.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <deque>
#include <map>
#include <set>
#include <thread>

#include "binder_internal.h"
#include "tarn_wire.h"

struct AStatus {
    binder_status_t status;
};

struct AIBinder {
    std::atomic<int> refs{1};
    std::shared_ptr<tarn_binder::Connection> conn;
};

namespace tarn_binder {
namespace {

constexpr int kPoolThreads = 2;
constexpr int kHelloTimeoutMs = 5000;

struct IncomingCall {
    std::shared_ptr<Connection> conn;
    uint32_t id = 0;
    uint64_t object = 0;
    int32_t hint = 0;
    std::string str;
    int32_t data1 = 0;
    int32_t data2 = 0;
    std::vector<int32_t> reserved;
};

struct LocalObject {
    std::shared_ptr<IPerfCallback> object;
    std::set<const Connection*> holders;  // connections whose peer holds a reference
};

// Process-wide binder state. Never destroyed: pool threads may still wait on it while the
// process exits.
struct ProcessState {
    std::mutex mu;
    std::condition_variable cv;
    std::deque<IncomingCall> queue;
    int live_connections = 0;
    bool pool_started = false;
    int pool_threads = 0;
    std::map<std::string, std::weak_ptr<Connection>> services;
    std::map<uint64_t, LocalObject> objects;
    uint64_t next_object = 1;
};

ProcessState& state() {
    static ProcessState* s = new ProcessState;
    return *s;
}

void dispatch(IncomingCall& call) {
    std::shared_ptr<IPerfCallback> target;
    {
        ProcessState& s = state();
        std::lock_guard<std::mutex> lock(s.mu);
        auto it = s.objects.find(call.object);
        if (it != s.objects.end()) target = it->second.object;
    }
    binder_status_t status = STATUS_DEAD_OBJECT;
    if (target) {
        ndk::ScopedAStatus st =
            target->notifyCallback(call.hint, call.str, call.data1, call.data2, call.reserved);
        status = st.get() != nullptr ? AStatus_getStatus(st.get()) : STATUS_UNKNOWN_ERROR;
    }
    call.conn->send(tarn_wire::kBinderHintDone, tarn_wire::Writer().u32(call.id).i32(status).data());
}

void pool_thread_main(int index) {
    char name[16];
    snprintf(name, sizeof(name), "binder:%d_%d", static_cast<int>(getpid()) % 100000, index);
    pthread_setname_np(pthread_self(), name);
    ProcessState& s = state();
    for (;;) {
        IncomingCall call;
        {
            std::unique_lock<std::mutex> lock(s.mu);
            s.cv.wait(lock, [&] { return !s.queue.empty(); });
            call = std::move(s.queue.front());
            s.queue.pop_front();
        }
        dispatch(call);
    }
}

}  // namespace

Connection::~Connection() {
    if (mFd >= 0) close(mFd);
}

bool Connection::send(uint32_t type, const std::string& payload) {
    std::lock_guard<std::mutex> lock(mWriteMu);
    return tarn_wire::write_frame(mFd, type, payload);
}

binder_status_t Connection::call(uint32_t method, uint64_t object, int32_t client_id, int32_t* ret) {
    uint32_t id;
    {
        std::lock_guard<std::mutex> lock(mMu);
        if (mDead) return STATUS_DEAD_OBJECT;
        id = mNextCall++;
        mReplies[id] = Reply{};
    }
    if (!send(tarn_wire::kBinderCall,
              tarn_wire::Writer().u32(id).u32(method).u64(object).i32(client_id).data())) {
        std::lock_guard<std::mutex> lock(mMu);
        mReplies.erase(id);
        return STATUS_DEAD_OBJECT;
    }
    std::unique_lock<std::mutex> lock(mMu);
    mCv.wait(lock, [&] { return mDead || mReplies[id].done; });
    Reply reply = mReplies[id];
    mReplies.erase(id);
    if (!reply.done) return STATUS_DEAD_OBJECT;
    *ret = reply.value;
    return reply.status;
}

uint64_t Connection::export_object(const std::shared_ptr<IPerfCallback>& object) {
    ProcessState& s = state();
    std::lock_guard<std::mutex> lock(s.mu);
    for (auto& entry : s.objects) {
        if (entry.second.object == object) {
            entry.second.holders.insert(this);
            return entry.first;
        }
    }
    uint64_t id = s.next_object++;
    LocalObject& local = s.objects[id];
    local.object = object;
    local.holders.insert(this);
    return id;
}

void Connection::reader_main(std::shared_ptr<Connection> self) {
    pthread_setname_np(pthread_self(), "binder_reader");
    tarn_wire::Frame frame;
    while (tarn_wire::read_frame(self->mFd, &frame) == 1) {
        tarn_wire::Reader in(frame.payload);
        if (frame.type == tarn_wire::kBinderReply) {
            uint32_t id = in.u32();
            int32_t status = in.i32();
            int32_t value = in.i32();
            if (!in.ok()) break;
            std::lock_guard<std::mutex> lock(self->mMu);
            auto it = self->mReplies.find(id);
            if (it != self->mReplies.end()) {
                it->second = Reply{true, status, value};
                self->mCv.notify_all();
            }
        } else if (frame.type == tarn_wire::kBinderHint) {
            IncomingCall call;
            call.conn = self;
            call.id = in.u32();
            call.object = in.u64();
            call.hint = in.i32();
            call.str = in.str();
            call.data1 = in.i32();
            call.data2 = in.i32();
            uint32_t n = in.u32();
            for (uint32_t i = 0; i < n && in.ok(); ++i) call.reserved.push_back(in.i32());
            if (!in.ok()) break;
            ProcessState& s = state();
            std::lock_guard<std::mutex> lock(s.mu);
            s.queue.push_back(std::move(call));
            s.cv.notify_all();
        }
        // Unknown message types are skipped: the peer may be newer than we are.
    }

    // The service closed the connection (or broke the protocol): fail the calls in flight, drop
    // the references it held on our objects and let joinThreadPool return once nothing is left.
    shutdown(self->mFd, SHUT_RDWR);
    {
        std::lock_guard<std::mutex> lock(self->mMu);
        self->mDead = true;
        self->mCv.notify_all();
    }
    std::vector<std::shared_ptr<IPerfCallback>> released;
    {
        ProcessState& s = state();
        std::lock_guard<std::mutex> lock(s.mu);
        for (auto it = s.objects.begin(); it != s.objects.end();) {
            it->second.holders.erase(self.get());
            if (it->second.holders.empty()) {
                released.push_back(std::move(it->second.object));
                it = s.objects.erase(it);
            } else {
                ++it;
            }
        }
        --s.live_connections;
        s.cv.notify_all();
    }
    released.clear();  // outside the lock: an object's destructor may call back into binder
}

std::shared_ptr<Connection> connection_of(AIBinder* binder) {
    return binder != nullptr ? binder->conn : nullptr;
}

}  // namespace tarn_binder

using tarn_binder::Connection;
using tarn_binder::state;

extern "C" {

AStatus* AStatus_newOk(void) {
    return new AStatus{STATUS_OK};
}

AStatus* AStatus_fromStatus(binder_status_t status) {
    return new AStatus{status};
}

bool AStatus_isOk(const AStatus* status) {
    return status != nullptr && status->status == STATUS_OK;
}

binder_status_t AStatus_getStatus(const AStatus* status) {
    return status != nullptr ? status->status : STATUS_UNEXPECTED_NULL;
}

void AStatus_delete(AStatus* status) {
    delete status;
}

void AIBinder_incStrong(AIBinder* binder) {
    if (binder != nullptr) binder->refs.fetch_add(1, std::memory_order_relaxed);
}

void AIBinder_decStrong(AIBinder* binder) {
    if (binder != nullptr && binder->refs.fetch_sub(1, std::memory_order_acq_rel) == 1) {
        delete binder;
    }
}

AIBinder* AServiceManager_checkService(const char* instance) {
    if (instance == nullptr || instance[0] == '\0' || strstr(instance, "..") != nullptr) {
        return nullptr;
    }
    auto& s = state();
    {
        std::lock_guard<std::mutex> lock(s.mu);
        auto it = s.services.find(instance);
        if (it != s.services.end()) {
            std::shared_ptr<Connection> conn = it->second.lock();
            if (conn && !conn->dead()) return new AIBinder{{1}, conn};
        }
    }

    std::string path = std::string(tarn_wire::kBinderSocketDir) + "/" + instance;
    int fd = tarn_wire::connect_unix(path);
    if (fd < 0) return nullptr;
    tarn_wire::Frame reply;
    if (!tarn_wire::write_frame(fd, tarn_wire::kBinderHello,
                                tarn_wire::Writer().str(instance, strlen(instance)).data()) ||
        !tarn_wire::wait_readable(fd, tarn_binder::kHelloTimeoutMs) ||
        tarn_wire::read_frame(fd, &reply) != 1 || reply.type != tarn_wire::kBinderHelloReply) {
        close(fd);
        return nullptr;
    }
    tarn_wire::Reader in(reply.payload);
    int32_t status = in.i32();
    std::string descriptor = in.str();
    if (!in.ok() || status != STATUS_OK) {
        close(fd);
        return nullptr;
    }

    auto conn = std::make_shared<Connection>(fd, descriptor);
    {
        std::lock_guard<std::mutex> lock(s.mu);
        s.services[instance] = conn;
        ++s.live_connections;
    }
    std::thread(&Connection::reader_main, conn).detach();
    return new AIBinder{{1}, conn};
}

void ABinderProcess_startThreadPool(void) {
    auto& s = state();
    std::lock_guard<std::mutex> lock(s.mu);
    if (s.pool_started) return;
    s.pool_started = true;
    for (int i = 0; i < tarn_binder::kPoolThreads; ++i) {
        std::thread(tarn_binder::pool_thread_main, ++s.pool_threads).detach();
    }
}

void ABinderProcess_joinThreadPool(void) {
    auto& s = state();
    for (;;) {
        tarn_binder::IncomingCall call;
        {
            std::unique_lock<std::mutex> lock(s.mu);
            s.cv.wait(lock, [&] { return !s.queue.empty() || s.live_connections == 0; });
            if (s.queue.empty()) return;
            call = std::move(s.queue.front());
            s.queue.pop_front();
        }
        tarn_binder::dispatch(call);
    }
}

}  // extern "C"
