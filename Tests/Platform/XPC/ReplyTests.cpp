// Calls with replies: who waits, for how long, on which thread the answer runs, and how a call fails.

#include "Tests/Platform/XPC/LinuxFixture.h"
#include "Tests/Platform/XPC/ThermometerFixture.h"
#include "Tests/Support/Wait.h"

#include <dispatch/dispatch.h>
#include <servers/bootstrap.h>
#include <servers/bootstrap_private.h>

#include <algorithm>
#include <chrono>
#include <thread>

namespace pavo::test {
namespace {

using Reply = xpc::Reply<std::uint64_t>;

class XPCReplyTest : public ThermometerTest {
protected:
    // The listener's name in the system's namespace, where privileged connections look.
    void registerNameForTheSystem(const std::string& name)
    {
        name_t buffer{};
        std::copy(name.begin(), name.end(), buffer);
        const auto endpoint = listener->endpoint();
        ASSERT_EQ(bootstrap_register(bootstrap_system_port(), buffer,
                                     xpc::ListenerEndpoint::machPort(endpoint.object())),
                  BOOTSTRAP_SUCCESS);
    }
};

TEST_F(XPCReplyTest, SecondAnswerIsDroppedAndLogged)
{
    thermometers->thermometer->onTemperature([](const Reply& reply) {
        reply(1);
        reply(2);
    });
    listener->resume();
    const auto connection = dial();
    connection->resume();
    EXPECT_EQ(read(*connection).degrees, 1U);
    EXPECT_EQ(read(*connection).degrees, 1U);
    EXPECT_TRUE(hasLogged("Answered twice: temperatureWithReply:"));
}

TEST_F(XPCReplyTest, ReplyThatGoesWithoutAnAnswerFailsTheCallAndNotTheConnection)
{
    std::atomic<bool> answers = false;
    thermometers->thermometer->onTemperature([&answers](const Reply& reply) {
        if (answers) reply(20);
    });
    listener->resume();
    const auto connection = dial();
    const auto counts = countHandlers(*connection);
    connection->resume();
    EXPECT_EQ(read(*connection).error, connectionError(4101));
    answers = true;
    EXPECT_EQ(read(*connection).degrees, 20U);
    EXPECT_EQ(counts->invalidations + counts->interruptions, 0);
}

TEST_F(XPCReplyTest, AbsentServiceIsToldToTheErrorHandlerOfAMessageWithoutReplyToo)
{
    const auto connection = dial(xpc::ConnectionOptions::none, "com.tarnwell.macos.cam.tests.nobody");
    connection->resume();
    std::optional<ns::Error> error;
    synchronousThermometerOf(*connection, [&error](const ns::Error& reason) {
        error = reason;
    }).send<&Thermometer::shake>();
    EXPECT_EQ(error, connectionError(4099));
}

TEST_F(XPCReplyTest, MessageWithoutReplyWaitsForNoPeer)
{
    // The listener is not resumed: whoever connects is not even greeted.
    const auto connection = dial();
    connection->resume();
    const auto start = std::chrono::steady_clock::now();
    synchronousThermometerOf(*connection, [](const ns::Error&) {
        ADD_FAILURE();
    }).send<&Thermometer::shake>();
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(2));
    EXPECT_EQ(thermometers->thermometer->shakeCount, 0);
    listener->resume();
    EXPECT_TRUE(waitFor([this] { return thermometers->thermometer->shakeCount == 1; }));
}

TEST_F(XPCReplyTest, MessageGoesOutAlthoughItsConnectionIsInvalidatedAtOnce)
{
    for (const bool isSynchronous : {true, false}) {
        const auto before = thermometers->thermometer->shakeCount.load();
        const auto connection = dial();
        const auto counts = countHandlers(*connection);
        connection->resume();
        const auto remote =
            isSynchronous ? synchronousThermometerOf(*connection, {}) : thermometerOf(*connection);
        remote.send<&Thermometer::shake>();
        connection->invalidate();
        connection->invalidate();
        remote.send<&Thermometer::shake>();
        ASSERT_TRUE(waitFor([&counts] { return counts->invalidations == 1; }));
        listener->resume();
        ASSERT_TRUE(waitFor([&] { return thermometers->thermometer->shakeCount == before + 1; }))
            << isSynchronous;
        const auto index = thermometers->acceptedCount() - 1;
        ASSERT_TRUE(waitFor([&] { return thermometers->counts(index)->invalidations == 1; }));
        EXPECT_EQ(thermometers->thermometer->shakeCount, before + 1);
    }
}

TEST_F(XPCReplyTest, InvalidatedConnectionDoesNotStayForAPeerThatTakesNothing)
{
    const auto connection = dial();
    connection->resume();
    synchronousThermometerOf(*connection, {}).send<&Thermometer::shake>();
    connection->invalidate();
    EXPECT_TRUE(waitFor([] { return hasLogged("it does not take the last messages"); }));
    listener->resume();
    const auto next = dial();
    next->resume();
    EXPECT_EQ(read(*next).degrees, 21U);
    EXPECT_EQ(thermometers->thermometer->shakeCount, 0);
}

TEST_F(XPCReplyTest, PrivilegedConnectionFindsTheSystemsServicesOnly)
{
    listener->resume();
    const auto privileged = dial(xpc::ConnectionOptions::privileged);
    privileged->resume();
    EXPECT_EQ(read(*privileged).error, connectionError(4099));

    registerNameForTheSystem(kThermometerName);
    const auto second = dial(xpc::ConnectionOptions::privileged);
    second->resume();
    EXPECT_EQ(read(*second).degrees, 21U);
}

TEST_F(XPCReplyTest, TooManyCallsWithoutAnswerEndTheConnection)
{
    const auto connection = dial();
    connection->resume();
    synchronousThermometerOf(*connection, {}).send<&Thermometer::shake>();  // it has found the service
    std::vector<Reply> kept;
    std::mutex mutex;
    thermometers->thermometer->onTemperature([&](Reply reply) {
        const std::lock_guard lock(mutex);
        kept.push_back(std::move(reply));
    });
    listener->resume();
    const auto counts = countHandlers(*connection);
    const auto marker = std::make_shared<int>();
    for (std::size_t i = 1; i <= 256; ++i) {
        thermometerOf(*connection).call<&Thermometer::temperature>([marker](std::uint64_t) {});
        ASSERT_TRUE(waitFor([&] {
            const std::lock_guard lock(mutex);
            return kept.size() == i;
        }));
    }
    EXPECT_EQ(counts->invalidations, 0);
    thermometerOf(*connection).call<&Thermometer::temperature>([marker](std::uint64_t) {});
    EXPECT_TRUE(waitFor([&counts] { return counts->invalidations == 1; }));
    EXPECT_TRUE(waitFor([&marker] { return marker.use_count() == 1; }));
    EXPECT_TRUE(hasLogged("Too many calls wait for their replies"));
    thermometers->thermometer->onTemperature({});
}

TEST_F(XPCReplyTest, ArgumentsThatHaveNoFormFailTheCallAndNotTheConnection)
{
    listener->resume();
    const auto connection = dial();
    connection->resume();
    thermometers->thermometer->onPlace([](const auto& reply) { reply(std::nullopt, std::nullopt); });
    int replyCount = 0;
    std::vector<ns::Error> errors;
    const auto place = [&](const std::string& room, const ns::Data& marks) {
        synchronousThermometerOf(*connection, [&errors](const ns::Error& error) {
            errors.push_back(error);
        }).call<&Thermometer::place>([&replyCount](const auto&, const auto&) { ++replyCount; }, room, marks);
    };
    place("\xff", {});
    place(std::string("a\0b", 3), {});
    place("room", ns::Data(60 * 1024));
    EXPECT_EQ(replyCount, 0);
    EXPECT_EQ(errors, std::vector<ns::Error>(3, connectionError(4101)));
    EXPECT_TRUE(hasLogged("Cannot put the arguments of placeInRoom:marks:reply: in a message"));
    // The most that there is room for.
    place("room", ns::Data(60 * 1024 - 4));
    EXPECT_EQ(replyCount, 1);
    EXPECT_EQ(thermometers->thermometer->marks().size(), 60U * 1024 - 4);
}

TEST_F(XPCReplyTest, AnswerThatHasNoFormFailsTheCallAndNotTheConnection)
{
    listener->resume();
    const auto connection = dial();
    connection->resume();
    std::optional<ns::Error> error;
    int replyCount = 0;
    const auto place = [&] {
        synchronousThermometerOf(*connection, [&error](const ns::Error& reason) { error = reason; })
            .call<&Thermometer::place>([&replyCount](const auto&, const auto&) { ++replyCount; },
                                       std::string(), ns::Data());
    };
    thermometers->thermometer->onPlace(
        [](const auto& reply) { reply(ns::Data(60 * 1024 + 1), std::nullopt); });
    place();
    EXPECT_EQ(error, connectionError(4101));
    EXPECT_TRUE(hasLogged("The answer to placeInRoom:marks:reply: cannot be put in a message"));
    thermometers->thermometer->onPlace([](const auto& reply) { reply(std::nullopt, ns::Error{"\xff", 1}); });
    place();
    EXPECT_EQ(replyCount, 0);
    thermometers->thermometer->onPlace([](const auto& reply) { reply(ns::Data(60 * 1024), std::nullopt); });
    place();
    EXPECT_EQ(replyCount, 1);
}

using XPCReplyDeathTest = XPCReplyTest;

class Painter {
public:
    virtual void paint(IOSurfaceRef surface, xpc::Reply<bool> reply) = 0;

protected:
    ~Painter() = default;
};

}  // namespace
}  // namespace pavo::test

template <>
struct xpc::Protocol<pavo::test::Painter> {
    static constexpr std::string_view name = "Tests.Painter";
    using Adopts = xpc::Adopts<>;
    using Messages = xpc::Messages<xpc::Message<"paint:reply:", &pavo::test::Painter::paint>>;
};

namespace pavo::test {
namespace {

TEST_F(XPCReplyDeathTest, RepliesWhereThereAreNoneAndNoneWhereThereAreSomeAreFatal)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto connection = dial();
    const auto proxy = connection->remoteObjectProxy();
    EXPECT_DEATH(proxy.send("temperatureWithReply:", {}),
                 "Fatal error: A reply is missing for temperatureWithReply:");
    EXPECT_DEATH(proxy.call("shake", {}, {}), "Fatal error: There is no reply to shake");
}

TEST_F(XPCReplyDeathTest, SurfacesInAMethodWithAReplyAreFatal)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto connection = dial();
    EXPECT_DEATH(connection->setRemoteObjectInterface(xpc::describe<Painter>()),
                 "Fatal error: A method with a reply cannot have surfaces: paint:reply:");
}

}  // namespace
}  // namespace pavo::test
