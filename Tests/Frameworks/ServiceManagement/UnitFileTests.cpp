#include "UnitFile.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using pavo::servicemanagement::programOfUnit;

TEST(UnitFile, NamesTheProgramThatItStarts)
{
    EXPECT_EQ(programOfUnit("[Unit]\nDescription=x\n\n[Service]\nType=notify\nExecStart=/opt/helper\n"),
              "/opt/helper");
    EXPECT_EQ(programOfUnit("[Service]\nExecStart=/opt/helper --flag value"), "/opt/helper");
    EXPECT_EQ(programOfUnit("[Service]\n  ExecStart =\t/opt/helper\r\n"), "/opt/helper");
}

TEST(UnitFile, APathMayBeQuoted)
{
    EXPECT_EQ(programOfUnit("[Service]\nExecStart=\"/opt/Pavo Camera/helper\" --flag"),
              "/opt/Pavo Camera/helper");
    EXPECT_EQ(programOfUnit("[Service]\nExecStart=\"/opt/unfinished"), "");
}

TEST(UnitFile, ASettingMayGoOverSeveralLines)
{
    EXPECT_EQ(programOfUnit("[Service]\nExecStart=\\\n# a comment\n /opt/helper\\\n --flag\n"),
              "/opt/helper");
    EXPECT_EQ(programOfUnit("[Service]\nDescription=x \\\nExecStart=/opt/other\nExecStart=/opt/helper\n"),
              "/opt/helper")
        << "what continues another setting is none of its own";
}

TEST(UnitFile, OnlyTheServiceSectionCounts)
{
    EXPECT_EQ(programOfUnit("ExecStart=/opt/helper"), "");
    EXPECT_EQ(programOfUnit("[Install]\nExecStart=/opt/helper\n[Service]\nType=simple\n"), "");
    EXPECT_EQ(programOfUnit("[Service]\n[Unit]\nExecStart=/opt/helper\n"), "");
}

TEST(UnitFile, CommentsDoNotCount)
{
    EXPECT_EQ(
        programOfUnit("[Service]\n#ExecStart=/opt/other\n;ExecStart=/opt/other\nExecStart=/opt/helper\n"),
        "/opt/helper");
}

TEST(UnitFile, OtherSettingsDoNotCount)
{
    EXPECT_EQ(
        programOfUnit("[Service]\nExecStartPre=/opt/other\nexecstart=/opt/other\nExecStart=/opt/helper"),
        "/opt/helper");
}

TEST(UnitFile, StartsOneProgramOnly)
{
    EXPECT_EQ(programOfUnit("[Service]\nExecStart=/opt/helper\nExecStart=/opt/other\n"), "");
    EXPECT_EQ(programOfUnit("[Service]\nExecStart=/opt/other\nExecStart=\nExecStart=/opt/helper\n"),
              "/opt/helper")
        << "an empty setting takes the others back";
    EXPECT_EQ(programOfUnit("[Service]\nExecStart=/opt/other\nExecStart=\n"), "");
}

TEST(UnitFile, OnlyAPlainPathIsAProgram)
{
    for (const std::string command :
         {"-/opt/helper", "@/opt/helper x", "+/opt/helper", "!!/opt/helper", "helper", "/opt/%p",
          "/opt/\\x2fhelper", "'/opt/helper'", "/opt/\"helper\"", "\"\""})
        EXPECT_EQ(programOfUnit("[Service]\nExecStart=" + command + "\n"), "") << command;
}

TEST(UnitFile, NothingIsFoundInNothing)
{
    EXPECT_EQ(programOfUnit(""), "");
    EXPECT_EQ(programOfUnit("\n\n"), "");
    EXPECT_EQ(programOfUnit(std::string_view("[Service]\nExecStart", 19)), "");
    EXPECT_EQ(programOfUnit(std::string("\0[Service]\0", 11)), "");
}

}  // namespace
