#include "CMIOExtensionSupport/ProviderSource.h"
#include "CMIOExtensionSupport/VideoDeviceSource.h"
#include "Tests/CMIOExtensionSupport/CameraTreeFixture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <type_traits>

namespace pavo {

struct ProviderSourceTestAccess {
    static void clearVideoDeviceSource(ProviderSource& source) { source.videoDeviceSource_.reset(); }
};

namespace {

using namespace test;
using testing::ElementsAre;
using testing::IsEmpty;

static_assert(!std::is_default_constructible_v<ProviderSource>, "a provider source needs its queue, or none");

class ProviderSourceTest : public CameraTreeFixture {
protected:
    std::shared_ptr<ProviderSource> source = ProviderSource::create(nullptr);
};
using ProviderSourceDeathTest = ProviderSourceTest;

TEST_F(ProviderSourceTest, CreatesTheProviderWithItselfAndTheGivenQueue)
{
    const auto queue = dispatch::Queue::serial("queue of a client");
    const auto other = ProviderSource::create(queue.get());
    const auto provider = cmio::test::record(*other->provider());

    EXPECT_EQ(provider.source.lock(), other);
    EXPECT_EQ(provider.clientQueue, queue.get());
    EXPECT_EQ(cmio::test::record(*source->provider()).clientQueue, nullptr);
}

TEST_F(ProviderSourceTest, AddsTheDeviceOfItsDeviceSourceToTheProvider)
{
    ASSERT_TRUE(source->videoDeviceSource());
    EXPECT_THAT(cmio::test::record(*source->provider()).devices,
                ElementsAre(source->videoDeviceSource()->device()));
}

TEST_F(ProviderSourceTest, CreatesTheProviderThenTheDeviceAndAddsItLast)
{
    Journal journal;
    const auto other = ProviderSource::create(nullptr);
    const auto entries = journal.entries();

    ASSERT_FALSE(entries.empty());
    EXPECT_EQ(entries[0], "create provider");
    EXPECT_EQ(entries[1], "create device");
    EXPECT_EQ(entries.back(), "add device");
}

TEST_F(ProviderSourceTest, PublishesNothingByItself)
{
    EXPECT_THAT(cmio::test::takeStartedProviders(), IsEmpty());
}

TEST_F(ProviderSourceTest, PassesTheDevicesFrameClientThrough)
{
    EXPECT_NE(source->frameClient(), nullptr);
    EXPECT_EQ(source->frameClient(), source->videoDeviceSource()->frameClient());
}

TEST_F(ProviderSourceTest, ConnectsAnyClientAnyNumberOfTimes)
{
    const cmio::ExtensionClient client{ns::UUID::random(), 100};
    ns::Error error;
    for (int i = 0; i < 3; ++i)
        EXPECT_TRUE(source->connectClient(client, &error));
    EXPECT_TRUE(source->connectClient({ns::UUID::random(), 0}, nullptr));
    source->disconnectClient(client);
    EXPECT_TRUE(source->connectClient(client, &error));
    EXPECT_EQ(error, ns::Error());
}

TEST_F(ProviderSourceTest, HasTheManufacturerAsItsOnlyProperty)
{
    EXPECT_THAT(source->availableProperties(), ElementsAre("CMIOExtensionPropertyProviderManufacturer"));
}

TEST_F(ProviderSourceTest, AnsweringAnEmptySetGivesNoManufacturer)
{
    ns::Error error;
    const auto properties = source->providerProperties({}, &error);
    ASSERT_TRUE(properties);
    EXPECT_EQ(properties->manufacturer(), std::nullopt);
    EXPECT_THAT(properties->propertiesDictionary(), IsEmpty());
    EXPECT_EQ(error, ns::Error());
}

TEST_F(ProviderSourceTest, AnsweringUnknownKeysOnlyGivesNoValuesAndNoError)
{
    ns::Error error;
    const auto properties = source->providerProperties({"CMIOExtensionPropertyProviderName", "x"}, &error);
    ASSERT_TRUE(properties);
    EXPECT_THAT(properties->propertiesDictionary(), IsEmpty());
    EXPECT_EQ(error, ns::Error());
}

TEST_F(ProviderSourceTest, AmongOtherKeysOnlyTheManufacturerIsFilled)
{
    const auto properties = source->providerProperties(
        {"CMIOExtensionPropertyProviderName", "CMIOExtensionPropertyProviderManufacturer"}, nullptr);
    ASSERT_TRUE(properties);
    EXPECT_EQ(properties->manufacturer(), "Tarnwell");
    EXPECT_EQ(properties->propertiesDictionary().size(), 1u);
}

TEST_F(ProviderSourceTest, SettingPropertiesSucceedsAndChangesNothing)
{
    cmio::ExtensionProviderProperties properties(cmio::ExtensionProperties::Dictionary{});
    properties.setManufacturer("Another");
    ns::Error error;
    EXPECT_TRUE(source->setProviderProperties(properties, &error));
    EXPECT_EQ(error, ns::Error());
    EXPECT_EQ(source->providerProperties(source->availableProperties(), nullptr)->manufacturer(), "Tarnwell");
}

TEST_F(ProviderSourceDeathTest, AProviderThatRefusesTheDeviceEndsTheProcessAtItsFixedLine)
{
    EXPECT_DEATH(
        {
            cmio::test::failAddDevice(ns::Error{"SomeDomain", 9});
            ProviderSource::create(nullptr);
        },
        "CMIOExtensionSupport/ProviderSource:23: Fatal error: Unexpectedly raised an error: SomeDomain 9");
}

TEST_F(ProviderSourceDeathTest, ReadingTheFrameClientWithoutDeviceSourceEndsTheProcess)
{
    EXPECT_DEATH(
        {
            ProviderSourceTestAccess::clearVideoDeviceSource(*source);
            source->frameClient();
        },
        "Fatal error: The provider source has no device source");
}

}  // namespace
}  // namespace pavo
