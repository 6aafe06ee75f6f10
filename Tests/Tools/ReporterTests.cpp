#include "Tools/Reporter.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <string>

namespace pavo::tools {
namespace {

struct Output {
    std::string out;
    std::string err;
};

template <typename Talk>
Output outputOf(bool isJson, Talk talk)
{
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    {
        Reporter reporter("pavo test", isJson);
        talk(reporter);
    }
    Output output;
    output.out = testing::internal::GetCapturedStdout();
    output.err = testing::internal::GetCapturedStderr();
    return output;
}

TEST(Reporter, TalksToPeopleOnStandardError)
{
    const auto output = outputOf(false, [](Reporter& reporter) {
        reporter.say("One.");
        EXPECT_TRUE(reporter.emit({{"event", "one"}}));
        reporter.status("seen by nobody: this is no terminal");
    });
    EXPECT_EQ(output.out, "");
    EXPECT_EQ(output.err, "One.\n");
}

TEST(Reporter, TalksToProgramsOnStandardOutput)
{
    const auto output = outputOf(true, [](Reporter& reporter) {
        reporter.say("One.");
        EXPECT_TRUE(reporter.emit({{"event", "one"}, {"pid", 5}}));
        reporter.status("working");
    });
    EXPECT_EQ(output.out, "{\"event\":\"one\",\"pid\":5}\n");
    EXPECT_EQ(output.err, "");
}

TEST(Reporter, SaysErrorsToBothOnStandardErrorWithTheCommand)
{
    for (const bool isJson : {false, true}) {
        const auto output = outputOf(isJson, [](Reporter& reporter) { reporter.error("no camera"); });
        EXPECT_EQ(output.out, "");
        EXPECT_EQ(output.err, "pavo test: no camera\n");
    }
}

TEST(Reporter, WritesNamesThatAreNoTextAsJsonAllTheSame)
{
    const auto output =
        outputOf(true, [](Reporter& reporter) { EXPECT_TRUE(reporter.emit({{"file", "a\xff\nb\".png"}})); });
    const auto event = nlohmann::json::parse(output.out, nullptr, false);
    ASSERT_TRUE(event.is_object()) << output.out;
    EXPECT_EQ(event["file"], "a\xef\xbf\xbd\nb\".png");
    EXPECT_EQ(output.out.find('\n'), output.out.size() - 1) << "one line";
}

}  // namespace
}  // namespace pavo::tools
