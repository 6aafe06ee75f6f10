#include <CoreFoundation/CoreFoundation.h>
#include <gtest/gtest.h>
#include <os/log.h>

#include <cerrno>
#include <cstdint>
#include <string>
#include <vector>

#include "LogFixture.h"
#include "Platform/Support/Ref.h"

namespace {

using pavo::test::ArgumentBuffer;
using pavo::test::kCount;
using pavo::test::kCString;
using pavo::test::kDefault;
using pavo::test::kObject;
using pavo::test::kPrivate;
using pavo::test::kPublic;
using pavo::test::kScalar;
using pavo::test::kSensitive;

using LogMessage = pavo::test::LogFixture;

template <typename T>
ArgumentBuffer scalar(T value)
{
    return ArgumentBuffer().add(kScalar, kDefault, value);
}

ArgumentBuffer object(CFTypeRef value, pavo::test::Privacy privacy = kPublic)
{
    return ArgumentBuffer().add(kObject, privacy, value);
}

ArgumentBuffer string(const char* value, pavo::test::Privacy privacy = kPublic)
{
    return ArgumentBuffer().add(kCString, privacy, value);
}

TEST_F(LogMessage, AFormatWithoutConversionsIsItself)
{
    EXPECT_EQ(message("Started", ArgumentBuffer()), "Started");
    EXPECT_EQ(message("", ArgumentBuffer()), "");
    EXPECT_EQ(message("100%% of {it}", ArgumentBuffer()), "100% of {it}");
}

TEST_F(LogMessage, AnAbsentFormatIsAnEmptyMessage)
{
    EXPECT_EQ(message(nullptr, scalar(1)), "");
}

TEST_F(LogMessage, PrintsIntegers)
{
    EXPECT_EQ(message("%d", scalar(-7)), "-7");
    EXPECT_EQ(message("%i", scalar(-7)), "-7");
    EXPECT_EQ(message("%{public}d", ArgumentBuffer().add(kScalar, kPublic, -7)), "-7");
    EXPECT_EQ(message("%{public}u", ArgumentBuffer().add(kScalar, kPublic, 4294967295U)), "4294967295");
    EXPECT_EQ(message("%ld", scalar(-9000000000L)), "-9000000000");
    EXPECT_EQ(message("%lu", scalar(18446744073709551615UL)), "18446744073709551615");
    EXPECT_EQ(message("%zu", scalar(sizeof(int))), "4");
    EXPECT_EQ(message("%zd", scalar(-1L)), "-1");
    EXPECT_EQ(message("%jd", scalar(std::intmax_t(-1))), "-1");
    EXPECT_EQ(message("%llx", scalar(0xFEED'0000'BEEFULL)), "feed0000beef");
    EXPECT_EQ(message("%X", scalar(0xBEEF)), "BEEF");
    EXPECT_EQ(message("%o", scalar(8)), "10");
}

TEST_F(LogMessage, ReadsUnsignedIntegersAsUnsigned)
{
    EXPECT_EQ(message("%u", scalar(-1)), "4294967295");
    EXPECT_EQ(message("%x", scalar(-1)), "ffffffff");
}

TEST_F(LogMessage, ReadsIntegersOfEverySize)
{
    EXPECT_EQ(message("%d", scalar(std::int8_t(-1))), "-1");
    EXPECT_EQ(message("%u", scalar(std::uint8_t(255))), "255");
    EXPECT_EQ(message("%d", scalar(std::int16_t(-1))), "-1");
    EXPECT_EQ(message("%u", scalar(std::uint16_t(65535))), "65535");
}

TEST_F(LogMessage, NarrowsWhatWasPassedAsAnInt)
{
    EXPECT_EQ(message("%hd", scalar(0x1'8000)), "-32768");
    EXPECT_EQ(message("%hu", scalar(0x1'8000)), "32768");
    EXPECT_EQ(message("%hhd", scalar(0x1FF)), "-1");
    EXPECT_EQ(message("%hhu", scalar(0x1FF)), "255");
}

TEST_F(LogMessage, PrintsReals)
{
    EXPECT_EQ(message("%{public}f", ArgumentBuffer().add(kScalar, kPublic, 60.0)), "60.000000");
    EXPECT_EQ(message("%.2f", scalar(59.938)), "59.94");
    EXPECT_EQ(message("%g", scalar(0.5)), "0.5");
    EXPECT_EQ(message("%e", scalar(1500.0)), "1.500000e+03");
    EXPECT_EQ(message("%f", scalar(0.5F)), "0.500000");
    EXPECT_EQ(message("%Lf", scalar(0.5L)), "0.500000");
}

TEST_F(LogMessage, PrintsCharactersAndPointers)
{
    EXPECT_EQ(message("%c", scalar(int('P'))), "P");
    EXPECT_EQ(message("%p", scalar(reinterpret_cast<void*>(0x1000))), "0x1000");
}

TEST_F(LogMessage, KeepsFlagsWidthAndPrecision)
{
    EXPECT_EQ(message("[%5d]", scalar(42)), "[   42]");
    EXPECT_EQ(message("[%-5d]", scalar(42)), "[42   ]");
    EXPECT_EQ(message("[%05d]", scalar(42)), "[00042]");
    EXPECT_EQ(message("[%+d]", scalar(42)), "[+42]");
    EXPECT_EQ(message("[%#x]", scalar(255)), "[0xff]");
    EXPECT_EQ(message("[%{public}6.1f]", scalar(2.25)), "[   2.2]");
    EXPECT_EQ(message("[%6s]", string("ab")), "[    ab]");
    EXPECT_EQ(message("[%-6s]", string("ab")), "[ab    ]");
}

TEST_F(LogMessage, TakesWidthAndPrecisionFromArguments)
{
    EXPECT_EQ(message("[%*d]", scalar(5).add(kScalar, kDefault, 42)), "[   42]");
    EXPECT_EQ(message("[%*d]", scalar(-5).add(kScalar, kDefault, 42)), "[42   ]");
    EXPECT_EQ(message("%.*f", scalar(1).add(kScalar, kDefault, 2.75)), "2.8");
    EXPECT_EQ(message("%.*f", scalar(-1).add(kScalar, kDefault, 2.75)), "2.750000");
    const auto counted = ArgumentBuffer().add(kCount, kDefault, 3).add(kCString, kPublic, "abcdef");
    EXPECT_EQ(message("%{public}.*s", counted), "abc");
}

TEST_F(LogMessage, TakesTheConstantPrecisionOfAStringFromItsCount)
{
    const auto counted = ArgumentBuffer().add(kCount, kDefault, 3).add(kCString, kPublic, "abcdef");
    EXPECT_EQ(message("%{public}.3s", counted), "abc");
}

TEST_F(LogMessage, NeverReadsAStringPastItsPrecision)
{
    const char unterminated[] = {'a', 'b', 'c'};
    const char* const text = unterminated;
    EXPECT_EQ(message("%.*s", ArgumentBuffer().add(kCount, kDefault, 3).add(kCString, kPublic, text)), "abc");
}

TEST_F(LogMessage, LimitsAWidthThatWouldFillTheMemory)
{
    EXPECT_EQ(message("%*d", scalar(2147483647).add(kScalar, kDefault, 1)).size(), 1024U);
    EXPECT_EQ(message("%999999999999d", scalar(1)).size(), 1024U);
}

TEST_F(LogMessage, PrintsPublicStrings)
{
    EXPECT_EQ(message("%{public}s", string("Pavo")), "Pavo");
    EXPECT_EQ(message("%{public}s", string("")), "");
    EXPECT_EQ(message("%{public}s", string(nullptr)), "(null)");
}

TEST_F(LogMessage, DescribesPublicObjects)
{
    const int value = 60;
    const auto number = cf::adopt(CFNumberCreate(kCFAllocatorDefault, kCFNumberIntType, &value));
    EXPECT_EQ(message("%{public}@", object(CFSTR("Größe…"))), "Größe…");
    EXPECT_EQ(message("%{public}@", object(number.get())), "60");
    EXPECT_EQ(message("%{public}@", object(kCFBooleanTrue)), "true");
    EXPECT_EQ(message("%{public}@", object(nullptr)), "(null)");
    EXPECT_EQ(CFGetRetainCount(number.get()), 1);
}

TEST_F(LogMessage, HidesPrivateValuesOfEveryKind)
{
    EXPECT_EQ(message("%{private}@", object(CFSTR("secret"), kPrivate)), "<private>");
    EXPECT_EQ(message("%{private}s", string("secret", kPrivate)), "<private>");
    EXPECT_EQ(message("%{private}d", ArgumentBuffer().add(kScalar, kPrivate, 42)), "<private>");
    EXPECT_EQ(message("%{sensitive}s", string("secret", kSensitive)), "<private>");
}

TEST_F(LogMessage, HidesStringsAndObjectsThatNobodyMarkedPublic)
{
    EXPECT_EQ(message("%s", string("secret", kDefault)), "<private>");
    EXPECT_EQ(message("%@", object(CFSTR("secret"), kDefault)), "<private>");
    EXPECT_EQ(message("%d", scalar(42)), "42");
}

TEST_F(LogMessage, TheBufferDecidesAboutPrivacyNotTheFormat)
{
    EXPECT_EQ(message("%{public}s", string("secret", kPrivate)), "<private>");
}

TEST_F(LogMessage, DoesNotTouchAPrivatePointer)
{
    const auto* const bad = reinterpret_cast<const char*>(1);
    EXPECT_EQ(message("%s", string(bad, kPrivate)), "<private>");
    EXPECT_EQ(message("%@", object(bad, kDefault)), "<private>");
}

TEST_F(LogMessage, PutsSeveralValuesInOrder)
{
    const auto buffer = ArgumentBuffer()
                            .add(kObject, kPublic, static_cast<CFTypeRef>(CFSTR("file")))
                            .add(kObject, kPublic, static_cast<CFTypeRef>(CFSTR("run")))
                            .add(kScalar, kDefault, 42L);
    EXPECT_EQ(message("%{public}@.%{public}@():%ld", buffer), "file.run():42");
}

TEST_F(LogMessage, TellsTheErrorOfTheCaller)
{
    auto buffer = ArgumentBuffer().addErrno().bytes();
    const auto line = captured([&buffer] {
        errno = ENOENT;
        _os_log_impl(nullptr, OS_LOG_DEFAULT, OS_LOG_TYPE_ERROR, "open: %m", buffer.data(),
                     static_cast<std::uint32_t>(buffer.size()));
        EXPECT_EQ(errno, ENOENT);
    });
    EXPECT_TRUE(line.ends_with("] open: No such file or directory\n")) << line;
}

TEST_F(LogMessage, SaysWhereAnItemIsMissing)
{
    EXPECT_EQ(message("%{public}@ %d", ArgumentBuffer()), "<decode: missing data> <decode: missing data>");
    EXPECT_EQ(message("%d %d", scalar(1)), "1 <decode: missing data>");
    EXPECT_EQ(message("%*d", scalar(1)), "<decode: missing data>");
}

TEST_F(LogMessage, SaysWhereAnItemIsOfAnotherKind)
{
    EXPECT_EQ(message("%d", string("text")), "<decode: mismatch>");
    EXPECT_EQ(message("%s", scalar(1L)), "<decode: mismatch>");
    EXPECT_EQ(message("%@", scalar(1L)), "<decode: mismatch>");
    EXPECT_EQ(message("%f", scalar(std::int16_t(1))), "<decode: mismatch>");
    EXPECT_EQ(message("%d %d", string("text").add(kScalar, kDefault, 5)), "<decode: mismatch> 5");
    struct {
        char bytes[3];
    } odd = {};
    EXPECT_EQ(message("%d", scalar(odd)), "<decode: mismatch>");
    EXPECT_EQ(message("%s", ArgumentBuffer().add(kCString, kPublic, 1)), "<decode: mismatch>");
    EXPECT_EQ(message("%@", ArgumentBuffer().add(kObject, kPublic, 1)), "<decode: mismatch>");
}

TEST_F(LogMessage, NeverReadsPastABufferThatIsCutShort)
{
    const auto whole = scalar(1).add(kCString, kPublic, "text").bytes();
    for (std::size_t size = 0; size < whole.size(); ++size) {
        // A vector of this very size, so that one byte too many is an error that the sanitizers see.
        const std::vector<std::uint8_t> cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
        const bool hasFirst = size >= 2 + 2 + sizeof(int);
        EXPECT_EQ(message("%d %s", cut),
                  std::string(hasFirst ? "1" : "<decode: missing data>") + " <decode: missing data>")
            << size;
    }
    EXPECT_EQ(message("%d %s", whole), "1 text");
}

TEST_F(LogMessage, BelievesNeitherACountNorASizeThatTheBufferDoesNotHave)
{
    EXPECT_EQ(message("%d", std::vector<std::uint8_t>{0, 255}), "<decode: missing data>");
    EXPECT_EQ(message("%d", std::vector<std::uint8_t>{0, 1, 0x00, 255, 1}), "<decode: missing data>");
    EXPECT_EQ(message("%d %d", std::vector<std::uint8_t>{0, 1, 0x00, 4, 1, 0, 0, 0, 0x00, 4, 2, 0, 0, 0}),
              "1 <decode: missing data>");
}

TEST_F(LogMessage, LeavesAConversionThatItDoesNotKnowAsItIs)
{
    EXPECT_EQ(message("%y %d", scalar(1)), "%y 1");
    EXPECT_EQ(message("ends with %", ArgumentBuffer()), "ends with %");
    EXPECT_EQ(message("ends with %5.", ArgumentBuffer()), "ends with %5.");
    EXPECT_EQ(message("never closed %{public", ArgumentBuffer()), "never closed %{public");
    EXPECT_EQ(message("never closed %{", ArgumentBuffer()), "never closed %{");
}

}  // namespace
