// Setters print where their temporary files lie: in the folder of the test, and unseen.
#ifndef QUIET_H
#define QUIET_H

#include "fixtures.h"

class QuietTest : public FileTest
{
protected:
    void SetUp() override { testing::internal::CaptureStdout(); }
    void TearDown() override
    {
        ZelTest::TearDown();
        zel::refuse_mapping = zel::refuse_reservation = zel::refuse_unnamed = false;
        testing::internal::GetCapturedStdout();
    }

private:
    Environment tmp_{"TMP", folder.folder().c_str()};
};

// What a call that must fail says.
template <typename Call> std::string refusal_of(Call call)
{
    int result = 1;
    const std::string said = errors_of([&] { result = call(); });
    EXPECT_LE(result, 0);
    return said;
}

#endif
