#include "Platform/CoreMediaIO/linux/BufferPatience.h"

#include <gtest/gtest.h>

namespace cmio {
namespace {

int samplesUntilExhausted(BufferPatience& patience)
{
    int samples = 1;
    while (!patience.isExhausted())
        ++samples;
    return samples;
}

TEST(BufferPatience, LastsASecondOfSamples)
{
    BufferPatience patience;
    EXPECT_EQ(samplesUntilExhausted(patience), 60);
}

TEST(BufferPatience, StartsAnewWithABufferThatIsFound)
{
    BufferPatience patience;
    for (int sample = 0; sample < 59; ++sample)
        ASSERT_FALSE(patience.isExhausted());
    patience.bufferFound();
    EXPECT_EQ(samplesUntilExhausted(patience), 60);
}

TEST(BufferPatience, IsGoneAtOnceWhenAllAreTakenAgain)
{
    BufferPatience patience;
    samplesUntilExhausted(patience);
    for (int sample = 0; sample < 600; ++sample)
        patience.bufferFound();
    EXPECT_EQ(samplesUntilExhausted(patience), 1);
}

TEST(BufferPatience, ComesBackAfterTenSecondsWithoutTrouble)
{
    BufferPatience patience;
    samplesUntilExhausted(patience);
    for (int sample = 0; sample < 601; ++sample)
        patience.bufferFound();
    EXPECT_EQ(samplesUntilExhausted(patience), 60);
}

}  // namespace
}  // namespace cmio
