// The operations that write at debug: print, dump and trace.

#include "PavoLoggingSupport/Logger.h"

#include "Tests/Doubles/Foundation/FoundationDouble.h"
#include "Tests/PavoLoggingSupport/SystemLogRecorder.h"
#include "Tests/Support/RecordingInterceptor.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vector>

namespace pavo {
namespace {

using test::DebugMode;
using test::RecordedMessage;
using test::RecordingInterceptor;
using test::SystemLogRecorder;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;

class LoggerDebugTest : public testing::Test {
protected:
    LoggerDebugTest() : logger(Logger::plugin("Category")) {}

    const SystemLogRecorder systemLog;
    const RecordingInterceptor interceptor;
    const Logger logger;
};

void traceFrom(const Logger& logger)
{
    logger.trace();
}

TEST_F(LoggerDebugTest, WithDebugDisabledPrintDumpAndTraceNeitherLogNorCallTheInterceptor)
{
    bool isEvaluated = false;
    const auto value = [&isEvaluated] {
        isEvaluated = true;
        return 1;
    };
    logger.print(value);
    logger.dump(value);
    logger.trace();
    logger.trace("/x/y/File.ext", "run(_:count:)", 42);

    EXPECT_FALSE(isEvaluated);
    EXPECT_THAT(systemLog.calls(), IsEmpty());
    EXPECT_THAT(interceptor.messages(), IsEmpty());
}

TEST_F(LoggerDebugTest, WithDebugDisabledTraceDoesNotLookAtTheSignature)
{
    logger.trace("File.ext", "no parentheses", 1);
    EXPECT_THAT(systemLog.calls(), IsEmpty());
}

TEST_F(LoggerDebugTest, PrintLogsTheDescriptiveTextAsOnePublicArgument)
{
    const DebugMode debugMode;
    logger.print([] { return std::vector{1, 2}; });

    ASSERT_EQ(systemLog.calls().size(), 1U);
    EXPECT_STREQ(systemLog.calls()[0].format, "%{public}@");
    EXPECT_EQ(systemLog.calls()[0].type, OS_LOG_TYPE_DEBUG);
    EXPECT_EQ(systemLog.calls()[0].bytes.at(1), 1);
    EXPECT_THAT(interceptor.messages(),
                ElementsAre(RecordedMessage{"[1, 2]", "Category", OS_LOG_TYPE_DEBUG}));
}

TEST_F(LoggerDebugTest, PrintedTextIsNoFormat)
{
    const DebugMode debugMode;
    logger.print([] { return "100%d %{public}@"; });
    EXPECT_EQ(interceptor.count("100%d %{public}@"), 1U);
}

TEST_F(LoggerDebugTest, DumpLogsTheStructure)
{
    const DebugMode debugMode;
    logger.dump([] { return std::vector{1, 2}; });

    ASSERT_EQ(systemLog.calls().size(), 1U);
    EXPECT_STREQ(systemLog.calls()[0].format, "%{public}@");
    EXPECT_EQ(systemLog.calls()[0].type, OS_LOG_TYPE_DEBUG);
    EXPECT_THAT(interceptor.messages(),
                ElementsAre(RecordedMessage{"▿ 2 elements\n  - 1\n  - 2", "Category", OS_LOG_TYPE_DEBUG}));
}

TEST_F(LoggerDebugTest, TraceLogsFileFunctionAndLine)
{
    const DebugMode debugMode;
    logger.trace("/x/y/File.ext", "run(_:count:)", 42);

    ASSERT_EQ(systemLog.calls().size(), 1U);
    EXPECT_STREQ(systemLog.calls()[0].format, "%{public}@.%{public}@():%ld");
    EXPECT_EQ(systemLog.calls()[0].type, OS_LOG_TYPE_DEBUG);
    EXPECT_EQ(systemLog.calls()[0].bytes.at(1), 3);
    EXPECT_THAT(interceptor.messages(),
                ElementsAre(RecordedMessage{"File.run():42", "Category", OS_LOG_TYPE_DEBUG}));
}

TEST_F(LoggerDebugTest, TraceOnStandardErrorShowsItsLine)
{
    const DebugMode debugMode;
    testing::internal::CaptureStderr();
    logger.trace("/x/y/File.ext", "run(_:count:)", 42);
    EXPECT_THAT(testing::internal::GetCapturedStderr(), testing::EndsWith("File.run():42\n"));
}

TEST_F(LoggerDebugTest, TraceLeavesOutEverythingFromTheFirstToTheLastParenthesis)
{
    const DebugMode debugMode;
    logger.trace("F.ext", "f(a:)(b:)", 1);
    logger.trace("F.ext", "startStream(with:)", 2);
    EXPECT_EQ(interceptor.count("F.f():1"), 1U);
    EXPECT_EQ(interceptor.count("F.startStream():2"), 1U);
}

TEST_F(LoggerDebugTest, TraceTakesTheLastPathComponentWithoutItsExtension)
{
    const DebugMode debugMode;
    logger.trace("/a/b/VideoStreamSource.ext", "f()", 1);
    logger.trace("NoFolder", "f()", 1);
    logger.trace("/a.b/two.points.ext", "f()", 1);
    logger.trace("/a/.hidden", "f()", 1);
    EXPECT_EQ(interceptor.count("VideoStreamSource.f():1"), 1U);
    EXPECT_EQ(interceptor.count("NoFolder.f():1"), 1U);
    EXPECT_EQ(interceptor.count("two.points.f():1"), 1U);
    EXPECT_EQ(interceptor.count(".hidden.f():1"), 1U);
}

TEST_F(LoggerDebugTest, TraceNamesItsCallerByItself)
{
    const DebugMode debugMode;
    traceFrom(logger);
    ASSERT_EQ(interceptor.messages().size(), 1U);
    EXPECT_THAT(interceptor.messages()[0].message, MatchesRegex("LoggerDebugTests\\.traceFrom\\(\\):[0-9]+"));
}

using LoggerDebugDeathTest = LoggerDebugTest;

TEST_F(LoggerDebugDeathTest, TraceOfASignatureWithoutParenthesesEndsTheProcess)
{
    const DebugMode debugMode;
    EXPECT_DEATH(logger.trace("F.ext", "name", 1), "Fatal error: A function signature has a parameter list");
    EXPECT_DEATH(logger.trace("F.ext", "name(", 1), "Fatal error: A function signature has a parameter list");
    EXPECT_DEATH(logger.trace("F.ext", ")name(", 1),
                 "Fatal error: A function signature has a parameter list");
}

}  // namespace
}  // namespace pavo
