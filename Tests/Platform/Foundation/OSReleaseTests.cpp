#include "Platform/Foundation/NSProcessInfo.h"

#include "Platform/Foundation/linux/OSRelease.h"

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <string>

namespace {

using ns::versionFromOSRelease;
using Version = ns::OperatingSystemVersion;

TEST(OSRelease, ReadsUpToThreeNumbers)
{
    EXPECT_EQ(versionFromOSRelease("VERSION_ID=12\n"), (Version{12, 0, 0}));
    EXPECT_EQ(versionFromOSRelease("VERSION_ID=22.04\n"), (Version{22, 4, 0}));
    EXPECT_EQ(versionFromOSRelease("VERSION_ID=3.19.1\n"), (Version{3, 19, 1}));
    EXPECT_EQ(versionFromOSRelease("VERSION_ID=1.2.3.4\n"), (Version{1, 2, 3}));
}

TEST(OSRelease, FindsTheLineAmongOthersAndInQuotationMarks)
{
    EXPECT_EQ(versionFromOSRelease("NAME=\"X\"\nMY_VERSION_ID=9\nVERSION_ID=\"12.4\"\nID=x\n"),
              (Version{12, 4, 0}));
    EXPECT_EQ(versionFromOSRelease("VERSION_ID='15.5'"), (Version{15, 5, 0}));
}

TEST(OSRelease, WithoutAVersionAllIsZero)
{
    EXPECT_EQ(versionFromOSRelease(""), Version{});
    EXPECT_EQ(versionFromOSRelease("ID=rolling\n"), Version{});
    EXPECT_EQ(versionFromOSRelease("VERSION_ID=\n"), Version{});
    EXPECT_EQ(versionFromOSRelease("VERSION_ID=\""), Version{});
    EXPECT_EQ(versionFromOSRelease("VERSION_ID=tumbleweed\n"), Version{});
    EXPECT_EQ(versionFromOSRelease("VERSION_ID=99999999999999999999\n"), Version{});
}

TEST(OSRelease, NumbersEndWithTheFirstThatIsNone)
{
    EXPECT_EQ(versionFromOSRelease("VERSION_ID=12.x.3\n"), (Version{12, 0, 0}));
}

TEST(NSProcessInfo, TellsTheVersionOfTheRunningSystem)
{
    std::ifstream file("/etc/os-release");
    if (!file) file.open("/usr/lib/os-release");
    const std::string text(std::istreambuf_iterator<char>(file), {});
    EXPECT_EQ(ns::ProcessInfo::operatingSystemVersion(), versionFromOSRelease(text));
}

}  // namespace
