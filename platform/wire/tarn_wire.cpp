#include "tarn_wire.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <stdio.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace tarn_wire {
namespace {

void put_le32(unsigned char* p, uint32_t v) {
    for (int i = 0; i < 4; ++i) p[i] = static_cast<unsigned char>(v >> (8 * i));
}

uint32_t get_le32(const unsigned char* p) {
    uint32_t v = 0;
    for (int i = 0; i < 4; ++i) v |= static_cast<uint32_t>(p[i]) << (8 * i);
    return v;
}

// Fills `addr` for `path`. A path too long for sun_path is reached through an O_PATH descriptor
// of its directory (/proc/self/fd/N/name), which the caller closes after bind/connect.
bool make_addr(const std::string& path, sockaddr_un* addr, int* dirfd) {
    *dirfd = -1;
    memset(addr, 0, sizeof(*addr));
    addr->sun_family = AF_UNIX;
    if (path.size() < sizeof(addr->sun_path)) {
        memcpy(addr->sun_path, path.c_str(), path.size() + 1);
        return true;
    }
    size_t slash = path.rfind('/');
    if (slash == std::string::npos) {
        errno = ENAMETOOLONG;
        return false;
    }
    std::string dir = slash == 0 ? "/" : path.substr(0, slash);
    std::string base = path.substr(slash + 1);
    *dirfd = open(dir.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
    if (*dirfd < 0) return false;
    int n = snprintf(addr->sun_path, sizeof(addr->sun_path), "/proc/self/fd/%d/%s", *dirfd,
                     base.c_str());
    if (n < 0 || static_cast<size_t>(n) >= sizeof(addr->sun_path)) {
        close(*dirfd);
        *dirfd = -1;
        errno = ENAMETOOLONG;
        return false;
    }
    return true;
}

// Closes `fd` without disturbing errno, so the caller still reports the first failure.
void close_keeping_errno(int fd) {
    int saved = errno;
    close(fd);
    errno = saved;
}

// A Unix stream socket for `path`, handed with its address to `use` (connect or bind). The socket
// is closed when `use` fails; the directory descriptor of a long path is closed either way.
template <typename Use>
int open_unix(const std::string& path, Use use) {
    sockaddr_un addr;
    int dirfd;
    if (!make_addr(path, &addr, &dirfd)) return -1;
    int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd >= 0 && !use(fd, addr)) {
        close_keeping_errno(fd);
        fd = -1;
    }
    if (dirfd >= 0) close_keeping_errno(dirfd);
    return fd;
}

}  // namespace

bool write_all(int fd, const void* buf, size_t len) {
    const char* p = static_cast<const char*>(buf);
    bool socket = true;
    while (len > 0) {
        ssize_t n = socket ? send(fd, p, len, MSG_NOSIGNAL) : write(fd, p, len);
        if (n < 0 && socket && errno == ENOTSOCK) {
            socket = false;
            continue;
        }
        if (n < 0) {
            if (errno == EINTR) continue;
            return false;
        }
        p += n;
        len -= static_cast<size_t>(n);
    }
    return true;
}

int read_exact(int fd, void* buf, size_t len) {
    char* p = static_cast<char*>(buf);
    size_t got = 0;
    while (got < len) {
        ssize_t n = read(fd, p + got, len - got);
        if (n < 0) {
            if (errno == EINTR) continue;
            return -1;
        }
        if (n == 0) {
            if (got == 0) return 0;
            errno = ECONNRESET;
            return -1;
        }
        got += static_cast<size_t>(n);
    }
    return 1;
}

bool write_frame(int fd, uint32_t type, const std::string& payload) {
    if (payload.size() > kMaxPayload) {
        errno = EMSGSIZE;
        return false;
    }
    std::string frame(8, '\0');
    put_le32(reinterpret_cast<unsigned char*>(&frame[0]), static_cast<uint32_t>(payload.size()));
    put_le32(reinterpret_cast<unsigned char*>(&frame[4]), type);
    frame += payload;
    return write_all(fd, frame.data(), frame.size());
}

int read_frame(int fd, Frame* out) {
    unsigned char header[8];
    int r = read_exact(fd, header, sizeof(header));
    if (r <= 0) return r;
    uint32_t len = get_le32(header);
    if (len > kMaxPayload) {
        errno = EPROTO;
        return -1;
    }
    out->type = get_le32(header + 4);
    out->payload.resize(len);
    if (len > 0 && read_exact(fd, &out->payload[0], len) != 1) {
        if (errno == 0) errno = ECONNRESET;
        return -1;
    }
    return 1;
}

bool wait_readable(int fd, int timeout_ms) {
    pollfd pfd{fd, POLLIN, 0};
    for (;;) {
        int r = poll(&pfd, 1, timeout_ms);
        if (r < 0 && errno == EINTR) continue;
        return r > 0;
    }
}

int connect_unix(const std::string& path) {
    return open_unix(path, [](int fd, const sockaddr_un& addr) {
        int r;
        do {
            r = connect(fd, reinterpret_cast<const sockaddr*>(&addr), sizeof(addr));
        } while (r < 0 && errno == EINTR);
        return r == 0;
    });
}

int listen_unix(const std::string& path) {
    return open_unix(path, [](int fd, const sockaddr_un& addr) {
        unlink(addr.sun_path);
        return bind(fd, reinterpret_cast<const sockaddr*>(&addr), sizeof(addr)) == 0 &&
               listen(fd, 16) == 0;
    });
}

Writer& Writer::u32(uint32_t v) {
    unsigned char b[4];
    put_le32(b, v);
    mBuf.append(reinterpret_cast<const char*>(b), 4);
    return *this;
}

Writer& Writer::u64(uint64_t v) {
    u32(static_cast<uint32_t>(v));
    return u32(static_cast<uint32_t>(v >> 32));
}

Writer& Writer::str(const void* data, size_t len) {
    u32(static_cast<uint32_t>(len));
    if (len > 0) mBuf.append(static_cast<const char*>(data), len);
    return *this;
}

bool Reader::take(void* out, size_t n) {
    if (!mOk || mLeft < n) {
        mOk = false;
        return false;
    }
    memcpy(out, mPos, n);
    mPos += n;
    mLeft -= n;
    return true;
}

uint32_t Reader::u32() {
    unsigned char b[4];
    return take(b, 4) ? get_le32(b) : 0;
}

uint64_t Reader::u64() {
    uint64_t lo = u32();
    uint64_t hi = u32();
    return lo | (hi << 32);
}

std::string Reader::str() {
    uint32_t len = u32();
    if (!mOk || mLeft < len) {
        mOk = false;
        return std::string();
    }
    std::string s(mPos, len);
    mPos += len;
    mLeft -= len;
    return s;
}

}  // namespace tarn_wire
