#include "CMIOExtensionSupport/EntryPoint.h"
#include "CMIOExtensionSupport/ProviderSource.h"
#include "Tests/CMIOExtensionSupport/CameraTreeFixture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <type_traits>

namespace pavo {
namespace {

using namespace test;
using testing::ElementsAre;
using testing::IsEmpty;

static_assert(std::is_base_of_v<TWCMIOExtensionStubSupportEntryPointProtocol, EntryPoint>,
              "the stub knows the protocol and nothing else");

class EntryPointTest : public CameraTreeFixture {
protected:
    std::shared_ptr<EntryPoint> entryPoint = EntryPoint::create();
};
using EntryPointDeathTest = EntryPointTest;

TEST_F(EntryPointTest, BuildsTheTreeWithoutAClientQueueAndPublishesNothingYet)
{
    ASSERT_TRUE(entryPoint->providerSource());
    const auto provider = cmio::test::record(*entryPoint->providerSource()->provider());
    EXPECT_EQ(provider.clientQueue, nullptr);
    EXPECT_EQ(provider.devices.size(), 1u);
    EXPECT_THAT(cmio::test::takeStartedProviders(), IsEmpty());
}

TEST_F(EntryPointTest, StartPublishesTheProvider)
{
    entryPoint->start();
    EXPECT_THAT(cmio::test::takeStartedProviders(), ElementsAre(entryPoint->providerSource()->provider()));
}

TEST_F(EntryPointTest, ASecondStartPublishesTheSameProviderAgain)
{
    const auto provider = entryPoint->providerSource()->provider();
    entryPoint->start();
    entryPoint->start();
    EXPECT_THAT(cmio::test::takeStartedProviders(), ElementsAre(provider, provider));
}

TEST_F(EntryPointTest, StopBeforeOrAfterStartHasNoEffect)
{
    Journal journal;
    entryPoint->stop();
    entryPoint->start();
    entryPoint->stop();
    EXPECT_THAT(journal.entries(), ElementsAre("start service"));
    EXPECT_THAT(cmio::test::takeStartedProviders(), ElementsAre(entryPoint->providerSource()->provider()));
}

TEST_F(EntryPointTest, TheStubStartsAndStopsItThroughTheProtocol)
{
    TWCMIOExtensionStubSupportEntryPointProtocol& stubsView = *entryPoint;
    stubsView.start();
    stubsView.stop();
    EXPECT_EQ(cmio::test::takeStartedProviders().size(), 1u);
}

TEST_F(EntryPointTest, ReleasingItReleasesTheTree)
{
    const std::weak_ptr<ProviderSource> providerSource = entryPoint->providerSource();
    const std::weak_ptr<cmio::ExtensionProvider> provider = entryPoint->providerSource()->provider();
    entryPoint.reset();
    EXPECT_TRUE(providerSource.expired());
    EXPECT_TRUE(provider.expired());
}

TEST_F(EntryPointDeathTest, StartingWithoutAProviderEndsTheProcess)
{
    EXPECT_DEATH(
        {
            entryPoint->providerSource()->setProvider(nullptr);
            entryPoint->start();
        },
        "Fatal error: The provider source has no provider");
}

}  // namespace
}  // namespace pavo
