#include "CMIOExtensionSupport/VideoDeviceSource.h"
#include "CMIOExtensionSupport/VideoStreamSource.h"
#include "Tests/CMIOExtensionSupport/CameraTreeFixture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <variant>

namespace pavo {

struct VideoDeviceSourceTestAccess {
    static const std::shared_ptr<VideoStreamSource>& streamSource(const VideoDeviceSource& source)
    {
        return source.streamSource_;
    }
    static void clearStreamSource(VideoDeviceSource& source) { source.streamSource_.reset(); }
};

namespace {

using namespace test;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;
using Access = VideoDeviceSourceTestAccess;

class VideoDeviceSourceTest : public CameraTreeFixture {
protected:
    std::shared_ptr<VideoDeviceSource> source = VideoDeviceSource::create();
};
using VideoDeviceSourceDeathTest = VideoDeviceSourceTest;

TEST_F(VideoDeviceSourceTest, TheDeviceHasItsFixedIdentity)
{
    const auto device = cmio::test::record(*source->device());
    EXPECT_EQ(device.localizedName, "Pavo Camera");
    EXPECT_EQ(device.deviceID.uuidString(), "6CED8472-EA28-42FE-8359-2F441C1C12B5");
    EXPECT_EQ(device.legacyDeviceID, "Pavo");
    EXPECT_EQ(device.source.lock(), source);
}

TEST_F(VideoDeviceSourceTest, TheDevicesIdentityIsTheSameEveryTime)
{
    const auto first = cmio::test::record(*source->device());
    const auto other = VideoDeviceSource::create();
    const auto second = cmio::test::record(*other->device());

    EXPECT_EQ(first.deviceID, second.deviceID);
    EXPECT_EQ(first.legacyDeviceID, second.legacyDeviceID);
}

TEST_F(VideoDeviceSourceTest, KeepsASecondIdentifierAsAConstant)
{
    EXPECT_EQ(secondDeviceID().uuidString(), "7C842570-F1FB-4338-90F7-F43A2B008F43");
}

TEST_F(VideoDeviceSourceTest, AddsTheStreamOfItsStreamSourceToTheDevice)
{
    EXPECT_THAT(cmio::test::record(*source->device()).streams,
                ElementsAre(Access::streamSource(*source)->stream()));
}

TEST_F(VideoDeviceSourceTest, CreatesTheDeviceThenTheStreamAndAddsItLast)
{
    Journal journal;
    const auto other = VideoDeviceSource::create();
    auto entries = journal.entries();
    std::erase_if(entries, [](const std::string& entry) {
        return entry.find("stream") == std::string::npos && entry.find("device") == std::string::npos;
    });

    EXPECT_THAT(entries, ElementsAre("create device", "create stream", "add stream"));
}

TEST_F(VideoDeviceSourceTest, PassesTheStreamsFrameClientThrough)
{
    EXPECT_EQ(source->frameClient(), Access::streamSource(*source)->frameClient());
}

TEST_F(VideoDeviceSourceTest, HasThreeProperties)
{
    EXPECT_THAT(source->availableProperties(),
                UnorderedElementsAre("CMIOExtensionPropertyDeviceTransportType",
                                     "CMIOExtensionPropertyDeviceModel",
                                     "CMIOExtensionPropertyDeviceCanBeDefaultInputDevice"));
}

TEST_F(VideoDeviceSourceTest, AnsweringAnEmptySetGivesEmptyProperties)
{
    ns::Error error;
    const auto properties = source->deviceProperties({}, &error);
    ASSERT_TRUE(properties);
    EXPECT_THAT(properties->propertiesDictionary(), IsEmpty());
    EXPECT_EQ(error, ns::Error());
}

TEST_F(VideoDeviceSourceTest, AskingForTheModelAloneGivesTheModelAndNoTransportType)
{
    const auto properties = source->deviceProperties({"CMIOExtensionPropertyDeviceModel"}, nullptr);
    ASSERT_TRUE(properties);
    EXPECT_EQ(properties->model(), "Pavo Camera");
    EXPECT_EQ(properties->transportType(), std::nullopt);
    EXPECT_EQ(properties->propertiesDictionary().size(), 1u);
}

TEST_F(VideoDeviceSourceTest, AskingForAllThreeGivesVirtualModelAndYes)
{
    const auto properties = source->deviceProperties(source->availableProperties(), nullptr);
    ASSERT_TRUE(properties);
    EXPECT_EQ(properties->transportType(), 0x76697274u);
    EXPECT_EQ(properties->transportType(), 1986622068u);
    EXPECT_EQ(properties->model(), "Pavo Camera");
    const auto& dictionary = properties->propertiesDictionary();
    const auto state = dictionary.find("CMIOExtensionPropertyDeviceCanBeDefaultInputDevice");
    ASSERT_NE(state, dictionary.end());
    ASSERT_TRUE(std::holds_alternative<bool>(state->second.value));
    EXPECT_TRUE(std::get<bool>(state->second.value));
    EXPECT_EQ(dictionary.size(), 3u);
}

TEST_F(VideoDeviceSourceTest, UnknownPropertiesAreIgnored)
{
    ns::Error error;
    const auto properties = source->deviceProperties({"CMIOExtensionPropertyDeviceIsSuspended", ""}, &error);
    ASSERT_TRUE(properties);
    EXPECT_THAT(properties->propertiesDictionary(), IsEmpty());
    EXPECT_EQ(error, ns::Error());
}

TEST_F(VideoDeviceSourceTest, SettingPropertiesSucceedsAndChangesNothing)
{
    cmio::ExtensionDeviceProperties properties(cmio::ExtensionProperties::Dictionary{});
    properties.setModel("Another");
    ns::Error error;
    EXPECT_TRUE(source->setDeviceProperties(properties, &error));
    EXPECT_EQ(error, ns::Error());
    EXPECT_EQ(source->deviceProperties(source->availableProperties(), nullptr)->model(), "Pavo Camera");
}

TEST_F(VideoDeviceSourceTest, TheDeviceCanBeReplaced)
{
    const auto other = VideoDeviceSource::create();
    source->setDevice(other->device());
    EXPECT_EQ(source->device(), other->device());
}

TEST_F(VideoDeviceSourceDeathTest, ADeviceThatRefusesTheStreamEndsTheProcessAtItsFixedLine)
{
    EXPECT_DEATH(
        {
            cmio::test::failAddStream(ns::Error{"SomeDomain", -7});
            VideoDeviceSource::create();
        },
        "CMIOExtensionSupport/VideoDeviceSource:25: Fatal error: Unexpectedly raised an error: SomeDomain "
        "-7");
}

TEST_F(VideoDeviceSourceDeathTest, ReadingTheFrameClientWithoutStreamSourceEndsTheProcess)
{
    EXPECT_DEATH(
        {
            Access::clearStreamSource(*source);
            source->frameClient();
        },
        "Fatal error: The device source has no stream source");
}

}  // namespace
}  // namespace pavo
