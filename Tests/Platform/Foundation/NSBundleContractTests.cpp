// What bundles promise on every system.

#include "Tests/Platform/Foundation/TestBundle.h"

#include <gtest/gtest.h>

namespace pavo::test {
namespace {

TEST(NSBundleContract, IsFoundByAClassAndKnowsItsIdentifier)
{
    const auto bundle = makeBundle("org.example.test", "picture.png");
    const auto found = ns::Bundle::bundleForClass(bundle->classInside());
    EXPECT_EQ(found.bundlePath(), bundle->path());
    EXPECT_EQ(found.bundleIdentifier(), "org.example.test");
    EXPECT_NE(ns::Bundle::mainBundle().bundlePath(), bundle->path());
}

TEST(NSBundleContract, HasNoIdentifierWhereNoneIsWritten)
{
    const auto bundle = makeBundle(std::nullopt, "picture.png");
    EXPECT_EQ(ns::Bundle::bundleForClass(bundle->classInside()).bundleIdentifier(), std::nullopt);
}

TEST(NSBundleContract, FindsItsResourcesByNameAndExtension)
{
    const auto bundle = makeBundle("org.example.test", "picture.png");
    const auto found = ns::Bundle::bundleForClass(bundle->classInside());
    EXPECT_EQ(found.pathForResource("picture", "png"), bundle->resourcePath());
    EXPECT_EQ(found.pathForResource("picture", "jpg"), std::nullopt);
    EXPECT_EQ(found.pathForResource("other", "png"), std::nullopt);
    EXPECT_EQ(ns::Bundle::mainBundle().pathForResource("picture", "png"), std::nullopt);
}

TEST(NSBundleContract, IsTheMainOneForAnAddressInNoImage)
{
    const auto bundle = makeBundle("org.example.test", "picture.png");
    const auto onHeap = std::make_unique<const ns::Class>("Nowhere");
    EXPECT_EQ(ns::Bundle::bundleForClass(*onHeap).bundlePath(), ns::Bundle::mainBundle().bundlePath());
}

}  // namespace
}  // namespace pavo::test
