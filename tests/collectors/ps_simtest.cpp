// Process-statistics record: the script's output, unchanged, or nothing when it does not fit.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "collectors/collectors.h"
#include "common/test_util.h"
#include "core/power_bigdata_core.h"
#include "core/tarn_log.h"

namespace {

const char* const kScript = "/data/local/tmp/ps.sh";

struct Sample {
    int32_t ret = 0;
    bool reported = false;
    std::string record;
};

// Installs a script with `body` (unless it is null) and runs the handler once.
Sample run(const char* body) {
    if (body != nullptr) {
        tarn_test::write_file(kScript, std::string("#!/bin/sh\n") + body);
        chmod(kScript, 0755);
    }
    fflush(g_local_file);
    long before = ftell(g_local_file);
    Sample s;
    s.ret = collect_ps_stats_hndl(0);
    fflush(g_local_file);
    std::string line(8192, '\0');
    fseek(g_local_file, before, SEEK_SET);
    line.resize(fread(&line[0], 1, line.size(), g_local_file));
    std::string prefix = PowerBigDataCore::getInstance()->getAppName() + ",";
    if (line.empty() || line.find(prefix) == std::string::npos) return s;
    s.reported = true;
    s.record = line.substr(line.find(prefix) + prefix.size());
    s.record.pop_back();  // the local file's newline
    return s;
}

// A script printing `n` lines of `width` characters and a line end.
std::string lines(int n, int width) {
    return "i=0; while [ $i -lt " + std::to_string(n) + " ]; do printf '%0" +
           std::to_string(width) + "d\\n' $i; i=$((i+1)); done\n";
}

class PsTest : public ::testing::Test {
  protected:
    static void SetUpTestSuite() {
        g_debug_level = 7;
        PowerBigDataCore::getInstance();
        if (g_local_file == nullptr) g_local_file = tmpfile();
    }
};

TEST_F(PsTest, RecordIsTheOutputUnchanged) {
    Sample s = run("echo 'PID NAME RSS'\necho '1021 system_server 312448'\necho '788 sf 64220'\n");
    EXPECT_EQ(s.ret, 0);
    EXPECT_EQ(s.record, "PID NAME RSS\n1021 system_server 312448\n788 sf 64220\n");

    std::string longline(600, 'q');  // read in three pieces
    EXPECT_EQ(run(("echo a\necho " + longline + "\necho b\n").c_str()).record,
              "a\n" + longline + "\nb\n");

    for (bool missing : {false, true}) {  // no output at all: an empty record
        if (missing) unlink(kScript);
        s = run(missing ? nullptr : "exit 3\n");
        EXPECT_EQ(s.ret, 0);
        EXPECT_TRUE(s.reported);
        EXPECT_EQ(s.record, "");
    }
}

TEST_F(PsTest, OutputTooLongIsNotReported) {
    Sample s = run(lines(30, 127).c_str());  // 3840 characters still fit
    EXPECT_EQ(s.ret, 0);
    EXPECT_EQ(s.record.size(), 3840u);
    for (int n : {31, 2000}) {
        s = run(lines(n, 127).c_str());
        EXPECT_EQ(s.ret, -1);
        EXPECT_FALSE(s.reported);
    }
    EXPECT_EQ(run("echo ok\n").record, "ok\n");
}

}  // namespace
