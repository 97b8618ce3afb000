// Uploaded lines as the local record file receives them: header, application name, record text,
// the cut at the buffer's end, and the fresh start of the file at 4 GiB.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "common/capture.h"
#include "common/test_util.h"
#include "tarn_log.h"
#include "zel_helper.h"

namespace {

const std::string kLine =
    "tarn-stats-v2.1,Fixturemaker,FX-1,FX0000000001,ORV.FX.1.0-00042-TEST,"
    "com.android.launcher3,";

void upload(const std::string& text) {
    PowerZELHelper::getInstance()->log_blob(2, text.c_str(), 3);
}

// The header is formatted once per process, at the first upload of whichever test runs first.
class ZelHelperTest : public ::testing::Test {
  protected:
    static void SetUpTestSuite() {
        tarn_test::write_file("/vendor/firmware_mnt/verinfo/ver_info.txt",
                              "\"Meta_Build_ID\": \"ORV.FX.1.0-00042-TEST\",\n");
        tarn_test::make_dirs("/data/vendor");
    }
};

TEST_F(ZelHelperTest, LinesCarryHeaderAndAppNameAndAreCutAtTheBufferEnd) {
    tarn_test::RecordCapture capture;
    upload("12,34");
    EXPECT_EQ(0, access("/data/vendor/tarn_stats", F_OK));
    upload(std::string(4096, 'x'));
    upload("short");
    EXPECT_EQ((std::vector<std::string>{
                  kLine + "12,34", kLine + std::string(4095 - kLine.size(), 'x'), kLine + "short"}),
              capture.lines());
}

TEST_F(ZelHelperTest, LocalFileStartsAfreshAtFourGiB) {
    const char* path = "/tmp/records_4g.txt";
    int fd = open(path, O_CREAT | O_TRUNC | O_WRONLY, 0644);
    ASSERT_EQ(0, ftruncate(fd, 0xFFFFFFFELL));  // sparse: one byte below the limit
    close(fd);
    g_local_file = fopen(path, "a");
    upload("BRI,80");
    fflush(g_local_file);
    struct stat st;
    ASSERT_EQ(0, stat(path, &st));
    EXPECT_EQ(0xFFFFFFFELL + static_cast<off_t>(kLine.size() + 7), st.st_size);
    upload("BRI,81");
    upload("BRI,82");
    fflush(g_local_file);
    EXPECT_EQ(kLine + "BRI,81\n" + kLine + "BRI,82\n", tarn_test::read_file(path));
    fclose(g_local_file);
    g_local_file = nullptr;
    unlink(path);
}

}  // namespace
