// What the library tells of the running system: its name, local time and processor time.
#include "fixtures.h"

#include <ctime>
#include <regex>
#include <sys/utsname.h>

static std::string system_text(int kind)
{
    char text[256] = "";
    EXPECT_EQ(ZEL_uname(kind, text), 0);
    return text;
}

static std::string time_text(int kind)
{
    char text[64] = "";
    EXPECT_EQ(ZEL_localtime_ISO8601(kind, text), 0);
    return text;
}

TEST(System, IsNamedWithItsVersion)
{
    utsname system = {};
    ASSERT_EQ(uname(&system), 0);
    const std::string name = std::string(system.sysname) + "_";
    for (int kind : {1, 11, 0, -5, 99})
        EXPECT_EQ(system_text(kind), name);
    std::smatch found;
    const std::string all = system_text(3);
    ASSERT_TRUE(std::regex_match(all, found, std::regex("(\\w+) (\\d+)_(\\d+) (\\d+)"))) << all;
    EXPECT_EQ(std::string(system.release).rfind(found.str(2) + "." + found.str(3), 0), 0u) << all;
    EXPECT_EQ(system_text(2), name + " " + found.str(2) + "_" + found.str(3));
    EXPECT_EQ(system_text(12), name + "_" + found.str(2) + "_" + found.str(3));
    EXPECT_EQ(system_text(13), system_text(12) + "_" + found.str(4));
    EXPECT_EQ(ZEL_uname(1, nullptr), 0);
}

// Each zone is named the wrong way round by its rule: UTC-5:30 lies east of Greenwich.
TEST(LocalTime, CarriesItsOffsetFromUniversalTime)
{
    const struct
    {
        const char *zone, *offset, *seconds;
    } cases[] = {{"UTC0", "+0000", "0"},
                 {"AAA-5:30", "+0530", "19800"},
                 {"BBB3:30", "-0330", "-12600"},
                 {"CCC0:30", "+0030", "-1800"}};
    for (const auto& zone : cases)
    {
        Environment local("TZ", zone.zone);
        const std::string both = time_text(11);
        EXPECT_TRUE(std::regex_match(both, std::regex("\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d [+-]\\d{4}"))) << both;
        EXPECT_EQ(both.substr(both.size() - 5), zone.offset);
        const std::string printed = output_of([] { time_text(-2); });
        EXPECT_TRUE(std::regex_match(printed,
                                     std::regex("%utl_23-v-val, GMT = \\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d, tz_value\\(" +
                                                std::string(zone.seconds) +
                                                "\\)\n%utl_23-v-val, Loc = \\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d \\" +
                                                zone.offset + "\n")))
            << printed;
        EXPECT_EQ(time_text(1).size(), 10u);
        EXPECT_EQ(time_text(2).size(), 11u);
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
