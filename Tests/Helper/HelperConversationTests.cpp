// The communicator and helpers in processes of their own, sound ones and others. Authorization and blessing
// are recorded, not done.

#include "CMIOExtensionSupport/BosunCommunicator.h"
#include "Tests/CMIOExtensionSupport/AuthorizationRecorder.h"
#include "Tests/Helper/HelperProcess.h"
#include "Tests/Support/RecordingInterceptor.h"
#include "Tests/Support/Wait.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <signal.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>

namespace pavo::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

const ns::Error kAbsent{"NSCocoaErrorDomain", 4099};

// Set before any thread exists: threads that look names up read the environment.
class PrivateNamespace final : public testing::Environment {
public:
    void SetUp() override { ::setenv("PAVO_BOOTSTRAP_DIR", folder_.path().c_str(), 1); }

private:
    TemporaryFolder folder_;
};

[[maybe_unused]] const auto* const privateNamespace = testing::AddGlobalTestEnvironment(new PrivateNamespace);

class HelperConversationTest : public testing::Test {
protected:
    HelperConversationTest() { resetAuthorization(); }
    ~HelperConversationTest() override { resetAuthorization(); }

    static void launch(const BosunCommunicator::Remote& helper)
    {
        helper.send<&BosunServiceProtocol::launchStudioIfNeeded>();
    }
    static std::optional<ns::Error> failureOf(const BosunCommunicator::Result& result)
    {
        const auto* error = std::get_if<ns::Error>(&result);
        return error ? std::optional(*error) : std::nullopt;
    }
    static bool wasBlessed()
    {
        const auto calls = takeAuthorizationCalls();
        return !calls.empty() && calls.back().function == "SMJobBless";
    }

    RecordingInterceptor log;
};

TEST_F(HelperConversationTest, LaunchReachesTheHelperOnceAlthoughTheConnectionIsClosedAtOnce)
{
    HelperProcess helper("sound");
    ASSERT_TRUE(helper.isReady());
    for (std::size_t round = 1; round <= 5; ++round) {
        EXPECT_EQ(failureOf(BosunCommunicator::perform(false, launch)), std::nullopt);
        ASSERT_TRUE(helper.waitForCalls(round));
    }
    EXPECT_EQ(helper.calls(), std::vector<std::string>(5, "launchStudioIfNeeded"));
    EXPECT_EQ(log.count("Lost a Bosun connection to invalidation mid-run :/"), 0U);
    EXPECT_EQ(log.count("Lost a Bosun connection to interruption mid-run :/"), 0U);
}

TEST_F(HelperConversationTest, HelperOfTheSameVersionIsKeptAndEveryCallIsAnswered)
{
    HelperProcess helper("sound");
    ASSERT_TRUE(helper.isReady());
    std::optional<ns::Data> result;
    std::optional<ns::Error> uninstallError;
    std::optional<ns::Error> coreadiosdError = ns::Error();
    bool isRegistered = false;
    const auto outcome = BosunCommunicator::perform(true, [&](const BosunCommunicator::Remote& remote) {
        remote.send<&BosunServiceProtocol::ping>();
        remote.call<&BosunServiceProtocol::doInstall>(
            [&result](const auto& data, const auto& error) {
                result = data;
                EXPECT_EQ(error, std::nullopt);
            },
            std::string("step"), ns::Data{std::byte{1}, std::byte{2}}, ns::Data(3));
        remote.call<&BosunServiceProtocol::doComponentUninstall>(
            [&uninstallError](const auto& error) { uninstallError = error; });
        remote.call<&BosunServiceProtocol::coreadiosd>(
            [&coreadiosdError](const auto& error) { coreadiosdError = error; });
        remote.call<&BosunServiceProtocol::checkCMIOExtensionRegistered>(
            [&isRegistered](bool answer) { isRegistered = answer; });
    });
    EXPECT_EQ(failureOf(outcome), std::nullopt);
    EXPECT_EQ(result, (ns::Data{std::byte{1}, std::byte{2}}));
    EXPECT_EQ(uninstallError, (ns::Error{"NSPOSIXErrorDomain", 2}));
    EXPECT_EQ(coreadiosdError, std::nullopt);
    EXPECT_TRUE(isRegistered);
    EXPECT_THAT(helper.calls(),
                ElementsAre("getCommunicationVersion", "ping", "doInstall step 3", "doComponentUninstall",
                            "coreadiosd", "checkCMIOExtensionRegistered"));
    EXPECT_THAT(takeAuthorizationCalls(), IsEmpty());
}

TEST_F(HelperConversationTest, SlowHelperIsWaitedFor)
{
    HelperProcess helper("slow");
    ASSERT_TRUE(helper.isReady());
    EXPECT_FALSE(BosunCommunicator::isHelperInstallationNeeded());
}

TEST_F(HelperConversationTest, HelperThatAnswersTwiceIsTakenAtItsFirstWord)
{
    HelperProcess helper("twice");
    ASSERT_TRUE(helper.isReady());
    EXPECT_FALSE(BosunCommunicator::isHelperInstallationNeeded());
    EXPECT_THAT(helper.calls(), ElementsAre("getCommunicationVersion"));
}

TEST_F(HelperConversationTest, HelperOfAnotherVersionIsReplaced)
{
    HelperProcess helper("sound", "4");
    ASSERT_TRUE(helper.isReady());
    EXPECT_TRUE(BosunCommunicator::isHelperInstallationNeeded());
    EXPECT_FALSE(wasBlessed());
    EXPECT_EQ(failureOf(BosunCommunicator::create(true)), std::nullopt);
    EXPECT_TRUE(wasBlessed());
    EXPECT_EQ(log.count("Bosun version mismatch! (helper: 4, me: 5)."), 2U);
}

TEST_F(HelperConversationTest, HelperThatDiesInTheMiddleOfTheCallHasVersionZero)
{
    HelperProcess helper("dying");
    ASSERT_TRUE(helper.isReady());
    // Nobody serves the connection after the installation either, which may be noticed at once or later.
    const auto error = failureOf(BosunCommunicator::create(true));
    EXPECT_TRUE(!error ||
                *error == BosunCommunicator::makeError(BosunCommunicator::CommunicationError::invalidated));
    EXPECT_EQ(log.count("Bosun version mismatch! (helper: 0, me: 5)."), 1U);
    EXPECT_TRUE(wasBlessed());
    EXPECT_EQ(helper.process().waitForExit(), 0);
}

TEST_F(HelperConversationTest, SilentHelperThatIsKilledReleasesTheCall)
{
    HelperProcess helper("silent");
    ASSERT_TRUE(helper.isReady());
    auto result = BosunCommunicator::create(false);
    const auto communicator = std::get<std::shared_ptr<BosunCommunicator>>(result);
    std::thread killer([&helper] {
        ASSERT_TRUE(helper.waitForCalls(1));
        helper.process().signal(SIGKILL);
    });
    const auto error = communicator->withRemoteObject(true, [](const BosunCommunicator::Remote& remote) {
        remote.call<&BosunServiceProtocol::getCommunicationVersion>([](std::uint64_t) { ADD_FAILURE(); });
    });
    killer.join();
    ASSERT_TRUE(error);
    // The handler of the connection and that of the call each write their error; either may be the last.
    EXPECT_TRUE(*error == (ns::Error{"NSCocoaErrorDomain", 4097}) ||
                *error == BosunCommunicator::makeError(BosunCommunicator::CommunicationError::interrupted))
        << error->domain << " " << error->code;
    EXPECT_TRUE(
        waitFor([this] { return log.count("Lost a Bosun connection to interruption mid-run :/") == 1; }));
}

TEST_F(HelperConversationTest, AbsentHelperIsAnErrorOfTheCall)
{
    const auto error = failureOf(BosunCommunicator::perform(false, launch));
    ASSERT_TRUE(error);
    EXPECT_TRUE(*error == kAbsent ||
                *error == BosunCommunicator::makeError(BosunCommunicator::CommunicationError::invalidated))
        << error->domain << " " << error->code;
}

TEST_F(HelperConversationTest, LaunchWaitsForNoHelperWhateverItDoes)
{
    for (const char* behaviour : {"sound", "slow", "silent", "dying", "unreading", "unaccepting"}) {
        HelperProcess helper(behaviour);
        ASSERT_TRUE(helper.isReady()) << behaviour;
        const auto begin = std::chrono::steady_clock::now();
        BosunCommunicator::perform(false, launch);
        const auto took = std::chrono::steady_clock::now() - begin;
        std::printf(
            "%s helper: %lld µs\n", behaviour,
            static_cast<long long>(std::chrono::duration_cast<std::chrono::microseconds>(took).count()));
        // Waiting for some of them would take for ever; a busy machine may take a while.
        EXPECT_LT(took, std::chrono::seconds(4)) << behaviour;
    }
}

}  // namespace
}  // namespace pavo::test
