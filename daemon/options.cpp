#define TARN_LOG_TAG TAG_MAIN

#include "options.h"

#include <errno.h>
#include <fcntl.h>
#include <getopt.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "kpi_ids.h"
#include "tarn_log.h"
#include "zel_helper.h"

namespace {

enum Option {
    OPT_CPU = 1,
    OPT_GPU,
    OPT_BAT,
    OPT_DDR,
    OPT_STAB,
    OPT_THERM,
    OPT_LPM,
    OPT_PS,
    OPT_BRI,
    OPT_FPS,
    OPT_DAEMON,
    OPT_LOCAL,
    OPT_DEBUG = 'd',
    OPT_HELP = 'h',
};

const struct option kLongOptions[] = {
    {"cpu", required_argument, nullptr, OPT_CPU},
    {"gpu", required_argument, nullptr, OPT_GPU},
    {"bat", required_argument, nullptr, OPT_BAT},
    {"ddr", required_argument, nullptr, OPT_DDR},
    {"stab", required_argument, nullptr, OPT_STAB},
    {"therm", required_argument, nullptr, OPT_THERM},
    {"lpm", required_argument, nullptr, OPT_LPM},
    {"ps", required_argument, nullptr, OPT_PS},
    {"bri", required_argument, nullptr, OPT_BRI},
    {"fps", required_argument, nullptr, OPT_FPS},
    {"daemon", no_argument, nullptr, OPT_DAEMON},
    {"local", required_argument, nullptr, OPT_LOCAL},
    {"debug", required_argument, nullptr, OPT_DEBUG},
    {"help", no_argument, nullptr, OPT_HELP},
    {nullptr, 0, nullptr, 0},
};

// Opens `path` for appending, created if missing, as a stream (the lines are written to its
// descriptor, see the upload helper). The open itself never waits: a FIFO without a reader fails
// at once (ENXIO) instead of holding up start-up. Blocking writes are restored once the file is
// open. The offset starts at the end of the file, where the size check of the first line looks.
FILE* open_for_append(const char* path) {
    int fd = open(path, O_WRONLY | O_APPEND | O_CREAT | O_NONBLOCK | O_NOCTTY | O_CLOEXEC, 0666);
    if (fd < 0) return nullptr;
    (void)lseek(fd, 0, SEEK_END);
    int flags = fcntl(fd, F_GETFL);
    FILE* fp = nullptr;
    if (flags >= 0 && fcntl(fd, F_SETFL, flags & ~O_NONBLOCK) == 0) fp = fdopen(fd, "a");
    if (fp == nullptr) {
        int err = errno;
        close(fd);
        errno = err;
    }
    return fp;
}

// Each --local replaces the file of an earlier one, also when its own open fails: the last one
// given decides. Nothing has been written to an earlier file yet.
void open_local_file(const char* path) {
    if (g_local_file != nullptr) (void)fclose(g_local_file);
    g_local_file = open_for_append(path);
    if (g_local_file == nullptr) {
        int err = errno;
        TLOGE_FN("main", "open[%s] failed errno:%d [%s]", path, err, strerror(err));
    }
}

}  // namespace

ParseResult parse_command_line(int argc, char* argv[], CommandLineConfig* cfg) {
    memset(cfg, 0, sizeof(*cfg));
    // The usage text is the only thing the daemon writes to standard error: keep getopt quiet.
    opterr = 0;
    // Start from a fresh parser state (0 makes getopt re-initialise itself).
    optind = 0;

    int opt;
    while ((opt = getopt_long(argc, argv, "d:h", kLongOptions, nullptr)) != -1) {
        switch (opt) {
            case OPT_CPU:
                cfg->power.tcpu = atoi(optarg);
                break;
            case OPT_GPU:
                cfg->power.tgpu = atoi(optarg);
                break;
            case OPT_BAT:
                cfg->power.tbat = atoi(optarg);
                break;
            case OPT_DDR:
                cfg->power.tddr = atoi(optarg);
                break;
            case OPT_STAB:
                cfg->stability.tstab = atoi(optarg);
                cfg->stability.enable_flag = STABILITY_FLAG_CMDLINE;
                break;
            case OPT_THERM:
                cfg->thermal.ttherm = atoi(optarg);
                cfg->thermal.enable_flag = THERMAL_FLAG_CMDLINE;
                break;
            case OPT_LPM:
                cfg->power.tlpm = atoi(optarg);
                break;
            case OPT_PS:
                cfg->power.tps = atoi(optarg);
                break;
            case OPT_BRI:
                cfg->power.tbri = atoi(optarg);
                break;
            case OPT_FPS:
                cfg->power.tfps = atoi(optarg);
                break;
            case OPT_DAEMON:
                cfg->startAtOnce = true;
                break;
            case OPT_LOCAL:
                open_local_file(optarg);
                break;
            case OPT_DEBUG:
                g_debug_level = atoi(optarg);
                break;
            default:
                return ParseResult::Usage;
        }
    }
    return ParseResult::Run;
}

void print_usage() {
    static const char kUsage[] =
        "tarn_stats : " TARN_STATS_VERSION
        "\n"
        "Usage: sample system data at background like CPU/GPU/DDR/Thermal/Stability and so on\n"
        "\t tarn_stats <opts> \n"
        "\t -- cpu X   -- sample gpu info with X period\n"
        "\t -- bat X   -- sample bat info with X period\n"
        "\t -- ddr X   -- sample ddr info with X period\n"
        "\t -- stab X  -- sample stab info with X period\n"
        "\t -- therm X -- sample therm info with X period\n"
        "\t -- lpm X   -- sample lpm info with X period\n"
        "\t -- ps X    -- sample ps info with X period\n"
        "\t -- bri X   -- sample bri info with X period\n"
        "\t -- fps X   -- sample fps info with X period\n"
        "\t -- daemon  -- start sample without remote enable\n"
        "\t -- local   -- save the data to local file path, reset file when bigger than 4GB\n"
        "\t -- debug or -d  -- set debug level error:3, warnning:4, info:6, debug:7 \n"
        "\t                 -- setprop rw.debug.tarn.stats.enabled X to cover debug level when X "
        "not 0\n"
        "\t -- help or -h   -- show this help info\n";
    // Nothing is left to do when standard error is closed.
    (void)fputs(kUsage, stderr);
}
