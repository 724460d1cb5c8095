// What the library tells of the running system: its name, local time and processor time.
#include "fixtures.h"

#include <ctime>
#include <regex>
#include <sys/utsname.h>

static std::string text_of(int (*tell)(int, char*), int kind)
{
    char text[256] = "";
    EXPECT_EQ(tell(kind, text), 0);
    return text;
}

// A text with every digit as 9.
static std::string shape_of(const std::string& text)
{
    return std::regex_replace(text, std::regex("[0-9]"), "9");
}

TEST(System, IsNamedWithItsVersion)
{
    utsname system = {};
    ASSERT_EQ(uname(&system), 0);
    const std::string name = std::string(system.sysname) + "_";
    for (int kind : {1, 11, 0, -5, 99})
        EXPECT_EQ(text_of(ZEL_uname, kind), name);
    int major = -1, minor = -1, build = -1;
    ASSERT_EQ(std::sscanf(text_of(ZEL_uname, 3).c_str(), (name + " %d_%d %d").c_str(), &major, &minor, &build), 3);
    const std::string version = std::to_string(major) + "_" + std::to_string(minor);
    EXPECT_EQ(std::string(system.release).rfind(std::to_string(major) + "." + std::to_string(minor), 0), 0u);
    EXPECT_EQ(text_of(ZEL_uname, 2), name + " " + version);
    EXPECT_EQ(text_of(ZEL_uname, 12), name + "_" + version);
    EXPECT_EQ(text_of(ZEL_uname, 13), name + "_" + version + "_" + std::to_string(build));
    EXPECT_EQ(ZEL_uname(1, nullptr), 0);
}

// Each zone is named the wrong way round by its rule: UTC-5:30 lies east of Greenwich.
TEST(LocalTime, CarriesItsOffsetFromUniversalTime)
{
    for (const auto& [zone, offset, shift] : {std::tuple<const char*, std::string, std::string>("UTC0", "+0000", "0"),
                                              {"AAA-5:30", "+0530", "19800"},
                                              {"BBB3:30", "-0330", "-12600"},
                                              {"CCC0:30", "+0030", "-1800"}})
    {
        Environment local("TZ", zone);
        const std::string both = text_of(ZEL_localtime_ISO8601, 11), seconds = "tz_value(" + shift + ")";
        EXPECT_EQ(shape_of(both), "9999-99-99 99:99 " + shape_of(offset));
        EXPECT_TRUE(both.ends_with(offset)) << both;
        const std::string printed = output_of([] { text_of(ZEL_localtime_ISO8601, -2); });
        EXPECT_EQ(shape_of(printed), shape_of("%utl_23-v-val, GMT = 0000-00-00 00:00, " + seconds +
                                              "\n%utl_23-v-val, Loc = 0000-00-00 00:00 " + offset + "\n"));
        EXPECT_TRUE(printed.find(seconds) != printed.npos && printed.ends_with(" " + offset + "\n")) << printed;
        EXPECT_EQ(text_of(ZEL_localtime_ISO8601, 1).size(), 10u);
        EXPECT_EQ(text_of(ZEL_localtime_ISO8601, 2).size(), 11u);
    }
    EXPECT_EQ(ZEL_localtime_ISO8601(1, nullptr), 0);
}

TEST(ProcessorTime, GrowsWithWork)
{
    const double start = ZEL_cputime();
    while (ZEL_cputime() < start + 0.02)
        continue;
    EXPECT_LT(start, double(std::clock()) / CLOCKS_PER_SEC);
}

TEST(SelectedModes, AreFoundByNumber)
{
    const int numbers[] = {-3, 2, 5, 9};
    for (int i = 0; i < 4; ++i)
        EXPECT_EQ(SelectedModeIndex(numbers[i], numbers, 4), i);
    EXPECT_EQ(SelectedModeIndex(4, numbers, 4), -1);
    EXPECT_EQ(SelectedModeIndex(-3, numbers, 0), -1);
    EXPECT_EQ(SelectedModeIndex(-3, nullptr, 4), -1);
    ZELIDPAIR low = {INT32_MIN, 1}, high = {INT32_MAX, 0};
    EXPECT_LT(By_Id(&low, &high), 0);
    EXPECT_GT(By_Id(&high, &low), 0);
    EXPECT_EQ(By_Id(&low, &low), 0);
}
