#include "PavoLoggingSupport/Logger.h"

#include "Tests/Doubles/Foundation/FoundationDouble.h"
#include "Tests/PavoLoggingSupport/SystemLogRecorder.h"
#include "Tests/Support/RecordingInterceptor.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vector>

namespace pavo {
namespace {

using test::RecordedMessage;
using test::RecordingInterceptor;
using test::SystemLogRecorder;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

const ns::Class testedClass("TestedClass");

class LoggerTest : public testing::Test {
protected:
    LoggerTest() { test::resetFoundationDouble(); }
};

TEST_F(LoggerTest, BundleWithoutIdentifierGivesSubsystemDefault)
{
    const Logger logger(ns::Bundle::mainBundle(), "Category");
    EXPECT_EQ(logger.osLog(), os_log_create("default", "Category"));
}

TEST_F(LoggerTest, ClassInABundleWithoutIdentifierGivesSubsystemDefault)
{
    EXPECT_EQ(Logger(testedClass, "Category").osLog(), os_log_create("default", "Category"));
}

TEST_F(LoggerTest, LoggerOfABundleTakesItsIdentifierAsSubsystem)
{
    test::setMainBundleIdentifier("org.example.host");
    const Logger logger(ns::Bundle::mainBundle(), "Category");
    EXPECT_EQ(logger.osLog(), os_log_create("org.example.host", "Category"));
    EXPECT_EQ(logger.category(), "Category");
}

TEST_F(LoggerTest, LoggerOfAClassTakesTheIdentifierOfItsBundle)
{
    test::setMainBundleIdentifier("org.example.host");
    test::setBundleIdentifierForClass("TestedClass", "org.example.plugin");
    EXPECT_EQ(Logger(testedClass, "Category").osLog(), os_log_create("org.example.plugin", "Category"));
}

TEST_F(LoggerTest, LoggerOfAClassWithoutCategoryTakesTheNameOfTheClass)
{
    const Logger logger(testedClass, std::nullopt);
    EXPECT_EQ(logger.category(), "TestedClass");
    EXPECT_EQ(logger.osLog(), os_log_create("default", "TestedClass"));
}

TEST_F(LoggerTest, PluginWithNoCategoryGivesCategoryPluginMarker)
{
    test::setBundleIdentifierForClass("_PluginMarker", "org.example.logging");
    const auto logger = Logger::plugin();
    EXPECT_EQ(logger.category(), "_PluginMarker");
    EXPECT_EQ(logger.osLog(), os_log_create("org.example.logging", "_PluginMarker"));
}

TEST_F(LoggerTest, PluginTakesTheIdentifierOfTheLoggingModulesBundle)
{
    test::setMainBundleIdentifier("org.example.host");
    test::setBundleIdentifierForClass("_PluginMarker", "org.example.logging");
    EXPECT_EQ(Logger::plugin("Category").osLog(), os_log_create("org.example.logging", "Category"));
}

TEST_F(LoggerTest, CopiesShareTheLogAndTheCategory)
{
    const auto logger = Logger::plugin("Category");
    const Logger copy = logger;
    EXPECT_EQ(copy.osLog(), logger.osLog());
    EXPECT_EQ(copy.category(), logger.category());
}

TEST_F(LoggerTest, EachLevelWritesItsOwnType)
{
    const SystemLogRecorder systemLog;
    const RecordingInterceptor interceptor;
    const auto logger = Logger::plugin("Category");
    logger.log("a");
    logger.info("b");
    logger.error("c");
    logger.fault("d");
    logger.log("e", OS_LOG_TYPE_DEBUG, {});

    EXPECT_THAT(interceptor.messages(), ElementsAre(RecordedMessage{"a", "Category", OS_LOG_TYPE_DEFAULT},
                                                    RecordedMessage{"b", "Category", OS_LOG_TYPE_INFO},
                                                    RecordedMessage{"c", "Category", OS_LOG_TYPE_ERROR},
                                                    RecordedMessage{"d", "Category", OS_LOG_TYPE_FAULT},
                                                    RecordedMessage{"e", "Category", OS_LOG_TYPE_DEBUG}));
    std::vector<os_log_type_t> types;
    for (const auto& call : systemLog.calls()) {
        EXPECT_EQ(call.log, logger.osLog());
        EXPECT_TRUE(call.hasImage);
        types.push_back(call.type);
    }
    EXPECT_THAT(types, ElementsAre(OS_LOG_TYPE_DEFAULT, OS_LOG_TYPE_INFO, OS_LOG_TYPE_ERROR,
                                   OS_LOG_TYPE_FAULT, OS_LOG_TYPE_DEBUG));
}

TEST_F(LoggerTest, ErrorHandsTheFormattedTextTheCategoryAndTheTypeToTheInterceptor)
{
    const RecordingInterceptor interceptor;
    Logger::plugin("Category").error("x %{public}d %{public}@", 3, "a");
    EXPECT_THAT(interceptor.messages(), ElementsAre(RecordedMessage{"x 3 a", "Category", OS_LOG_TYPE_ERROR}));
}

TEST_F(LoggerTest, WithoutAnInterceptorTheSystemsLogStillGetsTheMessage)
{
    const SystemLogRecorder systemLog;
    Logger::plugin("Category").log("text");
    ASSERT_EQ(systemLog.calls().size(), 1U);
    EXPECT_STREQ(systemLog.calls()[0].format, "text");
}

TEST_F(LoggerTest, FiveArgumentsReachTheSystemsLog)
{
    const SystemLogRecorder systemLog;
    Logger::plugin("Category").log("%d %d %d %d %d", 1, 2, 3, 4, 5);
    ASSERT_EQ(systemLog.calls().size(), 1U);
    EXPECT_EQ(systemLog.calls()[0].bytes.at(1), 5);
}

TEST_F(LoggerTest, SixArgumentsGiveTheSystemsLogTheBareFormatAndTheInterceptorTheText)
{
    const SystemLogRecorder systemLog;
    const RecordingInterceptor interceptor;
    Logger::plugin("Category").info("%{public}d %d %d %d %d %{public}@", 1, 2, 3, 4, 5, "six");
    ASSERT_EQ(systemLog.calls().size(), 1U);
    EXPECT_STREQ(systemLog.calls()[0].format, "%{public}d %d %d %d %d %{public}@");
    EXPECT_THAT(systemLog.calls()[0].bytes, ElementsAre(0, 0));
    EXPECT_EQ(interceptor.count("1 2 3 4 5 six"), 1U);
}

TEST_F(LoggerTest, AnArrayOfArgumentsHasTheSameCap)
{
    const SystemLogRecorder systemLog;
    const RecordingInterceptor interceptor;
    const std::vector<LogArgument> arguments = {1, 2, 3, 4, 5, 6};
    const auto logger = Logger::plugin("Category");
    logger.log("%d%d%d%d%d", OS_LOG_TYPE_INFO, std::span(arguments).first(5));
    logger.log("%d%d%d%d%d%d", OS_LOG_TYPE_INFO, arguments);
    ASSERT_EQ(systemLog.calls().size(), 2U);
    EXPECT_EQ(systemLog.calls()[0].bytes.at(1), 5);
    EXPECT_THAT(systemLog.calls()[1].bytes, ElementsAre(0, 0));
    EXPECT_EQ(interceptor.count("12345"), 1U);
    EXPECT_EQ(interceptor.count("123456"), 1U);
}

TEST_F(LoggerTest, TheSystemsLogShowsPublicArgumentsAndTheBareFormatBeyondFive)
{
    test::setBundleIdentifierForClass("_PluginMarker", "org.example.logging");
    const auto logger = Logger::plugin("Category");
    testing::internal::CaptureStderr();
    logger.error("got %{public}d of %{public}@", 3, "föur");
    logger.error("cap %d %d %d %d %d %d", 1, 2, 3, 4, 5, 6);
    const auto output = testing::internal::GetCapturedStderr();
    EXPECT_THAT(output, HasSubstr("Error [org.example.logging:Category] got 3 of föur\n"));
    EXPECT_THAT(output, HasSubstr("Error [org.example.logging:Category] cap <decode: missing data>"));
    EXPECT_THAT(output, Not(HasSubstr("cap 1")));
}

TEST_F(LoggerTest, DebugNeverWritesAnythingWhateverTheConfiguration)
{
    const SystemLogRecorder systemLog;
    const RecordingInterceptor interceptor;
    const auto logger = Logger::plugin("Category");
    logger.debug("silent %{public}d", 1);
    {
        const test::DebugMode debugMode;
        logger.debug("silent %{public}@", "too");
    }
    EXPECT_THAT(systemLog.calls(), IsEmpty());
    EXPECT_THAT(interceptor.messages(), IsEmpty());
}

TEST_F(LoggerTest, NotifyInterceptorTellsTheInterceptorOnly)
{
    const SystemLogRecorder systemLog;
    const RecordingInterceptor interceptor;
    Logger::plugin("Category").notifyInterceptor("as %{public}@ it stands", OS_LOG_TYPE_FAULT);
    EXPECT_THAT(systemLog.calls(), IsEmpty());
    EXPECT_THAT(interceptor.messages(),
                ElementsAre(RecordedMessage{"as %{public}@ it stands", "Category", OS_LOG_TYPE_FAULT}));
}

TEST_F(LoggerTest, NotifyInterceptorWithoutAnInterceptorDoesNothing)
{
    const SystemLogRecorder systemLog;
    Logger::plugin("Category").notifyInterceptor("nobody hears", OS_LOG_TYPE_FAULT);
    EXPECT_THAT(systemLog.calls(), IsEmpty());
}

}  // namespace
}  // namespace pavo
