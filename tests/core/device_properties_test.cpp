// The version-information parser and the debug-level property's conversion.
#include "device_properties.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using Map = std::map<std::string, std::string>;

Map parse(std::string text) {
    Map info;
    FILE* fp = fmemopen(&text[0], text.size(), "r");
    parse_version_info(fp, &info);
    fclose(fp);
    return info;
}

TEST(VersionInfoTest, BracesFirstKeyAndOddLines) {
    EXPECT_EQ((Map{{"adsp", "ADSP.VT.5.2-00321"}, {"Meta_Build_ID", "ORV.LA.4.0-00123-PROD"}}),
              parse("{\n"
                    "  \"Image_Build_IDs\": {\n"
                    "    \"adsp\": \"ADSP.VT.5.2-00321\",\r\n"
                    "  },\n"
                    "  \"Info\": { \"Meta_Build_ID\": \"on.a.brace.line\" },\n"
                    "  \"Meta_Build_ID\": \"ORV.LA.4.0-00123-PROD\",\n"
                    "  \"Meta_Build_ID\": \"second\",\n"
                    "}\n"));
    EXPECT_EQ((Map{{"", "empty key"}, {"a:b", ": \"c"}, {"q", "x \"y\" z"}, {"last", "v"}}),
              parse("\n"
                    "no quotes: here\n"
                    "\"only_key\"\n"
                    "\"no_value\":\n"
                    "\"open_value\": \"never closed\n"
                    "\"lonely\n"
                    "\"\": \"empty key\"\n"
                    "\"a:b\": \"c\"\n"
                    "\"q\": \"x \"y\" z\",  \n"
                    "\"last\": \"v\""));
}

TEST(DebugLevelPropertyTest, OnlyWholeDecimalNumbersCount) {
    EXPECT_EQ(7, parse_debug_level("7"));
    EXPECT_EQ(-2, parse_debug_level("-2"));
    for (const char* bad : {"0", "", "verbose", "7x", "99999999999"})
        EXPECT_EQ(0, parse_debug_level(bad)) << bad;
}

}  // namespace
