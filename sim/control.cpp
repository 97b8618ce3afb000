#include "control.h"

#include <ctype.h>
#include <errno.h>
#include <fcntl.h>
#include <google/protobuf/io/tokenizer.h>
#include <google/protobuf/text_format.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <vector>

#include "sandbox.h"
#include "tarn_stats.pb.h"
#include "tarn_wire.h"
#include "usage.h"

namespace {

// How long a command waits for the command under simulation to register with a service.
constexpr auto kRegistrationWait = std::chrono::seconds(30);

void reply(int fd, bool ok, const std::string& out, const std::string& err) {
    tarn_wire::write_frame(fd, tarn_wire::kCtlReply,
                           tarn_wire::Writer().u32(ok ? 1 : 0).str(out).str(err).data());
}

// A signed 32-bit value in decimal (optional sign) or 0x hexadecimal (up to 0xFFFFFFFF).
bool parse_int32(const std::string& text, int32_t* out) {
    if (text.empty()) return false;
    errno = 0;
    char* end = nullptr;
    if (text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) {
        unsigned long long v = strtoull(text.c_str() + 2, &end, 16);
        if (errno != 0 || *end != '\0' || v > 0xFFFFFFFFull || !isxdigit(text[2])) return false;
        *out = static_cast<int32_t>(static_cast<uint32_t>(v));
        return true;
    }
    long long v = strtoll(text.c_str(), &end, 10);
    if (errno != 0 || *end != '\0' || v < INT32_MIN || v > UINT32_MAX) return false;
    *out = static_cast<int32_t>(static_cast<uint32_t>(v));
    return true;
}

class TextErrors : public google::protobuf::io::ErrorCollector {
  public:
    void AddError(int line, google::protobuf::io::ColumnNumber column,
                  const std::string& message) override {
        if (first.empty()) {
            first = "line " + std::to_string(line + 1) + " column " + std::to_string(column + 1) +
                    ": " + message;
        }
    }
    std::string first;
};

bool campaign_from_text(const std::string& text, std::string* bytes, std::string* err) {
    BigDataCampaignConfig config;
    TextErrors errors;
    google::protobuf::TextFormat::Parser parser;
    parser.RecordErrorsTo(&errors);
    if (!parser.ParseFromString(text, &config)) {
        *err = "bad campaign text: " + (errors.first.empty() ? "cannot parse" : errors.first);
        return false;
    }
    return config.SerializeToString(bytes);
}

// The campaign bytes of FILE. Reads at most one byte more than a campaign may hold, so that a
// device or a pipe that never ends is refused instead of read forever.
bool read_whole_file(const std::string& path, std::string* bytes, std::string* err) {
    const size_t limit = tarn_wire::kMaxPayload - 64;
    int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        *err = "cannot read " + path + ": " + strerror(errno);
        return false;
    }
    bytes->clear();
    char buf[65536];
    ssize_t n = 0;
    while (bytes->size() <= limit && (n = read(fd, buf, sizeof(buf))) != 0) {
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) break;
        bytes->append(buf, static_cast<size_t>(n));
    }
    int read_errno = errno;
    close(fd);
    if (n < 0) {
        *err = "cannot read " + path + ": " + strerror(read_errno);
        return false;
    }
    if (bytes->size() > limit) {
        *err = path + " is too large for a campaign";
        return false;
    }
    return true;
}

// Sends one request to the simulator at `root` and prints its answer.
int send_request(const std::string& root, uint32_t type, const std::string& payload) {
    std::string path = root + kControlSocket;
    int fd = tarn_wire::connect_unix(path);
    if (fd < 0) {
        fprintf(stderr, "tarn_sim: no simulator is running at %s (%s)\n", root.c_str(),
                strerror(errno));
        return 1;
    }
    tarn_wire::Frame frame;
    if (!tarn_wire::write_frame(fd, type, payload) || tarn_wire::read_frame(fd, &frame) != 1 ||
        frame.type != tarn_wire::kCtlReply) {
        fprintf(stderr, "tarn_sim: the simulator at %s closed the connection\n", root.c_str());
        close(fd);
        return 1;
    }
    close(fd);
    tarn_wire::Reader in(frame.payload);
    uint32_t ok = in.u32();
    std::string out = in.str();
    std::string err = in.str();
    fwrite(out.data(), 1, out.size(), stdout);
    fflush(stdout);
    if (!in.ok() || ok != 1) {
        fprintf(stderr, "tarn_sim: %s\n", in.ok() ? err.c_str() : "malformed answer");
        return 1;
    }
    return 0;
}

}  // namespace

void ControlServer::serve_connection(int fd) {
    tarn_wire::Frame frame;
    if (tarn_wire::read_frame(fd, &frame) == 1) {
        std::string out, err;
        bool ok = handle(frame.type, frame.payload, &out, &err);
        reply(fd, ok, out, err);
    }
    close(fd);
}

bool ControlServer::handle(uint32_t type, const std::string& payload, std::string* out,
                           std::string* err) {
    tarn_wire::Reader in(payload);
    switch (type) {
        case tarn_wire::kCtlCampaignStart:
        case tarn_wire::kCtlCampaignStop: {
            if (mTelemetry == nullptr) {
                *err = "the telemetry service is off (--no-telemetry)";
                return false;
            }
            std::vector<int32_t> results;
            bool ok;
            if (type == tarn_wire::kCtlCampaignStart) {
                std::string bytes = in.str();
                if (!in.ok()) {
                    *err = "malformed request";
                    return false;
                }
                ok = mTelemetry->campaign_start(bytes, kRegistrationWait, &results, err);
                for (int32_t r : results) *out += std::to_string(r) + "\n";
            } else {
                ok = mTelemetry->campaign_stop(kRegistrationWait, &results, err);
            }
            return ok;
        }
        case tarn_wire::kCtlHint: {
            if (mPerf == nullptr) {
                *err = "the perf HAL is off (--no-perf-hal)";
                return false;
            }
            int32_t code = in.i32();
            std::string str = in.str();
            int32_t data1 = in.i32();
            int32_t data2 = in.i32();
            if (!in.ok()) {
                *err = "malformed request";
                return false;
            }
            return mPerf->hint(code, str, data1, data2, kRegistrationWait, err) > 0;
        }
        case tarn_wire::kCtlStop:
            mStop();
            return true;
        default:
            *err = "unknown request";
            return false;
    }
}

int control_main(const std::string& command, int argc, char** argv) {
    std::string root, text, file;
    bool have_text = false, have_file = false;
    std::vector<std::string> words;
    for (int i = 0; i < argc; ++i) {
        std::string arg = argv[i];
        auto value = [&](const char* name, std::string* dst) {
            std::string prefix = std::string(name) + "=";
            if (arg.compare(0, prefix.size(), prefix) == 0) {
                *dst = arg.substr(prefix.size());
                return true;
            }
            if (arg == name && i + 1 < argc) {
                *dst = argv[++i];
                return true;
            }
            return false;
        };
        if (arg == "--") {
            for (++i; i < argc; ++i) words.push_back(argv[i]);
        } else if (value("--root", &root)) {
        } else if (command == "campaign" && value("--text", &text)) {
            have_text = true;
        } else if (command == "campaign" && value("--file", &file)) {
            have_file = true;
        } else if (arg.size() > 2 && arg.compare(0, 2, "--") == 0) {
            return usage_error("unknown option or missing value: " + arg);
        } else {
            words.push_back(arg);
        }
    }
    if (root.empty()) return usage_error("--root DIR is required");

    if (command == "stop") {
        if (!words.empty()) return usage_error("unexpected argument: " + words[0]);
        return send_request(root, tarn_wire::kCtlStop, std::string());
    }
    if (command == "hint") {
        if (words.size() < 2 || words.size() > 4) {
            return usage_error("hint needs CODE USERDATASTR [USERDATA1 [USERDATA2]]");
        }
        int32_t values[3] = {0, 0, 0};
        const size_t numbers[3] = {0, 2, 3};
        for (size_t k = 0; k < 3; ++k) {
            size_t idx = numbers[k];
            if (idx < words.size() && !parse_int32(words[idx], &values[k])) {
                return usage_error("not a 32-bit number: " + words[idx]);
            }
        }
        return send_request(
            root, tarn_wire::kCtlHint,
            tarn_wire::Writer().i32(values[0]).str(words[1]).i32(values[1]).i32(values[2]).data());
    }
    // campaign start | stop
    if (words.size() != 1 || (words[0] != "start" && words[0] != "stop")) {
        return usage_error("campaign needs start or stop");
    }
    if (words[0] == "stop") {
        if (have_text || have_file) return usage_error("campaign stop takes no campaign");
        return send_request(root, tarn_wire::kCtlCampaignStop, std::string());
    }
    if (have_text == have_file) return usage_error("campaign start needs --text or --file");
    std::string bytes, err;
    if (have_text ? !campaign_from_text(text, &bytes, &err) : !read_whole_file(file, &bytes, &err)) {
        fprintf(stderr, "tarn_sim: %s\n", err.c_str());
        return 1;
    }
    return send_request(root, tarn_wire::kCtlCampaignStart, tarn_wire::Writer().str(bytes).data());
}
