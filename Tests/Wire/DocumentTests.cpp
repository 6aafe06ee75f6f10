// The names, types and numbers on the wire, compared with a table that is written down here, and with what
// Documentation/WireFormat.md tells those who write a producer.

#include "CMIOExtensionSupport/BosunServiceProtocol.h"
#include "CMIOExtensionSupport/VideoFrameService.h"
#include "IOSurfaceTrailer.h"
#include "Platform/XPC/linux/WireLimits.h"
#include "Platform/XPC/linux/WireNames.h"
#include "Tests/Wire/WireDocument.h"

#include <CoreVideo/CoreVideo.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <map>
#include <span>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

namespace pavo {
namespace {

using test::WireDocument;
using testing::Contains;
using testing::HasSubstr;
using testing::UnorderedElementsAreArray;

struct WireMessage {
    std::string interface;
    std::string member;
    std::string signature;
    std::size_t bodyBytes;

    auto operator<=>(const WireMessage&) const = default;
};

void PrintTo(const WireMessage& message, std::ostream* stream)
{
    *stream << message.interface << "." << message.member << " " << message.signature << " "
            << message.bodyBytes;
}

const std::vector<WireMessage>& messages()
{
    static const std::vector<WireMessage> all = {
        {"CMIOExtensionSupport.VideoFrameConsumerService", "didRecieveRawFrame_timingInfo_",
         "h((xiux)(xiux)(xiux))", 80},
        {"CMIOExtensionSupport.VideoFrameConsumerService", "targetFPSChangedTo_", "d", 8},
        {"CMIOExtensionSupport.VideoFrameProducerService", "subscribeToVideoFrames", "", 0},
        {"CMIOExtensionSupport.VideoFrameProducerService", "unsubscribeFromVideoFrames", "", 0},
        {"CMIOExtensionSupport.VideoFrameProducerServiceReportReceiving",
         "subconsumerSubscriptionWithPID_isSubscribedChangedTo_", "ib", 8},
    };
    return all;
}

// Where an argument's bytes begin and end in a body, by the table of types in the document.
using Extent = std::pair<std::size_t, std::size_t>;

std::vector<Extent> bodyLayoutOf(std::span<const xpc::ArgumentType> types)
{
    static const std::map<xpc::ArgumentType, Extent> alignmentAndSize = {
        {xpc::ArgumentType::int32, {4, 4}},
        {xpc::ArgumentType::boolean, {4, 4}},
        {xpc::ArgumentType::real, {8, 8}},
        {xpc::ArgumentType::surface, {4, 4}},
        {xpc::ArgumentType::sampleTiming, {8, 72}}};
    std::vector<Extent> layout;
    std::size_t end = 0;
    for (const auto type : types) {
        const auto [alignment, size] = alignmentAndSize.at(type);
        const auto begin = (end + alignment - 1) / alignment * alignment;
        end = begin + size;
        layout.emplace_back(begin, end);
    }
    return layout;
}

void addMessages(const xpc::ProtocolDescription& protocol, std::vector<WireMessage>& all)
{
    for (const auto& method : protocol.methods) {
        const auto layout = bodyLayoutOf(method.arguments);
        all.push_back({std::string(protocol.name), xpc::memberName(method.selector),
                       xpc::signatureOf(method.arguments), layout.empty() ? 0 : layout.back().second});
    }
    for (const auto* adopted : protocol.adopted)
        addMessages(*adopted, all);
}

TEST(WireNames, AreThoseThatTheFrameProtocolsGive)
{
    std::vector<WireMessage> derived;
    addMessages(xpc::describe<VideoFrameConsumerService>(), derived);
    addMessages(xpc::describe<VideoFrameProducerServiceReportReceiving>(), derived);
    EXPECT_THAT(derived, UnorderedElementsAreArray(messages()));
}

TEST(WireNames, AreFoundUnderTheInterfaceThatDeclaresThemOnly)
{
    const auto& producer = xpc::describe<VideoFrameProducerServiceReportReceiving>();
    const auto& consumer = xpc::describe<VideoFrameConsumerService>();
    for (const auto& interface : {messages()[0].interface, messages()[2].interface, messages()[4].interface})
        for (const auto& message : messages()) {
            const auto found = xpc::findByMember(producer, interface, message.member)
                                   ? xpc::findByMember(producer, interface, message.member)
                                   : xpc::findByMember(consumer, interface, message.member);
            EXPECT_EQ(found.has_value(), interface == message.interface) << interface << message.member;
        }
}

TEST(WireNames, AreAllowedOnTheWire)
{
    xpc::requireWireNames(xpc::describe<VideoFrameConsumerService>());
    xpc::requireWireNames(xpc::describe<VideoFrameProducerServiceReportReceiving>());
    EXPECT_STREQ(xpc::kObjectPath, "/com/tarnwell/macos/cam/Object");
}

TEST(WireNames, PutTheTimesOfAFrameBehindItsDescriptor)
{
    const auto* method = xpc::describe<VideoFrameConsumerService>().method("didRecieveRawFrame:timingInfo:");
    ASSERT_TRUE(method);
    const auto layout = bodyLayoutOf(method->arguments);
    ASSERT_EQ(layout.size(), 2U);
    EXPECT_EQ(layout[0], Extent(0, 4));
    EXPECT_EQ(layout[1], Extent(8, 80));
}

TEST(WireDocument, HasEachMessageWithItsSignatureAndSize)
{
    const WireDocument document;
    std::vector<std::tuple<std::string, std::string, std::size_t>> told;
    for (const auto* heading : {"From the producer to the camera", "From the camera to the producer"})
        for (const auto& row : document.rowsUnder(heading))
            if (row.size() == 4)
                told.emplace_back(row[0], row[1] == "none" ? "" : row[1],
                                  row[2] == "empty" ? 0 : std::stoul(row[2]));
    std::vector<std::tuple<std::string, std::string, std::size_t>> real;
    for (const auto& message : messages())
        real.emplace_back(message.member, message.signature, message.bodyBytes);
    EXPECT_THAT(told, UnorderedElementsAreArray(real));
    for (const auto& message : messages())
        EXPECT_THAT(document.text(), HasSubstr("Interface `" + message.interface + "`"));
}

TEST(WireDocument, HasEachCallOfTheHelperWithItsReply)
{
    const auto& helper = xpc::describe<BosunServiceProtocol>();
    xpc::requireWireNames(helper);
    std::vector<std::tuple<std::string, std::string, std::string>> told;
    for (const auto& row : WireDocument().rowsUnder("7. Calls with replies"))
        if (row.size() == 3 && helper.methods.size() > told.size())
            told.emplace_back(row[0], row[1], row[2].substr(0, row[2].find(':')));
    std::vector<std::tuple<std::string, std::string, std::string>> real;
    for (const auto& method : helper.methods)
        real.emplace_back(xpc::memberName(method.selector),
                          method.arguments.empty() ? "none" : xpc::signatureOf(method.arguments),
                          method.reply ? xpc::signatureOf(*method.reply) : "no reply");
    EXPECT_EQ(told, real);
    EXPECT_THAT(WireDocument().text(), HasSubstr("Interface `" + std::string(helper.name) + "`"));
    EXPECT_THAT(WireDocument().text(), HasSubstr("\n    " + std::string(kHelperLabel) + "\n"));
}

TEST(WireDocument, HasTheLimitsOfCalls)
{
    const auto rows = WireDocument().rowsUnder("7. Calls with replies");
    EXPECT_THAT(rows, Contains(std::vector<std::string>{"texts and data of one message together",
                                                        std::to_string(xpc::kMaxVariableBytes) + " bytes"}));
    EXPECT_THAT(rows, Contains(std::vector<std::string>{"open calls of one side",
                                                        std::to_string(xpc::kMaxUnansweredCalls) +
                                                            ", then the connection ends"}));
    ASSERT_EQ(xpc::kClosingTimeout.count(), 5);
    EXPECT_THAT(WireDocument().text(), HasSubstr("(five seconds later at the latest)"));
}

TEST(WireDocument, HasTheNamesThatBelongToNoMessage)
{
    const WireDocument document;
    EXPECT_THAT(document.text(), HasSubstr("\n    " + std::string(kVideoFrameServiceName) + "\n"));
    EXPECT_THAT(document.rowsUnder("3. Messages"),
                Contains(std::vector<std::string>{"field 1, PATH", xpc::kObjectPath}));
}

TEST(WireDocument, HasTheLimitsOfAConnection)
{
    const WireDocument document;
    const auto rows = document.rowsUnder("6. Errors");
    const auto limit = [&rows](const std::string& beginning) -> std::string {
        for (const auto& row : rows)
            if (row.size() == 2 && row[0].starts_with(beginning)) return row[1];
        return "none";
    };
    EXPECT_EQ(limit("a message that is too large"), std::to_string(xpc::kMaxMessageBytes) + " bytes");
    EXPECT_EQ(limit("too many descriptors"), std::to_string(xpc::kMaxMessageDescriptors));
    EXPECT_EQ(limit("a message that does not end"),
              std::to_string(xpc::kPartialMessageTimeout.count()) + " seconds from its first byte");
    EXPECT_EQ(limit("a peer that does not read"),
              std::to_string(xpc::kMaxQueuedMessages) + " messages wait, above " +
                  std::to_string(xpc::kSendBufferBytes / 1024) + " KiB in the socket");
    EXPECT_THAT(document.text(),
                HasSubstr("at most " + std::to_string(xpc::kMaxAuthenticationLineBytes) + " bytes, its end"));
    ASSERT_EQ(xpc::kAuthenticationTimeout.count(), 5);
    EXPECT_THAT(document.text(), HasSubstr("The camera waits five seconds for `BEGIN`"));
    EXPECT_THAT(document.text(),
                HasSubstr("It keeps " + std::to_string(xpc::kMaxUnauthenticatedPeers) + " connections"));
    EXPECT_THAT(document.text(),
                HasSubstr("it remembers the last " + std::to_string(xpc::kMaxCachedSurfaces)));
    EXPECT_THAT(document.text(), HasSubstr("where " + std::to_string(xpc::kMaxUndeliveredMessages) +
                                           " messages wait to be\nhandled it stops reading"));
}

TEST(WireDocument, HasEachFieldOfTheTrailerWhereItIs)
{
    using iosurface::Trailer;
    const std::vector<std::pair<std::string, std::size_t>> fields = {
        {"magic", offsetof(Trailer, magic)},
        {"version", offsetof(Trailer, version)},
        {"pixelFormat", offsetof(Trailer, pixelFormat)},
        {"width", offsetof(Trailer, width)},
        {"height", offsetof(Trailer, height)},
        {"bytesPerElement", offsetof(Trailer, bytesPerElement)},
        {"bytesPerRow", offsetof(Trailer, bytesPerRow)},
        {"allocSize", offsetof(Trailer, allocSize)},
        {"planeCount", offsetof(Trailer, planeCount)},
        {"reserved", offsetof(Trailer, reserved)},
        {"planes, i = 0…3", offsetof(Trailer, planes)},
        {"padding", offsetof(Trailer, padding)},
        {"seed", offsetof(Trailer, seed)},
        {"useCount", offsetof(Trailer, useCount)}};
    const auto rows = WireDocument().rowsUnder("Layout of the file");
    for (const auto& [name, offset] : fields) {
        bool isTold = false;
        for (const auto& row : rows)
            isTold |= row.size() == 4 && row[2] == name && std::stoul(row[0]) == offset;
        EXPECT_TRUE(isTold) << name << " is at " << offset;
    }
    const std::vector<std::pair<std::string, std::size_t>> planeFields = {
        {"bytesPerElement", offsetof(iosurface::TrailerPlane, bytesPerElement)},
        {"bytesPerRow", offsetof(iosurface::TrailerPlane, bytesPerRow)},
        {"offset", offsetof(iosurface::TrailerPlane, offset)},
        {"size", offsetof(iosurface::TrailerPlane, size)}};
    for (const auto& [name, offset] : planeFields)
        EXPECT_THAT(rows, Contains(testing::AllOf(
                              testing::SizeIs(4),
                              testing::ElementsAre(std::to_string(offset), testing::_, name, testing::_))));
    static_assert(sizeof(iosurface::TrailerPlane) == 32);
    EXPECT_THAT(rows, Contains(testing::ElementsAre("48 + 32·i", "plane", testing::_, testing::_)));
}

TEST(WireDocument, HasTheLimitsOfASurface)
{
    const auto rows = WireDocument().rowsUnder("What the receiver checks");
    const auto limit = [&rows](const std::string& check) -> std::string {
        for (const auto& row : rows)
            if (row.size() == 2 && row[0].starts_with(check)) return row[1];
        return "none";
    };
    const auto alloc = std::to_string(iosurface::kMaxAllocSize);
    EXPECT_EQ(limit("file size"), "8192 to " +
                                      std::to_string(iosurface::kMaxAllocSize + iosurface::kTrailerSize) +
                                      " bytes, a multiple of " + std::to_string(iosurface::kTrailerSize));
    EXPECT_EQ(limit("magic"), std::string(iosurface::kTrailerMagic.data(), 8) + ", " +
                                  std::to_string(iosurface::kTrailerVersion));
    EXPECT_EQ(limit("allocSize"), "1 to " + alloc + " (1 GiB), at most file size − 4096");
    EXPECT_EQ(limit("planeCount"), "at most " + std::to_string(iosurface::kMaxPlaneCount));
    EXPECT_EQ(limit("width, height"), "1 to " + std::to_string(iosurface::kMaxDimension));
    EXPECT_EQ(limit("bytesPerElement"), "1 to " + std::to_string(iosurface::kMaxBytesPerElement));
    EXPECT_EQ(limit("bytesPerRow"),
              "at least width × bytesPerElement, at most " + std::to_string(iosurface::kMaxBytesPerRow));
}

TEST(WireDocument, HasThePixelFormats)
{
    std::vector<std::string> told;
    for (const auto& row : WireDocument().rowsUnder("Pixel formats"))
        told.push_back(row.at(0));
    const auto hexadecimal = [](OSType code) {
        char text[16];
        std::snprintf(text, sizeof(text), "0x%08x", code);
        return std::string(text);
    };
    EXPECT_THAT(told,
                testing::UnorderedElementsAre(hexadecimal(kCVPixelFormatType_422YpCbCr8),
                                              hexadecimal(kCVPixelFormatType_422YpCbCr8_yuvs),
                                              hexadecimal(kCVPixelFormatType_32BGRA),
                                              hexadecimal(kCVPixelFormatType_420YpCbCr8BiPlanarVideoRange),
                                              hexadecimal(kCVPixelFormatType_420YpCbCr8BiPlanarFullRange),
                                              hexadecimal(kCVPixelFormatType_420YpCbCr8Planar)));
}

}  // namespace
}  // namespace pavo
