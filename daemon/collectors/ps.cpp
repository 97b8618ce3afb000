// Process-statistics collector: runs the device's own statistics script once per period and
// reports what it prints, unchanged and without a tag, as one record under the process-statistics
// id. Output that does not fit into the record buffer is not reported at all.
#define TARN_LOG_TAG TAG_POWER

#include <errno.h>
#include <fcntl.h>
#include <paths.h>
#include <signal.h>
#include <spawn.h>
#include <stdio.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include "collectors.h"
#include "kpi_ids.h"
#include "record.h"
#include "tarn_log.h"

#define PS_SCRIPT "/data/local/tmp/ps.sh"
// A longer output line arrives in pieces of at most PS_LINE_LEN - 1 characters.
#define PS_LINE_LEN 256

namespace {

// Starts the script through the system shell with its output on a pipe, as popen does, but with
// SIGPIPE and SIGXFSZ at their default dispositions and no signal blocked: the daemon ignores
// those two so that a failed write to its local file is only an error, and an ignored signal
// would otherwise stay ignored in the script. Returns the read end as a stream, or null with
// errno set.
FILE* start_script(pid_t* pid) {
    int fds[2];
    if (pipe2(fds, O_CLOEXEC) != 0) return nullptr;
    sigset_t defaults, none;
    sigemptyset(&defaults);
    sigaddset(&defaults, SIGPIPE);
    sigaddset(&defaults, SIGXFSZ);
    sigemptyset(&none);
    posix_spawnattr_t attr;
    posix_spawn_file_actions_t actions;
    posix_spawnattr_init(&attr);
    posix_spawnattr_setflags(&attr, POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK);
    posix_spawnattr_setsigdefault(&attr, &defaults);
    posix_spawnattr_setsigmask(&attr, &none);
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, fds[1], STDOUT_FILENO);
    char sh[] = "sh", dash_c[] = "-c", script[] = PS_SCRIPT;
    char* argv[] = {sh, dash_c, script, nullptr};
    int err = posix_spawn(pid, _PATH_BSHELL, &actions, &attr, argv, environ);
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attr);
    close(fds[1]);
    FILE* out = err == 0 ? fdopen(fds[0], "r") : nullptr;
    if (out == nullptr) {
        close(fds[0]);
        if (err == 0) {
            err = errno;
            (void)waitpid(*pid, nullptr, 0);
        }
        errno = err;
    }
    return out;
}

// Closes the script's output and waits for it to end, as pclose does.
void finish_script(FILE* out, pid_t pid) {
    (void)fclose(out);
    while (waitpid(pid, nullptr, 0) < 0 && errno == EINTR) {
    }
}

}  // namespace

int32_t collect_ps_stats_hndl(uint64_t) {
    char buf[RECORD_BUFLEN];
    char line[PS_LINE_LEN];
    record rec(buf, sizeof(buf));
    memset(line, 0, sizeof(line));

    pid_t pid = -1;
    FILE* out = start_script(&pid);
    if (out == nullptr) {
        int err = errno;
        TLOGW("open failed error:%s", strerror(err));
        return -err;
    }

    while (fgets(line, sizeof(line), out) != nullptr) {
        TLOGD("buffer per line:%s", line);
        // Leave room for a whole piece before appending, so an append never runs out of room.
        if (rec.use + PS_LINE_LEN > RECORD_BUFLEN - 1) {
            finish_script(out, pid);
            return -1;
        }
        int ret = rec.append("%s", line);
        if (ret < 0) {
            TLOGD("snprintf failed use:%d", ret);
            finish_script(out, pid);
            return -1;
        }
        TLOGD("ret:%d buflen:%d use:%d", ret, RECORD_BUFLEN, rec.use);
    }

    // The script's exit status says nothing about its output; it is not looked at.
    finish_script(out, pid);
    TLOGD("out_buff: %d %s", rec.use, rec.buf);
    rec.report(kpi::PS);
    return 0;
}
