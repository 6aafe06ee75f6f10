#include "Tests/CMIOExtensionSupport/VideoStreamSourceFixture.h"

#include <variant>

namespace pavo::test {

VideoStreamSourceFixture::~VideoStreamSourceFixture()
{
    if (source) drainFrameQueue();
}

void VideoStreamSourceFixture::sendFrame(const xpc::test::Peer& producer, std::int32_t width,
                                         std::int32_t height) const
{
    const auto surface = makeSurface(width, height, kCVPixelFormatType_422YpCbCr8);
    const bool isTaken =
        producer.send<VideoFrameConsumerService, &VideoFrameConsumerService::didRecieveRawFrame>(
            surface.get(), makeTiming(0));
    EXPECT_TRUE(isTaken);
    drainFrameQueue();
}

std::vector<std::string> reports(const xpc::test::Peer& producer)
{
    std::vector<std::string> texts;
    for (const auto& message : producer.sentMessages())
        if (message.selector == "subconsumerSubscriptionWithPID:isSubscribedChangedTo:")
            texts.push_back(std::to_string(std::get<std::int32_t>(message.arguments[0])) + " " +
                            std::to_string(std::get<bool>(message.arguments[1])));
    return texts;
}

}  // namespace pavo::test
