// The service of the user's systemd, looked at by systemd itself.

#include "Tests/Packaging/InstalledTree.h"
#include "Tests/Support/ChildProcess.h"
#include "Tests/Support/Descriptors.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <regex>
#include <string>

namespace {

using namespace pavo::test;
using testing::HasSubstr;

// The unit as installed, but with the program where this tree has it.
std::string unit()
{
    const std::string text =
        readFile(installed::prefix() / "lib" / "systemd" / "user" / "pavo-camera.service");
    return std::regex_replace(text, std::regex("ExecStart=/"), "ExecStart=" PAVO_INSTALL_ROOT "/");
}

class Service : public testing::Test {
protected:
    Service()
    {
        ::setenv("XDG_RUNTIME_DIR", folder_.path().c_str(), 1);
        ::setenv("HOME", folder_.path().c_str(), 1);
    }

    // What systemd says of a unit with this text.
    installed::Outcome analyze(const std::string& text, std::vector<std::string> arguments)
    {
        const std::string file = folder_.path() + "/pavo-camera.service";
        std::ofstream(file) << text;
        arguments.insert(arguments.begin(), "systemd-analyze");
        arguments.push_back(file);
        return installed::run(arguments);
    }

    // How much a service with this text may do, by systemd's own scale.
    double exposure(const std::string& text)
    {
        const auto outcome = analyze(text, {"--user", "--no-pager", "security", "--offline=yes"});
        static const std::regex overall("Overall exposure level for pavo-camera.service: ([0-9.]+)");
        std::smatch match;
        EXPECT_TRUE(std::regex_search(outcome.text, match, overall)) << outcome.text;
        return match.empty() ? 10 : std::stod(match[1]);
    }

    const TemporaryFolder folder_;
};

TEST_F(Service, IsWellFormed)
{
    ASSERT_THAT(unit(), HasSubstr("\nExecStart=" + installed::pavo() + " camera\n"));
    const auto outcome = analyze(unit(), {"--user", "--man=no", "verify"});
    EXPECT_EQ(outcome.status, 0) << outcome.text;
    EXPECT_EQ(outcome.text, "");
}

TEST_F(Service, WouldBeToldOfAWrongSetting)
{
    const auto outcome =
        analyze(unit() + "[Service]\nNoNewPrivilege=yes\n", {"--user", "--man=no", "verify"});
    EXPECT_THAT(outcome.text, HasSubstr("NoNewPrivilege"));
}

TEST_F(Service, MayDoLessThanPipeWire)
{
    const std::string pipeWire = readFile("/usr/lib/systemd/user/pipewire.service");
    ASSERT_FALSE(pipeWire.empty());
    EXPECT_LT(exposure(unit()), exposure(pipeWire));
}

TEST_F(Service, NamesItsManualPage)
{
    EXPECT_THAT(unit(), HasSubstr("\nDocumentation=man:pavo-camera(1)\n"));
    EXPECT_TRUE(installed::files().contains("share/man/man1/pavo-camera.1.gz"));
}

}  // namespace
