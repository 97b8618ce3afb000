#include "services.h"

#include <errno.h>
#include <stdio.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <set>
#include <thread>

#include "records.h"
#include "tarn_wire.h"

namespace {

constexpr auto kHandlerTimeout = std::chrono::seconds(120);
constexpr int kHelloTimeoutMs = 10000;

}  // namespace

bool SocketService::listen(const std::string& path, std::string* err) {
    mListenFd = tarn_wire::listen_unix(path);
    if (mListenFd < 0) {
        *err = "cannot listen at " + path + ": " + strerror(errno);
        return false;
    }
    return true;
}

void SocketService::serve() {
    if (mListenFd < 0) return;
    std::thread([this] {
        for (;;) {
            int fd = accept4(mListenFd, nullptr, nullptr, SOCK_CLOEXEC);
            if (fd < 0) {
                if (errno == EINTR || errno == ECONNABORTED) continue;
                return;
            }
            std::thread([this, fd] { serve_connection(fd); }).detach();
        }
    }).detach();
}

SocketService::Client::~Client() {
    close(fd);
}

bool SocketService::Client::send(uint32_t type, const std::string& payload) {
    std::lock_guard<std::mutex> lock(write_mu);
    return tarn_wire::write_frame(fd, type, payload);
}

uint32_t SocketService::open_call() {
    std::lock_guard<std::mutex> lock(mMu);
    uint32_t id = mNextCall++;
    mCalls[id] = {false, 0};
    return id;
}

void SocketService::answer_call(uint32_t id, int32_t result) {
    std::lock_guard<std::mutex> lock(mMu);
    auto it = mCalls.find(id);
    if (it != mCalls.end()) {
        it->second = {true, result};
        mCv.notify_all();
    }
}

bool SocketService::finish_call(uint32_t id, bool sent, const Client& client, int32_t* result) {
    std::unique_lock<std::mutex> lock(mMu);
    bool done = sent && mCv.wait_for(lock, kHandlerTimeout, [&] {
        return mCalls[id].first || !client.alive;
    }) && mCalls[id].first;
    *result = mCalls[id].second;
    mCalls.erase(id);
    return done;
}

// ---- perf HAL -------------------------------------------------------------------------------

struct PerfHal::Conn : Client {
    explicit Conn(int f) : Client(f) {}
    std::map<uint64_t, int32_t> callbacks;  // object id -> client id
};

void PerfHal::serve_connection(int fd) {
    auto conn = std::make_shared<Conn>(fd);
    tarn_wire::Frame frame;
    if (!tarn_wire::wait_readable(fd, kHelloTimeoutMs) || tarn_wire::read_frame(fd, &frame) != 1 ||
        frame.type != tarn_wire::kBinderHello) {
        return;
    }
    std::string instance = tarn_wire::Reader(frame.payload).str();
    int32_t status = instance == kInstance ? 0 : -1;  // STATUS_OK, or no such service
    if (!conn->send(tarn_wire::kBinderHelloReply,
                    tarn_wire::Writer().i32(status).str(std::string(kDescriptor)).data()) ||
        status != 0) {
        return;
    }
    {
        std::lock_guard<std::mutex> lock(mMu);
        if (mClosed) return;
        mConns.push_back(conn);
    }

    while (tarn_wire::read_frame(fd, &frame) == 1) {
        tarn_wire::Reader in(frame.payload);
        if (frame.type == tarn_wire::kBinderCall) {
            uint32_t call = in.u32();
            uint32_t method = in.u32();
            uint64_t object = in.u64();
            int32_t client = in.i32();
            if (!in.ok()) break;
            int32_t ret = 0;
            int32_t st = 0;
            {
                std::lock_guard<std::mutex> lock(mMu);
                if (object == 0) {
                    st = -22 - 1000;  // unexpected null
                } else if (method == tarn_wire::kPerfCallbackRegister) {
                    conn->callbacks[object] = client;
                    mCv.notify_all();
                } else if (method == tarn_wire::kPerfCallbackDeregister) {
                    ret = conn->callbacks.erase(object) > 0 ? 0 : -1;
                } else {
                    st = -74;  // unknown transaction
                }
            }
            const char* what = method == tarn_wire::kPerfCallbackRegister     ? "register"
                               : method == tarn_wire::kPerfCallbackDeregister ? "deregister"
                                                                              : "unknown";
            fprintf(stderr, "tarn_sim: perf HAL: %s callback, client id %d: %d\n", what, client,
                    ret);
            if (!conn->send(tarn_wire::kBinderReply,
                            tarn_wire::Writer().u32(call).i32(st).i32(ret).data())) {
                break;
            }
        } else if (frame.type == tarn_wire::kBinderHintDone) {
            uint32_t id = in.u32();
            int32_t st = in.i32();
            if (!in.ok()) break;
            answer_call(id, st);
        }
    }

    std::lock_guard<std::mutex> lock(mMu);
    conn->alive = false;
    conn->callbacks.clear();
    mConns.erase(std::remove(mConns.begin(), mConns.end(), conn), mConns.end());
    mCv.notify_all();
}

int PerfHal::hint(int32_t code, const std::string& str, int32_t data1, int32_t data2,
                  std::chrono::milliseconds wait, std::string* err) {
    std::vector<std::pair<std::shared_ptr<Conn>, uint64_t>> targets;
    {
        std::unique_lock<std::mutex> lock(mMu);
        auto has_callback = [&] {
            for (const auto& c : mConns) {
                if (!c->callbacks.empty()) return true;
            }
            return false;
        };
        if (!mCv.wait_for(lock, wait, has_callback)) {
            *err = "no perf callback is registered";
            return -1;
        }
        for (const auto& c : mConns) {
            for (const auto& cb : c->callbacks) targets.emplace_back(c, cb.first);
        }
    }
    int reached = 0;
    for (auto& target : targets) {
        uint32_t id = open_call();
        bool sent = target.first->send(tarn_wire::kBinderHint, tarn_wire::Writer()
                                                                   .u32(id)
                                                                   .u64(target.second)
                                                                   .i32(code)
                                                                   .str(str)
                                                                   .i32(data1)
                                                                   .i32(data2)
                                                                   .u32(0)
                                                                   .data());
        int32_t status;
        if (finish_call(id, sent, *target.first, &status)) ++reached;
    }
    if (reached == 0) {
        *err = "the perf callback did not return (client gone)";
        return -1;
    }
    return reached;
}

void PerfHal::close_connections() {
    std::lock_guard<std::mutex> lock(mMu);
    mClosed = true;
    for (const auto& c : mConns) shutdown(c->fd, SHUT_RDWR);
}

// ---- telemetry ------------------------------------------------------------------------------

struct Telemetry::Conn : Client {
    explicit Conn(int f) : Client(f) {}
    std::string name;
    bool registered = false;
};

void Telemetry::serve_connection(int fd) {
    auto conn = std::make_shared<Conn>(fd);
    {
        std::lock_guard<std::mutex> lock(mMu);
        mConns.push_back(conn);
    }
    tarn_wire::Frame frame;
    while (tarn_wire::read_frame(fd, &frame) == 1) {
        tarn_wire::Reader in(frame.payload);
        if (frame.type == tarn_wire::kZelBlob) {
            uint32_t kpi = in.u32();
            std::string bytes = in.str();
            if (!in.ok()) break;
            mRecords->write(kpi, bytes);
        } else if (frame.type == tarn_wire::kZelRegister) {
            std::string name = in.str();
            std::string dir = in.str();
            if (!in.ok()) break;
            fprintf(stderr, "tarn_sim: telemetry: collector %s registered (data dir %s)\n",
                    name.c_str(), dir.c_str());
            if (!conn->send(tarn_wire::kZelRegistered, tarn_wire::Writer().i32(0).data())) break;
            std::lock_guard<std::mutex> lock(mMu);
            conn->name = name;
            conn->registered = true;
            mCv.notify_all();
        } else if (frame.type == tarn_wire::kZelDeregister) {
            fprintf(stderr, "tarn_sim: telemetry: collector %s deregistered\n", conn->name.c_str());
            std::lock_guard<std::mutex> lock(mMu);
            conn->registered = false;
        } else if (frame.type == tarn_wire::kZelCampaignResult) {
            uint32_t id = in.u32();
            int32_t result = in.i32();
            if (!in.ok()) break;
            answer_call(id, result);
        }
    }
    std::lock_guard<std::mutex> lock(mMu);
    conn->alive = false;
    conn->registered = false;
    mConns.erase(std::remove(mConns.begin(), mConns.end(), conn), mConns.end());
    mCv.notify_all();
}

bool Telemetry::deliver(uint32_t type, const std::string* bytes, std::chrono::milliseconds wait,
                        std::vector<int32_t>* results, std::string* err) {
    std::vector<std::shared_ptr<Conn>> targets;
    {
        std::unique_lock<std::mutex> lock(mMu);
        auto registered = [&] {
            for (const auto& c : mConns) {
                if (c->registered) return true;
            }
            return false;
        };
        if (!mCv.wait_for(lock, wait, registered)) {
            *err = "no collector is registered with the telemetry service";
            return false;
        }
        for (const auto& c : mConns) {
            if (c->registered) targets.push_back(c);
        }
    }
    for (auto& conn : targets) {
        uint32_t id = open_call();
        tarn_wire::Writer payload;
        payload.u32(id);
        if (bytes != nullptr) payload.str(*bytes);
        bool sent = conn->send(type, payload.data());
        int32_t result;
        if (!finish_call(id, sent, *conn, &result)) {
            std::lock_guard<std::mutex> lock(mMu);  // the name is set under the lock
            *err = "collector " + conn->name + " did not answer the campaign";
            return false;
        }
        results->push_back(result);
    }
    return true;
}

bool Telemetry::campaign_start(const std::string& bytes, std::chrono::milliseconds wait,
                               std::vector<int32_t>* results, std::string* err) {
    return deliver(tarn_wire::kZelCampaignStart, &bytes, wait, results, err);
}

bool Telemetry::campaign_stop(std::chrono::milliseconds wait, std::vector<int32_t>* results,
                              std::string* err) {
    return deliver(tarn_wire::kZelCampaignStop, nullptr, wait, results, err);
}

void Telemetry::drain(std::chrono::milliseconds timeout) {
    std::unique_lock<std::mutex> lock(mMu);
    mCv.wait_for(lock, timeout, [&] { return mConns.empty(); });
}
