#include "CMIOExtensionSupport/FrameRate.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace pavo {
namespace {

TEST(FrameRate, TheTimeScaleIsAHundredTicksForEachWholeFrameOfASecond)
{
    EXPECT_EQ(timescaleForFrameRate(30.0), 3000);
    EXPECT_EQ(timescaleForFrameRate(59.94), 5900);
    EXPECT_EQ(timescaleForFrameRate(0.5), 0);
    EXPECT_EQ(timescaleForFrameRate(-2.5), -200);
}

TEST(FrameRate, TheLargestRatesFitJustSo)
{
    EXPECT_EQ(timescaleForFrameRate(21474836.9), 2147483600);
    EXPECT_EQ(timescaleForFrameRate(-21474836.9), -2147483600);
}

TEST(FrameRateDeathTest, ARateThatIsNotFiniteEndsTheProcess)
{
    EXPECT_DEATH(timescaleForFrameRate(std::nan("")), "Fatal error: The frame rate is not finite");
    EXPECT_DEATH(timescaleForFrameRate(std::numeric_limits<double>::infinity()),
                 "Fatal error: The frame rate is not finite");
}

TEST(FrameRateDeathTest, ARateBeyond32BitsEndsTheProcess)
{
    EXPECT_DEATH(timescaleForFrameRate(2147483648.0), "Fatal error: The frame rate does not fit 32 bits");
    EXPECT_DEATH(timescaleForFrameRate(-2147483649.0), "Fatal error: The frame rate does not fit 32 bits");
}

TEST(FrameRateDeathTest, ATimeScaleBeyond32BitsEndsTheProcess)
{
    EXPECT_DEATH(timescaleForFrameRate(21474837.0), "Fatal error: The time scale of the frame rate");
    EXPECT_DEATH(timescaleForFrameRate(-21474837.0), "Fatal error: The time scale of the frame rate");
}

}  // namespace
}  // namespace pavo
