// What a peer can do wrong when it answers, and what it can do wrong by not taking the answers it asked for.
// The peer speaks by hand: here it listens, and is dialled by name.

#include "Tests/Platform/XPC/LinuxFixture.h"
#include "Tests/Platform/XPC/ThermometerFixture.h"
#include "Tests/Support/Wait.h"

#include <poll.h>
#include <sys/socket.h>

namespace pavo::test {
namespace {

class XPCHostileAnswerTest : public ThermometerTest {
protected:
    void SetUp() override
    {
        connection->resume();
        thermometerOf(*connection).send<&Thermometer::shake>();
        peer = acceptRaw();
        ASSERT_TRUE(peer.answerAuthentication());
        ASSERT_NE(serialOf(peer.receiveMessage()), 0U);
    }

    void TearDown() override
    {
        peer.close();
        ThermometerTest::TearDown();
    }

    // The listener is never resumed, so whoever dials waits for this.
    RawPeer acceptRaw()
    {
        const auto endpoint = listener->endpoint();
        const auto port = static_cast<int>(xpc::ListenerEndpoint::machPort(endpoint.object()));
        pollfd waiting{port, POLLIN, 0};
        EXPECT_EQ(::poll(&waiting, 1, 20'000), 1);
        return RawPeer(UniqueFd(::accept(port, nullptr, nullptr)));
    }

    // What a call comes to whose answer is `answer` of the call's number.
    Reading readWithAnswer(const std::function<std::string(std::uint32_t)>& answer)
    {
        auto reading = readLater(connection);
        const auto serial = serialOf(peer.receiveMessage());
        EXPECT_NE(serial, 0U);
        EXPECT_TRUE(peer.send(answer(serial)));
        return reading.get();
    }

    static std::string soundAnswer(std::uint32_t serial)
    {
        return answerTo(serial, "t", little(std::uint64_t{19})).bytes();
    }

    // The answer fails its call and nothing else.
    void expectReplyInvalid(const std::function<std::string(std::uint32_t)>& answer,
                            const std::string& reason)
    {
        const auto reading = readWithAnswer(answer);
        EXPECT_EQ(reading.degrees, std::nullopt);
        EXPECT_EQ(reading.error, connectionError(4101)) << reason;
        EXPECT_TRUE(hasLogged("No reply of " + ownProcess() + ": " + reason)) << reason;
        EXPECT_EQ(readWithAnswer(soundAnswer).degrees, 19U);
        EXPECT_EQ(counts->interruptions + counts->invalidations, 0);
    }

    // What placing the thermometer comes to: 0 for a reply, else the code of the error.
    std::int64_t placeWithAnswer(const std::string& signature, const std::string& body)
    {
        auto code = std::async(std::launch::async, [this] {
            std::int64_t result = -1;
            synchronousThermometerOf(*connection, [&result](const ns::Error& error) { result = error.code; })
                .call<&Thermometer::place>([&result](const auto&, const auto&) { result = 0; },
                                           std::string("x"), ns::Data());
            return result;
        });
        EXPECT_TRUE(peer.send(answerTo(serialOf(peer.receiveMessage()), signature, body).bytes()));
        return code.get();
    }

    const std::shared_ptr<xpc::Connection> connection = dial();
    const std::shared_ptr<HandlerCounts> counts = countHandlers(*connection);
    RawPeer peer = RawPeer(UniqueFd());
};

TEST_F(XPCHostileAnswerTest, SoundAnswersFromHandAreTaken)
{
    EXPECT_EQ(readWithAnswer(soundAnswer).degrees, 19U);
    // Neither data nor an error; data of two bytes, and an error "ab", 7.
    const auto none = little(std::uint32_t{0});
    EXPECT_EQ(placeWithAnswer("(bay)(bsx)", none + none + none + none + std::string(1, '\0') +
                                                std::string(7, '\0') + std::string(8, '\0')),
              0);
    const auto one = little(std::uint32_t{1});
    const auto two = little(std::uint32_t{2});
    EXPECT_EQ(placeWithAnswer("(bay)(bsx)", one + two + "yz" + std::string(6, '\0') + one + two + "ab" +
                                                std::string(6, '\0') + little(std::int64_t{7})),
              0);
    EXPECT_EQ(loggedErrorCount(), 0U);
}

TEST_F(XPCHostileAnswerTest, CallTellsThatItWantsAnAnswerAndAMessageThatItDoesNot)
{
    auto reading = readLater(connection);
    const auto call = peer.receiveMessage();
    EXPECT_EQ(call[1], 1);      // method call
    EXPECT_EQ(call[2] & 1, 0);  // a reply is expected
    EXPECT_TRUE(peer.send(soundAnswer(serialOf(call))));
    EXPECT_EQ(reading.get().degrees, 19U);
    thermometerOf(*connection).send<&Thermometer::shake>();
    EXPECT_EQ(peer.receiveMessage()[2] & 1, 1);
}

TEST_F(XPCHostileAnswerTest, AnswerOfAnotherTypeFailsTheCall)
{
    expectReplyInvalid(
        [](std::uint32_t serial) { return answerTo(serial, "u", little(std::uint32_t{1})).bytes(); },
        "wrong arguments in the answer to temperatureWithReply:: u");
}

TEST_F(XPCHostileAnswerTest, AnswerWithoutAValueFailsTheCall)
{
    expectReplyInvalid([](std::uint32_t serial) { return answerTo(serial, "", "").bytes(); },
                       "wrong arguments in the answer to temperatureWithReply:");
}

TEST_F(XPCHostileAnswerTest, AnswerLongerThanItsSignatureFailsTheCall)
{
    expectReplyInvalid(
        [](std::uint32_t serial) { return answerTo(serial, "t", little(std::uint64_t{1}) + "more").bytes(); },
        "wrong size of the arguments in the answer to temperatureWithReply:");
}

TEST_F(XPCHostileAnswerTest, ErrorInsteadOfAnAnswerFailsTheCall)
{
    expectReplyInvalid(
        [](std::uint32_t serial) {
            auto answer = answerTo(serial, "", "");
            answer.type = 3;
            answer.errorName = "org.example.Failed";
            return answer.bytes();
        },
        "an error in the answer to temperatureWithReply:: org.example.Failed");
}

TEST_F(XPCHostileAnswerTest, ValuesThatAreNoneFailTheCall)
{
    const auto number = [](std::uint32_t value) { return little(value); };
    const std::string noError = number(0) + number(0) + std::string(8, '\0') + std::string(8, '\0');
    const std::string noData = number(0) + number(0);
    // A truth value of 2, data without being there, data that is longer than the message.
    EXPECT_EQ(placeWithAnswer("(bay)(bsx)", number(2) + number(0) + noError), 4101);
    EXPECT_TRUE(hasLogged("neither true nor false in the answer to placeInRoom:marks:reply:"));
    EXPECT_EQ(placeWithAnswer("(bay)(bsx)", number(0) + number(8) + "12345678" + noError), 4101);
    EXPECT_TRUE(hasLogged("content where there is no value in the answer to placeInRoom:marks:reply:"));
    EXPECT_EQ(placeWithAnswer("(bay)(bsx)", number(1) + number(0xffffffff) + noError), 4101);
    EXPECT_TRUE(hasLogged("wrong size of the arguments in the answer to placeInRoom:marks:reply:"));
    // Padding that is not zero, a text that is not UTF-8, one with a zero byte, one without its end, a code
    // where there is no error.
    EXPECT_EQ(placeWithAnswer("(bay)(bsx)", number(1) + number(1) + "x" + std::string(7, 'y') + noError),
              4101);
    EXPECT_TRUE(hasLogged("padding that is not zero in the answer to placeInRoom:marks:reply:"));
    for (const auto& text : {std::string("\xff\0", 2), std::string("\0\0", 2), std::string("a!", 2)}) {
        EXPECT_EQ(placeWithAnswer("(bay)(bsx)", noData + number(1) + number(1) + text + std::string(6, '\0') +
                                                    std::string(8, '\0')),
                  4101);
    }
    EXPECT_TRUE(hasLogged("text that is not UTF-8 in the answer to placeInRoom:marks:reply:"));
    EXPECT_EQ(placeWithAnswer("(bay)(bsx)", noData + number(0) + number(0) + std::string(8, '\0') +
                                                little(std::int64_t{7})),
              4101);
    EXPECT_EQ(readWithAnswer(soundAnswer).degrees, 19U);
}

TEST_F(XPCHostileAnswerTest, SecondAnswerIsIgnored)
{
    std::uint32_t first = 0;
    EXPECT_EQ(readWithAnswer([&first](std::uint32_t serial) {
                  first = serial;
                  return soundAnswer(serial);
              }).degrees,
              19U);
    EXPECT_TRUE(peer.send(answerTo(first, "t", little(std::uint64_t{66})).bytes()));
    EXPECT_EQ(readWithAnswer(soundAnswer).degrees, 19U);
    EXPECT_EQ(counts->interruptions + counts->invalidations, 0);
}

TEST_F(XPCHostileAnswerTest, AnswersToNothingAndToMessagesWithoutReplyAreIgnored)
{
    thermometerOf(*connection).send<&Thermometer::shake>();
    EXPECT_TRUE(peer.send(soundAnswer(serialOf(peer.receiveMessage()))));
    EXPECT_TRUE(peer.send(soundAnswer(4711)));
    EXPECT_EQ(readWithAnswer([](std::uint32_t serial) {
                  return soundAnswer(serial + 1) + soundAnswer(serial);
              }).degrees,
              19U);
    EXPECT_EQ(counts->interruptions + counts->invalidations, 0);
}

TEST_F(XPCHostileAnswerTest, AnswerThatNamesNoCallEndsTheConnection)
{
    const auto reading = readWithAnswer([](std::uint32_t) { return answerTo(0, "t", little(1ULL)).bytes(); });
    EXPECT_EQ(reading.error, connectionError(4099));
    EXPECT_TRUE(waitFor([this] { return counts->invalidations == 1; }));
    EXPECT_TRUE(waitFor([] { return hasLogged("broken message"); }));
}

TEST_F(XPCHostileAnswerTest, AnswerThatIsTooLargeEndsTheConnection)
{
    const auto reading = readWithAnswer([](std::uint32_t serial) {
        return answerTo(serial, "ay", std::string(64 * 1024, 'x')).bytes().substr(0, 16);
    });
    EXPECT_EQ(reading.error, connectionError(4099));
    EXPECT_TRUE(waitFor([this] { return counts->invalidations == 1; }));
    EXPECT_TRUE(waitFor([] { return hasLogged("message too large"); }));
}

TEST_F(XPCHostileAnswerTest, AnswerThatNeverEndsEndsTheConnection)
{
    const auto reading =
        readWithAnswer([](std::uint32_t serial) { return soundAnswer(serial).substr(0, 36); });
    EXPECT_EQ(reading.error, connectionError(4099));
    EXPECT_TRUE(waitFor([] { return hasLogged("a message never ended"); }));
}

TEST_F(XPCHostileAnswerTest, CallOfASideThatExportsNothingEndsTheConnection)
{
    RawCall call;
    call.interface = "Tests.Thermometer";
    call.member = "shake";
    ASSERT_TRUE(peer.send(call.bytes()));
    EXPECT_TRUE(waitFor([this] { return counts->invalidations == 1; }));
    EXPECT_TRUE(hasLogged("nothing is exported, but Tests.Thermometer.shake was called"));
}

TEST_F(XPCHostileAnswerTest, PeerThatEndsInsteadOfAnsweringInterruptsTheCall)
{
    auto reading = readLater(connection);
    EXPECT_NE(serialOf(peer.receiveMessage()), 0U);
    peer.close();
    EXPECT_EQ(reading.get().error, connectionError(4097));
    EXPECT_TRUE(waitFor([this] { return counts->interruptions == 1; }));
}

TEST_F(XPCHostileAnswerTest, PeerThatEndsInTheMiddleOfItsAnswerInterruptsTheCall)
{
    auto reading = readLater(connection);
    EXPECT_TRUE(peer.send(soundAnswer(serialOf(peer.receiveMessage())).substr(0, 36)));
    peer.close();
    EXPECT_EQ(reading.get().error, connectionError(4097));
    EXPECT_TRUE(waitFor([] { return hasLogged("it ended inside a message"); }));
}

// The other side: a peer that calls.
class XPCHostileCallerTest : public ThermometerTest {
protected:
    void SetUp() override
    {
        listener->resume();
        peer = connectRaw(*listener);
        ASSERT_TRUE(peer.authenticate());
        ASSERT_TRUE(waitFor([this] { return thermometers->acceptedCount() == 1; }));
    }
    void TearDown() override
    {
        peer.close();
        ThermometerTest::TearDown();
    }

    static RawCall temperatureCall(std::uint32_t serial)
    {
        RawCall call;
        call.interface = "Tests.Thermometer";
        call.member = "temperatureWithReply_";
        call.flags = 0;
        call.serial = serial;
        return call;
    }

    RawPeer peer = RawPeer(UniqueFd());
};

TEST_F(XPCHostileCallerTest, SoundCallFromHandIsAnswered)
{
    ASSERT_TRUE(peer.send(temperatureCall(77).bytes()));
    const auto answer = peer.receiveMessage();
    ASSERT_GE(answer.size(), 16U);
    EXPECT_EQ(answer[1], 2);  // method return
    EXPECT_TRUE(answer.ends_with(little(std::uint64_t{21})));
    EXPECT_NE(answer.find(std::string("\5\1u\0", 4) + little(std::uint32_t{77})), std::string::npos);
}

TEST_F(XPCHostileCallerTest, CallWhoseReplyGoesIsAnsweredWithAnError)
{
    thermometers->thermometer->onTemperature([](const auto&) {});
    ASSERT_TRUE(peer.send(temperatureCall(77).bytes()));
    const auto answer = peer.receiveMessage();
    ASSERT_GE(answer.size(), 16U);
    EXPECT_EQ(answer[1], 3);  // error
    EXPECT_NE(answer.find("org.freedesktop.DBus.Error.NoReply"), std::string::npos);
}

TEST_F(XPCHostileCallerTest, CallThatWantsNoAnswerGetsNone)
{
    auto call = temperatureCall(1);
    call.flags = 1;
    ASSERT_TRUE(peer.send(call.bytes()));
    ASSERT_TRUE(peer.send(temperatureCall(2).bytes()));
    const auto answer = peer.receiveMessage();
    EXPECT_NE(answer.find(std::string("\5\1u\0", 4) + little(std::uint32_t{2})), std::string::npos);
    EXPECT_EQ(thermometers->thermometer->temperatureCount, 2);
}

TEST_F(XPCHostileCallerTest, TwoOpenCallsOfOneNumberEndTheConnection)
{
    std::vector<xpc::Reply<std::uint64_t>> kept;
    std::mutex mutex;
    thermometers->thermometer->onTemperature([&](const auto& reply) {
        const std::lock_guard lock(mutex);
        kept.push_back(reply);
    });
    ASSERT_TRUE(peer.send(temperatureCall(5).bytes() + temperatureCall(5).bytes()));
    EXPECT_TRUE(peer.waitForEnd());
    EXPECT_TRUE(
        waitFor([] { return hasLogged("too many calls wait for an answer, or two have one number"); }));
    EXPECT_TRUE(waitFor([this] { return thermometers->counts(0)->invalidations == 1; }));
    thermometers->thermometer->onTemperature({});
}

TEST_F(XPCHostileCallerTest, TooManyOpenCallsEndTheConnection)
{
    std::vector<xpc::Reply<std::uint64_t>> kept;
    std::mutex mutex;
    const auto keptCount = [&] {
        const std::lock_guard lock(mutex);
        return kept.size();
    };
    thermometers->thermometer->onTemperature([&](const auto& reply) {
        const std::lock_guard lock(mutex);
        kept.push_back(reply);
    });
    for (std::uint32_t serial = 1; serial <= 256; ++serial)
        ASSERT_TRUE(peer.send(temperatureCall(serial).bytes()));
    ASSERT_TRUE(waitFor([&] { return keptCount() == 256; }));
    EXPECT_EQ(thermometers->counts(0)->invalidations, 0);
    ASSERT_TRUE(peer.send(temperatureCall(257).bytes()));
    EXPECT_TRUE(peer.waitForEnd());
    EXPECT_TRUE(waitFor([this] { return thermometers->counts(0)->invalidations == 1; }));
    EXPECT_EQ(keptCount(), 256U);
    thermometers->thermometer->onTemperature({});
}

TEST_F(XPCHostileCallerTest, PeerThatDoesNotReadItsAnswersIsThrownOut)
{
    int sent = 0;
    while (sent < 100'000 && peer.send(temperatureCall(static_cast<std::uint32_t>(sent) + 1).bytes()))
        ++sent;
    EXPECT_LT(sent, 100'000);
    EXPECT_TRUE(waitFor([this] { return thermometers->counts(0)->invalidations == 1; }));
    EXPECT_TRUE(waitFor([] { return hasLogged("it does not take its answers"); }));
}

}  // namespace
}  // namespace pavo::test
