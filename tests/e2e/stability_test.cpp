// The real daemon on phone8 ships the device's crash and status files over a few ticks, each
// once, marks them reported and then finds nothing more to send.
#include <gtest/gtest.h>
#include <unistd.h>

#include <map>
#include <set>

#include "common/sim_run.h"
#include "e2e/daemon_e2e.h"

namespace {

using Paths = std::multiset<std::string>;

TEST(StabilityE2E, PhoneBacklogIsShippedOnceAndMarked) {
    tarn_test::SimRun sim(tarn_test::SimOptions(),
                          {tarn_test::daemon_path(), "--daemon", "--stab", "1"});
    // Two tombstones drain in two ticks; two more ticks show that nothing is sent again.
    ASSERT_TRUE(sim.wait_for_records([&sim](const std::vector<std::string>&) {
        return tarn_e2e::count(sim.log(), "no qualified tombstone_ log founded, so skip.") >= 2;
    }));
    // Per KPI id, the file paths: the field after the header's five and the application name.
    std::vector<std::string> kpis;
    std::map<std::string, Paths> paths;
    for (const std::string& r : sim.records()) {
        size_t start = 0;
        for (int i = 0; i < 6; i++) start = r.find(',', start) + 1;
        kpis.push_back(r.substr(0, r.find('\t')));
        paths[kpis.back()].insert(r.substr(start, r.find(',', start) - start));
    }
    // One file of each kind per tick, status before tombstone before ANR.
    EXPECT_EQ(kpis, (std::vector<std::string>{"2000", "2001", "2002", "2000", "2001"}));
    EXPECT_EQ(paths,
              (std::map<std::string, Paths>{
                  {"2000",
                   {"/sdcard/Perfdump/status_20240311_101502.txt",
                    "/sdcard/Perfdump/boot1/status_boot_000.txt"}},
                  {"2001", {"/data/tombstones/tombstone_01", "/data/tombstones/tombstone_02"}},
                  {"2002", {"/data/anr/anr_2024-03-11-10-20-33-118"}}}));
    for (const char* name : {"tombstone_01_readed", "tombstone_02_readed", "tombstone_01.pb"})
        EXPECT_EQ(access((sim.root() + "/data/tombstones/" + name).c_str(), F_OK), 0) << name;
}

}  // namespace
