// The services tarn_sim serves to the command: the perf HAL (binder) and the telemetry service.
#pragma once

#include <stdint.h>

#include <chrono>
#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

class RecordsWriter;

// Accepts connections on a listening socket and serves each on a thread of its own. Keeps the
// calls the service has made to its clients until each one is answered.
class SocketService {
  public:
    virtual ~SocketService() = default;
    // Listens at `path` (a host path). False with a message on failure.
    bool listen(const std::string& path, std::string* err);
    // Starts accepting; call after the command has been forked.
    void serve();

  protected:
    // A client connection: frames sent to it are serialised; `alive` (guarded by mMu) is cleared
    // once the client has gone.
    struct Client {
        explicit Client(int f) : fd(f) {}
        ~Client();
        bool send(uint32_t type, const std::string& payload);
        const int fd;
        std::mutex write_mu;
        bool alive = true;
    };

    virtual void serve_connection(int fd) = 0;

    // A fresh id for a call to a client, pending until answered.
    uint32_t open_call();
    // Records a client's answer to call `id`, if that call is still pending.
    void answer_call(uint32_t id, int32_t result);
    // Waits until call `id` is answered or `client` has gone, then forgets the call. True, with
    // the answer in `*result`, when it was answered; `sent` false gives up at once.
    bool finish_call(uint32_t id, bool sent, const Client& client, int32_t* result);

    std::mutex mMu;
    std::condition_variable mCv;

  private:
    int mListenFd = -1;
    std::map<uint32_t, std::pair<bool, int32_t>> mCalls;  // id -> (answered, result); mMu
    uint32_t mNextCall = 1;
};

class PerfHal : public SocketService {
  public:
    static constexpr const char* kInstance = "vendor.orv.hardware.perf2.IPerf/default";
    static constexpr const char* kDescriptor = "vendor.orv.hardware.perf2.IPerf";

    // Sends a hint to every registered callback and waits until each call has returned. Waits up
    // to `wait` for a first callback to be registered. The number of callbacks reached, or -1
    // with a message.
    int hint(int32_t code, const std::string& str, int32_t data1, int32_t data2,
             std::chrono::milliseconds wait, std::string* err);
    // Closes every client connection and refuses new ones: the clients' thread pools end.
    void close_connections();

  protected:
    void serve_connection(int fd) override;

  private:
    struct Conn;
    std::vector<std::shared_ptr<Conn>> mConns;
    bool mClosed = false;
};

class Telemetry : public SocketService {
  public:
    explicit Telemetry(RecordsWriter* records) : mRecords(records) {}

    // Delivers a campaign start (or stop) to every registered collector and waits for each
    // handler's result. Waits up to `wait` for a first registration. False with a message.
    bool campaign_start(const std::string& bytes, std::chrono::milliseconds wait,
                        std::vector<int32_t>* results, std::string* err);
    bool campaign_stop(std::chrono::milliseconds wait, std::vector<int32_t>* results,
                       std::string* err);
    // Waits until every client has closed its connection, so that no record is lost.
    void drain(std::chrono::milliseconds timeout);

  protected:
    void serve_connection(int fd) override;

  private:
    struct Conn;
    bool deliver(uint32_t type, const std::string* bytes, std::chrono::milliseconds wait,
                 std::vector<int32_t>* results, std::string* err);

    RecordsWriter* mRecords;
    std::vector<std::shared_ptr<Conn>> mConns;
};
