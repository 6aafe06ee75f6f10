#include "Platform/Foundation/NSProcessInfo.h"

#include <gtest/gtest.h>
#include <unistd.h>

namespace {

TEST(NSProcessInfo, UserIsTheOneWhoseProcessThisIs)
{
    EXPECT_EQ(ns::ProcessInfo::userIdentifier(), ::getuid());
}

}  // namespace
