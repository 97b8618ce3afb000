// Framing of the socket protocol between the stand-ins and tarn_sim.
#include <errno.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <thread>

#include "tarn_wire.h"

namespace {

struct SocketPair {
    SocketPair() { socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, fd); }
    ~SocketPair() {
        for (int f : fd) {
            if (f >= 0) close(f);
        }
    }
    void close_writer() {
        close(fd[1]);
        fd[1] = -1;
    }
    int fd[2] = {-1, -1};
};

TEST(WireTest, FramesSurviveByteByByteDelivery) {
    SocketPair sp;
    std::string payload = tarn_wire::Writer()
                              .u32(7)
                              .i32(-2)
                              .u64(0x1122334455667788ull)
                              .str(std::string("a\0b", 3))
                              .str("")
                              .data();
    std::string frame(8, '\0');
    frame[0] = static_cast<char>(payload.size());
    frame[4] = 9;
    frame += payload;
    std::thread writer([&] {
        for (char c : frame) {
            ASSERT_TRUE(tarn_wire::write_all(sp.fd[1], &c, 1));
            std::this_thread::yield();
        }
        ASSERT_TRUE(tarn_wire::write_frame(sp.fd[1], 3, std::string()));
        sp.close_writer();
    });
    tarn_wire::Frame got;
    ASSERT_EQ(1, tarn_wire::read_frame(sp.fd[0], &got));
    EXPECT_EQ(9u, got.type);
    tarn_wire::Reader in(got.payload);
    EXPECT_EQ(7u, in.u32());
    EXPECT_EQ(-2, in.i32());
    EXPECT_EQ(0x1122334455667788ull, in.u64());
    EXPECT_EQ(std::string("a\0b", 3), in.str());
    EXPECT_EQ("", in.str());
    EXPECT_TRUE(in.ok());
    in.u32();  // past the end
    EXPECT_FALSE(in.ok());
    ASSERT_EQ(1, tarn_wire::read_frame(sp.fd[0], &got));
    EXPECT_EQ(3u, got.type);
    EXPECT_EQ("", got.payload);
    writer.join();
    EXPECT_EQ(0, tarn_wire::read_frame(sp.fd[0], &got));  // clean close between frames
}

TEST(WireTest, TruncatedAndOversizedFramesFail) {
    {
        SocketPair sp;
        const char partial[] = {10, 0, 0, 0, 1, 0, 0, 0, 'x'};
        ASSERT_TRUE(tarn_wire::write_all(sp.fd[1], partial, sizeof(partial)));
        sp.close_writer();
        tarn_wire::Frame got;
        EXPECT_EQ(-1, tarn_wire::read_frame(sp.fd[0], &got));
    }
    {
        SocketPair sp;
        const unsigned char huge[] = {0xff, 0xff, 0xff, 0x7f, 1, 0, 0, 0};
        ASSERT_TRUE(tarn_wire::write_all(sp.fd[1], huge, sizeof(huge)));
        tarn_wire::Frame got;
        EXPECT_EQ(-1, tarn_wire::read_frame(sp.fd[0], &got));
        EXPECT_EQ(EPROTO, errno);
    }
    {
        // A string whose length runs past the payload.
        std::string payload = tarn_wire::Writer().u32(100).data();
        tarn_wire::Reader in(payload);
        EXPECT_EQ("", in.str());
        EXPECT_FALSE(in.ok());
    }
    {
        // Writing to a closed peer reports an error instead of raising SIGPIPE.
        SocketPair sp;
        close(sp.fd[0]);
        sp.fd[0] = -1;
        EXPECT_FALSE(tarn_wire::write_frame(sp.fd[1], 1, "payload"));
    }
}

TEST(WireTest, LongSocketPathsWork) {
    char tmpl[] = "/tmp/tarn_wire_XXXXXX";
    ASSERT_NE(nullptr, mkdtemp(tmpl));
    std::string dir = std::string(tmpl) + "/" + std::string(60, 'd') + "/" + std::string(60, 'e');
    ASSERT_EQ(0, system(("mkdir -p " + dir).c_str()));
    std::string path = dir + "/sock";
    int listener = tarn_wire::listen_unix(path);
    ASSERT_GE(listener, 0) << strerror(errno);
    int client = tarn_wire::connect_unix(path);
    ASSERT_GE(client, 0) << strerror(errno);
    int server = accept(listener, nullptr, nullptr);
    ASSERT_TRUE(tarn_wire::write_frame(client, 5, "hi"));
    tarn_wire::Frame got;
    ASSERT_EQ(1, tarn_wire::read_frame(server, &got));
    EXPECT_EQ("hi", got.payload);
    close(server);
    close(client);
    close(listener);
    EXPECT_EQ(-1, tarn_wire::connect_unix(std::string(tmpl) + "/missing"));
    ASSERT_EQ(0, system(("rm -rf " + std::string(tmpl)).c_str()));
}

}  // namespace
