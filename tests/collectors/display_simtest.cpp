// Brightness and frame-rate records from the backlight and display nodes.
#include <errno.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <string>

#include "collectors/collectors.h"
#include "collectors/power_fixture.h"
#include "common/test_util.h"

using power_test::call;
using tarn_test::write_file;
using V = std::vector<std::string>;

namespace {

const char kBri[] = "/sys/class/backlight/panel0-backlight/brightness";
const char kFps[] =
    "/sys/devices/platform/soc/ae00000.kelv,vdss_mdp/drm/card0/dpx-crtc-0/measured_fps";

class Display : public ::testing::Test {
  protected:
    static void SetUpTestSuite() {
        power_test::write_minimal_device();
        write_file(kBri, "2047\n");
        write_file(kFps, "fps: 59.94 duration:500000 frame_count:30\n");
        power_test::start_core();
    }
};

TEST_F(Display, BrightnessIsTheRawLevel) {
    auto c = call(collect_brightness_stats_hndl);
    EXPECT_EQ(c.records, V{"BRI,2047,"});
    EXPECT_EQ(c.ret, 9);
    write_file(kBri, "0\n");
    EXPECT_EQ(call(collect_brightness_stats_hndl).records, V{"BRI,0,"});
    write_file(kBri, "off\n");
    EXPECT_EQ(call(collect_brightness_stats_hndl).records, V{"BRI,0,"});
}

TEST_F(Display, FrameRateComesFromTheLastLine) {
    auto fps = [](const std::string& text) {
        write_file(kFps, text);
        auto c = call(collect_fps_stats_hndl);
        return c.records.size() == 1 ? c.records[0] : "ret " + std::to_string(c.ret);
    };
    EXPECT_EQ(fps("fps: 59.94 duration:500000 frame_count:30\n"), "FPS,59.9,");
    EXPECT_EQ(fps("fps: 30.0 duration:1\nfps: 120.00 duration:2\n"), "FPS,120.0,");
    EXPECT_EQ(fps("60\n"), "FPS,60.0,");
    EXPECT_EQ(fps(" 59.96 fps\n"), "FPS,60.0,");
    EXPECT_EQ(fps("fps:\n"), "FPS,0.0,");
    EXPECT_EQ(fps(""), "FPS,0.0,");
    // A line longer than the line buffer is read in pieces; the last piece decides.
    EXPECT_EQ(fps("fps: 90.0 pad:" + std::string(2000, 'x') + " tail: 48.0 end\n"), "FPS,48.0,");
}

TEST_F(Display, NodesMissingAtStartFail) {
    unlink(kBri);
    unlink(kFps);
    ASSERT_EQ(power_test::reopen_nodes(), 0);
    auto c = call(collect_brightness_stats_hndl);
    EXPECT_EQ(c.ret, -EINVAL);
    EXPECT_TRUE(c.records.empty());
    c = call(collect_fps_stats_hndl);
    EXPECT_EQ(c.ret, -EINVAL);
    EXPECT_TRUE(c.records.empty());
}

}  // namespace
