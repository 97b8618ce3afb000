// File upload inside the simulator sandbox: search rules, renames, cuts, the local copy and the
// crash-directory hazards (symlinks, FIFOs, paths that do not fit).
#include <errno.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "collectors/collectors.h"
#include "common/capture.h"
#include "common/test_util.h"
#include "core/power_bigdata_core.h"
#include "core/tarn_log.h"
#include "report/file_upload.h"
#include "report/zel_helper.h"

namespace fs = std::filesystem;
using tarn_test::LogCapture;
using tarn_test::write_file;

namespace {

const std::string kTomb = "/data/tombstones";
const std::string kAnr = "/data/anr";

std::set<std::string> list_dir(const std::string& dir) {
    std::set<std::string> names;
    for (const auto& e : fs::directory_iterator(dir)) names.insert(e.path().filename().string());
    return names;
}

tarn_test::LineReader* g_records;
// Header, application name and comma, as every line of the default application carries.
std::string g_app_prefix;

std::vector<std::string> new_local_lines() {
    return g_records->take();
}

class FileUploadTest : public ::testing::Test {
  protected:
    static void SetUpTestSuite() {
        g_debug_level = 7;
        g_local_file = tmpfile();
        g_records = new tarn_test::LineReader(g_local_file);
        PowerBigDataCore::getInstance();
        // The header of an ordinary record, for comparison with file records.
        PowerZELHelper::getInstance()->log_blob(2, "probe", 5);
        std::vector<std::string> lines = new_local_lines();
        ASSERT_EQ(lines.size(), 1u);
        g_app_prefix = lines[0].substr(0, lines[0].size() - strlen("probe"));
    }

    void SetUp() override {
        fs::remove_all(kTomb);
        fs::remove_all(kAnr);
        fs::create_directories(kTomb);
        fs::create_directories(kAnr);
        collect_stability_info_init();
        new_local_lines();
    }
};

TEST_F(FileUploadTest, DrainsOneFilePerCallThenReportsNothingQualified) {
    ASSERT_EQ(g_app_prefix.rfind("tarn-stats-v2.1,Fixturemaker,FX-1,FX0000000001,", 0), 0u)
        << g_app_prefix;
    write_file(kTomb + "/tombstone_a", "alpha");
    write_file(kTomb + "/tombstone_b", "beta");
    const std::set<std::string> never = {"tombstone_00_readed",  "tombstone_02.pb",
                                         "tombstone_x_readed_y", "tombstone_3.pbz",
                                         "old_tombstone_c",      "Tombstone_d"};
    for (const std::string& n : never) write_file(kTomb + "/" + n, "never");

    std::set<std::string> sent;
    for (int i = 0; i < 2; i++) {
        int32_t ret = set_for_blob(kTomb.c_str(), "tombstone_", 2001);
        std::vector<std::string> lines = new_local_lines();
        ASSERT_EQ(lines.size(), 1u);
        EXPECT_EQ(ret, static_cast<int32_t>(lines[0].size()));
        sent.insert(lines[0]);
    }
    EXPECT_EQ(sent, (std::set<std::string>{g_app_prefix + "/data/tombstones/tombstone_a,alpha",
                                           g_app_prefix + "/data/tombstones/tombstone_b,beta"}));

    LogCapture log;
    EXPECT_EQ(set_for_blob(kTomb.c_str(), "tombstone_", 2001), -1);
    EXPECT_NE(log.text().find("no qualified tombstone_ log founded, so skip."), std::string::npos);
    EXPECT_TRUE(new_local_lines().empty());

    std::set<std::string> expect = never;
    expect.insert({"tombstone_a_readed", "tombstone_b_readed"});
    EXPECT_EQ(list_dir(kTomb), expect);
}

TEST_F(FileUploadTest, SearchesOneSubdirectoryLevelOnly) {
    write_file(kAnr + "/sub/anr_1", "one");
    write_file(kAnr + "/sub/deeper/anr_2", "two");

    EXPECT_GT(set_for_blob(kAnr.c_str(), "anr_", 2002), 0);
    std::vector<std::string> lines = new_local_lines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0], g_app_prefix + "/data/anr/sub/anr_1,one");
    EXPECT_TRUE(fs::exists(kAnr + "/sub/anr_1_readed"));

    // The second level is opened by its bare name relative to the top directory, which fails.
    EXPECT_EQ(set_for_blob(kAnr.c_str(), "anr_", 2002), -1);
    ASSERT_EQ(chdir(kAnr.c_str()), 0);
    char path[kFilePathSize] = {};
    EXPECT_EQ(getFileName(kAnr.c_str(), "anr_", 4, path), -EINVAL);
    EXPECT_EQ(path[0], '\0');
    EXPECT_TRUE(fs::exists(kAnr + "/sub/deeper/anr_2"));

    EXPECT_EQ(getFileName("/data/nowhere", "anr_", 4, path), -EINVAL);
    EXPECT_EQ(set_for_blob("/data/nowhere", "anr_", 2002), -1);
}

TEST_F(FileUploadTest, EmptyFileAndEmbeddedNul) {
    write_file(kTomb + "/tombstone_e", "");
    int32_t ret = set_for_blob(kTomb.c_str(), "tombstone_", 2001);
    std::vector<std::string> lines = new_local_lines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0], g_app_prefix + "/data/tombstones/tombstone_e,");
    EXPECT_EQ(ret, static_cast<int32_t>(lines[0].size()));

    // The upload carries every byte read; the local copy stops at the first NUL.
    write_file(kTomb + "/tombstone_n", std::string("ab\0cd", 5));
    ret = set_for_blob(kTomb.c_str(), "tombstone_", 2001);
    lines = new_local_lines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0], g_app_prefix + "/data/tombstones/tombstone_n,ab");
    EXPECT_EQ(ret, static_cast<int32_t>(lines[0].size() + 3));
}

TEST_F(FileUploadTest, OversizedFileIsCutToTheBuffers) {
    std::string content(200000, '\0');
    for (size_t i = 0; i < content.size(); i++) content[i] = static_cast<char>('a' + i % 26);
    write_file(kTomb + "/tombstone_big", content);
    const std::string path = "/data/tombstones/tombstone_big,";

    // The read leaves room for the header: only the read cuts.
    int32_t ret = set_for_blob(kTomb.c_str(), "tombstone_", 2001);
    std::vector<std::string> lines = new_local_lines();
    ASSERT_EQ(lines.size(), 1u);
    const size_t nread = kFileBufSize - path.size() - kFileReadReserve;
    EXPECT_EQ(lines[0], g_app_prefix + path + content.substr(0, nread));
    EXPECT_EQ(ret, static_cast<int32_t>(lines[0].size()));

    // A long application name pushes the line past the record buffer: cut to 131071 bytes.
    fs::rename(kTomb + "/tombstone_big_readed", kTomb + "/tombstone_big");
    const std::string app(400, 'q');
    PowerBigDataCore::getInstance()->sendEvent(0x1001, app + "/.Main", 0, 0, {});
    ret = set_for_blob(kTomb.c_str(), "tombstone_", 2001);
    PowerBigDataCore::getInstance()->sendEvent(0x1001, "com.android.launcher3", 0, 0, {});
    lines = new_local_lines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(ret, static_cast<int32_t>(kFileBufSize - 1));
    ASSERT_EQ(lines[0].size(), kFileBufSize - 1);
    const std::string head =
        g_app_prefix.substr(0, g_app_prefix.size() - strlen("com.android.launcher3,"));
    const std::string expect_start = head + app + "," + path;
    EXPECT_EQ(lines[0].substr(0, expect_start.size()), expect_start);
    EXPECT_EQ(lines[0].substr(expect_start.size()),
              content.substr(0, lines[0].size() - expect_start.size()));
}

TEST_F(FileUploadTest, CollectionOffTouchesNothing) {
    write_file(kTomb + "/tombstone_a", "alpha");
    collect_stability_info_exit();
    LogCapture log;
    EXPECT_EQ(set_for_blob(kTomb.c_str(), "tombstone_", 2001), -1);
    EXPECT_NE(log.text().find("no need to collect data."), std::string::npos);
    EXPECT_TRUE(new_local_lines().empty());
    EXPECT_EQ(list_dir(kTomb), std::set<std::string>{"tombstone_a"});
}

TEST_F(FileUploadTest, PathThatDoesNotFitIsSkippedNeverCut) {
    // "/data/tombstones/" is 17 bytes: a 236-byte name gives a 253-byte path, which fits with
    // the comma and the NUL; one more byte does not.
    const std::string fits = "tombstone_" + std::string(226, 'f');
    const std::string too_long = "tombstone_" + std::string(227, 'g');
    write_file(kTomb + "/" + too_long, "long");

    ASSERT_EQ(chdir(kTomb.c_str()), 0);
    char path[kFilePathSize] = {};
    LogCapture log;
    EXPECT_EQ(getFileName(kTomb.c_str(), "tombstone_", 10, path), 0);
    EXPECT_EQ(path[0], '\0');
    EXPECT_NE(log.text().find("too long"), std::string::npos);

    write_file(kTomb + "/" + fits, "fits");
    EXPECT_GT(set_for_blob(kTomb.c_str(), "tombstone_", 2001), 0);
    std::vector<std::string> lines = new_local_lines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0], g_app_prefix + kTomb + "/" + fits + ",fits");
    EXPECT_EQ(set_for_blob(kTomb.c_str(), "tombstone_", 2001), -1);
    EXPECT_EQ(list_dir(kTomb), (std::set<std::string>{too_long, fits + "_readed"}));
}

TEST_F(FileUploadTest, SymlinkAndFifoAreNeverRead) {
    write_file("/data/secret", "secret");
    ASSERT_EQ(symlink("/data/secret", (kTomb + "/tombstone_link").c_str()), 0);
    ASSERT_EQ(mkfifo((kTomb + "/tombstone_fifo").c_str(), 0600), 0);

    // Passed over by the search.
    EXPECT_EQ(set_for_blob(kTomb.c_str(), "tombstone_", 2001), -1);
    EXPECT_TRUE(new_local_lines().empty());
    EXPECT_EQ(list_dir(kTomb), (std::set<std::string>{"tombstone_link", "tombstone_fifo"}));

    // Refused when swapped in between the search and the open; the FIFO has no writer, so a
    // blocking open would never return.
    EXPECT_EQ(open_regular_file((kTomb + "/tombstone_link").c_str()), nullptr);
    EXPECT_EQ(open_regular_file((kTomb + "/tombstone_fifo").c_str()), nullptr);
    EXPECT_EQ(open_regular_file(kTomb.c_str()), nullptr);
    FILE* fp = open_regular_file("/data/secret");
    ASSERT_NE(fp, nullptr);
    char buf[16] = {};
    EXPECT_EQ(fread(buf, 1, sizeof(buf), fp), 6u);
    fclose(fp);
}

}  // namespace
