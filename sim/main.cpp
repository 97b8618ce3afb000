// tarn_sim: runs a command against a simulated device and serves it the platform's services.
//
//   tarn_sim run --image DIR [--root DIR] [--records FILE] [--prop KEY=VALUE]... [--no-perf-hal]
//                [--no-telemetry] [--animate] [--timestamps] [--duration SECONDS]
//                -- COMMAND [ARG...]
//   tarn_sim campaign start|stop, tarn_sim hint, tarn_sim stop: control of a running simulator.
#include <errno.h>
#include <getopt.h>
#include <limits.h>
#include <poll.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/eventfd.h>
#include <sys/prctl.h>
#include <sys/signalfd.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <string>
#include <vector>

#include "animate.h"
#include "control.h"
#include "records.h"
#include "sandbox.h"
#include "services.h"
#include "tarn_wire.h"
#include "usage.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr auto kStopGrace = std::chrono::seconds(10);
constexpr auto kDrainTimeout = std::chrono::seconds(3);

struct RunOptions {
    std::string image;
    std::string root;
    std::string records;
    std::vector<std::string> props;
    bool perf_hal = true;
    bool telemetry = true;
    bool animate = false;
    bool timestamps = false;
    double duration = 0;
    std::vector<std::string> command;
};

// Parses the options of `tarn_sim run` (argv[0] is "run"). The command starts after "--" or at
// the first argument that is not a long option. Option names are taken whole, never abbreviated.
bool parse_run(int argc, char** argv, RunOptions* opts, std::string* err) {
    enum {
        kImage = 1,
        kRoot,
        kRecords,
        kProp,
        kNoPerfHal,
        kNoTelemetry,
        kAnimate,
        kTimestamps,
        kDuration
    };
    static const option kOptions[] = {
        {"image", required_argument, nullptr, kImage},
        {"root", required_argument, nullptr, kRoot},
        {"records", required_argument, nullptr, kRecords},
        {"prop", required_argument, nullptr, kProp},
        {"no-perf-hal", no_argument, nullptr, kNoPerfHal},
        {"no-telemetry", no_argument, nullptr, kNoTelemetry},
        {"animate", no_argument, nullptr, kAnimate},
        {"timestamps", no_argument, nullptr, kTimestamps},
        {"duration", required_argument, nullptr, kDuration},
        {nullptr, 0, nullptr, 0},
    };
    opterr = 0;
    optind = 1;
    // A single dash word such as -x is no option of ours: the command starts there.
    while (optind < argc &&
           !(argv[optind][0] == '-' && argv[optind][1] != '-' && argv[optind][1] != '\0')) {
        const std::string arg = argv[optind];
        const std::string name = arg.substr(0, arg.find('='));
        int index = -1;
        int c = getopt_long(argc, argv, "+:", kOptions, &index);
        if (c == -1) break;
        if (c != '?' && c != ':' && name != std::string("--") + kOptions[index].name) {
            c = '?';  // an abbreviation
        }
        if (c == '?' || c == ':') {
            const option* known = nullptr;
            for (const option* o = kOptions; o->name != nullptr; ++o) {
                if (name == std::string("--") + o->name) known = o;
            }
            if (known == nullptr) {
                *err = "unknown option " + name;
            } else if (known->has_arg == no_argument) {
                *err = name + " takes no value";
            } else {
                *err = name + " needs a value";
            }
            return false;
        }
        const std::string value = optarg != nullptr ? optarg : "";
        switch (c) {
            case kImage:
                opts->image = value;
                break;
            case kRoot:
                opts->root = value;
                break;
            case kRecords:
                opts->records = value;
                break;
            case kProp: {
                size_t peq = value.find('=');
                if (peq == std::string::npos || peq == 0) {
                    *err = "--prop needs KEY=VALUE, not " + value;
                    return false;
                }
                opts->props.push_back(value);
                break;
            }
            case kNoPerfHal:
                opts->perf_hal = false;
                break;
            case kNoTelemetry:
                opts->telemetry = false;
                break;
            case kAnimate:
                opts->animate = true;
                break;
            case kTimestamps:
                opts->timestamps = true;
                break;
            case kDuration: {
                char* end = nullptr;
                errno = 0;
                opts->duration = strtod(value.c_str(), &end);
                if (errno != 0 || end == value.c_str() || *end != '\0' || !(opts->duration > 0) ||
                    opts->duration > 1e7) {
                    *err = "--duration needs a positive number of seconds, not " + value;
                    return false;
                }
                break;
            }
        }
    }
    for (int i = optind; i < argc; ++i) opts->command.push_back(argv[i]);
    if (opts->image.empty()) {
        *err = "--image DIR is required";
        return false;
    }
    if (opts->command.empty()) {
        *err = "no COMMAND given";
        return false;
    }
    return true;
}

std::string absolute(const std::string& path) {
    char buf[PATH_MAX];
    if (realpath(path.c_str(), buf) != nullptr) return buf;
    return path;
}

// Prepares the root: a fresh copy of the image, the properties file and the socket directories.
bool prepare_root(RunOptions* opts, bool* temporary, std::string* err) {
    struct stat st;
    if (stat(opts->image.c_str(), &st) < 0 || !S_ISDIR(st.st_mode)) {
        *err = "no image directory at " + opts->image;
        return false;
    }
    if (opts->root.empty()) {
        const char* tmp = getenv("TMPDIR");
        std::string templ = std::string(tmp != nullptr && *tmp ? tmp : "/tmp") + "/tarn_sim.XXXXXX";
        std::vector<char> buf(templ.begin(), templ.end());
        buf.push_back('\0');
        if (mkdtemp(buf.data()) == nullptr) {
            *err = "cannot create a temporary root: " + std::string(strerror(errno));
            return false;
        }
        opts->root = buf.data();
        *temporary = true;
    } else {
        if (stat(opts->root.c_str(), &st) == 0 && !is_empty_dir(opts->root)) {
            *err = "the root " + opts->root + " exists and is not an empty directory";
            return false;
        }
        if (!make_dirs(opts->root)) {
            *err = "cannot create the root " + opts->root + ": " + strerror(errno);
            return false;
        }
    }
    opts->root = absolute(opts->root);
    fprintf(stderr, "tarn_sim: root %s\n", opts->root.c_str());
    chmod(opts->root.c_str(), 0755);
    if (!copy_tree(opts->image, opts->root, err)) return false;
    if (!make_dirs(opts->root + kSimDir, 0700) ||
        !make_dirs(opts->root + tarn_wire::kBinderSocketDir + "/" + PerfHal::kDescriptor)) {
        *err = "cannot create the simulator's directories in " + opts->root;
        return false;
    }
    return write_properties(opts->image, opts->root, opts->props, err);
}

int exit_status(int status) {
    if (WIFEXITED(status)) return WEXITSTATUS(status);
    if (WIFSIGNALED(status)) return 128 + WTERMSIG(status);
    return 127;
}

int run_main(int argc, char** argv) {
    RunOptions opts;
    std::string err;
    if (!parse_run(argc, argv, &opts, &err)) return usage_error(err);

    // Signals are taken synchronously by the loop below, and held from here on so that an
    // interrupt while the image is being copied still removes a temporary root. The command gets
    // the old mask back.
    sigset_t mask, old_mask;
    sigemptyset(&mask);
    sigaddset(&mask, SIGINT);
    sigaddset(&mask, SIGTERM);
    sigaddset(&mask, SIGCHLD);
    sigprocmask(SIG_BLOCK, &mask, &old_mask);
    signal(SIGPIPE, SIG_IGN);

    bool temporary = false;
    if (!prepare_root(&opts, &temporary, &err)) {
        fprintf(stderr, "tarn_sim: %s\n", err.c_str());
        if (temporary) remove_tree(opts.root);
        return 2;
    }
    auto cleanup_and_exit = [&](int status) {
        unlink((opts.root + kControlSocket).c_str());
        if (temporary) remove_tree(opts.root);
        fflush(stdout);
        fflush(stderr);
        // Service threads may still be blocked in reads: leave without running destructors.
        _exit(status);
    };

    static RecordsWriter records;
    static Telemetry telemetry(&records);
    static PerfHal perf;
    int stop_fd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    static ControlServer control(opts.perf_hal ? &perf : nullptr,
                                 opts.telemetry ? &telemetry : nullptr, [stop_fd] {
                                     uint64_t one = 1;
                                     ssize_t n = write(stop_fd, &one, sizeof(one));
                                     (void)n;
                                 });
    const std::string sockets = opts.root + "/dev/socket";
    bool ok =
        records.open(opts.records, &err) &&
        (!opts.telemetry || telemetry.listen(opts.root + tarn_wire::kTelemetrySocket, &err)) &&
        (!opts.perf_hal ||
         perf.listen(opts.root + tarn_wire::kBinderSocketDir + "/" + PerfHal::kInstance, &err)) &&
        control.listen(opts.root + kControlSocket, &err);
    if (!ok || stop_fd < 0) {
        fprintf(stderr, "tarn_sim: %s\n", err.c_str());
        cleanup_and_exit(2);
    }

    int sig_fd = signalfd(-1, &mask, SFD_CLOEXEC | SFD_NONBLOCK);

    SandboxConfig sandbox;
    sandbox.root = opts.root;
    sandbox.command = opts.command;
    std::string checkout = find_checkout();
    std::string bin_dir = self_dir();
    if (!checkout.empty()) sandbox.host_dirs.push_back(checkout);
    if (!bin_dir.empty() &&
        (checkout.empty() || bin_dir.compare(0, checkout.size() + 1, checkout + "/") != 0)) {
        sandbox.host_dirs.push_back(bin_dir);
    }
    char cwd[PATH_MAX];
    if (getcwd(cwd, sizeof(cwd)) != nullptr) sandbox.cwd = cwd;

    if (opts.timestamps) records.start_timestamps();

    // Fork before any thread exists, so the child may allocate freely while it sets up.
    pid_t parent = getpid();
    pid_t child = fork();
    if (child < 0) {
        fprintf(stderr, "tarn_sim: cannot fork: %s\n", strerror(errno));
        cleanup_and_exit(127);
    }
    if (child == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);  // the command never outlives the simulator
        if (getppid() != parent) _exit(127);
        signal(SIGPIPE, SIG_DFL);
        sigprocmask(SIG_SETMASK, &old_mask, nullptr);
        // Its own process group: a terminal's Ctrl-C reaches tarn_sim, which stops the command
        // the gentle way.
        setpgid(0, 0);
        exec_in_sandbox(sandbox);
    }
    setpgid(child, child);  // also here, so that a kill of the group cannot come too early

    // Killing takes the whole process group: a command that started helpers of its own must
    // not leave them running (and holding our caller's pipes) after we exit.
    auto kill_command = [child] {
        if (kill(-child, SIGKILL) < 0) kill(child, SIGKILL);
    };

    if (opts.telemetry) telemetry.serve();
    if (opts.perf_hal) perf.serve();
    control.serve();

    const auto start = Clock::now();
    auto next_tick = start + std::chrono::seconds(1);
    unsigned tick = 0;
    bool have_deadline = opts.duration > 0;
    auto deadline = start + std::chrono::duration_cast<Clock::duration>(
                                std::chrono::duration<double>(opts.duration));
    bool stopping = false, killed = false;
    Clock::time_point kill_at;
    int status = -1;

    auto begin_stop = [&](const char* why) {
        if (stopping) {
            if (!killed) {  // asked twice: no more waiting
                kill_command();
                killed = true;
            }
            return;
        }
        fprintf(stderr, "tarn_sim: stopping (%s)\n", why);
        stopping = true;
        kill_at = Clock::now() + kStopGrace;
        perf.close_connections();
    };

    while (status < 0) {
        auto now = Clock::now();
        Clock::time_point wake = now + std::chrono::seconds(60);
        if (opts.animate && !stopping) wake = std::min(wake, next_tick);
        if (have_deadline && !stopping) wake = std::min(wake, deadline);
        if (stopping && !killed) wake = std::min(wake, kill_at);
        auto wait_ms = std::chrono::duration_cast<std::chrono::milliseconds>(wake - now).count();
        pollfd fds[2] = {{sig_fd, POLLIN, 0}, {stop_fd, POLLIN, 0}};
        poll(fds, 2, static_cast<int>(std::max<long long>(0, wait_ms) + 1));

        signalfd_siginfo si;
        while (read(sig_fd, &si, sizeof(si)) == static_cast<ssize_t>(sizeof(si))) {
            if (si.ssi_signo == SIGINT) begin_stop("SIGINT");
            if (si.ssi_signo == SIGTERM) begin_stop("SIGTERM");
        }
        uint64_t requests;
        if (read(stop_fd, &requests, sizeof(requests)) == sizeof(requests)) begin_stop("stop");

        int wstatus;
        pid_t r = waitpid(child, &wstatus, WNOHANG);
        if (r == child) {
            status = exit_status(wstatus);
            break;
        }

        now = Clock::now();
        if (have_deadline && !stopping && now >= deadline) begin_stop("duration");
        if (stopping && !killed && now >= kill_at) {
            fprintf(stderr, "tarn_sim: the command did not end within %lld s, killing it\n",
                    static_cast<long long>(kStopGrace.count()));
            kill_command();
            killed = true;
        }
        if (opts.animate && !stopping && now >= next_tick) {
            ++tick;
            animate_power(opts.root, tick);
            animate_lpm(opts.root, tick);
            animate_thermal(opts.root, tick);
            next_tick += std::chrono::seconds(1);
            if (next_tick < now) next_tick = now + std::chrono::seconds(1);
        }
    }

    telemetry.drain(kDrainTimeout);
    cleanup_and_exit(status);
    return status;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) return usage_error("");
    std::string command = argv[1];
    if (command == "run") return run_main(argc - 1, argv + 1);
    if (command == "campaign" || command == "hint" || command == "stop") {
        return control_main(command, argc - 2, argv + 2);
    }
    if (command == "-h" || command == "--help" || command == "help") {
        usage_error("");
        return 0;
    }
    return usage_error("unknown command " + command);
}
