// Telemetry SDK on a host: a connection to the simulator's telemetry service. Records go out as
// they are logged; campaigns come in and run the collector's handlers on the SDK's own thread,
// whose results go back to the service.
#include <errno.h>
#include <pthread.h>
#include <sys/socket.h>
#include <unistd.h>
#include <vmk_sdk/zel.h>

#include <mutex>
#include <string>
#include <thread>

#include "tarn_wire.h"

struct zel_client {
    int fd = -1;
    zel_collector* collector = nullptr;
    std::mutex write_mu;
    std::thread thread;
    bool delete_on_exit = false;  // set when deregistered from its own handler thread
    std::mutex state_mu;
};

namespace {

constexpr int kRegisterTimeoutMs = 5000;
constexpr uint32_t kMaxBlob = tarn_wire::kMaxPayload - 64;

bool send_frame(zel_client* c, uint32_t type, const std::string& payload) {
    std::lock_guard<std::mutex> lock(c->write_mu);
    return tarn_wire::write_frame(c->fd, type, payload);
}

void sdk_thread_main(zel_client* c) {
    pthread_setname_np(pthread_self(), "zel_sdk");
    {
        // zel_register stores the thread handle under this lock; a handler may look at it.
        std::lock_guard<std::mutex> lock(c->state_mu);
    }
    static const uint8_t kEmpty = 0;
    tarn_wire::Frame frame;
    while (tarn_wire::read_frame(c->fd, &frame) == 1) {
        tarn_wire::Reader in(frame.payload);
        uint32_t request = in.u32();
        int32_t result;
        if (frame.type == tarn_wire::kZelCampaignStart) {
            std::string bytes = in.str();
            if (!in.ok()) break;
            const uint8_t* data =
                bytes.empty() ? &kEmpty : reinterpret_cast<const uint8_t*>(bytes.data());
            result = c->collector->start_campaign != nullptr
                         ? c->collector->start_campaign(c->collector, data,
                                                        static_cast<uint32_t>(bytes.size()))
                         : -ENOSYS;
        } else if (frame.type == tarn_wire::kZelCampaignStop) {
            if (!in.ok()) break;
            result = c->collector->stop_campaign != nullptr
                         ? c->collector->stop_campaign(c->collector)
                         : -ENOSYS;
        } else {
            continue;
        }
        send_frame(c, tarn_wire::kZelCampaignResult,
                   tarn_wire::Writer().u32(request).i32(result).data());
    }
    // The service went away, or sent something we cannot read: either way the connection is
    // over, and the service must not wait for answers to campaigns we will never run.
    shutdown(c->fd, SHUT_RDWR);
    bool self_delete;
    {
        std::lock_guard<std::mutex> lock(c->state_mu);
        self_delete = c->delete_on_exit;
    }
    if (self_delete) {
        close(c->fd);
        delete c;
    }
}

}  // namespace

extern "C" zel_hndl_t zel_register(zel_collector* collector) {
    if (collector == nullptr) return nullptr;
    int fd = tarn_wire::connect_unix(tarn_wire::kTelemetrySocket);
    if (fd < 0) return nullptr;
    std::string name = collector->name != nullptr ? collector->name : "";
    std::string dir = collector->data_dir != nullptr ? collector->data_dir : "";
    tarn_wire::Frame reply;
    if (!tarn_wire::write_frame(
            fd, tarn_wire::kZelRegister,
            tarn_wire::Writer().str(name).str(dir).u32(collector->type).u32(collector->mode).data()) ||
        !tarn_wire::wait_readable(fd, kRegisterTimeoutMs) ||
        tarn_wire::read_frame(fd, &reply) != 1 || reply.type != tarn_wire::kZelRegistered) {
        close(fd);
        return nullptr;
    }
    tarn_wire::Reader in(reply.payload);
    if (in.i32() != 0 || !in.ok()) {
        close(fd);
        return nullptr;
    }
    zel_client* c = new zel_client;
    c->fd = fd;
    c->collector = collector;
    {
        std::lock_guard<std::mutex> lock(c->state_mu);
        c->thread = std::thread(sdk_thread_main, c);
    }
    return c;
}

extern "C" int32_t zel_log_blob(zel_hndl_t hndl, uint32_t kpi_id, const uint8_t* data,
                                uint32_t size) {
    if (hndl == nullptr || (data == nullptr && size > 0)) return -EINVAL;
    if (size > kMaxBlob) return -EMSGSIZE;
    if (!send_frame(hndl, tarn_wire::kZelBlob,
                    tarn_wire::Writer().u32(kpi_id).str(data, size).data())) {
        return errno != 0 ? -errno : -EIO;
    }
    return 0;
}

extern "C" int32_t zel_deregister(zel_hndl_t hndl) {
    if (hndl == nullptr) return -EINVAL;
    send_frame(hndl, tarn_wire::kZelDeregister, std::string());
    // Ends the SDK thread: its read sees the end of the connection once any handler returns.
    shutdown(hndl->fd, SHUT_RDWR);
    std::unique_lock<std::mutex> lock(hndl->state_mu);
    if (std::this_thread::get_id() == hndl->thread.get_id()) {
        hndl->delete_on_exit = true;
        hndl->thread.detach();
        return 0;
    }
    lock.unlock();
    hndl->thread.join();
    close(hndl->fd);
    delete hndl;
    return 0;
}
