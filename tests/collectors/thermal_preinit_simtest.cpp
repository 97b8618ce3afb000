// The thermal handler called before the collector's init has run. The sampling core runs that
// init when it is first built, so each case runs in a child forked before this process ever
// touches the core; the child's first upload builds it.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include "collectors/thermal_fixture.h"

namespace {

// Records uploaded by a fresh child process that calls the handler once with `flag`.
std::vector<std::string> records_before_init(uint64_t flag) {
    fflush(nullptr);
    FILE* out = tmpfile();
    pid_t pid = fork();
    if (pid == 0) {
        std::vector<std::string> recs = thermal_test::records_of(flag, "com.android.launcher3");
        for (const std::string& r : recs) fprintf(out, "%s\n", r.c_str());
        fflush(out);
        _exit(0);
    }
    int status = -1;
    waitpid(pid, &status, 0);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;

    std::vector<std::string> recs;
    rewind(out);
    char line[8192];
    while (fgets(line, sizeof(line), out) != nullptr) {
        std::string s(line);
        s.pop_back();
        recs.push_back(s);
    }
    fclose(out);
    return recs;
}

TEST(ThermalBeforeInit, RecordsHoldNoGroups) {
    // A tree whose nodes would all be reported once init has run.
    thermal_test::write_tree({{"cpuss-0", 45000}, {"quiet-therm", 31000}}, {{"cpufreq-cpu0", 4}});
    thermal_test::write_side_nodes();

    EXPECT_EQ(std::vector<std::string>{""}, records_before_init(0x2));
    EXPECT_EQ(std::vector<std::string>{"skin-temp: 0,current:-1234,"}, records_before_init(0x1));
    EXPECT_EQ(
        std::vector<std::string>{"CPU0_freq:1804800,CPU7_freq:2995200,GPU(MHz):587,DDR(MHz):2092,"},
        records_before_init(0x4));
}

}  // namespace
