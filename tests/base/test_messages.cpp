// The shape of messages and of the progress line, captured from the real streams.
#include "fixtures.h"

#include <thread>

TEST(Messages, PrefixEveryLineOfAText)
{
    EXPECT_EQ(errors_of([] { ZEL_Error("mode %d\nis missing", 7); }), "ERROR:  mode 7\nERROR:  is missing\n");
    EXPECT_EQ(errors_of([] { ZEL_Warning("ends\n"); }), "WARNING:  ends\nWARNING:  \n");
    EXPECT_EQ(errors_of([] { ZEL_Error("%s", ""); }), "ERROR:  \n");
    EXPECT_EQ(output_of([] { ZEL_Info("\nNode info:\n   Count: %ld", 3L); }), "\nNode info:\n   Count: 3\n");
    EXPECT_EQ(errors_of([] { ZEL_Info("information"); }), "");
    EXPECT_EQ(output_of([] { ZEL_Error("an error"); }), "");
}

static void collect(void* context, int severity, const char* text)
{
    *static_cast<std::string*>(context) += std::to_string(severity) + "<" + text + ">";
}

// Whole texts, each in one call, and none on the streams; of this thread, as long as it is set.
TEST(MessageHandler, TakesTheMessagesOfItsThread)
{
    std::string taken, of_other, printed;
    void* context = nullptr;
    const auto report = [] {
        ZEL_Error("mode %d\nis missing", 7);
        ZEL_Warning("ends\n");
        EXPECT_EQ(ZEL_Info("%5000s", ""), 999);
        EXPECT_EQ(ZEL_SetModalLoad(nullptr, 0, 0, 0.0), 0);
    };
    EXPECT_EQ(ZEL_SetMessageHandler(collect, &taken), nullptr);
    EXPECT_EQ(ZEL_MessageHandler(&context), collect);
    EXPECT_EQ(context, &taken);
    EXPECT_EQ(output_of([&] { printed = errors_of(report); }) + printed, "");
    EXPECT_EQ(taken, "2<mode 7\nis missing>1<ends\n>0<" + std::string(999, ' ') +
                         ">2<The database has not been initialized.>");

    taken.clear();
    std::thread([&of_other] {
        EXPECT_EQ(errors_of([] { ZEL_Error("to the stream"); }), "ERROR:  to the stream\n");
        EXPECT_EQ(ZEL_SetMessageHandler(collect, &of_other), nullptr);
        ZEL_Error("to its own");
    }).join();
    EXPECT_EQ(taken, "");
    EXPECT_EQ(of_other, "2<to its own>");
    EXPECT_EQ(ZEL_SetMessageHandler(nullptr, nullptr), collect);
    EXPECT_EQ(errors_of([] { ZEL_Error("again"); }), "ERROR:  again\n");
    EXPECT_EQ(taken, "");
}

TEST(TimeMonitor, CountsStepsBeyondTheTotalAndWithoutOne)
{
    ZEL_TimeMonitor(1);
    output_of(ZEL_TimeMonitorStamp);
    EXPECT_EQ(output_of(ZEL_TimeMonitorStamp), "\r200%,    0 seconds left of    0 estimated total         ");
    ZEL_TimeMonitor(0);
    EXPECT_EQ(output_of(ZEL_TimeMonitorStamp).rfind("\r2147483647%, ", 0), 0u);
}

// The estimate is the time so far and the last step's for each that is left, averaged with the estimate before.
TEST(TimeMonitor, EstimatesFromTheLastStepAndTheEstimateBefore)
{
    const auto stamp_at = [](double time) {
        zel::fixed_time = time;
        return output_of(ZEL_TimeMonitorStamp);
    };
    zel::fixed_time = 1e9;
    ZEL_TimeMonitor(10);
    EXPECT_EQ(stamp_at(1e9 + 4), "\r 10%,   36 seconds left of   40 estimated total         "); // 4 * 9 + 4
    EXPECT_EQ(stamp_at(1e9 + 6), "\r 20%,   25 seconds left of   31 estimated total         "); // (40 + 2 * 8 + 6) / 2
    EXPECT_EQ(stamp_at(1e9 + 9), "\r 30%,   21 seconds left of   30 estimated total         "); // (31 + 3 * 7 + 9) / 2
    zel::fixed_time = -1.0;
}
