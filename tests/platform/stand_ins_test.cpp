// The logging and property stand-ins.
#define LOG_TAG "TARN_TEST"
#define LOG_NDEBUG 1
#include <android/log.h>
#include <cutils/properties.h>
#include <gtest/gtest.h>
#include <log/log.h>
#include <stdlib.h>
#include <sys/system_properties.h>
#include <unistd.h>

#include <regex>
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

const std::regex kLine(R"(\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} +(\d+) +(\d+) ([VDIWEF?]) (\S+) *: (.*))");

__attribute__((format(printf, 2, 3))) void vprint(int prio, const char* fmt, ...) {
    va_list ap;
    va_start(ap, fmt);
    __android_log_vprint(prio, "V", fmt, ap);
    va_end(ap);
}

TEST(LogTest, ThreadtimeLinesOnStderr) {
    int evaluated = 0;
    std::string text = capture_stderr([&evaluated] {
        __android_log_print(ANDROID_LOG_WARN, "TARN_STATS_MAIN", "%s() %d: hello", "main", 42);
        __android_log_print(ANDROID_LOG_DEBUG, "TARN_STATS", "ends in a newline\n");
        __android_log_print(ANDROID_LOG_ERROR, "TARN_STATS", "two\nlines");
        __android_log_print(ANDROID_LOG_INFO, "T", "%s", "");
        __android_log_write(ANDROID_LOG_WARN, "W", "100% as written");
        vprint(ANDROID_LOG_DEBUG, "%d-%s", 7, "x");
        ALOGE("tagged %d", 1);
        ALOGV("compiled out %d", ++evaluated);
    });
    EXPECT_EQ(0, evaluated);
    std::vector<std::string> lines = tarn_test::split_lines(text);
    ASSERT_EQ(8u, lines.size()) << text;
    const char* expected[][3] = {{"W", "TARN_STATS_MAIN", "main() 42: hello"},
                                 {"D", "TARN_STATS", "ends in a newline"},
                                 {"E", "TARN_STATS", "two"},
                                 {"E", "TARN_STATS", "lines"},
                                 {"I", "T", ""},
                                 {"W", "W", "100% as written"},
                                 {"D", "V", "7-x"},
                                 {"E", "TARN_TEST", "tagged 1"}};
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
    std::vector<std::string> lines = tarn_test::split_lines(text);
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

// property_get of `key` with a default, checking the returned length against the value.
std::string get(const char* key, const char* def = "dflt") {
    char value[PROPERTY_VALUE_MAX];
    memset(value, 'x', sizeof(value));
    int len = property_get(key, value, def);
    EXPECT_EQ(strlen(value), static_cast<size_t>(len));
    return value;
}

TEST(PropertiesTest, ReadsTheFileAtEachCall) {
    const std::string path = "/tmp/tarn_props_" + std::to_string(getpid());
    setenv("TARN_HOST_PROPERTIES", path.c_str(), 1);
    tarn_test::write_file(path,
                          "# comment=ignored\nro.a=1\n  ro.b = spaced\r\nro.empty=\n"
                          "no equals sign\nro.a=2\nro.long=" +
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

    tarn_test::write_file(path, "ro.a=3\n");
    EXPECT_EQ("3", get("ro.a"));
    unlink(path.c_str());
    EXPECT_EQ("dflt", get("ro.a"));
    unsetenv("TARN_HOST_PROPERTIES");
    EXPECT_EQ("dflt", get("ro.a"));
}

}  // namespace
