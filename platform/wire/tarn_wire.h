// Framed messages over Unix stream sockets, shared by the platform stand-ins and tarn_sim.
//
// A frame is a 4-byte little-endian payload length, a 4-byte little-endian message type, then the
// payload. Payloads are built from little-endian integers and length-prefixed byte strings.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <string>

namespace tarn_wire {

// Sockets as seen inside the simulated device.
constexpr const char kTelemetrySocket[] = "/dev/socket/vmk_zel";
// A binder service instance "NAME/INSTANCE" listens at kBinderSocketDir/NAME/INSTANCE.
constexpr const char kBinderSocketDir[] = "/dev/socket/binder";

constexpr uint32_t kMaxPayload = 1u << 20;

enum MsgType : uint32_t {
    // Binder (perf HAL) connection.
    kBinderHello = 1,       // c->s: str instance
    kBinderHelloReply = 2,  // s->c: i32 status, str descriptor
    kBinderCall = 3,        // c->s: u32 call id, u32 method, u64 object id (0: null), i32 client id
    kBinderReply = 4,       // s->c: u32 call id, i32 status, i32 return value
    kBinderHint = 5,      // s->c: u32 hint id, u64 object id, i32 hint, str, i32, i32, u32 n, i32*n
    kBinderHintDone = 6,  // c->s: u32 hint id, i32 status

    // Telemetry SDK connection.
    kZelRegister = 20,        // c->s: str name, str data dir, u32 type, u32 mode
    kZelRegistered = 21,      // s->c: i32 status
    kZelBlob = 22,            // c->s: u32 kpi id, str bytes
    kZelDeregister = 23,      // c->s: (empty)
    kZelCampaignStart = 24,   // s->c: u32 request id, str bytes
    kZelCampaignStop = 25,    // s->c: u32 request id
    kZelCampaignResult = 26,  // c->s: u32 request id, i32 handler result

    // tarn_sim control connection.
    kCtlCampaignStart = 40,  // str bytes
    kCtlCampaignStop = 41,   // (empty)
    kCtlHint = 42,           // i32 hint, str, i32, i32
    kCtlStop = 43,           // (empty)
    kCtlReply = 44,          // u32 ok (1/0), str output, str error
};

enum BinderMethod : uint32_t {
    kPerfCallbackRegister = 1,
    kPerfCallbackDeregister = 2,
};

struct Frame {
    uint32_t type = 0;
    std::string payload;
};

// Writes all of `len` bytes, retrying on EINTR and short writes; never raises SIGPIPE on sockets.
// False with errno set on failure.
bool write_all(int fd, const void* buf, size_t len);
// Reads exactly `len` bytes. 1 on success, 0 on end of file before the first byte, -1 on error or
// on end of file in the middle (errno set; ECONNRESET for a truncated read).
int read_exact(int fd, void* buf, size_t len);

// Sends one frame in a single write. Callers sharing a socket serialise their calls.
bool write_frame(int fd, uint32_t type, const std::string& payload);
// Reads one frame: 1 on success, 0 on a clean close by the peer, -1 on error (errno set; EPROTO
// for an oversized frame).
int read_frame(int fd, Frame* out);
// Waits until `fd` is readable (or closed); false on timeout. A negative timeout waits forever.
bool wait_readable(int fd, int timeout_ms);

// Unix stream sockets, close-on-exec. Paths longer than sun_path are reached through their
// directory. -1 with errno set on failure.
int connect_unix(const std::string& path);
int listen_unix(const std::string& path);

// Payload builder.
class Writer {
  public:
    Writer& u32(uint32_t v);
    Writer& i32(int32_t v) { return u32(static_cast<uint32_t>(v)); }
    Writer& u64(uint64_t v);
    Writer& str(const void* data, size_t len);
    Writer& str(const std::string& s) { return str(s.data(), s.size()); }
    const std::string& data() const { return mBuf; }

  private:
    std::string mBuf;
};

// Payload parser over a string that must outlive it; once a read runs past the end, ok() is
// false and every later read gives 0/"".
class Reader {
  public:
    explicit Reader(const std::string& payload) : mPos(payload.data()), mLeft(payload.size()) {}
    uint32_t u32();
    int32_t i32() { return static_cast<int32_t>(u32()); }
    uint64_t u64();
    std::string str();
    bool ok() const { return mOk; }

  private:
    bool take(void* out, size_t n);
    const char* mPos;
    size_t mLeft;
    bool mOk = true;
};

}  // namespace tarn_wire
