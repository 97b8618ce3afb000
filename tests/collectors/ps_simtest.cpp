// Process-statistics record: the script's output, unchanged, or nothing when it does not fit.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "power_fixture.h"

namespace {

const char* const kScript = "/data/local/tmp/ps.sh";

struct Output {
    int32_t ret;
    bool reported;
    std::string record;
};

// Installs a script with `body` (none when it is null) and runs the handler once.
Output run(const char* body) {
    unlink(kScript);
    if (body != nullptr) {
        tarn_test::write_file(kScript, std::string("#!/bin/sh\n") + body);
        chmod(kScript, 0755);
    }
    power_test::Call c = power_test::call(collect_ps_stats_hndl);
    // The record's own line ends split it into several local-file lines.
    std::string record;
    for (size_t i = 0; i < c.records.size(); i++) record += (i > 0 ? "\n" : "") + c.records[i];
    return {c.ret, !c.records.empty(), record};
}

// A script printing `n` lines of `width` characters and a line end.
std::string lines(int n, int width) {
    return "i=0; while [ $i -lt " + std::to_string(n) + " ]; do printf '%0" +
           std::to_string(width) + "d\\n' $i; i=$((i+1)); done\n";
}

TEST(PsTest, RecordIsTheOutputUnchangedOrNothing) {
    power_test::start_core();
    Output r = run("echo 'PID NAME RSS'\necho '1021 system_server 312448'\necho '788 sf 64220'\n");
    EXPECT_EQ(r.ret, 0);
    EXPECT_EQ(r.record, "PID NAME RSS\n1021 system_server 312448\n788 sf 64220\n");

    std::string longline(600, 'q');  // read in three pieces
    EXPECT_EQ(run(("echo a\necho " + longline + "\necho b\n").c_str()).record,
              "a\n" + longline + "\nb\n");

    for (const char* body : {"exit 3\n", static_cast<const char*>(nullptr)}) {
        r = run(body);  // no output, or no script at all: an empty record
        EXPECT_EQ(r.ret, 0);
        EXPECT_TRUE(r.reported);
        EXPECT_EQ(r.record, "");
    }

    r = run(lines(30, 127).c_str());  // 3840 characters still fit
    EXPECT_EQ(r.ret, 0);
    EXPECT_EQ(r.record.size(), 3840u);
    for (int n : {31, 2000}) {
        r = run(lines(n, 127).c_str());
        EXPECT_EQ(r.ret, -1);
        EXPECT_FALSE(r.reported);
    }
}

}  // namespace
