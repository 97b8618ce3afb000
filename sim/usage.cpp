#include "usage.h"

#include <stdio.h>

int usage_error(const std::string& msg) {
    if (!msg.empty()) fprintf(stderr, "tarn_sim: %s\n", msg.c_str());
    fputs(
        "usage: tarn_sim run --image DIR [--root DIR] [--records FILE] [--prop KEY=VALUE]...\n"
        "                    [--no-perf-hal] [--no-telemetry] [--animate] [--timestamps]\n"
        "                    [--duration SECONDS] -- COMMAND [ARG...]\n"
        "       tarn_sim campaign start --root DIR (--text TEXT | --file FILE)\n"
        "       tarn_sim campaign stop --root DIR\n"
        "       tarn_sim hint --root DIR CODE USERDATASTR [USERDATA1 [USERDATA2]]\n"
        "       tarn_sim stop --root DIR\n",
        stderr);
    return 2;
}
