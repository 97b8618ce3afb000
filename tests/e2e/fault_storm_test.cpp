// The real daemon, every collector at period 1, ships the phone's crash and status files once,
// then meets hostile crash directories, then a storm of campaigns, start/stop alternations and
// hints, then a stop in the middle of a tick. The daemon stays up with its descriptors, never
// ships what a link points at, keeps reporting and ends with status 0.
#include <fcntl.h>
#include <stdio.h>
#include <sys/inotify.h>
#include <sys/stat.h>

#include <atomic>
#include <random>

#include "e2e/fault_e2e.h"
#include "tarn_stats.pb.h"

namespace {

using tarn_test::write_file;

const char kSecret[] = "SECRET-5f2a-do-not-ship";

bool any_contains(const std::vector<std::string>& lines, const std::string& needle) {
    for (const std::string& l : lines)
        if (l.find(needle) != std::string::npos) return true;
    return false;
}

TEST(FaultE2E, PhoneBacklogShippedOnceThenHostileCrashDirectories) {
    tarn_fault::Daemon d;
    ASSERT_NO_FATAL_FAILURE(d.settle());
    const std::string dir = d.sim.root() + "/data/tombstones";

    // By now the phone's backlog is out: one file of each kind per tick, status before tombstone
    // before ANR, each once (the path follows the header's five fields and the application name),
    // and the shipped ones are marked.
    std::vector<std::string> kpis;
    std::map<std::string, std::multiset<std::string>> paths;
    for (const std::string& r : d.sim.records()) {
        if (r.rfind("200", 0) != 0) continue;
        size_t start = 0;
        for (int i = 0; i < 6; i++) start = r.find(',', start) + 1;
        kpis.push_back(r.substr(0, r.find('\t')));
        paths[kpis.back()].insert(r.substr(start, r.find(',', start) - start));
    }
    EXPECT_EQ(kpis, (std::vector<std::string>{"2000", "2001", "2002", "2000", "2001"}));
    EXPECT_EQ(paths,
              (std::map<std::string, std::multiset<std::string>>{
                  {"2000",
                   {"/sdcard/Perfdump/status_20240311_101502.txt",
                    "/sdcard/Perfdump/boot1/status_boot_000.txt"}},
                  {"2001", {"/data/tombstones/tombstone_01", "/data/tombstones/tombstone_02"}},
                  {"2002", {"/data/anr/anr_2024-03-11-10-20-33-118"}}}));
    for (const char* name : {"tombstone_01_readed", "tombstone_02_readed", "tombstone_01.pb"})
        EXPECT_EQ(access((dir + "/" + name).c_str(), F_OK), 0) << name;

    write_file(d.sim.root() + "/data/secret.txt", kSecret);
    ASSERT_EQ(0, symlink("/data/secret.txt", (dir + "/tombstone_link_abs").c_str()));
    ASSERT_EQ(0, symlink("../secret.txt", (dir + "/tombstone_link_rel").c_str()));
    ASSERT_EQ(0, mkfifo((dir + "/tombstone_fifo").c_str(), 0644));
    ASSERT_EQ(0, mkdir((dir + "/tombstone_dir.txt").c_str(), 0755));
    write_file(dir + "/tombstone_big", std::string(10u << 20, 'B'));
    const std::string long_name = "tombstone_" + std::string(240, 'n');
    write_file(dir + "/" + long_name, "too long a path");
    // Loops: a link to the directory itself, and a chain of directories named alike whose bare
    // names resolve back up the chain.
    ASSERT_EQ(0, symlink(".", (dir + "/loop").c_str()));
    write_file(dir + "/nest/nest/nest/nest/tombstone_deep", "deep");
    ASSERT_EQ(0, symlink("../..", (dir + "/nest/nest/up").c_str()));

    // Files that come and go between (and during) ticks.
    std::atomic<bool> flicker(true);
    std::thread flickering([&] {
        std::mt19937 rng(7);
        for (int i = 0; flicker; ++i) {
            // Written aside and renamed in, so that the file appears whole.
            std::string path = dir + "/tombstone_flick_" + std::to_string(i);
            write_file(dir + "/.flick", "FLICK " + std::to_string(i) + "\n");
            rename((dir + "/.flick").c_str(), path.c_str());
            std::this_thread::sleep_for(std::chrono::milliseconds(rng() % 400));
            unlink(path.c_str());
            unlink((path + "_readed").c_str());
        }
    });
    std::this_thread::sleep_for(std::chrono::seconds(tarn_fault::long_form() ? 20 : 6));
    flicker = false;
    flickering.join();
    write_file(dir + "/tombstone_after", "after the storm\n");
    ASSERT_TRUE(d.sim.wait_for_records([](const std::vector<std::string>& r) {
        return any_contains(r, "/data/tombstones/tombstone_after,after the storm");
    }));
    d.expect_steady(d.kpis_except({}), "crash directories");

    std::vector<std::string> files = tarn_fault::by_kpi(d.sim.records())[2001];
    EXPECT_FALSE(any_contains(d.sim.records(), kSecret)) << "a link's target was shipped";
    EXPECT_FALSE(any_contains(files, "tombstone_link"));
    EXPECT_FALSE(any_contains(files, "tombstone_fifo"));
    EXPECT_FALSE(any_contains(files, long_name)) << "a path that does not fit is never cut";
    EXPECT_EQ(0, access((dir + "/" + long_name).c_str(), F_OK));
    EXPECT_FALSE(any_contains(files, "tombstone_deep"));
    size_t big = 0;
    for (const std::string& f : files) {
        if (f.find("/data/tombstones/tombstone_big,") == std::string::npos) continue;
        ++big;
        // Path, comma and content fill the file buffer but for the room kept for the header.
        size_t at = f.find("/data/tombstones/tombstone_big,");
        EXPECT_EQ(131072u - 150u, f.size() - at);
        EXPECT_EQ(std::string::npos, f.find_first_not_of('B', f.find(',', at) + 1));
    }
    EXPECT_EQ(1u, big);
    for (const std::string& f : files) {
        size_t at = f.find("/data/tombstones/tombstone_flick_");
        if (at == std::string::npos) continue;
        std::string n = f.substr(at + 33, f.find(',', at) - at - 33);
        // Whole or not at all (the records file writes a newline as a backslash and an n).
        EXPECT_EQ("FLICK " + n + "\\n", f.substr(f.find(',', at) + 1)) << "torn file " << n;
    }
    EXPECT_EQ(0, d.sim.stop());
}

// Renames `from` to `to` where `from` exists (a link is moved, never followed).
void move_if_there(const std::string& from, const std::string& to) {
    struct stat st;
    if (lstat(from.c_str(), &st) == 0) rename(from.c_str(), to.c_str());
}

// Crash directories that race the daemon, which runs without root's override of file modes: a
// crash directory that can be listed but not searched, with directories of the same names where
// the working directory may be; then a subdirectory, a whole crash directory and a file swapped
// with symlinks to an outside directory in a tight loop. Nothing outside is opened, shipped or
// renamed, while the files inside go on being shipped.
TEST(FaultE2E, UnsearchableDirectoriesAndSwappedLinksNeverLeadOutside) {
    const std::string drop = "-dac_override,-dac_read_search";
    tarn_test::SimRun sim(tarn_test::SimOptions(),
                          {"/usr/bin/setpriv", "--inh-caps=" + drop, "--bounding-set=" + drop, "--",
                           tarn_test::daemon_path(), "--daemon", "--stab", "1"});
    const std::string root = sim.root(), outside = root + "/data/outside";
    const std::string tomb = root + "/data/tombstones", anr = root + "/data/anr",
                      perf = root + "/sdcard/Perfdump";
    for (const char* n : {"tombstone_o", "status_o", "anr_o"})
        write_file(outside + "/" + n, kSecret);
    // A subdirectory of the unsearchable directory, and directories of its name where the working
    // directory is or may have been left.
    for (const std::string& d : {root, tomb}) write_file(d + "/dsub/anr_zz", kSecret);
    unlink((anr + "/anr_2024-03-11-10-20-33-118").c_str());
    write_file(anr + "/dsub/anr_in", "INSIDE");
    ASSERT_EQ(0, chmod(anr.c_str(), 0444));
    EXPECT_TRUE(sim.wait_for_log("open dsub failed")) << sim.log();
    EXPECT_FALSE(any_contains(sim.records(), kSecret)) << "a file outside was shipped";
    ASSERT_EQ(0, chmod(anr.c_str(), 0755));

    int watch = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    ASSERT_GE(inotify_add_watch(watch, outside.c_str(), IN_OPEN | IN_ACCESS | IN_MOVE | IN_DELETE),
              0);
    write_file(tomb + "/sub/tombstone_s", "INSIDE");
    write_file(perf + "/status_x", "INSIDE");
    ASSERT_EQ(0, symlink("/data/outside", (tomb + "/alt").c_str()));
    ASSERT_EQ(0, symlink("/data/outside", (anr + "_alt").c_str()));
    ASSERT_EQ(0, symlink("/data/outside/status_o", (perf + "/status_y").c_str()));
    const std::vector<std::pair<std::string, std::string>> swaps = {
        {tomb + "/sub", tomb + "/alt"},
        {anr, anr + "_alt"},
        {perf + "/status_x", perf + "/status_y"}};
    auto real_dir = [](const std::string& a, const std::string& b) {
        struct stat st;
        return lstat(a.c_str(), &st) == 0 && S_ISDIR(st.st_mode) ? a : b;
    };
    const auto end =
        std::chrono::steady_clock::now() + std::chrono::seconds(tarn_fault::long_form() ? 60 : 4);
    size_t swapped = 0;
    for (int i = 0; std::chrono::steady_clock::now() < end; ++i) {
        for (const auto& [a, b] : swaps)
            swapped += renameat2(AT_FDCWD, a.c_str(), AT_FDCWD, b.c_str(), RENAME_EXCHANGE) == 0;
        if (i % 64 != 0) continue;
        // Shipped files come back under their names, the links that a rename met as well.
        const std::string t = real_dir(tomb + "/sub", tomb + "/alt") + "/tombstone_s";
        const std::string a = real_dir(anr, anr + "_alt") + "/dsub/anr_in";
        for (const std::string& f : {t, a, perf + "/status_x", perf + "/status_y"})
            move_if_there(f + "_readed", f);
    }
    EXPECT_EQ(0, sim.stop());

    inotify_event ev[16];
    EXPECT_EQ(-1, read(watch, ev, sizeof(ev))) << "something outside was opened or moved";
    close(watch);
    const std::vector<std::string> records = sim.records();
    EXPECT_FALSE(any_contains(records, kSecret)) << "a file outside was shipped";
    size_t inside = 0;
    for (const std::string& r : records) inside += r.find(",INSIDE") != std::string::npos;
    EXPECT_LE(4u, inside) << "the race was not run: too few files shipped";
    EXPECT_LE(1000u, swapped) << "the race was not run: too few swaps";
    for (const std::string& d : {root, tomb})
        EXPECT_EQ(0, access((d + "/dsub/anr_zz").c_str(), F_OK));
    for (const char* n : {"tombstone_o", "status_o", "anr_o"})
        EXPECT_EQ(0, access((outside + "/" + n).c_str(), F_OK)) << n;
}

std::string campaign_file(const std::string& bytes, int i) {
    std::string path =
        "/tmp/tarn_fault_campaign_" + std::to_string(getpid()) + "_" + std::to_string(i % 4);
    write_file(path, bytes);
    return path;
}

std::string random_campaign(std::mt19937_64& rng) {
    if (rng() % 5 == 0) {  // bytes that may or may not decode, empty ones included
        std::string junk(rng() % 40, '\0');
        for (char& c : junk) c = static_cast<char>(rng());
        return junk;
    }
    const uint32_t periods[] = {0, 1, 2, 3, 0x80000000u, 0xFFFFFFFFu};
    auto period = [&] { return periods[rng() % 6]; };
    BigDataCampaignConfig cfg;
    cfg.set_version(static_cast<uint32_t>(rng()));
    PowerCampaignCfg* p = cfg.mutable_powercfg();
    p->set_sampling_flag(rng());
    p->set_battery_period(period());
    p->set_cpu_fre_period(period());
    p->set_gpu_fre_period(period());
    p->set_ddr_fre_period(period());
    p->set_lpm_period(period());
    p->set_ps_period(period());
    p->set_bright_period(period());
    p->set_fps_period(period());
    cfg.mutable_thermalcfg()->set_sampling_flag(rng());
    cfg.mutable_thermalcfg()->set_sampling_period(period());
    cfg.mutable_stabilitycfg()->set_sampling_flag(rng());
    cfg.mutable_stabilitycfg()->set_sampling_period(period());
    return cfg.SerializeAsString();
}

// A 10 KiB hint string of bytes that are not UTF-8 text, with a slash somewhere in most.
std::string random_hint_text(std::mt19937_64& rng) {
    std::string s(10240, 'a');
    for (char& c : s) c = static_cast<char>(rng() % 2 ? 0x80 + rng() % 0x80 : 0x21 + rng() % 0x5e);
    s[0] = static_cast<char>(0xC0 + rng() % 2);  // never an option, never a valid lead byte
    if (rng() % 4 != 0) s[1 + rng() % (s.size() - 1)] = '/';
    return s;
}

TEST(FaultE2E, StormOfCampaignsAndHintsThenStopMidTick) {
    tarn_fault::Daemon d;
    ASSERT_NO_FATAL_FAILURE(d.settle());
    const bool full = tarn_fault::long_form();
    const int campaigns = full ? 1000 : 60, alternations = full ? 200 : 20, hints = full ? 1000 : 60;

    std::thread campaigning([&] {
        std::mt19937_64 rng(11);
        for (int i = 0; i < campaigns; ++i) {
            d.sim.control({"campaign", "start", "--file", campaign_file(random_campaign(rng), i)});
        }
    });
    std::thread alternating([&] {
        for (int i = 0; i < alternations; ++i) {
            d.sim.control({"campaign", "start", "--text", "powerCfg { battery_period: 1 }"});
            d.sim.control({"campaign", "stop"});
        }
    });
    std::thread hinting([&] {
        std::mt19937_64 rng(13);
        const int32_t codes[] = {0x1001, 0x1002, 0x1003, 0x1004, 0, -1, 0x2000};
        for (int i = 0; i < hints; ++i) {
            int32_t code = rng() % 2 ? codes[rng() % 7] : static_cast<int32_t>(rng());
            d.sim.control({"hint", std::to_string(code), random_hint_text(rng),
                           std::to_string(static_cast<int32_t>(rng()))});
        }
    });
    campaigning.join();
    alternating.join();
    hinting.join();
    for (int i = 0; i < 4; ++i) unlink(campaign_file("", i).c_str());

    // Back to every collector at period 1, the thermal and stability parts all selected by their
    // bits, and the launcher in front: the records are the steady ones again.
    std::string out;
    ASSERT_EQ(0, d.sim.control({"campaign", "start", "--text",
                                "powerCfg { battery_period: 1 cpu_fre_period: 1 gpu_fre_period: 1 "
                                "ddr_fre_period: 1 lpm_period: 1 ps_period: 1 bright_period: 1 "
                                "fps_period: 1 } thermalCfg { sampling_flag: 0xF sampling_period: "
                                "1 } stabilityCfg { sampling_flag: 0x7 sampling_period: 1 }"},
                               &out));
    EXPECT_EQ("0\n", out);
    ASSERT_EQ(0, d.sim.control({"hint", "4097", "com.android.launcher3/.Home"}));
    d.expect_steady(d.kpis_except({}), "after the storm");

    // A stop while the worker is inside a tick: the statistics script takes a while, and the stop
    // comes once the row before it has reported.
    std::string script = d.sim.root() + "/data/local/tmp/ps.sh";
    std::string original = tarn_test::read_file(script);
    write_file(script, "#!/bin/sh\nsleep 1\n" + original.substr(original.find('\n') + 1));
    size_t lpm = tarn_fault::by_kpi(d.sim.records())[6].size();
    ASSERT_TRUE(d.sim.wait_for_records([&](const std::vector<std::string>& r) {
        return tarn_fault::by_kpi(r)[6].size() > lpm + 1;
    }));
    EXPECT_EQ(0, d.sim.stop());
}

}  // namespace
