// Every command has a page, which says of each option what the program's own help does.

#include "Tests/Packaging/InstalledTree.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <regex>
#include <set>
#include <sstream>
#include <string>

namespace {

using namespace pavo::test;

// The source of an installed page; empty where there is none.
std::string page(const std::string& name)
{
    const auto file = installed::prefix() / "share" / "man" / "man1" / (name + ".1.gz");
    const auto outcome = installed::run({"gzip", "-dc", file});
    return outcome.status == 0 ? outcome.text : std::string();
}

// The long options that have an entry in the list of a page.
std::set<std::string> optionsOn(const std::string& text)
{
    std::set<std::string> options;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        static const std::regex entry(R"(^\.It (?:Fl [a-z] , )?Fl -([a-z0-9-]+)(?: Ar .*)?$)");
        std::smatch match;
        if (std::regex_match(line, match, entry)) options.insert("--" + match[1].str());
    }
    return options;
}

TEST(Manual, HasAPageForEachCommand)
{
    const auto commands = installed::commands();
    EXPECT_THAT(commands, testing::IsSupersetOf({"camera", "send", "view", "preview", "status", "demo"}));
    const std::string overview = page("pavo");
    for (const auto& command : commands) {
        EXPECT_NE(page("pavo-" + command), "") << command;
        EXPECT_THAT(overview, testing::HasSubstr(".It Ic " + command + "\n"));
    }
}

TEST(Manual, DescribesEachOptionAndNoOther)
{
    EXPECT_EQ(optionsOn(page("pavo")), installed::options());
    for (const auto& command : installed::commands()) {
        const auto options = installed::options(command);
        EXPECT_THAT(options, testing::Contains("--help")) << command;
        EXPECT_EQ(optionsOn(page("pavo-" + command)), options) << command;
    }
}

TEST(Manual, IsWellWritten)
{
    const auto folder = installed::prefix() / "share" / "man" / "man1";
    std::size_t pages = 0;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        const auto outcome = installed::run({"mandoc", "-T", "lint", "-W", "warning", entry.path()});
        EXPECT_EQ(outcome.status, 0) << outcome.text;
        EXPECT_EQ(outcome.text, "");
        ++pages;
    }
    EXPECT_GT(pages, installed::commands().size());
}

}  // namespace
