// The logging and property stand-ins, and the binder/SDK calls outside a simulator.
#include <android/binder_manager.h>
#include <android/binder_process.h>
#include <android/log.h>
#include <cutils/properties.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/system_properties.h>
#include <unistd.h>
#include <vmk_sdk/zel.h>

#include <regex>
#include <sstream>
#include <thread>
#include <vector>

#include "common/test_util.h"

namespace {

// Everything written on standard error while `fn` runs.
template <class Fn>
std::string capture_stderr(Fn fn) {
    char path[] = "/tmp/tarn_log_XXXXXX";
    int fd = mkstemp(path);
    int saved = dup(STDERR_FILENO);
    dup2(fd, STDERR_FILENO);
    fn();
    dup2(saved, STDERR_FILENO);
    close(saved);
    close(fd);
    std::string text = tarn_test::read_file(path);
    unlink(path);
    return text;
}

std::vector<std::string> lines_of(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
}

const std::regex kLine(R"(\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} +(\d+) +(\d+) ([VDIWEF?]) (\S+) *: (.*))");

TEST(LogTest, ThreadtimeLinesOnStderr) {
    std::string text = capture_stderr([] {
        __android_log_print(ANDROID_LOG_WARN, "TARN_STATS_MAIN", "%s() %d: hello", "main", 42);
        __android_log_print(ANDROID_LOG_DEBUG, "TARN_STATS", "ends in a newline\n");
        __android_log_print(ANDROID_LOG_ERROR, "TARN_STATS", "two\nlines");
        __android_log_print(ANDROID_LOG_INFO, "T", "%s", "");
    });
    std::vector<std::string> lines = lines_of(text);
    ASSERT_EQ(5u, lines.size()) << text;
    const char* expected[][3] = {{"W", "TARN_STATS_MAIN", "main() 42: hello"},
                                 {"D", "TARN_STATS", "ends in a newline"},
                                 {"E", "TARN_STATS", "two"},
                                 {"E", "TARN_STATS", "lines"},
                                 {"I", "T", ""}};
    for (size_t i = 0; i < lines.size(); ++i) {
        std::smatch m;
        ASSERT_TRUE(std::regex_match(lines[i], m, kLine)) << lines[i];
        EXPECT_EQ(std::to_string(getpid()), m[1].str());
        EXPECT_EQ(expected[i][0], m[3].str());
        EXPECT_EQ(expected[i][1], m[4].str());
        EXPECT_EQ(expected[i][2], m[5].str());
    }
}

TEST(LogTest, ConcurrentMessagesStayWholeLines) {
    const int kThreads = 4, kEach = 300;
    std::string text = capture_stderr([&] {
        std::vector<std::thread> threads;
        for (int t = 0; t < kThreads; ++t) {
            threads.emplace_back([t] {
                std::string filler(200, static_cast<char>('a' + t));
                for (int i = 0; i < kEach; ++i) {
                    __android_log_print(ANDROID_LOG_WARN, "TAG", "t%d %d %s", t, i, filler.c_str());
                }
            });
        }
        for (auto& th : threads) th.join();
    });
    std::vector<std::string> lines = lines_of(text);
    ASSERT_EQ(static_cast<size_t>(kThreads * kEach), lines.size());
    for (const std::string& line : lines) {
        std::smatch m;
        ASSERT_TRUE(std::regex_match(line, m, kLine)) << line;
        std::string msg = m[5].str();
        char t = msg[1];
        EXPECT_EQ(std::string(200, static_cast<char>('a' + (t - '0'))), msg.substr(msg.size() - 200))
            << line;
    }
}

class PropertiesTest : public ::testing::Test {
  protected:
    void SetUp() override {
        char path[] = "/tmp/tarn_props_XXXXXX";
        close(mkstemp(path));
        mPath = path;
        setenv("TARN_HOST_PROPERTIES", mPath.c_str(), 1);
    }
    void TearDown() override {
        unsetenv("TARN_HOST_PROPERTIES");
        unlink(mPath.c_str());
    }
    std::string get(const char* key, const char* def = "dflt") {
        char value[PROPERTY_VALUE_MAX];
        memset(value, 'x', sizeof(value));
        int len = property_get(key, value, def);
        EXPECT_EQ(strlen(value), static_cast<size_t>(len));
        return value;
    }
    std::string mPath;
};

TEST_F(PropertiesTest, ReadsTheFileAtEachCall) {
    tarn_test::write_file(mPath,
                          "# comment=ignored\n"
                          "ro.a=1\n"
                          "  ro.b = spaced\r\n"
                          "ro.empty=\n"
                          "no equals sign\n"
                          "ro.a=2\n"
                          "ro.long=" +
                              std::string(200, 'v') + "\n");
    EXPECT_EQ("2", get("ro.a"));  // the last definition wins
    EXPECT_EQ(" spaced", get("ro.b"));
    EXPECT_EQ("dflt", get("ro.empty"));
    EXPECT_EQ("dflt", get("# comment"));
    EXPECT_EQ("dflt", get("ro"));
    EXPECT_EQ(std::string(PROP_VALUE_MAX - 1, 'v'), get("ro.long"));
    EXPECT_EQ("", get("ro.none", nullptr));

    char value[PROP_VALUE_MAX];
    EXPECT_EQ(0, __system_property_get("ro.empty", value));
    EXPECT_STREQ("", value);
    EXPECT_EQ(1, __system_property_get("ro.a", value));

    tarn_test::write_file(mPath, "ro.a=3\n");
    EXPECT_EQ("3", get("ro.a"));
    unlink(mPath.c_str());
    EXPECT_EQ("dflt", get("ro.a"));
    unsetenv("TARN_HOST_PROPERTIES");
    EXPECT_EQ("dflt", get("ro.a"));
}

TEST(ServicesOutsideTheSimulatorTest, CallsFailQuietly) {
    EXPECT_EQ(nullptr, AServiceManager_checkService("vendor.orv.hardware.perf2.IPerf/default"));
    EXPECT_EQ(nullptr, AServiceManager_checkService("../../../tmp/x"));
    zel_collector record = {"c", 1, "/data/x", nullptr, nullptr, 1, {}};
    EXPECT_EQ(nullptr, zel_register(&record));
    uint8_t byte = 0;
    EXPECT_GT(0, zel_log_blob(nullptr, 2, &byte, 1));
    EXPECT_GT(0, zel_deregister(nullptr));
    // No connection at all: the pool has nothing to serve and joining returns at once.
    ABinderProcess_startThreadPool();
    ABinderProcess_joinThreadPool();
}

}  // namespace
