#include <CoreFoundation/CoreFoundation.h>

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <string>

#include "Platform/Support/Ref.h"

namespace {

template <typename T>
cf::Ref<CFNumberRef> make(CFNumberType type, T value)
{
    return cf::adopt(CFNumberCreate(kCFAllocatorDefault, type, &value));
}

cf::Ref<CFNumberRef> integer(std::int64_t value)
{
    return make(kCFNumberSInt64Type, value);
}
cf::Ref<CFNumberRef> real(double value)
{
    return make(kCFNumberFloat64Type, value);
}

std::string describe(CFTypeRef object)
{
    const auto description = cf::adopt(CFCopyDescription(object));
    return CFStringGetCStringPtr(description.get(), kCFStringEncodingUTF8);
}

// A type, and the type with a fixed width that stands for it.
struct TypeCase {
    CFNumberType type;
    CFIndex value;
    CFNumberType fixedType;
    bool isFloat;
};

constexpr TypeCase kTypes[] = {
    {kCFNumberSInt8Type, 1, kCFNumberSInt8Type, false},
    {kCFNumberSInt16Type, 2, kCFNumberSInt16Type, false},
    {kCFNumberSInt32Type, 3, kCFNumberSInt32Type, false},
    {kCFNumberSInt64Type, 4, kCFNumberSInt64Type, false},
    {kCFNumberFloat32Type, 5, kCFNumberFloat32Type, true},
    {kCFNumberFloat64Type, 6, kCFNumberFloat64Type, true},
    {kCFNumberCharType, 7, kCFNumberSInt8Type, false},
    {kCFNumberShortType, 8, kCFNumberSInt16Type, false},
    {kCFNumberIntType, 9, kCFNumberSInt32Type, false},
    {kCFNumberLongType, 10, kCFNumberSInt64Type, false},
    {kCFNumberLongLongType, 11, kCFNumberSInt64Type, false},
    {kCFNumberFloatType, 12, kCFNumberFloat32Type, true},
    {kCFNumberDoubleType, 13, kCFNumberFloat64Type, true},
    {kCFNumberCFIndexType, 14, kCFNumberSInt64Type, false},
    {kCFNumberNSIntegerType, 15, kCFNumberSInt64Type, false},
    {kCFNumberCGFloatType, 16, kCFNumberFloat64Type, true},
};

TEST(CFNumber, TypesHaveTheirFixedValuesAndWidths)
{
    for (const auto& [type, value, fixedType, isFloat] : kTypes) {
        EXPECT_EQ(type, value);
        const std::int64_t bits = 0;
        const auto number = cf::adopt(CFNumberCreate(kCFAllocatorDefault, type, &bits));
        ASSERT_TRUE(number);
        EXPECT_EQ(CFNumberGetType(number.get()), fixedType) << value;
        EXPECT_EQ(static_cast<bool>(CFNumberIsFloatType(number.get())), isFloat) << value;
    }
}

TEST(CFNumber, ReadsNoMoreThanTheWidthOfItsType)
{
    const std::int64_t bits = 0x0102'0304'0506'FF80;
    std::int64_t value = 0;
    EXPECT_TRUE(CFNumberGetValue(make(kCFNumberSInt8Type, bits).get(), kCFNumberSInt64Type, &value));
    EXPECT_EQ(value, -128);
    EXPECT_TRUE(CFNumberGetValue(make(kCFNumberSInt16Type, bits).get(), kCFNumberSInt64Type, &value));
    EXPECT_EQ(value, -128);
    EXPECT_TRUE(CFNumberGetValue(make(kCFNumberSInt32Type, bits).get(), kCFNumberSInt64Type, &value));
    EXPECT_EQ(value, 0x0506'FF80);
}

TEST(CFNumber, GivesBackEachTypeThatItWasMadeFrom)
{
    std::int8_t small = 0;
    EXPECT_TRUE(CFNumberGetValue(integer(-5).get(), kCFNumberSInt8Type, &small));
    EXPECT_EQ(small, -5);
    std::int16_t medium = 0;
    EXPECT_TRUE(CFNumberGetValue(integer(1920).get(), kCFNumberShortType, &medium));
    EXPECT_EQ(medium, 1920);
    std::int32_t large = 0;
    EXPECT_TRUE(CFNumberGetValue(integer(1920).get(), kCFNumberIntType, &large));
    EXPECT_EQ(large, 1920);
    float single = 0;
    EXPECT_TRUE(CFNumberGetValue(make(kCFNumberFloatType, 1.5F).get(), kCFNumberFloatType, &single));
    EXPECT_EQ(single, 1.5F);
    double precise = 0;
    EXPECT_TRUE(CFNumberGetValue(real(0.1).get(), kCFNumberDoubleType, &precise));
    EXPECT_EQ(precise, 0.1);
}

TEST(CFNumber, TellsThatAnIntegerDoesNotFitAndGivesTheNearest)
{
    std::int8_t small = 0;
    EXPECT_FALSE(CFNumberGetValue(integer(300).get(), kCFNumberSInt8Type, &small));
    EXPECT_EQ(small, 127);
    EXPECT_FALSE(CFNumberGetValue(integer(-300).get(), kCFNumberSInt8Type, &small));
    EXPECT_EQ(small, -128);
}

TEST(CFNumber, TellsThatAFractionIsLost)
{
    std::int32_t value = 0;
    EXPECT_FALSE(CFNumberGetValue(real(-2.75).get(), kCFNumberSInt32Type, &value));
    EXPECT_EQ(value, -2);
    EXPECT_TRUE(CFNumberGetValue(real(3.0).get(), kCFNumberSInt32Type, &value));
    EXPECT_EQ(value, 3);
}

TEST(CFNumber, GivesTheNearestIntegerForRealsThatNoIntegerReaches)
{
    std::int64_t value = 1;
    EXPECT_FALSE(CFNumberGetValue(real(1e300).get(), kCFNumberSInt64Type, &value));
    EXPECT_EQ(value, std::numeric_limits<std::int64_t>::max());
    EXPECT_FALSE(CFNumberGetValue(real(-INFINITY).get(), kCFNumberSInt64Type, &value));
    EXPECT_EQ(value, std::numeric_limits<std::int64_t>::min());
    EXPECT_FALSE(CFNumberGetValue(real(NAN).get(), kCFNumberSInt64Type, &value));
    EXPECT_EQ(value, 0);
    EXPECT_TRUE(CFNumberGetValue(real(-9223372036854775808.0).get(), kCFNumberSInt64Type, &value));
    EXPECT_EQ(value, std::numeric_limits<std::int64_t>::min());
}

TEST(CFNumber, TellsThatARealCannotHoldAnInteger)
{
    double value = 0;
    EXPECT_TRUE(CFNumberGetValue(integer(1LL << 53).get(), kCFNumberFloat64Type, &value));
    EXPECT_FALSE(CFNumberGetValue(integer((1LL << 53) + 1).get(), kCFNumberFloat64Type, &value));
    EXPECT_FALSE(CFNumberGetValue(integer(std::numeric_limits<std::int64_t>::max()).get(),
                                  kCFNumberFloat64Type, &value));
    EXPECT_EQ(value, 9223372036854775808.0);
    float single = 0;
    EXPECT_FALSE(CFNumberGetValue(real(0.1).get(), kCFNumberFloat32Type, &single));
    EXPECT_EQ(single, 0.1F);
    EXPECT_TRUE(CFNumberGetValue(real(NAN).get(), kCFNumberFloat32Type, &single));
    EXPECT_TRUE(std::isnan(single));
}

TEST(CFNumber, RefusesATypeThatItDoesNotKnow)
{
    std::int64_t value = 7;
    EXPECT_EQ(CFNumberCreate(kCFAllocatorDefault, static_cast<CFNumberType>(0), &value), nullptr);
    EXPECT_EQ(CFNumberCreate(kCFAllocatorDefault, static_cast<CFNumberType>(17), &value), nullptr);
    EXPECT_EQ(CFNumberCreate(kCFAllocatorDefault, kCFNumberSInt64Type, nullptr), nullptr);
    EXPECT_FALSE(CFNumberGetValue(integer(1).get(), static_cast<CFNumberType>(17), &value));
    EXPECT_EQ(value, 7);
}

TEST(CFNumber, NumbersOfEqualValueAreEqualAndHashedAlikeWhateverTheirTypes)
{
    EXPECT_TRUE(CFEqual(integer(60).get(), make(kCFNumberIntType, 60).get()));
    EXPECT_TRUE(CFEqual(integer(60).get(), real(60.0).get()));
    EXPECT_TRUE(CFEqual(real(60.0).get(), integer(60).get()));
    EXPECT_EQ(CFHash(integer(60).get()), CFHash(real(60.0).get()));
    EXPECT_EQ(CFHash(real(0.5).get()), CFHash(make(kCFNumberFloat32Type, 0.5F).get()));
    EXPECT_TRUE(CFEqual(real(0.5).get(), make(kCFNumberFloat32Type, 0.5F).get()));
}

TEST(CFNumber, NumbersOfDifferentValueAreNotEqual)
{
    EXPECT_FALSE(CFEqual(integer(60).get(), integer(61).get()));
    EXPECT_FALSE(CFEqual(integer(60).get(), real(60.5).get()));
    // These two are one and the same double.
    EXPECT_FALSE(CFEqual(integer((1LL << 53) + 1).get(), real(9007199254740992.0).get()));
    EXPECT_FALSE(
        CFEqual(integer(std::numeric_limits<std::int64_t>::max()).get(), real(9223372036854775808.0).get()));
}

TEST(CFNumber, IsDescribedInDecimal)
{
    EXPECT_EQ(describe(integer(-1920).get()), "-1920");
    EXPECT_EQ(describe(real(0.1).get()), "0.1");
    EXPECT_EQ(describe(real(60.0).get()), "60");
    EXPECT_EQ(describe(real(3000000.0).get()), "3000000");
    EXPECT_EQ(describe(real(1.0 / 3.0).get()), "0.3333333333333333");
    EXPECT_EQ(describe(real(INFINITY).get()), "inf");
}

TEST(CFBoolean, HasTwoConstants)
{
    EXPECT_TRUE(CFBooleanGetValue(kCFBooleanTrue));
    EXPECT_FALSE(CFBooleanGetValue(kCFBooleanFalse));
    EXPECT_FALSE(CFEqual(kCFBooleanTrue, kCFBooleanFalse));
    EXPECT_EQ(describe(kCFBooleanTrue), "true");
    EXPECT_EQ(describe(kCFBooleanFalse), "false");
}

}  // namespace
