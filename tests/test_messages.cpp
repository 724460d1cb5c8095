// The shape of messages and of the progress line, captured from the real streams.
#include "fixtures.h"

TEST(Messages, PrefixEveryLineOfAText)
{
    EXPECT_EQ(errors_of([] { ZEL_Error("mode %d\nis missing", 7); }), "ERROR:  mode 7\nERROR:  is missing\n");
    EXPECT_EQ(errors_of([] { ZEL_Warning("ends\n"); }), "WARNING:  ends\nWARNING:  \n");
    EXPECT_EQ(errors_of([] { ZEL_Error("%s", ""); }), "ERROR:  \n");
    EXPECT_EQ(output_of([] { ZEL_Info("\nNode info:\n   Count: %ld", 3L); }), "\nNode info:\n   Count: 3\n");
    EXPECT_EQ(errors_of([] { ZEL_Info("information"); }), "");
    EXPECT_EQ(output_of([] { ZEL_Error("an error"); }), "");
}

TEST(Messages, AreCutAfter999Characters)
{
    const std::string fits(999, 'x'), too_long(5000, 'x');
    EXPECT_EQ(output_of([&] { ZEL_Info("%s", fits.c_str()); }), fits + "\n");
    EXPECT_EQ(output_of([&] { ZEL_Info("%s", too_long.c_str()); }), fits + "\n");
}

TEST(TimeMonitor, CountsStepsUpToAndBeyondTheTotal)
{
    ZEL_TimeMonitor(4);
    std::string last;
    for (int step = 1; step <= 5; ++step)
        last = output_of([] { ZEL_TimeMonitorStamp(); });
    EXPECT_EQ(last, "\r125%,    0 seconds left of    0 estimated total         ");
}

TEST(TimeMonitor, PrintsWithoutStepsToCount)
{
    ZEL_TimeMonitor(0);
    const std::string line = output_of([] { ZEL_TimeMonitorStamp(); });
    EXPECT_EQ(line.rfind("\r2147483647%, ", 0), 0u) << line;
}
