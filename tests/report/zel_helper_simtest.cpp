// Uploaded lines as the local record file receives them: header, application name, record text,
// the cut at the buffer's end, and the fresh start of the file at 4 GiB.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "common/capture.h"
#include "common/test_util.h"
#include "core/power_bigdata_core.h"
#include "core/tarn_log.h"
#include "report/zel_helper.h"

namespace {

const char kHeader[] = "tarn-stats-v2.1,Fixturemaker,FX-1,FX0000000001,ORV.FX.1.0-00042-TEST,";

class ZelHelperTest : public ::testing::Test {
  protected:
    static void SetUpTestSuite() {
        tarn_test::write_file("/vendor/firmware_mnt/verinfo/ver_info.txt",
                              "{\n"
                              "  \"Metabuild_Info\": {\n"
                              "    \"Meta_Build_ID\": \"ORV.FX.1.0-00042-TEST\",\n"
                              "    \"Meta_Build_ID\": \"shadowed\",\n"
                              "  }\n"
                              "}\n");
        tarn_test::make_dirs("/data/vendor");
        PowerBigDataCore::getInstance();
    }
    void SetUp() override {
        g_local_file = tmpfile();
        ASSERT_NE(nullptr, g_local_file);
    }
    void TearDown() override {
        fclose(g_local_file);
        g_local_file = nullptr;
    }
    void upload(uint32_t kpi, const std::string& text) {
        PowerZELHelper::getInstance()->log_blob(kpi, text.c_str(), text.size());
    }
};

TEST_F(ZelHelperTest, LinesCarryHeaderAndTheCurrentAppName) {
    EXPECT_EQ(0, access("/data/vendor/tarn_stats", F_OK)) << "the helper creates its directory";
    tarn_test::LineReader reader(g_local_file);
    upload(2, "12,34");
    PowerBigDataCore::getInstance()->sendEvent(0x1001, "com.example.app/.Main", 0, 0, {});
    upload(3, "CPU,1,2");
    PowerBigDataCore::getInstance()->sendEvent(0x1001, "com.android.launcher3/.Home", 0, 0, {});

    std::vector<std::string> lines = reader.take();
    ASSERT_EQ(2u, lines.size());
    EXPECT_EQ(std::string(kHeader) + "com.android.launcher3,12,34", lines[0]);
    EXPECT_EQ(std::string(kHeader) + "com.example.app,CPU,1,2", lines[1]);
}

TEST_F(ZelHelperTest, LongRecordIsCutAtTheBufferEnd) {
    tarn_test::LineReader reader(g_local_file);
    upload(7, std::string(4096, 'x'));
    upload(7, "short");
    std::vector<std::string> lines = reader.take();
    ASSERT_EQ(2u, lines.size());
    EXPECT_EQ(4095u, lines[0].size());
    EXPECT_EQ(0u, lines[0].find(std::string(kHeader) + "com.android.launcher3,xxx"));
    // Nothing of the long record survives into the next line.
    EXPECT_EQ(std::string(kHeader) + "com.android.launcher3,short", lines[1]);
}

TEST_F(ZelHelperTest, LocalFileStartsAfreshAtFourGiB) {
    fclose(g_local_file);
    const char* path = "/tmp/records_4g.txt";
    std::string line = std::string(kHeader) + "com.android.launcher3,BRI,80";

    // Just below the limit the line is appended.
    int fd = open(path, O_CREAT | O_TRUNC | O_WRONLY, 0644);
    ASSERT_GE(fd, 0);
    ASSERT_EQ(0, ftruncate(fd, 0xFFFFFFFELL));
    close(fd);
    g_local_file = fopen(path, "a");
    ASSERT_NE(nullptr, g_local_file);
    fseek(g_local_file, 0, SEEK_END);
    upload(8, "BRI,80");
    fflush(g_local_file);
    struct stat st;
    ASSERT_EQ(0, stat(path, &st));
    EXPECT_EQ(0xFFFFFFFELL + static_cast<off_t>(line.size()) + 1, st.st_size);

    // Now beyond it: the file is emptied and holds the new line alone.
    upload(8, "BRI,80");
    fflush(g_local_file);
    EXPECT_EQ(line + "\n", tarn_test::read_file(path));
    upload(8, "BRI,80");
    fflush(g_local_file);
    EXPECT_EQ(line + "\n" + line + "\n", tarn_test::read_file(path));
    unlink(path);
}

TEST_F(ZelHelperTest, UnseekableLocalFileStillGetsTheLine) {
    fclose(g_local_file);
    int fds[2];
    ASSERT_EQ(0, pipe(fds));
    g_local_file = fdopen(fds[1], "a");
    ASSERT_NE(nullptr, g_local_file);
    upload(9, "FPS,60");
    fflush(g_local_file);
    char buf[512] = {};
    ssize_t n = read(fds[0], buf, sizeof(buf) - 1);
    close(fds[0]);
    EXPECT_EQ(std::string(kHeader) + "com.android.launcher3,FPS,60\n",
              std::string(buf, n > 0 ? n : 0));
}

}  // namespace
