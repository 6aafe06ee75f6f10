// Bundles and the process as the adapters see them, beyond what is tested on all systems.

#include "Platform/Foundation/NSBundle.h"
#include "Platform/Foundation/NSProcessInfo.h"
#include "Platform/Foundation/NSUUID.h"
#include "Platform/Foundation/mac/NSConversions.h"
#include "Tests/MacOS/AdapterFixture.h"
#include "Tests/Platform/Foundation/TestBundle.h"

#include <gtest/gtest.h>

namespace pavo::test {
namespace {

constinit const ns::Class thisClass("ThisClass");

// What the double of Foundation tells instead of a folder.
class ToldBundle final : public TestBundle {
public:
    ToldBundle(const std::optional<std::string>& identifier, const std::string& resource)
        : resourcePath_("/Plugin/Resources/" + resource)
    {
        setBundles({{"/Main", {"org.example.main", {}}},
                    {"/Plugin", {identifier.value_or(""), {{resource, resourcePath_}}}}});
        setMainBundle("/Main");
        setBundleOfClasses("/Plugin");
    }

    const ns::Class& classInside() const override { return thisClass; }
    std::string path() const override { return "/Plugin"; }
    std::string resourcePath() const override { return resourcePath_; }

private:
    const std::string resourcePath_;
};

class FoundationAdapter : public AdapterTest {
protected:
    FoundationAdapter()
    {
        setBundles({{"/Main", {"com.tarnwell.main", {}}}, {"/Plugin", {}}});
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

TEST_F(FoundationAdapter, AsksForTheBundleOfAClassThatTheSystemKnows)
{
    EXPECT_EQ(ns::Bundle::bundleForClass(thisClass).bundlePath(), "/Plugin");
    EXPECT_NE(objc_getClass(lastClassOfBundle().c_str()), Nil);
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

std::unique_ptr<TestBundle> makeBundle(const std::optional<std::string>& identifier,
                                       const std::string& resource)
{
    return std::make_unique<ToldBundle>(identifier, resource);
}

}  // namespace pavo::test
