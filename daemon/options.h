// The daemon's command line: one period per collector, the thermal and stability flags, the debug
// level, the local record file and the start-at-once switch.
#pragma once

#include "interval_cfg.h"

struct CommandLineConfig {
    PowerIntervalCfg power;
    ThermalIntervalCfg thermal;
    StabilityIntervalCfg stability;
    bool startAtOnce;
};

enum class ParseResult {
    Run,    // start the daemon with the parsed configuration
    Usage,  // --help, an unknown option or a missing argument: print the usage and exit 0
};

// Parses argv into `cfg` (every field starts at 0). Sets g_debug_level for --debug/-d and opens
// g_local_file for --local as they come. Stops at the first option that asks for the usage text.
ParseResult parse_command_line(int argc, char* argv[], CommandLineConfig* cfg);

// Writes the usage text to standard error.
void print_usage();
