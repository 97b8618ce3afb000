// The version-information parser, the debug-level property and the identity defaults.
#include "core/device_properties.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <string>

#include "common/test_util.h"
#include "core/tarn_log.h"

namespace {

using Map = std::map<std::string, std::string>;

Map parse(const std::string& text) {
    Map info;
    FILE* fp = fmemopen(const_cast<char*>(text.data()), text.size(), "r");
    if (text.empty()) fp = tmpfile();
    parse_version_info(fp, &info);
    fclose(fp);
    return info;
}

TEST(VersionInfoTest, ReadsQuotedPairsAndSkipsBraceLines) {
    Map info = parse(
        "{\n"
        "  \"Image_Build_IDs\": {\n"
        "    \"adsp\": \"ADSP.VT.5.2-00321\",\r\n"
        "    \"modem\": \"MPSS.KV.3.1-00777\"\n"
        "  },\n"
        "  \"Metabuild_Info\": { \"Meta_Build_ID\": \"inline.ignored\" },\n"
        "  \"Meta_Build_ID\": \"ORV.LA.4.0-00123-STD.PROD-1\",\n"
        "}\n");
    EXPECT_EQ((Map{{"adsp", "ADSP.VT.5.2-00321"},
                   {"modem", "MPSS.KV.3.1-00777"},
                   {"Meta_Build_ID", "ORV.LA.4.0-00123-STD.PROD-1"}}),
              info);
}

TEST(VersionInfoTest, FirstOccurrenceOfAKeyWins) {
    Map info = parse(
        "\"Meta_Build_ID\": \"first\"\n"
        "}\n"
        "\"Meta_Build_ID\": \"second\"\n");
    EXPECT_EQ("first", info["Meta_Build_ID"]);
}

TEST(VersionInfoTest, OddLinesAreSkippedWithoutHarm) {
    Map info = parse(
        "\n"
        "no quotes at all: here\n"
        "\"only_key\"\n"
        "\"no_value\":\n"
        "\"open_value\": \"never closed\n"
        "\"lonely\n"
        "\"\": \"empty key\"\n"
        "\"a:b\": \"c\"\n"
        "\"good\": \"value \\\"with\\\" quotes\",   \n"
        "\"last\": \"no newline\"");
    EXPECT_EQ(0u, info.count("only_key"));
    EXPECT_EQ(0u, info.count("no_value"));
    EXPECT_EQ(0u, info.count("open_value"));
    EXPECT_EQ(0u, info.count("lonely"));
    EXPECT_EQ("empty key", info[""]);
    // The value starts at the first quote after the first colon, here the key's closing one.
    EXPECT_EQ(": \"c", info["a:b"]);
    EXPECT_EQ("value \\\"with\\\" quotes", info["good"]);
    EXPECT_EQ("no newline", info["last"]);
    EXPECT_TRUE(parse("").empty());
    EXPECT_TRUE(parse("{\n}\n{ \"k\": \"v\" }\n").empty());
}

TEST(DebugLevelPropertyTest, OnlyWholeDecimalNumbersCount) {
    EXPECT_EQ(7, parse_debug_level("7"));
    EXPECT_EQ(-2, parse_debug_level("-2"));
    EXPECT_EQ(3, parse_debug_level("+3"));
    EXPECT_EQ(0, parse_debug_level("0"));
    EXPECT_EQ(0, parse_debug_level(""));
    EXPECT_EQ(0, parse_debug_level("verbose"));
    EXPECT_EQ(0, parse_debug_level("7x"));
    EXPECT_EQ(0, parse_debug_level("99999999999"));
}

// One process builds one DeviceProperties: the identity and the level override are checked here.
TEST(DevicePropertiesTest, PropertyOverridesTheLevelAndUnsetPropertiesTakeDefaults) {
    char dir[] = "/tmp/tarn_props_XXXXXX";
    ASSERT_NE(nullptr, mkdtemp(dir));
    std::string path = std::string(dir) + "/build.prop";
    tarn_test::write_file(path,
                          "# identity of an invented device\n"
                          "ro.product.manufacturer=Quillon\n"
                          "ro.boot.serialno=QX-0042\n"
                          "rw.debug.tarn.stats.enabled=7\n");
    setenv("TARN_HOST_PROPERTIES", path.c_str(), 1);
    g_debug_level = 4;

    DeviceProperties* props = DeviceProperties::getInstance();
    EXPECT_EQ(7, g_debug_level);
    EXPECT_EQ("Quillon", props->mManufacturer);
    EXPECT_EQ("QX-0042", props->mSerialNo);
    EXPECT_EQ("dummyplatform", props->mModel);
    EXPECT_EQ("dummyodmmanufacturer", props->mOdmManufacturer);
    EXPECT_EQ("dummyvendormanufacturer", props->mVendorManufacturer);
    // The host has no version-information file.
    EXPECT_EQ((Map{{"Meta_Build_ID", "dummyVersion"}}), props->mVersionInfo);
    EXPECT_EQ(props, DeviceProperties::getInstance());

    unsetenv("TARN_HOST_PROPERTIES");
    unlink(path.c_str());
    rmdir(dir);
}

}  // namespace
