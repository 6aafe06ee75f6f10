#include "CMIOExtensionSupport/BosunCommunicator.h"

#include "Tests/CMIOExtensionSupport/AuthorizationRecorder.h"
#include "Tests/CMIOExtensionSupport/CameraTestSupport.h"
#include "Tests/Doubles/Foundation/FoundationDouble.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <unordered_set>
#include <vector>

namespace pavo {
namespace {

using test::authorizationBehaviour;
using test::takeAuthorizationCalls;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;
using Strings = std::vector<std::string>;
using CommunicationError = BosunCommunicator::CommunicationError;

constexpr const char* kOpened = "log default BosunCommunicator: Opened a new Bosun connection!";
constexpr const char* kChecking = "log default BosunCommunicator: Checking Bosun privileged helper version…";
constexpr const char* kInstalling = "log default BosunCommunicator: Installing new helper…";
constexpr const char* kLives = "log default BosunCommunicator: Bosun lives! Enjoy the connection.";
constexpr const char* kNoCommunication =
    "log default BosunCommunicator: Couldn't perform initial Bosun communication!";
constexpr const char* kInvalidated =
    "log default BosunCommunicator: Lost a Bosun connection to invalidation mid-run :/";
constexpr const char* kInterrupted =
    "log default BosunCommunicator: Lost a Bosun connection to interruption mid-run :/";
constexpr const char* kClosing = "log default BosunCommunicator: Closing Bosun connection for deinit";

std::string mismatch(std::uint64_t version)
{
    return "log default BosunCommunicator: Bosun version mismatch! (helper: " + std::to_string(version) +
           ", me: 5).";
}

// What opening a connection does to it, with the message that it ends with.
const Strings kOpening = {"withMachServiceName com.tarnwell.macos.cam.PrivilegedHelper privileged",
                          "setRemoteObjectInterface CMIOExtensionSupport.BosunServiceProtocol", "resume",
                          kOpened};
const Strings kHandlers = {"setInvalidationHandler", "setInterruptionHandler"};
const Strings kEnd = {kClosing, "setInvalidationHandler none", "setInterruptionHandler none", "invalidate"};

Strings joined(std::initializer_list<Strings> parts)
{
    Strings all;
    for (const auto& part : parts)
        all.insert(all.end(), part.begin(), part.end());
    return all;
}

const ns::Error kAbsent{"NSCocoaErrorDomain", 4099};
const ns::Error kInvalidatedError{"CMIOExtensionSupport.BosunCommunicator.CommunicationError", 0};
const ns::Error kInterruptedError{"CMIOExtensionSupport.BosunCommunicator.CommunicationError", 1};

class BosunCommunicatorTest : public testing::Test {
protected:
    BosunCommunicatorTest()
    {
        test::resetDoubles();
        test::resetAuthorization();
        GTEST_FLAG_SET(death_test_style, "threadsafe");
    }
    ~BosunCommunicatorTest() override
    {
        test::resetDoubles();
        test::resetAuthorization();
    }

    // A helper that says this version, and takes what has no reply.
    static void serveVersion(std::uint64_t version)
    {
        serve([version](const std::string& selector) -> xpc::test::Answer {
            if (selector == "getCommunicationVersionWithReply:") return std::vector<xpc::Argument>{version};
            return std::vector<xpc::Argument>{};
        });
    }
    static void serve(const std::function<xpc::test::Answer(const std::string& selector)>& answer)
    {
        xpc::test::setService({[answer](xpc::test::Peer&, const xpc::test::SentMessage& message) {
                                   return answer(message.selector);
                               },
                               nullptr});
    }
    static std::shared_ptr<BosunCommunicator> make(bool installIfNeeded)
    {
        auto result = BosunCommunicator::create(installIfNeeded);
        EXPECT_TRUE(std::holds_alternative<std::shared_ptr<BosunCommunicator>>(result));
        return std::get<std::shared_ptr<BosunCommunicator>>(result);
    }
    static std::optional<ns::Error> failureOf(const BosunCommunicator::Result& result)
    {
        const auto* error = std::get_if<ns::Error>(&result);
        return error ? std::optional(*error) : std::nullopt;
    }
    static void launch(const BosunCommunicator::Remote& helper)
    {
        helper.send<&BosunServiceProtocol::launchStudioIfNeeded>();
    }
    static Strings functions()
    {
        Strings names;
        for (const auto& call : takeAuthorizationCalls())
            names.push_back(call.function);
        return names;
    }
};

using BosunCommunicatorDeathTest = BosunCommunicatorTest;

TEST_F(BosunCommunicatorTest, OpensAPrivilegedConnectionInItsFixedOrder)
{
    const test::Journal journal;
    const auto communicator = make(false);
    EXPECT_THAT(journal.entries(), ElementsAreArray(joined({kOpening, kHandlers, {kLives}})));
}

TEST_F(BosunCommunicatorTest, LogsInTheNameOfTheProgramThatRuns)
{
    test::setMainBundleIdentifier("com.example.host");
    const test::Journal journal;
    make(false);
    EXPECT_EQ(journal.count(kOpened), 1U);
    EXPECT_EQ(journal.count(kLives), 1U);
}

TEST_F(BosunCommunicatorTest, WithoutInstallationNeitherVersionNorAuthorizationIsAskedFor)
{
    serveVersion(4);
    const auto communicator = make(false);
    const auto peers = xpc::test::takeDialledPeers();
    ASSERT_EQ(peers.size(), 1U);
    EXPECT_THAT(peers[0]->sentSelectors(), IsEmpty());
    EXPECT_THAT(functions(), IsEmpty());
}

TEST_F(BosunCommunicatorTest, HelperOfTheSameVersionIsKept)
{
    serveVersion(5);
    const test::Journal journal;
    const auto communicator = make(true);
    EXPECT_THAT(
        journal.entries(),
        ElementsAreArray(joined(
            {kOpening, {kChecking, "synchronousRemoteObjectProxyWithErrorHandler"}, kHandlers, {kLives}})));
    EXPECT_THAT(xpc::test::takeDialledPeers().at(0)->sentSelectors(),
                ElementsAre("getCommunicationVersionWithReply:"));
    EXPECT_THAT(functions(), IsEmpty());
}

TEST_F(BosunCommunicatorTest, HelperOfAnyOtherVersionIsReplaced)
{
    for (const std::uint64_t version : {0ULL, 1ULL, 4ULL, 6ULL, 4294967295ULL}) {
        serveVersion(version);
        const test::Journal journal;
        const auto communicator = make(true);
        EXPECT_THAT(journal.entries(),
                    ElementsAreArray(joined({kOpening,
                                             {kChecking, "synchronousRemoteObjectProxyWithErrorHandler",
                                              mismatch(version), kInstalling, "invalidate"},
                                             kOpening,
                                             kHandlers,
                                             {kLives}})));
        EXPECT_THAT(functions(), ElementsAre("AuthorizationCreate", "AuthorizationCopyRights", "SMJobBless"));
        EXPECT_EQ(communicator->error(), std::nullopt);
    }
}

TEST_F(BosunCommunicatorTest, VersionThatDiffersInItsUpperHalfOnlyIsAnother)
{
    serveVersion((1ULL << 32) + 5);
    const test::Journal journal;
    make(true);
    EXPECT_EQ(journal.count(kInstalling), 1U);
}

TEST_F(BosunCommunicatorTest, HelperThatDoesNotAnswerHasVersionZeroAndIsInstalled)
{
    const test::Journal journal;
    const auto communicator = make(true);
    EXPECT_EQ(journal.count(mismatch(0)), 1U);
    EXPECT_EQ(journal.count(kInstalling), 1U);
    EXPECT_THAT(functions(), ElementsAre("AuthorizationCreate", "AuthorizationCopyRights", "SMJobBless"));
    // The new connection knows nothing of the old one's error.
    EXPECT_EQ(communicator->error(), std::nullopt);
}

TEST_F(BosunCommunicatorTest, HelperOfAnotherProtocolIsInstalledAnew)
{
    xpc::test::setService({{}, &xpc::describe<VideoFrameProducerService>()});
    const test::Journal journal;
    make(true);
    EXPECT_EQ(journal.count(kNoCommunication), 1U);
    EXPECT_EQ(journal.count(mismatch(0)), 0U);
    EXPECT_EQ(journal.count(kInstalling), 1U);
}

TEST_F(BosunCommunicatorTest, FailedInstallationIsTheConstructorsError)
{
    authorizationBehaviour().copyRights = -60006;
    const test::Journal journal;
    EXPECT_EQ(failureOf(BosunCommunicator::create(true)), (ns::Error{"NSOSStatusErrorDomain", -60006}));
    EXPECT_THAT(journal.entries(),
                ElementsAreArray(joined(
                    {kOpening,
                     {kChecking, "synchronousRemoteObjectProxyWithErrorHandler", mismatch(0), kInstalling},
                     kEnd})));
    EXPECT_THAT(functions(), ElementsAre("AuthorizationCreate", "AuthorizationCopyRights"));

    authorizationBehaviour().copyRights = 0;
    authorizationBehaviour().blesses = false;
    EXPECT_EQ(failureOf(BosunCommunicator::create(true)), (ns::Error{"CFErrorDomainLaunchd", 4}));
}

TEST_F(BosunCommunicatorTest, ErrorThatIsSetWhileItIsMadeIsTheConstructorsError)
{
    const test::Journal journal;
    bool hasFailed = false;
    xpc::test::setCallObserver([&hasFailed](const std::string& call) {
        // Between the handlers and the look at the error.
        if (call != "setInterruptionHandler" || hasFailed) return;
        hasFailed = true;
        xpc::test::takeDialledPeers().at(0)->failWithInvalidation();
    });
    EXPECT_EQ(failureOf(BosunCommunicator::create(false)), kInvalidatedError);
    EXPECT_EQ(journal.count(kInvalidated), 1U);
    EXPECT_EQ(journal.count(kLives), 0U);
}

TEST_F(BosunCommunicatorTest, PerformRunsItsBodyWithTheHelperAndReturnsTheCommunicator)
{
    serveVersion(5);
    const test::Journal journal;
    const auto result = BosunCommunicator::perform(false, launch);
    EXPECT_EQ(failureOf(result), std::nullopt);
    EXPECT_EQ(journal.entries().back(), "synchronousRemoteObjectProxyWithErrorHandler");
    EXPECT_THAT(xpc::test::takeDialledPeers().at(0)->sentSelectors(), ElementsAre("launchStudioIfNeeded"));
}

TEST_F(BosunCommunicatorTest, PerformChecksTheVersionFirstWhereItMayInstall)
{
    serveVersion(5);
    EXPECT_EQ(failureOf(BosunCommunicator::perform(true, launch)), std::nullopt);
    EXPECT_THAT(xpc::test::takeDialledPeers().at(0)->sentSelectors(),
                ElementsAre("getCommunicationVersionWithReply:", "launchStudioIfNeeded"));
}

TEST_F(BosunCommunicatorTest, PerformDoesNotRunItsBodyWhereTheInstallationFails)
{
    authorizationBehaviour().copyRights = -60005;
    bool hasRun = false;
    const auto result =
        BosunCommunicator::perform(true, [&hasRun](const BosunCommunicator::Remote&) { hasRun = true; });
    EXPECT_EQ(failureOf(result), (ns::Error{"NSOSStatusErrorDomain", -60005}));
    EXPECT_FALSE(hasRun);
}

TEST_F(BosunCommunicatorTest, AbsentHelperIsTheErrorOfTheCallThatFindsIt)
{
    const test::Journal journal;
    EXPECT_EQ(failureOf(BosunCommunicator::perform(false, launch)), kAbsent);
    // The communicator is gone with its error, and closing it was no loss.
    EXPECT_EQ(journal.count(kClosing), 1U);
    EXPECT_EQ(journal.count(kInvalidated) + journal.count(kInterrupted), 0U);
}

TEST_F(BosunCommunicatorTest, SynchronousProxyStoresItsErrorAndTheOtherOneHasNone)
{
    const auto communicator = make(false);
    EXPECT_EQ(communicator->withRemoteObject(false, launch), std::nullopt);
    EXPECT_EQ(communicator->error(), std::nullopt);
    EXPECT_EQ(communicator->withRemoteObject(true, launch), kAbsent);
    EXPECT_EQ(communicator->error(), kAbsent);
    const auto peer = xpc::test::takeDialledPeers().at(0);
    EXPECT_THAT(peer->sentSelectors(), ElementsAre("launchStudioIfNeeded", "launchStudioIfNeeded"));
    EXPECT_EQ(peer->calls()[5], "remoteObjectProxy");
    EXPECT_EQ(peer->calls()[6], "synchronousRemoteObjectProxyWithErrorHandler");
}

TEST_F(BosunCommunicatorTest, LossBetweenTwoCallsIsReportedByTheNext)
{
    serveVersion(5);
    const auto communicator = make(false);
    const auto peer = xpc::test::takeDialledPeers().at(0);
    const test::Journal journal;

    peer->failWithInterruption();
    EXPECT_THAT(journal.entries(), ElementsAre(kInterrupted));
    EXPECT_EQ(communicator->error(), kInterruptedError);
    EXPECT_EQ(communicator->withRemoteObject(true, launch), kInterruptedError);

    peer->failWithInvalidation();
    EXPECT_EQ(journal.count(kInvalidated), 1U);
    EXPECT_EQ(communicator->withRemoteObject(false, launch), kInvalidatedError);
}

TEST_F(BosunCommunicatorTest, LossDuringACallIsReportedByIt)
{
    xpc::test::setService({[](xpc::test::Peer& peer, const xpc::test::SentMessage&) -> xpc::test::Answer {
                               peer.failWithInterruption();
                               return std::vector<xpc::Argument>{};
                           },
                           nullptr});
    EXPECT_EQ(failureOf(BosunCommunicator::perform(false, launch)), kInterruptedError);
}

TEST_F(BosunCommunicatorTest, ErrorCanBeReadWrittenAndCleared)
{
    serveVersion(5);
    const auto communicator = make(false);
    communicator->setError(ns::Error{"x", 1});
    EXPECT_EQ(communicator->error(), (ns::Error{"x", 1}));
    EXPECT_EQ(communicator->withRemoteObject(true, launch), (ns::Error{"x", 1}));
    communicator->setError(std::nullopt);
    EXPECT_EQ(communicator->withRemoteObject(true, launch), std::nullopt);
}

TEST_F(BosunCommunicatorTest, ClosesItsConnectionAtTheEndAndReportsNoLoss)
{
    auto communicator = make(false);
    const auto peer = xpc::test::takeDialledPeers().at(0);
    const test::Journal journal;
    communicator.reset();
    EXPECT_THAT(journal.entries(), ElementsAreArray(kEnd));
    peer->failWithInvalidation();
    peer->failWithInterruption();
    EXPECT_THAT(journal.entries(), ElementsAreArray(kEnd));
}

TEST_F(BosunCommunicatorTest, HandlersDoNotKeepItAndLogWithoutIt)
{
    auto communicator = make(false);
    const auto peer = xpc::test::takeDialledPeers().at(0);
    const std::weak_ptr<BosunCommunicator> weak = communicator;
    // The end of the communicator comes while its handlers are on their way: here, from the first thing that
    // it does then.
    const test::Journal journal;
    bool hasFailed = false;
    xpc::test::setCallObserver([&](const std::string& call) {
        if (call != "setInvalidationHandler none" || hasFailed) return;
        hasFailed = true;
        EXPECT_TRUE(weak.expired());
        peer->failWithInterruption();
        peer->failWithInvalidation();
    });
    communicator.reset();
    EXPECT_TRUE(hasFailed);
    EXPECT_THAT(journal.logs(), ElementsAre(kClosing, kInterrupted, kInvalidated));
}

TEST_F(BosunCommunicatorTest, ErrorHandlerDoesNotKeepIt)
{
    auto communicator = make(false);
    std::optional<BosunCommunicator::Remote> kept;
    communicator->withRemoteObject(true, [&kept](const BosunCommunicator::Remote& helper) { kept = helper; });
    const std::weak_ptr<BosunCommunicator> weak = communicator;
    communicator.reset();
    EXPECT_TRUE(weak.expired());
    launch(*kept);  // whose error nobody wants any more
}

TEST_F(BosunCommunicatorTest, InstallationIsNeededWhereTheVersionDiffersOrNobodyAnswers)
{
    serveVersion(5);
    {
        const test::Journal journal;
        EXPECT_FALSE(BosunCommunicator::isHelperInstallationNeeded());
        EXPECT_THAT(
            journal.entries(),
            ElementsAreArray(joined({kOpening,
                                     kHandlers,
                                     {kLives, kChecking, "synchronousRemoteObjectProxyWithErrorHandler"},
                                     kEnd})));
    }
    serveVersion(4);
    {
        const test::Journal journal;
        EXPECT_TRUE(BosunCommunicator::isHelperInstallationNeeded());
        EXPECT_EQ(journal.count(mismatch(4)), 1U);
    }
    xpc::test::setService({});
    {
        const test::Journal journal;
        EXPECT_TRUE(BosunCommunicator::isHelperInstallationNeeded());
        EXPECT_EQ(journal.count(mismatch(0)), 1U);
    }
    EXPECT_THAT(functions(), IsEmpty());
}

TEST_F(BosunCommunicatorTest, InstallationIsNeededWhereTheConnectionIsLostAtOnceAndNothingIsLogged)
{
    const test::Journal journal;
    bool hasFailed = false;
    xpc::test::setCallObserver([&hasFailed](const std::string& call) {
        if (call != "setInterruptionHandler" || hasFailed) return;
        hasFailed = true;
        xpc::test::takeDialledPeers().at(0)->failWithInvalidation();
    });
    EXPECT_TRUE(BosunCommunicator::isHelperInstallationNeeded());
    EXPECT_THAT(journal.logs(), ElementsAre(kOpened, kInvalidated, kClosing));
}

TEST_F(BosunCommunicatorTest, CommunicationErrorsAreEquatableHashableAndKnownToThePlatform)
{
    const std::unordered_set<CommunicationError> both = {
        CommunicationError::invalidated, CommunicationError::interrupted, CommunicationError::invalidated};
    EXPECT_EQ(both.size(), 2U);
    EXPECT_EQ(BosunCommunicator::makeError(CommunicationError::invalidated), kInvalidatedError);
    EXPECT_EQ(BosunCommunicator::makeError(CommunicationError::interrupted), kInterruptedError);
}

TEST_F(BosunCommunicatorDeathTest, ProxyThatDoesNotConformEndsTheProcess)
{
    xpc::test::setService({{}, &xpc::describe<VideoFrameProducerService>()});
    const auto communicator = make(false);
    EXPECT_DEATH(communicator->withRemoteObject(true, launch),
                 "Fatal error: The helper's proxy does not conform to BosunServiceProtocol");
    EXPECT_DEATH(communicator->withRemoteObject(false, launch),
                 "Fatal error: The helper's proxy does not conform to BosunServiceProtocol");
}

}  // namespace
}  // namespace pavo
