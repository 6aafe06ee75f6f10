// Bundles and the process as the adapters see them. Identifiers are tested by what all systems share.

#include "Platform/Foundation/NSBundle.h"
#include "Platform/Foundation/NSProcessInfo.h"
#include "Platform/Foundation/NSUUID.h"
#include "Platform/Foundation/mac/NSConversions.h"
#include "Tests/MacOS/AdapterFixture.h"

#include <gtest/gtest.h>

namespace pavo::test {
namespace {

constinit const ns::Class thisClass("ThisClass");

class FoundationAdapter : public AdapterTest {
protected:
    FoundationAdapter()
    {
        setBundles({{"/Main", {"com.tarnwell.main", {}}},
                    {"/Plugin", {"", {{"picture.png", "/Plugin/Resources/picture.png"}}}}});
        setMainBundle("/Main");
        setBundleOfClasses("/Plugin");
    }
};

TEST_F(FoundationAdapter, KnowsTheMainBundleAndItsIdentifier)
{
    const auto bundle = ns::Bundle::mainBundle();
    EXPECT_EQ(bundle.bundlePath(), "/Main");
    EXPECT_EQ(bundle.bundleIdentifier(), "com.tarnwell.main");
}

TEST_F(FoundationAdapter, FindsABundleByAClassOfTheImageThatHoldsTheTypesAddress)
{
    EXPECT_EQ(ns::Bundle::bundleForClass(thisClass).bundlePath(), "/Plugin");
    EXPECT_NE(objc_getClass(lastClassOfBundle().c_str()), Nil);
}

TEST_F(FoundationAdapter, TakesTheMainBundleForAnAddressInNoImage)
{
    const auto onHeap = std::make_unique<const ns::Class>("Nowhere");
    EXPECT_EQ(ns::Bundle::bundleForClass(*onHeap).bundlePath(), "/Main");
}

TEST_F(FoundationAdapter, HasNoIdentifierWhereTheBundleHasNone)
{
    EXPECT_EQ(ns::Bundle::bundleForClass(thisClass).bundleIdentifier(), std::nullopt);
}

TEST_F(FoundationAdapter, FindsResourcesByNameAndExtension)
{
    const auto bundle = ns::Bundle::bundleForClass(thisClass);
    EXPECT_EQ(bundle.pathForResource("picture", "png"), "/Plugin/Resources/picture.png");
    EXPECT_EQ(bundle.pathForResource("picture", "jpg"), std::nullopt);
    EXPECT_EQ(ns::Bundle::mainBundle().pathForResource("picture", "png"), std::nullopt);
}

TEST_F(FoundationAdapter, ReadsTheVersionOfTheSystem)
{
    setOperatingSystemVersion({12, 3, 1});
    EXPECT_EQ(ns::ProcessInfo::operatingSystemVersion(), (ns::OperatingSystemVersion{12, 3, 1}));
}

TEST_F(FoundationAdapter, TakesNoTextThatIsNotUTF8)
{
    EXPECT_EQ(ns::toObject("\xFF"), nil);
    EXPECT_EQ(ns::UUID::withString("\xFF"), std::nullopt);
    EXPECT_EQ(ns::toText(nil), "");
}

TEST_F(FoundationAdapter, GivesAnIdentifierItsBytesBack)
{
    const auto uuid = ns::UUID::random();
    EXPECT_EQ(ns::fromObject(ns::toObject(uuid)), uuid);
}

TEST_F(FoundationAdapter, PassesErrorsOnWhereThereAreAnyAndSomebodyAsks)
{
    const ns::Error error{"a domain", -7};
    ns::Error result;
    ns::store(ns::toObject(error), &result);
    EXPECT_EQ(result, error);
    ns::store(nil, &result);
    EXPECT_EQ(result, error);
    ns::store(ns::toObject(error), nullptr);
}

}  // namespace
}  // namespace pavo::test
