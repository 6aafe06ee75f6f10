// What calls with replies promise on every system: who waits, where the answer runs, and how a call fails.

#include "Tests/Platform/XPC/ThermometerFixture.h"
#include "Tests/Support/Wait.h"

#include <thread>

namespace pavo::test {
namespace {

using Reply = xpc::Reply<std::uint64_t>;

// A call whose answer the test gives, or not.
struct WaitingCall {
    std::future<Reading> reading;
    Reply reply;
};

class XPCReplyContract : public ThermometerTest {
protected:
    // Resumes both ends, calls on another thread, and returns once the thermometer has the call.
    WaitingCall beginCall(const std::shared_ptr<xpc::Connection>& connection)
    {
        const auto kept = std::make_shared<std::promise<Reply>>();
        thermometers->thermometer->onTemperature([kept](Reply reply) { kept->set_value(std::move(reply)); });
        listener->resume();
        connection->resume();
        auto reading = readLater(connection);
        return {std::move(reading), kept->get_future().get()};
    }
};

TEST_F(XPCReplyContract, SynchronousCallReturnsWithItsReply)
{
    listener->resume();
    const auto connection = dial();
    connection->resume();
    thermometers->thermometer->onTemperature([](const Reply& reply) { reply(UINT64_MAX); });
    const auto reading = read(*connection);
    EXPECT_EQ(reading.degrees, UINT64_MAX);
    EXPECT_EQ(reading.error, std::nullopt);
}

TEST_F(XPCReplyContract, SynchronousRepliesAndErrorsRunOnTheCallersThread)
{
    listener->resume();
    const auto connection = dial();
    connection->resume();
    std::thread::id replyThread;
    synchronousThermometerOf(*connection, {}).call<&Thermometer::isWarm>([&replyThread](bool isWarm) {
        EXPECT_TRUE(isWarm);
        replyThread = std::this_thread::get_id();
    });
    EXPECT_EQ(replyThread, std::this_thread::get_id());

    connection->invalidate();
    std::thread::id errorThread;
    synchronousThermometerOf(*connection, [&errorThread](const ns::Error&) {
        errorThread = std::this_thread::get_id();
    }).call<&Thermometer::isWarm>([](bool) { ADD_FAILURE(); });
    EXPECT_EQ(errorThread, std::this_thread::get_id());
}

TEST_F(XPCReplyContract, AsynchronousCallDoesNotWaitAndItsReplyComesOnAnotherThread)
{
    const auto connection = dial();
    connection->resume();
    std::atomic<std::uint64_t> degrees = 0;
    std::atomic<bool> wasElsewhere = false;
    thermometerOf(*connection)
        .call<&Thermometer::temperature>([&, caller = std::this_thread::get_id()](std::uint64_t value) {
            wasElsewhere = std::this_thread::get_id() != caller;
            degrees = value;
        });
    EXPECT_EQ(degrees, 0U);  // nobody listens yet
    listener->resume();
    ASSERT_TRUE(waitFor([&degrees] { return degrees == 21; }));
    EXPECT_TRUE(wasElsewhere);
}

TEST_F(XPCReplyContract, TextsDataAndOptionalValuesArriveAsTheyAre)
{
    listener->resume();
    const auto connection = dial();
    connection->resume();
    const auto& thermometer = thermometers->thermometer;
    const auto remote = synchronousThermometerOf(*connection, [](const ns::Error&) { ADD_FAILURE(); });
    const ns::Data marks = {std::byte{0}, std::byte{255}, std::byte{7}};
    std::optional<ns::Data> result = ns::Data{std::byte{1}};
    std::optional<ns::Error> error;
    const auto place = [&](const std::string& room, const ns::Data& data) {
        remote.call<&Thermometer::place>(
            [&](const std::optional<ns::Data>& newResult, const std::optional<ns::Error>& newError) {
                result = newResult;
                error = newError;
            },
            room, data);
    };

    thermometer->onPlace([](const auto& reply) { reply(std::nullopt, ns::Error{"Küche", -5}); });
    place("Küche €", marks);
    EXPECT_EQ(thermometer->room(), "Küche €");
    EXPECT_EQ(thermometer->marks(), marks);
    EXPECT_EQ(result, std::nullopt);
    EXPECT_EQ(error, (ns::Error{"Küche", -5}));

    thermometer->onPlace([marks](const auto& reply) { reply(marks, std::nullopt); });
    place("", {});
    EXPECT_EQ(thermometer->room(), "");
    EXPECT_EQ(thermometer->marks(), ns::Data());
    EXPECT_EQ(result, marks);
    EXPECT_EQ(error, std::nullopt);

    // An empty value is there, too.
    thermometer->onPlace([](const auto& reply) { reply(ns::Data(), ns::Error()); });
    place("x", marks);
    EXPECT_EQ(result, ns::Data());
    EXPECT_EQ(error, ns::Error());
}

TEST_F(XPCReplyContract, ReplyWithoutValuesArrives)
{
    listener->resume();
    const auto connection = dial();
    connection->resume();
    bool hasSettled = false;
    synchronousThermometerOf(*connection, {}).call<&Thermometer::settle>([&] { hasSettled = true; });
    EXPECT_TRUE(hasSettled);
}

TEST_F(XPCReplyContract, AnswerMayComeLaterFromAnotherThread)
{
    auto call = beginCall(dial());
    std::thread([&reply = call.reply] { reply(37); }).join();
    EXPECT_EQ(call.reading.get().degrees, 37U);
}

TEST_F(XPCReplyContract, PeerThatEndsTheConnectionEndsTheCallsThatWait)
{
    auto call = beginCall(dial());
    thermometers->accepted(0)->invalidate();
    EXPECT_EQ(call.reading.get().error, connectionError(4097));
    call.reply(1);  // to nobody
}

TEST_F(XPCReplyContract, ConnectionToAnEndpointThatIsLostFailsItsCallsAsInvalid)
{
    const auto connection = xpc::Connection::withListenerEndpoint(listener->endpoint());
    connection->setRemoteObjectInterface(xpc::describe<Thermometer>());
    endLater(connection);
    auto call = beginCall(connection);
    thermometers->accepted(0)->invalidate();
    EXPECT_EQ(call.reading.get().error, connectionError(4099));
}

TEST_F(XPCReplyContract, OwnInvalidationEndsTheCallsThatWait)
{
    const auto connection = dial();
    auto call = beginCall(connection);
    connection->invalidate();
    EXPECT_EQ(call.reading.get().error, connectionError(4099));
    EXPECT_EQ(read(*connection).error, connectionError(4099));
}

TEST_F(XPCReplyContract, AbsentServiceIsToldToTheErrorHandlerBeforeTheCallReturns)
{
    const auto connection = dial(xpc::ConnectionOptions::none, "com.tarnwell.macos.cam.tests.nobody");
    connection->resume();
    EXPECT_EQ(read(*connection).error, connectionError(4099));
    EXPECT_EQ(read(*connection).degrees, std::nullopt);
}

TEST_F(XPCReplyContract, ServiceThatIsGoneAtTheNextCallIsInvalid)
{
    listener->resume();
    const auto connection = dial();
    const auto counts = countHandlers(*connection);
    connection->resume();
    EXPECT_EQ(read(*connection).degrees, 21U);
    stopListening();
    thermometers->clear();
    ASSERT_TRUE(waitFor([&counts] { return counts->interruptions == 1; }));
    EXPECT_EQ(read(*connection).error, connectionError(4099));
}

TEST_F(XPCReplyContract, FailedAsynchronousCallsAreSilentAndLetGoOfTheirReply)
{
    const auto connection = dial(xpc::ConnectionOptions::none, "com.tarnwell.macos.cam.tests.nobody");
    connection->resume();
    const auto marker = std::make_shared<int>();
    thermometerOf(*connection).call<&Thermometer::temperature>([marker](std::uint64_t) { ADD_FAILURE(); });
    thermometerOf(*connection).call<&Thermometer::temperature>([marker](std::uint64_t) { ADD_FAILURE(); });
    EXPECT_TRUE(waitFor([&marker] { return marker.use_count() == 1; }));
}

TEST_F(XPCReplyContract, CallBeforeResumeWaitsForIt)
{
    listener->resume();
    const auto connection = dial();
    auto reading = readLater(connection);
    connection->resume();
    EXPECT_EQ(reading.get().degrees, 21U);
}

}  // namespace
}  // namespace pavo::test
