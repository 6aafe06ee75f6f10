// What a producer can do wrong. After each the camera still serves its client, takes a good producer, and has
// no descriptor more than before.

#include "Tests/EndToEnd/WholeCamera.h"
#include "Tests/Platform/XPC/RawPeer.h"
#include "Tests/Support/ProcessFacts.h"
#include "Tests/Support/SurfaceFile.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <cstring>
#include <limits>
#include <memory>

namespace pavo::test {
namespace {

constexpr const char* kInterface = "CMIOExtensionSupport.VideoFrameConsumerService";
constexpr const char* kFrameMember = "didRecieveRawFrame_timingInfo_";
constexpr const char* kRateMember = "targetFPSChangedTo_";

std::string bytesOf(double number)
{
    std::uint64_t bits = 0;
    std::memcpy(&bits, &number, sizeof(bits));
    return little(bits);
}

RawCall rateCall(double framesPerSecond)
{
    RawCall call;
    call.interface = kInterface;
    call.member = kRateMember;
    call.signature = "d";
    call.body = bytesOf(framesPerSecond);
    return call;
}

class CameraWithABadProducer : public WholeCamera {
protected:
    void SetUp() override
    {
        WholeCamera::SetUp();
        if (IsSkipped() || HasFatalFailure()) return;
        client_.reset(new PavoProcess(watch()));
        // What the camera opens once and keeps is open before the count.
        serveGoodProducer();
        descriptors_ = openDescriptorCount(camera().pid());
    }

    void TearDown() override
    {
        if (client_ && !IsSkipped() && !HasFatalFailure()) expectStillServing();
        client_.reset();
        WholeCamera::TearDown();
    }

    RawPeer connect()
    {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        const auto path = serviceSocket();
        EXPECT_LT(path.size(), sizeof(address.sun_path));
        std::strncpy(address.sun_path, path.c_str(), sizeof(address.sun_path) - 1);
        UniqueFd socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
        EXPECT_EQ(::connect(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
        return RawPeer(std::move(socket));
    }
    // As a producer that has done nothing wrong so far.
    RawPeer connectAsProducer()
    {
        const std::size_t before = connections();
        RawPeer peer = connect();
        EXPECT_TRUE(peer.authenticate());
        EXPECT_TRUE(eventually([&] { return connections() == before + 1; }));
        return peer;
    }

    static bool sendFrame(RawPeer& peer, int descriptor)
    {
        return peer.send(frameCall(kInterface, kFrameMember).bytes(), {&descriptor, 1});
    }
    void expectThrownOut(RawPeer& peer, const std::string& reason)
    {
        EXPECT_TRUE(peer.waitForEnd());
        EXPECT_TRUE(eventually([&] { return camera().countWith(reason) == 1; })) << reason;
        EXPECT_TRUE(waitForLosses(goodProducers_ + 1));
    }
    // The peer may stay: the camera takes what it sends when it is good.
    void expectStillHeard(RawPeer& peer)
    {
        ASSERT_TRUE(peer.send(rateCall(17).bytes()));
        EXPECT_TRUE(camera().waitForLog("Frame rate changed to 17.000000"));
        EXPECT_EQ(camera().countWith("Lost the connection"), 0U);
    }
    PavoProcess& client() { return *client_; }

private:
    std::size_t connections() { return camera().countOf("Now resuming XPC connection…"); }

    void serveGoodProducer()
    {
        ASSERT_TRUE(seesPlaceholder(*client_));
        const std::size_t lossesBefore = camera().countWith("Connection died.");
        PavoProcess producer = produce();
        ASSERT_TRUE(seesProducer(*client_));
        EXPECT_EQ(producer.end(SIGTERM), 0);
        ASSERT_TRUE(waitForLosses(lossesBefore + 1));
        ASSERT_TRUE(seesPlaceholder(*client_));
        ++goodProducers_;
    }

    void expectStillServing()
    {
        serveGoodProducer();
        EXPECT_TRUE(client_->isRunning());
        EXPECT_TRUE(eventually([this] { return openDescriptorCount(camera().pid()) <= descriptors_; }))
            << openDescriptorCount(camera().pid()) << " descriptors, not " << descriptors_;
    }

    std::unique_ptr<PavoProcess> client_;
    std::size_t descriptors_ = 0;
    std::size_t goodProducers_ = 0;
};

TEST_F(CameraWithABadProducer, TakesASoundFrameThatWasWrittenByHand)
{
    // The measure of all other tests here: what they change is what makes the difference.
    RawPeer peer = connectAsProducer();
    ASSERT_TRUE(sendFrame(peer, SurfaceFile().make().get()));
    EXPECT_TRUE(camera().waitForLog("Sending existing subconsumers (count = 1) to producer", 2));
    expectStillHeard(peer);
    EXPECT_EQ(camera().countWith("Failed to get pixel buffer"), 0U);
}

TEST_F(CameraWithABadProducer, ThrowsAPeerOutThatEndsInsideOfAMessage)
{
    RawPeer peer = connectAsProducer();
    const UniqueFd surface = SurfaceFile().make();
    const int descriptor = surface.get();
    const auto bytes = frameCall(kInterface, kFrameMember).bytes();
    ASSERT_TRUE(peer.send(bytes.substr(0, bytes.size() / 2), {&descriptor, 1}));
    peer.close();
    EXPECT_TRUE(eventually([this] { return camera().countWith("it ended inside a message") == 1; }));
}

TEST_F(CameraWithABadProducer, ThrowsAMessageOfTheWrongTypeOut)
{
    RawPeer peer = connectAsProducer();
    RawCall call = rateCall(60);
    call.signature = "x";
    ASSERT_TRUE(peer.send(call.bytes()));
    expectThrownOut(peer,
                    std::string("wrong arguments in a call of ") + kInterface + "." + kRateMember + ": x");
}

TEST_F(CameraWithABadProducer, ThrowsADescriptorOutThatIsNoMemoryFile)
{
    RawPeer peer = connectAsProducer();
    const UniqueFd file(::open("/dev/zero", O_RDWR | O_CLOEXEC));
    ASSERT_TRUE(sendFrame(peer, file.get()));
    expectThrownOut(peer, "no sound surface");
}

TEST_F(CameraWithABadProducer, ThrowsASurfaceOutThatIsNotSealed)
{
    RawPeer peer = connectAsProducer();
    SurfaceFile surface;
    surface.isSealed = false;
    ASSERT_TRUE(sendFrame(peer, surface.make().get()));
    expectThrownOut(peer, "no sound surface");
}

TEST_F(CameraWithABadProducer, ThrowsASurfaceOutThatIsTooSmallForItsPixels)
{
    RawPeer peer = connectAsProducer();
    SurfaceFile surface;
    surface.fileSize = 2 * iosurface::kTrailerSize;
    ASSERT_LT(surface.fileSize - iosurface::kTrailerSize, surface.trailer.allocSize);
    ASSERT_TRUE(sendFrame(peer, surface.make().get()));
    expectThrownOut(peer, "no sound surface");
}

TEST_F(CameraWithABadProducer, ThrowsAStrideOutThatDoesNotFit)
{
    for (const std::uint32_t stride : {1U, 0x7fffffffU}) {
        RawPeer peer = connectAsProducer();
        SurfaceFile surface;
        surface.trailer.bytesPerRow = stride;
        ASSERT_TRUE(sendFrame(peer, surface.make().get()));
        EXPECT_TRUE(peer.waitForEnd());
    }
    EXPECT_TRUE(eventually([this] { return camera().countWith("no sound surface") == 2; }));
    EXPECT_TRUE(waitForLosses(3));
}

TEST_F(CameraWithABadProducer, DropsAFrameOfAnUnknownPixelFormat)
{
    RawPeer peer = connectAsProducer();
    SurfaceFile surface;
    surface.trailer.pixelFormat = 0x3f3f3f3f;  // '????'
    ASSERT_TRUE(sendFrame(peer, surface.make().get()));
    EXPECT_TRUE(camera().waitForLog("Failed to get pixel buffer from IOSurface"));
    expectStillHeard(peer);
}

TEST_F(CameraWithABadProducer, LivesWithAFrameRateThatIsNoNumber)
{
    RawPeer peer = connectAsProducer();
    for (const double rate :
         {std::numeric_limits<double>::quiet_NaN(), std::numeric_limits<double>::infinity(), -1e300, 0.0})
        ASSERT_TRUE(peer.send(rateCall(rate).bytes()));
    expectStillHeard(peer);
    EXPECT_EQ(camera().countOf("Target FPS changed to nan"), 1U);
    ASSERT_TRUE(sendFrame(peer, SurfaceFile().make().get()));
    EXPECT_TRUE(camera().waitForLog("Sending existing subconsumers (count = 1) to producer", 2));
}

TEST_F(CameraWithABadProducer, LivesWithPeersThatConnectAndClose)
{
    for (int i = 0; i < 20; ++i) {
        connect().close();
        connectAsProducer().close();
    }
    EXPECT_TRUE(waitForLosses(21));
}

TEST_F(CameraWithABadProducer, LivesWithAProducerThatSaysNothing)
{
    RawPeer peer = connectAsProducer();
    ASSERT_TRUE(seesPlaceholder(client(), 30));
    EXPECT_EQ(camera().countWith("Connection died."), 1U);
}

TEST_F(CameraWithABadProducer, GivesAPeerUpThatDoesNotAuthenticate)
{
    RawPeer peer = connect();
    EXPECT_TRUE(peer.waitForEnd());
    EXPECT_TRUE(eventually([this] { return camera().countWith("it did not authenticate") == 1; }));
}

}  // namespace
}  // namespace pavo::test
