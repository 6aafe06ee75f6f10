// What a peer can do wrong. Each test speaks by hand, watches one more connection stay alive beside the bad
// one, and the fixture counts the descriptors at the end.

#include "Tests/Platform/XPC/LinuxFixture.h"
#include "Tests/Support/Wait.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <unistd.h>

namespace pavo::test {
namespace {

using Strings = std::vector<std::string>;

class XPCHostilePeerTest : public XPCTest {
protected:
    void SetUp() override
    {
        listener->resume();
        innocent_ = connectByEndpoint();
        endLater(innocent_);
        innocent_->resume();
        ASSERT_TRUE(waitFor([this] { return house->acceptedCount() == 1; }));
        ASSERT_TRUE(peer.authenticate());
        ASSERT_TRUE(waitFor([this] { return house->acceptedCount() == 2; }));
    }

    void TearDown() override
    {
        peer.close();
        XPCTest::TearDown();
    }

    // The peer has been thrown out once, with one line in the log, nothing reached the lamp, and the other
    // connection still works.
    void expectThrownOut(const std::string& reason)
    {
        EXPECT_TRUE(peer.waitForEnd());
        EXPECT_TRUE(waitFor([this] { return house->counts(1)->invalidations == 1; }));
        EXPECT_EQ(house->counts(1)->interruptions, 0);
        EXPECT_TRUE(hasLogged(lostLine(reason))) << reason;
        EXPECT_EQ(house->lamp->calls(), Strings());
        expectInnocentWorks();
    }

    static std::string lostLine(const std::string& reason)
    {
        return "Lost the connection to " + ownProcess() + ": " + reason;
    }

    void expectInnocentWorks()
    {
        const auto before = house->lamp->callCount();
        lampOf(*innocent_).send<&Switching::switchOff>();
        EXPECT_TRUE(waitFor([&] { return house->lamp->callCount() == before + 1; }));
        EXPECT_EQ(house->counts(0)->invalidations, 0);
    }

    // A frame message with that descriptor in place of a surface.
    void shineWith(int descriptor)
    {
        ASSERT_TRUE(peer.send(frameCall("Tests.Lamp", "shine_timingInfo_").bytes(), {&descriptor, 1}));
    }

    static UniqueFd descriptorOf(const cf::Ref<IOSurfaceRef>& surface)
    {
        return UniqueFd(static_cast<int>(IOSurfaceCreateMachPort(surface.get())));
    }

    // A file with the content of a sound surface, cut to `size` where that is not 0.
    static UniqueFd copyOf(const cf::Ref<IOSurfaceRef>& surface, std::size_t size = 0)
    {
        const auto original = descriptorOf(surface);
        std::string content(static_cast<std::size_t>(::lseek(original.get(), 0, SEEK_END)), '\0');
        EXPECT_EQ(::pread(original.get(), content.data(), content.size(), 0),
                  static_cast<ssize_t>(content.size()));
        if (size > 0) content = content.substr(content.size() - size);
        UniqueFd copy(::memfd_create("copy", MFD_CLOEXEC | MFD_ALLOW_SEALING));
        EXPECT_EQ(::write(copy.get(), content.data(), content.size()), static_cast<ssize_t>(content.size()));
        return copy;
    }
    static void seal(const UniqueFd& file)
    {
        EXPECT_EQ(::fcntl(file.get(), F_ADD_SEALS, F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_SEAL), 0);
    }
    // Overwrites the first number of that value in the trailer page.
    static void replaceInTrailer(const UniqueFd& file, std::uint32_t from, std::uint32_t to)
    {
        const auto size = ::lseek(file.get(), 0, SEEK_END);
        std::string trailer(4096, '\0');
        ASSERT_EQ(::pread(file.get(), trailer.data(), trailer.size(), size - 4096), 4096);
        const auto found = trailer.find(little(from));
        ASSERT_NE(found, std::string::npos);
        const auto bytes = little(to);
        ASSERT_EQ(::pwrite(file.get(), bytes.data(), bytes.size(), size - 4096 + static_cast<off_t>(found)),
                  static_cast<ssize_t>(bytes.size()));
    }

    RawPeer peer = RawPeer(UniqueFd());

private:
    std::shared_ptr<xpc::Connection> innocent_;

public:
    XPCHostilePeerTest() { peer = connectRaw(*listener); }
};

TEST_F(XPCHostilePeerTest, SoundMessagesFromHandAreTaken)
{
    // The measure of all other tests here: what they change is what makes the difference.
    RawCall call;
    call.interface = "Tests.Switching";
    call.member = "switchOn";
    ASSERT_TRUE(peer.send(call.bytes()));
    call.interface = "Tests.Lamp";
    call.member = "setColour_isFast_";
    call.signature = "ib";
    call.body = little(std::int32_t{-5}) + little(std::uint32_t{1});
    ASSERT_TRUE(peer.send(call.bytes()));
    const auto surface = makeSurface(77);
    shineWith(descriptorOf(surface).get());
    ASSERT_TRUE(waitFor([this] { return house->lamp->callCount() == 3; }));
    EXPECT_EQ(house->lamp->calls(), (Strings{"switchOn", "setColour -5 fast", "shine"}));
    EXPECT_EQ(house->lamp->surfaces().at(0).get(), surface.get());
    const auto timing = house->lamp->lastTiming();
    EXPECT_EQ(std::int64_t{timing.duration.value}, 1000);
    EXPECT_EQ(std::int32_t{timing.presentationTimeStamp.timescale}, 61);
    EXPECT_EQ(std::int64_t{timing.decodeTimeStamp.epoch}, 9);
    EXPECT_EQ(loggedErrorCount(), 0U);
}

TEST_F(XPCHostilePeerTest, MessageThatArrivesByteByByteIsTaken)
{
    const auto surface = makeSurface(5);
    const auto descriptor = descriptorOf(surface);
    const int number = descriptor.get();
    const auto bytes = frameCall("Tests.Lamp", "shine_timingInfo_").bytes();
    for (std::size_t i = 0; i < bytes.size(); ++i)
        ASSERT_TRUE(peer.send(bytes.substr(i, 1), {&number, i == 0 ? 1U : 0U}));
    ASSERT_TRUE(waitFor([this] { return house->lamp->callCount() == 1; }));
    EXPECT_EQ(house->lamp->surfaces().at(0).get(), surface.get());
}

TEST_F(XPCHostilePeerTest, MessageCutAtEachByteReachesNobody)
{
    const auto surface = makeSurface(5);
    const auto descriptor = descriptorOf(surface);
    const int number = descriptor.get();
    const auto bytes = frameCall("Tests.Lamp", "shine_timingInfo_").bytes();
    for (std::size_t size = 1; size < bytes.size(); size += 7) {
        const auto index = house->acceptedCount();
        auto cut = connectRaw(*listener);
        ASSERT_TRUE(cut.authenticate());
        ASSERT_TRUE(waitFor([&] { return house->acceptedCount() == index + 1; }));
        ASSERT_TRUE(cut.send(bytes.substr(0, size), {&number, 1}));
        cut.close();
        ASSERT_TRUE(waitFor([&] { return house->counts(index)->invalidations == 1; })) << size;
    }
    EXPECT_EQ(house->lamp->calls(), Strings());
    EXPECT_TRUE(hasLogged(lostLine("it ended inside a message")));
    expectInnocentWorks();
}

TEST_F(XPCHostilePeerTest, MessageThatNeverEndsIsGivenUp)
{
    const auto surface = makeSurface(5);
    const auto descriptor = descriptorOf(surface);
    const int number = descriptor.get();
    ASSERT_TRUE(peer.send(frameCall("Tests.Lamp", "shine_timingInfo_").bytes().substr(0, 40), {&number, 1}));
    expectThrownOut("a message never ended");
}

TEST_F(XPCHostilePeerTest, WrongArgumentTypesAreThrownOut)
{
    RawCall call;
    call.interface = "Tests.Lamp";
    call.member = "setBrightness_";
    call.signature = "x";
    call.body = little(std::int64_t{1});
    ASSERT_TRUE(peer.send(call.bytes()));
    expectThrownOut("wrong arguments in a call of Tests.Lamp.setBrightness_: x");
}

TEST_F(XPCHostilePeerTest, MissingArgumentsAreThrownOut)
{
    RawCall call;
    call.interface = "Tests.Lamp";
    call.member = "setBrightness_";
    ASSERT_TRUE(peer.send(call.bytes()));
    expectThrownOut("wrong arguments in a call of Tests.Lamp.setBrightness_");
}

TEST_F(XPCHostilePeerTest, SurplusArgumentsAreThrownOut)
{
    RawCall call;
    call.interface = "Tests.Switching";
    call.member = "switchOn";
    call.signature = "d";
    call.body = little(std::int64_t{0});
    ASSERT_TRUE(peer.send(call.bytes()));
    expectThrownOut("wrong arguments in a call of Tests.Switching.switchOn: d");
}

TEST_F(XPCHostilePeerTest, BodyLongerThanItsSignatureIsThrownOut)
{
    RawCall call;
    call.interface = "Tests.Lamp";
    call.member = "setBrightness_";
    call.signature = "d";
    call.body = little(std::int64_t{0}) + "more";
    ASSERT_TRUE(peer.send(call.bytes()));
    expectThrownOut("wrong size of the arguments in a call of Tests.Lamp.setBrightness_");
}

TEST_F(XPCHostilePeerTest, BodyShorterThanItsSignatureIsThrownOut)
{
    RawCall call;
    call.interface = "Tests.Lamp";
    call.member = "setBrightness_";
    call.signature = "d";
    call.body = "1234";
    ASSERT_TRUE(peer.send(call.bytes()));
    expectThrownOut("wrong size of the arguments in a call of Tests.Lamp.setBrightness_");
}

TEST_F(XPCHostilePeerTest, BooleanOtherThanZeroAndOneIsThrownOut)
{
    RawCall call;
    call.interface = "Tests.Lamp";
    call.member = "setColour_isFast_";
    call.signature = "ib";
    call.body = little(std::int32_t{1}) + little(std::uint32_t{2});
    ASSERT_TRUE(peer.send(call.bytes()));
    expectThrownOut("neither true nor false in a call of Tests.Lamp.setColour_isFast_");
}

TEST_F(XPCHostilePeerTest, UnknownSelectorIsThrownOut)
{
    RawCall call;
    call.interface = "Tests.Lamp";
    call.member = "explode";
    ASSERT_TRUE(peer.send(call.bytes()));
    expectThrownOut("no method Tests.Lamp.explode");
}

TEST_F(XPCHostilePeerTest, SelectorUnderTheAdoptingProtocolsNameIsThrownOut)
{
    RawCall call;
    call.interface = "Tests.Lamp";
    call.member = "switchOn";
    ASSERT_TRUE(peer.send(call.bytes()));
    expectThrownOut("no method Tests.Lamp.switchOn");
}

TEST_F(XPCHostilePeerTest, UnknownInterfaceIsThrownOut)
{
    RawCall call;
    call.interface = "Tests.Lantern";
    call.member = "switchOn";
    ASSERT_TRUE(peer.send(call.bytes()));
    expectThrownOut("no method Tests.Lantern.switchOn");
}

TEST_F(XPCHostilePeerTest, MessageWithoutAnInterfaceIsThrownOut)
{
    RawCall call;
    call.member = "switchOn";
    ASSERT_TRUE(peer.send(call.bytes()));
    expectThrownOut("no method (none).switchOn");
}

TEST_F(XPCHostilePeerTest, UnknownObjectIsThrownOut)
{
    RawCall call;
    call.path = "/somewhere/else";
    call.interface = "Tests.Switching";
    call.member = "switchOn";
    ASSERT_TRUE(peer.send(call.bytes()));
    expectThrownOut("no object at /somewhere/else");
}

TEST_F(XPCHostilePeerTest, MessageThatSaysItIsTooLargeIsThrownOutBeforeItArrives)
{
    RawCall call;
    call.interface = "Tests.Lamp";
    call.member = "setBrightness_";
    call.signature = "ay";
    call.body = std::string(64 * 1024, 'x');
    // The header alone: not a byte of the body is waited for.
    ASSERT_TRUE(peer.send(call.bytes().substr(0, 16)));
    expectThrownOut("message too large");
}

TEST_F(XPCHostilePeerTest, HeaderThatSaysItIsTooLargeIsThrownOut)
{
    ASSERT_TRUE(peer.send(std::string("l\1\1\1\0\0\0\0\1\0\0\0\xff\xff\xff\xff", 16)));
    expectThrownOut("message too large");
}

TEST_F(XPCHostilePeerTest, SoundMessageWithMuchPaddingIsTakenUpToTheLimit)
{
    RawCall call;
    call.interface = "Tests.Switching";
    call.member = "switchOn";
    const auto room = 64 * 1024 - call.bytes().size();
    call.unknownField = std::string(room - 64, 'x');
    ASSERT_LE(call.bytes().size(), 64U * 1024);
    ASSERT_TRUE(peer.send(call.bytes()));
    ASSERT_TRUE(waitFor([this] { return house->lamp->callCount() == 1; }));
    call.unknownField += std::string(128, 'x');
    ASSERT_TRUE(peer.send(call.bytes()));
    EXPECT_TRUE(peer.waitForEnd());
    EXPECT_EQ(house->lamp->callCount(), 1U);
    EXPECT_TRUE(waitFor([] { return hasLogged("message too large"); }));
}

TEST_F(XPCHostilePeerTest, BytesThatAreNoMessageAreThrownOut)
{
    ASSERT_TRUE(peer.send(std::string(64, '?')));
    expectThrownOut("not a D-Bus message");
}

TEST_F(XPCHostilePeerTest, MessageOfAnotherProtocolVersionIsThrownOut)
{
    RawCall call;
    call.interface = "Tests.Switching";
    call.member = "switchOn";
    auto bytes = call.bytes();
    bytes[3] = 2;
    ASSERT_TRUE(peer.send(bytes));
    expectThrownOut("not a D-Bus message");
}

TEST_F(XPCHostilePeerTest, TooManyDescriptorsAreThrownOutAndClosed)
{
    const auto descriptor = descriptorOf(makeSurface(1));
    const std::vector<int> five(5, descriptor.get());
    auto call = frameCall("Tests.Lamp", "shine_timingInfo_");
    call.descriptorCount = 5;
    ASSERT_TRUE(peer.send(call.bytes(), five));
    expectThrownOut("descriptors were cut off");
}

TEST_F(XPCHostilePeerTest, TooManyDescriptorsInSeveralPartsAreThrownOutAndClosed)
{
    const auto descriptor = descriptorOf(makeSurface(1));
    const std::vector<int> three(3, descriptor.get());
    auto call = frameCall("Tests.Lamp", "shine_timingInfo_");
    call.descriptorCount = 6;
    ASSERT_TRUE(peer.send(call.bytes().substr(0, 10), three));
    ASSERT_TRUE(peer.send(call.bytes().substr(10), three));
    expectThrownOut("too many descriptors");
}

TEST_F(XPCHostilePeerTest, SurplusDescriptorsWithinTheLimitAreClosed)
{
    const auto surface = makeSurface(1);
    const auto descriptor = descriptorOf(surface);
    const std::vector<int> four(4, descriptor.get());
    auto call = frameCall("Tests.Lamp", "shine_timingInfo_");
    call.descriptorCount = 4;
    ASSERT_TRUE(peer.send(call.bytes(), four));
    ASSERT_TRUE(waitFor([this] { return house->lamp->callCount() == 1; }));
}

TEST_F(XPCHostilePeerTest, FewerDescriptorsThanTheHeaderTellsAreThrownOut)
{
    const auto descriptor = descriptorOf(makeSurface(1));
    const int number = descriptor.get();
    auto call = frameCall("Tests.Lamp", "shine_timingInfo_");
    call.descriptorCount = 2;
    ASSERT_TRUE(peer.send(call.bytes(), {&number, 1}));
    expectThrownOut("not as many descriptors as the header tells");
}

TEST_F(XPCHostilePeerTest, DescriptorsThatTheHeaderDoesNotTellOfAreThrownOut)
{
    const auto descriptor = descriptorOf(makeSurface(1));
    const int number = descriptor.get();
    RawCall call;
    call.interface = "Tests.Switching";
    call.member = "switchOn";
    ASSERT_TRUE(peer.send(call.bytes(), {&number, 1}));
    expectThrownOut("not as many descriptors as the header tells");
}

TEST_F(XPCHostilePeerTest, BrokenMessagesWithDescriptorsAreThrownOutAndClosed)
{
    // The header is well-formed and says nothing that D-Bus allows: a member with a dot.
    const auto descriptor = descriptorOf(makeSurface(1));
    const int number = descriptor.get();
    ASSERT_TRUE(peer.send(frameCall("Tests.Lamp", "not.a.member").bytes(), {&number, 1}));
    expectThrownOut("broken message");
}

TEST_F(XPCHostilePeerTest, BrokenHeaderWithDescriptorsIsThrownOutAndClosed)
{
    const auto descriptor = descriptorOf(makeSurface(1));
    const int number = descriptor.get();
    auto bytes = frameCall("Tests.Lamp", "shine_timingInfo_").bytes();
    bytes[20] = '\xff';  // the length of the path
    ASSERT_TRUE(peer.send(bytes, {&number, 1}));
    expectThrownOut("broken header");
}

TEST_F(XPCHostilePeerTest, PaddingThatIsNotZeroIsThrownOut)
{
    const auto descriptor = descriptorOf(makeSurface(1));
    const int number = descriptor.get();
    auto call = frameCall("Tests.Lamp", "shine_timingInfo_");
    call.body[5] = 1;
    ASSERT_TRUE(peer.send(call.bytes(), {&number, 1}));
    expectThrownOut("padding that is not zero in a call of Tests.Lamp.shine_timingInfo_");
}

TEST_F(XPCHostilePeerTest, DescriptorNumberThatIsNotThereIsThrownOut)
{
    const auto descriptor = descriptorOf(makeSurface(1));
    const int number = descriptor.get();
    auto call = frameCall("Tests.Lamp", "shine_timingInfo_");
    call.body.replace(0, 4, little(std::uint32_t{3}));
    ASSERT_TRUE(peer.send(call.bytes(), {&number, 1}));
    expectThrownOut("no sound surface in a call of Tests.Lamp.shine_timingInfo_");
}

TEST_F(XPCHostilePeerTest, SurfaceThatIsNoMemoryFileIsThrownOut)
{
    const UniqueFd file(::open("/dev/null", O_RDWR | O_CLOEXEC));
    shineWith(file.get());
    expectThrownOut("no sound surface");
}

TEST_F(XPCHostilePeerTest, SurfaceWithoutSealsIsThrownOut)
{
    const auto copy = copyOf(makeSurface(1));
    shineWith(copy.get());
    expectThrownOut("no sound surface");
}

TEST_F(XPCHostilePeerTest, SealedCopyOfASurfaceIsTaken)
{
    // What the following tests change is all that is wrong with theirs.
    const auto copy = copyOf(makeSurface(3));
    seal(copy);
    shineWith(copy.get());
    ASSERT_TRUE(waitFor([this] { return house->lamp->callCount() == 1; }));
    EXPECT_EQ(markOf(house->lamp->surfaces().at(0).get()), 3);
}

TEST_F(XPCHostilePeerTest, SurfaceThatIsTooSmallForItsPixelsIsThrownOut)
{
    const auto copy = copyOf(makeSurface(1), 4096);
    seal(copy);
    shineWith(copy.get());
    expectThrownOut("no sound surface");
}

TEST_F(XPCHostilePeerTest, SurfaceWithoutRoomForATrailerIsThrownOut)
{
    const auto copy = copyOf(makeSurface(1), 100);
    seal(copy);
    shineWith(copy.get());
    expectThrownOut("no sound surface");
}

TEST_F(XPCHostilePeerTest, SurfaceWithABadStrideIsThrownOut)
{
    const auto surface = makeSurface(1);
    const auto copy = copyOf(surface);
    replaceInTrailer(copy, static_cast<std::uint32_t>(IOSurfaceGetBytesPerRow(surface.get())), 0x7fffffff);
    seal(copy);
    shineWith(copy.get());
    expectThrownOut("no sound surface");
}

TEST_F(XPCHostilePeerTest, SignalsAnswersAndErrorsAreIgnored)
{
    RawCall call;
    call.interface = "Tests.Switching";
    call.member = "switchOn";
    call.type = 4;  // signal
    ASSERT_TRUE(peer.send(call.bytes()));
    call.type = 1;
    call.member = "switchOff";
    ASSERT_TRUE(peer.send(call.bytes()));
    ASSERT_TRUE(waitFor([this] { return house->lamp->callCount() == 1; }));
    EXPECT_EQ(house->lamp->calls(), Strings{"switchOff"});
}

TEST_F(XPCHostilePeerTest, CallThatWantsAnAnswerGetsAnEmptyOne)
{
    RawCall call;
    call.interface = "Tests.Switching";
    call.member = "switchOn";
    call.flags = 0;
    ASSERT_TRUE(peer.send(call.bytes()));
    ASSERT_TRUE(waitFor([this] { return house->lamp->callCount() == 1; }));
    const auto answer = peer.receiveMessage();
    ASSERT_GE(answer.size(), 16U);
    EXPECT_EQ(answer[1], 2);                                   // method return
    EXPECT_EQ(answer.substr(4, 4), little(std::uint32_t{0}));  // no body
}

TEST_F(XPCHostilePeerTest, PingIsAnswered)
{
    RawCall call;
    call.interface = "org.freedesktop.DBus.Peer";
    call.member = "Ping";
    call.flags = 0;
    ASSERT_TRUE(peer.send(call.bytes()));
    const auto answer = peer.receiveMessage();
    ASSERT_GE(answer.size(), 16U);
    EXPECT_EQ(answer[1], 2);
}

TEST_F(XPCHostilePeerTest, PeerThatDoesNotReadItsAnswersIsThrownOut)
{
    RawCall call;
    call.interface = "org.freedesktop.DBus.Peer";
    call.member = "Ping";
    call.flags = 0;
    const auto bytes = call.bytes();
    // Far more than both buffers and the queue hold; ends when the other side is gone.
    int sent = 0;
    while (sent < 100'000 && peer.send(bytes))
        ++sent;
    EXPECT_LT(sent, 100'000);
    expectThrownOut("it does not read");
}

TEST_F(XPCHostilePeerTest, PeerThatDoesNotReadIsLostAndNeverWaitedFor)
{
    const auto remote = xpc::Remote<LampOwner>::cast(house->accepted(1)->remoteObjectProxy());
    ASSERT_TRUE(remote);
    std::chrono::steady_clock::duration longest{};
    int sent = 0;
    for (; sent < 100'000 && house->counts(1)->invalidations == 0; ++sent) {
        const auto start = std::chrono::steady_clock::now();
        remote->send<&LampOwner::lampDidSwitch>(true);
        longest = std::max(longest, std::chrono::steady_clock::now() - start);
    }
    ASSERT_TRUE(waitFor([this] { return house->counts(1)->invalidations == 1; }));
    EXPECT_GT(sent, 256);
    EXPECT_LT(sent, 100'000);
    // Waiting for this peer would take for ever; a busy machine may take a while.
    EXPECT_LT(longest, std::chrono::seconds(2));
    EXPECT_TRUE(hasLogged(lostLine("it does not read")));
    expectInnocentWorks();
}

TEST_F(XPCHostilePeerTest, MessageThatFindsNoFreeDescriptorIsLostAndTheOthersLive)
{
    const auto surface = makeSurface(1);
    const auto descriptor = descriptorOf(surface);
    rlimit before{};
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &before), 0);
    // No number above those that are open now can be given out; those below are filled.
    std::vector<UniqueFd> fill;
    for (;;) {
        UniqueFd next(::dup(0));
        ASSERT_TRUE(next.isValid());
        if (next.get() > descriptor.get()) break;
        fill.push_back(std::move(next));
    }
    const rlimit tight{static_cast<rlim_t>(descriptor.get()) + 1, before.rlim_max};
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &tight), 0);
    shineWith(descriptor.get());
    const bool hasEnded = peer.waitForEnd();
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &before), 0);
    EXPECT_TRUE(hasEnded);
    expectThrownOut("descriptors were cut off");
}

}  // namespace
}  // namespace pavo::test
