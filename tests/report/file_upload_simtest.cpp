// File upload in the simulator sandbox: which files qualify, renames, cuts, the local copy, and
// the hazards of a crash directory (symlinks, FIFOs, loops, paths too long for the buffer).
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <set>
#include <tuple>

#include "collectors.h"
#include "common/capture.h"
#include "common/test_util.h"
#include "file_upload.h"
#include "tarn_log.h"
#include "zel_helper.h"

namespace fs = std::filesystem;
using tarn_test::write_file;
using Names = std::set<std::string>;

namespace {

const std::string kDir = "/data/tombstones";
tarn_test::RecordCapture* g_records;
std::string g_prefix;  // record header, default application name and comma

Names listing() {
    Names names;
    for (const auto& e : fs::directory_iterator(kDir)) names.insert(e.path().filename());
    return names;
}

// One set_for_blob call on kDir: its result and the line it wrote locally ("" for none).
std::pair<int32_t, std::string> upload() {
    int32_t ret = set_for_blob(kDir.c_str(), "tombstone_", 2001);
    std::vector<std::string> lines = g_records->lines();
    EXPECT_LE(lines.size(), 1u);
    return {ret, lines.empty() ? "" : lines[0]};
}

class FileUploadTest : public ::testing::Test {
  protected:
    static void SetUpTestSuite() {
        g_records = new tarn_test::RecordCapture();
        // File lines carry the same header as ordinary records.
        PowerZELHelper::getInstance()->log_blob(2, "x", 1);
        g_prefix = g_records->lines().at(0);
        g_prefix.pop_back();
    }
    void SetUp() override {
        fs::remove_all(kDir);
        fs::create_directories(kDir);
        collect_stability_info_init("/");
    }
    int32_t ret = 0;
    std::string line;
    char path[kFilePathSize] = {};
};

TEST_F(FileUploadTest, DrainsQualifyingFilesOneByOne) {
    Names never = {"tombstone_00_readed", "tombstone_x_readed_y", "tombstone_02.pb",
                   "tombstone_3.pbz", "old_tombstone_c"};
    for (const std::string& n : never) write_file(kDir + "/" + n, "x");
    // An empty file gives the path and its comma; the local copy ends at a NUL of the content,
    // the upload does not.
    write_file(kDir + "/tombstone_a", "");
    write_file(kDir + "/tombstone_b", std::string("ab\0cd", 5));

    collect_stability_info_exit();
    EXPECT_EQ(upload(), std::make_pair(-1, std::string()));
    collect_stability_info_init("/");

    Names sent;  // what the upload counted beyond the local line, and the line
    for (int i = 0; i < 2; i++) {
        std::tie(ret, line) = upload();
        sent.insert(std::to_string(ret - static_cast<int32_t>(line.size())) + " " + line);
    }
    EXPECT_EQ(sent, (Names{"0 " + g_prefix + kDir + "/tombstone_a,",
                           "3 " + g_prefix + kDir + "/tombstone_b,ab"}));
    EXPECT_EQ(upload(), std::make_pair(-1, std::string()));
    never.insert({"tombstone_a_readed", "tombstone_b_readed"});
    EXPECT_EQ(listing(), never);
}

TEST_F(FileUploadTest, SearchesOneSubdirectoryLevel) {
    write_file(kDir + "/sub/tombstone_1", "one");
    write_file(kDir + "/sub/deeper/tombstone_2", "two");
    EXPECT_EQ(upload().second, g_prefix + kDir + "/sub/tombstone_1,one");

    // The second level is opened by its bare name relative to the top directory, which fails...
    EXPECT_EQ(upload().first, -1);
    EXPECT_EQ(getFileName(kDir.c_str(), "tombstone_", 10, path), -EINVAL);
    EXPECT_EQ(getFileName("/data/nowhere", "tombstone_", 10, path), -EINVAL);
    EXPECT_EQ(path[0], '\0');
    // ...or leads back to the first level (sub/sub reopens sub), where the search stops.
    fs::remove_all(kDir + "/sub/deeper");
    fs::create_directories(kDir + "/sub/sub");
    EXPECT_EQ(getFileName(kDir.c_str(), "tombstone_", 10, path), 0);
}

TEST_F(FileUploadTest, OversizedFilesAreCut) {
    std::string big(200000, '\0');
    for (size_t i = 0; i < big.size(); i++) big[i] = static_cast<char>('a' + i % 26);
    write_file(kDir + "/tombstone_big", big);
    const std::string path_comma = kDir + "/tombstone_big,";
    std::tie(ret, line) = upload();
    EXPECT_EQ(line, g_prefix + path_comma +
                        big.substr(0, kFileBufSize - path_comma.size() - kFileReadReserve));
    EXPECT_EQ(ret, static_cast<int32_t>(line.size()));

    // A long application name leaves less room than the read did: the line is cut at 131071.
    fs::rename(kDir + "/tombstone_big_readed", kDir + "/tombstone_big");
    static const std::string app(400, 'q');
    set_app_name_provider([] { return app; });
    std::tie(ret, line) = upload();
    set_app_name_provider(nullptr);
    EXPECT_EQ(ret, static_cast<int32_t>(kFileBufSize - 1));
    const std::string head =
        g_prefix.substr(0, g_prefix.size() - strlen("com.android.launcher3,")) + app + "," +
        path_comma;
    EXPECT_EQ(line, head + big.substr(0, kFileBufSize - 1 - head.size()));
}

TEST_F(FileUploadTest, NeverReadsThroughLinksFifosOrCutPaths) {
    // "/data/tombstones/" and a 236-byte name make 253 bytes, which fit with the comma and the NUL;
    // the new name keeps what fits of the suffix, and is too long to be found again.
    const std::string fits = "tombstone_" + std::string(226, 'f');
    const std::string too_long = fits + "g";
    write_file(kDir + "/" + fits, "fits");
    write_file(kDir + "/" + too_long, "long");
    write_file("/data/secret", "secret");
    ASSERT_EQ(symlink("/data/secret", (kDir + "/tombstone_link").c_str()), 0);
    ASSERT_EQ(mkfifo((kDir + "/tombstone_fifo").c_str(), 0600), 0);

    EXPECT_EQ(upload().second, g_prefix + kDir + "/" + fits + ",fits");
    EXPECT_EQ(upload().first, -1);
    EXPECT_EQ(getFileName(kDir.c_str(), "tombstone_", 10, path), 0);
    EXPECT_EQ(path[0], '\0');
    EXPECT_EQ(listing(), (Names{fits + "_", too_long, "tombstone_link", "tombstone_fifo"}));

    // Swapped in after the scan: refused, and the FIFO without a writer does not block.
    EXPECT_EQ(open_regular_at(AT_FDCWD, (kDir + "/tombstone_link").c_str()), -1);
    EXPECT_EQ(open_regular_at(AT_FDCWD, (kDir + "/tombstone_fifo").c_str()), -1);
}

}  // namespace
