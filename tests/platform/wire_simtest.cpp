// The socket protocol between the stand-ins and tarn_sim: its framing, and the stand-ins facing
// missing or misbehaving services. Runs inside the simulator with its services off, so that the
// tests can listen at the services' sockets themselves.
#include <aidl/vendor/orv/hardware/perf2/BnPerfCallback.h>
#include <aidl/vendor/orv/hardware/perf2/IPerf.h>
#include <android/binder_manager.h>
#include <android/binder_process.h>
#include <errno.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>
#include <vmk_sdk/zel.h>

#include <atomic>
#include <thread>

#include "common/test_util.h"
#include "tarn_wire.h"

namespace {

using namespace tarn_wire;
using aidl::vendor::orv::hardware::perf2::BnPerfCallback;
using aidl::vendor::orv::hardware::perf2::IPerf;

constexpr const char kPerfInstance[] = "vendor.orv.hardware.perf2.IPerf/default";

struct SocketPair {
    SocketPair() { socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, fd); }
    ~SocketPair() {
        close(fd[0]);
        close(fd[1]);
    }
    int fd[2] = {-1, -1};
};

TEST(WireTest, FramesSurviveByteByByteDeliveryAndBrokenOnesFail) {
    SocketPair sp;
    std::string payload = Writer().u32(7).i32(-2).u64(0x1122334455667788ull).str("a\0b", 3).data();
    std::thread writer([&] {
        std::string frame = std::string{static_cast<char>(payload.size()), 0, 0, 0, 9, 0, 0, 0};
        for (char c : frame + payload) write_all(sp.fd[1], &c, 1), std::this_thread::yield();
        write_frame(sp.fd[1], 3, "");
        shutdown(sp.fd[1], SHUT_WR);
    });
    Frame got;
    ASSERT_EQ(1, read_frame(sp.fd[0], &got));
    EXPECT_EQ(9u, got.type);
    Reader in(got.payload);
    EXPECT_EQ(7u, in.u32());
    EXPECT_EQ(-2, in.i32());
    EXPECT_EQ(0x1122334455667788ull, in.u64());
    EXPECT_EQ(std::string("a\0b", 3), in.str());
    EXPECT_TRUE(in.ok());
    EXPECT_EQ("", in.str());  // past the end
    EXPECT_FALSE(in.ok());
    ASSERT_EQ(1, read_frame(sp.fd[0], &got));
    EXPECT_EQ(3u, got.type);
    EXPECT_EQ("", got.payload);
    writer.join();
    EXPECT_EQ(0, read_frame(sp.fd[0], &got));  // a clean close between frames

    const struct {
        std::string bytes;
        int error;
    } cases[] = {{std::string{10, 0, 0, 0, 1, 0, 0, 0, 'x'}, ECONNRESET},  // cut short
                 {std::string("\xff\xff\xff\x7f\x01\0\0\0", 8), EPROTO}};  // oversized
    for (const auto& c : cases) {
        SocketPair broken;
        write_all(broken.fd[1], c.bytes.data(), c.bytes.size());
        shutdown(broken.fd[1], SHUT_WR);
        EXPECT_EQ(-1, read_frame(broken.fd[0], &got));
        EXPECT_EQ(c.error, errno);
    }
    // Writing to a shut connection is an error, not SIGPIPE.
    EXPECT_FALSE(write_frame(sp.fd[1], 1, "payload"));
}

TEST(WireTest, LongSocketPathsWork) {
    std::string dir = "/tmp/" + std::string(60, 'd') + "/" + std::string(60, 'e');
    tarn_test::make_dirs(dir);
    int listener = listen_unix(dir + "/sock");
    ASSERT_GE(listener, 0) << strerror(errno);
    EXPECT_EQ(0, access((dir + "/sock").c_str(), F_OK));
    int client = connect_unix(dir + "/sock");
    EXPECT_GE(client, 0) << strerror(errno);
    EXPECT_EQ(-1, connect_unix(dir + "/missing"));
    close(client), close(listener);
}

// Accepts one connection at `path` on a thread and hands it to `serve`.
class FakeService {
  public:
    template <class Serve>
    FakeService(const std::string& path, Serve serve) : mListener(listen_unix(path)) {
        mThread = std::thread([this, serve] {
            int fd = accept(mListener, nullptr, nullptr);
            if (fd >= 0) serve(fd), close(fd);
        });
    }
    ~FakeService() {
        shutdown(mListener, SHUT_RDWR);  // no client came: stop waiting for one
        mThread.join();
        close(mListener);
    }

  private:
    int mListener;
    std::thread mThread;
};

// Waits for the peer to end the connection: the stand-in gave up on it instead of leaving the
// service waiting.
bool peer_hung_up(int fd) {
    Frame frame;
    while (wait_readable(fd, 30000)) {
        if (read_frame(fd, &frame) != 1) return true;
    }
    return false;
}

TEST(StandInTest, ServicesThatAreNotThereGiveNull) {
    EXPECT_EQ(nullptr, AServiceManager_checkService(kPerfInstance));
    EXPECT_EQ(nullptr, AServiceManager_checkService("../../../tmp/x"));
    zel_collector record = {"c", 1, "/data/x", nullptr, nullptr, 1, {}};
    EXPECT_EQ(nullptr, zel_register(&record));
    uint8_t byte = 0;
    EXPECT_GT(0, zel_log_blob(nullptr, 2, &byte, 1));
    EXPECT_GT(0, zel_deregister(nullptr));
    // No connection at all: the pool has nothing to serve and joining returns at once.
    ABinderProcess_startThreadPool();
    ABinderProcess_joinThreadPool();
}

TEST(StandInTest, SdkDropsAServiceThatSendsAMalformedCampaign) {
    static std::atomic<int> handled{0};
    zel_collector record = {
        "c",     1, "/data/x", [](zel_collector*, const uint8_t*, uint32_t) { return ++handled; },
        nullptr, 1, {}};
    std::atomic<bool> hung_up{false};
    FakeService service(kTelemetrySocket, [&](int fd) {
        Frame frame;
        read_frame(fd, &frame);
        write_frame(fd, kZelRegistered, Writer().i32(0).data());
        // The campaign's byte string claims more bytes than the frame holds.
        write_frame(fd, kZelCampaignStart, Writer().u32(1).u32(100).data());
        hung_up = peer_hung_up(fd);
    });
    zel_hndl_t handle = zel_register(&record);
    ASSERT_NE(nullptr, handle);
    EXPECT_TRUE(tarn_test::wait_until([&] { return hung_up.load(); }));  // before deregistering
    zel_deregister(handle);
    EXPECT_EQ(0, handled.load());
}

TEST(StandInTest, BinderPoolEndsOnAMalformedHint) {
    class Callback : public BnPerfCallback {
        ndk::ScopedAStatus notifyCallback(int32_t, const std::string&, int32_t, int32_t,
                                          const std::vector<int32_t>&) override {
            ADD_FAILURE() << "a malformed hint reached the callback";
            return ndk::ScopedAStatus::ok();
        }
    };
    std::string path = std::string(kBinderSocketDir) + "/" + kPerfInstance;
    tarn_test::make_dirs(path.substr(0, path.rfind('/')));
    FakeService service(path, [](int fd) {
        Frame frame;
        read_frame(fd, &frame);
        write_frame(fd, kBinderHelloReply, Writer().i32(0).str(IPerf::descriptor).data());
        read_frame(fd, &frame);  // the registration call; its hint arrives in place of a reply
        Reader call(frame.payload);
        call.u32(), call.u32();
        uint64_t object = call.u64();
        write_frame(fd, kBinderHint, Writer().u32(1).u64(object).i32(0x1001).u32(1000).data());
        peer_hung_up(fd);
    });
    ndk::SpAIBinder binder(AServiceManager_checkService(kPerfInstance));
    std::shared_ptr<IPerf> perf = IPerf::fromBinder(binder);
    ASSERT_TRUE(perf != nullptr);
    auto callback = ndk::SharedRefBase::make<Callback>();
    int32_t ret = 5;
    EXPECT_FALSE(perf->perfCallbackRegister(callback, 1, &ret).isOk());  // the call fails...
    EXPECT_EQ(5, ret);
    static std::atomic<bool> joined{false};
    std::thread([] { ABinderProcess_joinThreadPool(), joined = true; }).detach();
    EXPECT_TRUE(tarn_test::wait_until([] { return joined.load(); }));  // ...and the pool ends
}

}  // namespace
