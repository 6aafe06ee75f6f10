#include "CMIOExtensionSupport/VideoFrameService.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace pavo {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using xpc::ArgumentType;

std::vector<std::string> selectors(const xpc::ProtocolDescription& protocol)
{
    std::vector<std::string> names;
    for (const auto& method : protocol.methods)
        names.emplace_back(method.selector);
    return names;
}

TEST(VideoFrameService, HasTheProtocolNamesOfTheModule)
{
    EXPECT_EQ(xpc::describe<VideoFrameConsumerService>().name,
              "CMIOExtensionSupport.VideoFrameConsumerService");
    EXPECT_EQ(xpc::describe<VideoFrameProducerService>().name,
              "CMIOExtensionSupport.VideoFrameProducerService");
    EXPECT_EQ(xpc::describe<VideoFrameProducerServiceReportReceiving>().name,
              "CMIOExtensionSupport.VideoFrameProducerServiceReportReceiving");
}

TEST(VideoFrameService, HasTheServiceNames)
{
    EXPECT_EQ(kVideoFrameServiceName, "com.tarnwell.macos.cam.avextension");
    EXPECT_EQ(kXPCServiceName, "com.tarnwell.macos.cam.xpc");
}

TEST(VideoFrameService, TheConsumerHearsFramesAndRates)
{
    const auto& protocol = xpc::describe<VideoFrameConsumerService>();
    EXPECT_THAT(selectors(protocol), ElementsAre("didRecieveRawFrame:timingInfo:", "targetFPSChangedTo:"));
    EXPECT_THAT(protocol.adopted, IsEmpty());
    EXPECT_THAT(protocol.methods[0].arguments,
                ElementsAre(ArgumentType::surface, ArgumentType::sampleTiming));
    EXPECT_THAT(protocol.methods[1].arguments, ElementsAre(ArgumentType::real));
}

TEST(VideoFrameService, TheProducerHearsSubscriptions)
{
    const auto& protocol = xpc::describe<VideoFrameProducerService>();
    EXPECT_THAT(selectors(protocol), ElementsAre("subscribeToVideoFrames", "unsubscribeFromVideoFrames"));
    EXPECT_THAT(protocol.adopted, IsEmpty());
    EXPECT_THAT(protocol.methods[0].arguments, IsEmpty());
    EXPECT_THAT(protocol.methods[1].arguments, IsEmpty());
}

TEST(VideoFrameService, TheReportReceivingProducerRefinesTheProducer)
{
    const auto& protocol = xpc::describe<VideoFrameProducerServiceReportReceiving>();
    EXPECT_THAT(selectors(protocol), ElementsAre("subconsumerSubscriptionWithPID:isSubscribedChangedTo:"));
    EXPECT_THAT(protocol.methods[0].arguments, ElementsAre(ArgumentType::int32, ArgumentType::boolean));
    EXPECT_TRUE(protocol.conformsTo(xpc::describe<VideoFrameProducerService>()));
    EXPECT_FALSE(xpc::describe<VideoFrameProducerService>().conformsTo(protocol));
    EXPECT_NE(protocol.method("subscribeToVideoFrames"), nullptr);
}

TEST(VideoFrameService, TimesTravelAsDurationPresentationAndDecodeTimeOfFourFieldsEach)
{
    const CMSampleTimingInfo timing = {{1, 2, 3, 4}, {5, 6, 7, 8}, {9, 10, 11, 12}};
    EXPECT_EQ(timing.duration.value, 1);
    EXPECT_EQ(timing.presentationTimeStamp.timescale, 6);
    EXPECT_EQ(timing.decodeTimeStamp.flags, 11u);
    EXPECT_EQ(timing.decodeTimeStamp.epoch, 12);
    EXPECT_EQ(sizeof(timing), 72u);
}

}  // namespace
}  // namespace pavo
