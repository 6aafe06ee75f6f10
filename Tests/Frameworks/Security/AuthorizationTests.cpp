// Authorization over a real message bus, with a stand-in for polkit on it. The machine's own is never asked.

#include <Security/Security.h>

#include "Tests/Support/ChildProcess.h"
#include "Tests/Support/Descriptors.h"
#include "Tests/Support/PrivateSystemBus.h"
#include "Tests/Support/StandInPolkit.h"
#include "Tests/Support/Wait.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <memory>
#include <string>
#include <thread>
#include <vector>

extern "C" OSStatus authorizeFromC(void);

namespace {

using pavo::test::StandInPolkit;
using Answer = StandInPolkit::Answer;
using testing::EndsWith;
using testing::HasSubstr;

constexpr const char* kBlessRight = "com.apple.ServiceManagement.blesshelper";
constexpr AuthorizationFlags kAsk =
    kAuthorizationFlagInteractionAllowed | kAuthorizationFlagExtendRights | kAuthorizationFlagPreAuthorize;

// How long the library is let wait in place of what the framework asks for; 0 leaves it alone.
std::atomic<std::uint64_t> shortenedTimeout_us = 0;
std::atomic<std::uint64_t> wantedTimeout_us = 0;
// What the test's own thread cannot do.
thread_local bool failsToAsk = false;
thread_local bool failsToRead = false;

}  // namespace

extern "C" int __real_sd_bus_call(sd_bus* bus, sd_bus_message* call, uint64_t timeout, sd_bus_error* error,
                                  sd_bus_message** reply);
extern "C" int __wrap_sd_bus_call(sd_bus* bus, sd_bus_message* call, uint64_t timeout, sd_bus_error* error,
                                  sd_bus_message** reply)
{
    wantedTimeout_us = timeout;
    const auto shortened = shortenedTimeout_us.load();
    return __real_sd_bus_call(bus, call, shortened ? shortened : timeout, error, reply);
}

extern "C" int __real_sd_bus_message_new_method_call(sd_bus* bus, sd_bus_message** call, const char* service,
                                                     const char* path, const char* interface,
                                                     const char* method);
extern "C" int __wrap_sd_bus_message_new_method_call(sd_bus* bus, sd_bus_message** call, const char* service,
                                                     const char* path, const char* interface,
                                                     const char* method)
{
    return failsToAsk ? -ENOMEM
                      : __real_sd_bus_message_new_method_call(bus, call, service, path, interface, method);
}

extern "C" int __real_sd_bus_message_enter_container(sd_bus_message* message, char type,
                                                     const char* contents);
extern "C" int __wrap_sd_bus_message_enter_container(sd_bus_message* message, char type, const char* contents)
{
    return failsToRead ? -EBADMSG : __real_sd_bus_message_enter_container(message, type, contents);
}

namespace {

class Authorization : public testing::Test {
protected:
    void SetUp() override
    {
        std::string why;
        if (!pavo::test::PrivateSystemBus::isAvailable(&why)) GTEST_SKIP() << why;
        bus_ = std::make_unique<pavo::test::PrivateSystemBus>();
        ASSERT_TRUE(bus_->isReady());
        ASSERT_EQ(AuthorizationCreate(nullptr, nullptr, kAuthorizationFlagDefaults, &authorization_),
                  errAuthorizationSuccess);
    }
    void TearDown() override
    {
        shortenedTimeout_us = 0;
        if (authorization_) AuthorizationFree(authorization_, kAuthorizationFlagDefaults);
    }

    void startPolkit(Answer answer)
    {
        polkit_ = std::make_unique<StandInPolkit>(answer);
        ASSERT_TRUE(polkit_->isReady());
    }

    OSStatus copyRights(AuthorizationFlags flags, const char* right = kBlessRight)
    {
        AuthorizationItem item{right, 0, nullptr, 0};
        const AuthorizationRights rights{1, &item};
        return AuthorizationCopyRights(authorization_, &rights, nullptr, flags, nullptr);
    }
    // Asks, and expects an internal failure with this line in the log. `reason` is its end, or the beginning
    // of that where it is the bus that words it.
    void expectInternalFailure(const std::string& what, const std::string& reason,
                               AuthorizationFlags flags = kAsk)
    {
        testing::internal::CaptureStderr();
        EXPECT_EQ(copyRights(flags), errAuthorizationInternal);
        const auto log = testing::internal::GetCapturedStderr();
        EXPECT_THAT(log,
                    HasSubstr(" Error [com.tarnwell.macos.cam.platform:Security] " + what + ": " + reason));
        EXPECT_EQ(std::count(log.begin(), log.end(), '\n'), 1) << log;
    }
    bool isInHand() { return copyRights(kAuthorizationFlagDefaults) == errAuthorizationSuccess; }

    std::unique_ptr<pavo::test::PrivateSystemBus> bus_;
    std::unique_ptr<StandInPolkit> polkit_;
    AuthorizationRef authorization_ = nullptr;
};

TEST(AuthorizationConstants, HaveTheirFixedValues)
{
    EXPECT_EQ(kAuthorizationFlagDefaults, 0);
    EXPECT_EQ(kAuthorizationFlagInteractionAllowed, 0x1);
    EXPECT_EQ(kAuthorizationFlagExtendRights, 0x2);
    EXPECT_EQ(kAuthorizationFlagPartialRights, 0x4);
    EXPECT_EQ(kAuthorizationFlagDestroyRights, 0x8);
    EXPECT_EQ(kAuthorizationFlagPreAuthorize, 0x10);
    EXPECT_EQ(errAuthorizationSuccess, 0);
    EXPECT_EQ(errAuthorizationInvalidSet, -60001);
    EXPECT_EQ(errAuthorizationInvalidRef, -60002);
    EXPECT_EQ(errAuthorizationInvalidPointer, -60004);
    EXPECT_EQ(errAuthorizationDenied, -60005);
    EXPECT_EQ(errAuthorizationCanceled, -60006);
    EXPECT_EQ(errAuthorizationInteractionNotAllowed, -60007);
    EXPECT_EQ(errAuthorizationInternal, -60008);
    EXPECT_EQ(errAuthorizationInvalidFlags, -60011);
}

TEST_F(Authorization, IsMadeWithoutAskingAnybody)
{
    startPolkit(Answer::grant);
    bus_->kill();
    AuthorizationRef another = nullptr;
    EXPECT_EQ(AuthorizationCreate(nullptr, nullptr, kAuthorizationFlagDefaults, &another),
              errAuthorizationSuccess);
    EXPECT_NE(another, nullptr);
    EXPECT_EQ(AuthorizationFree(another, kAuthorizationFlagDefaults), errAuthorizationSuccess);
    EXPECT_TRUE(polkit_->questions().empty());
}

TEST_F(Authorization, AsksPolkitAboutThisProcessAndTheActionOfTheRight)
{
    startPolkit(Answer::grant);
    EXPECT_EQ(copyRights(kAsk), errAuthorizationSuccess);
    const auto questions = polkit_->questions();
    ASSERT_EQ(questions.size(), 1U);
    EXPECT_EQ(questions[0].action, "com.tarnwell.macos.cam.bless-helper");
    EXPECT_EQ(questions[0].subjectKind, "system-bus-name");
    EXPECT_EQ(questions[0].subjectName, questions[0].sender);
    EXPECT_EQ(questions[0].detailCount, 0U) << "polkit refuses details from callers that are not root";
    EXPECT_EQ(questions[0].flags, 1U);
    EXPECT_FALSE(questions[0].cancellation.empty());
}

TEST_F(Authorization, ThePolicyFileHasTheActionAndImpliesWhatSystemdAsksFor)
{
    const auto policy = pavo::test::readFile(PAVO_POLICY_FILE);
    EXPECT_NE(policy.find("<action id=\"com.tarnwell.macos.cam.bless-helper\">"), std::string::npos);
    EXPECT_NE(policy.find("<allow_active>auth_admin_keep</allow_active>"), std::string::npos);
    for (const std::string action : {"manage-unit-files", "reload-daemon", "manage-units"})
        EXPECT_NE(policy.find("org.freedesktop.systemd1." + action), std::string::npos) << action;
}

TEST_F(Authorization, WithoutInteractionNobodyIsPrompted)
{
    startPolkit(Answer::challenge);
    EXPECT_EQ(copyRights(kAuthorizationFlagExtendRights), errAuthorizationInteractionNotAllowed);
    ASSERT_EQ(polkit_->questions().size(), 1U);
    EXPECT_EQ(polkit_->questions()[0].flags, 0U);
    EXPECT_EQ(polkit_->questions()[0].cancellation, "") << "there is no prompt that could be taken back";
}

TEST_F(Authorization, EachAnswerHasItsStatus)
{
    struct Case {
        Answer answer;
        OSStatus status;
    };
    startPolkit(Answer::deny);
    for (const auto& [answer, status] :
         {Case{Answer::grant, errAuthorizationSuccess}, Case{Answer::grantForAWhile, errAuthorizationSuccess},
          Case{Answer::deny, errAuthorizationDenied}, Case{Answer::dismiss, errAuthorizationCanceled},
          Case{Answer::challenge, errAuthorizationInteractionNotAllowed},
          Case{Answer::mayNotAsk, errAuthorizationDenied}, Case{Answer::cancelled, errAuthorizationCanceled},
          Case{Answer::unknownAction, errAuthorizationInternal},
          Case{Answer::anotherType, errAuthorizationInternal}}) {
        polkit_->setAnswer(answer);
        EXPECT_EQ(copyRights(kAsk), status) << static_cast<int>(answer);
        EXPECT_EQ(isInHand(), status == errAuthorizationSuccess) << static_cast<int>(answer);
    }
}

TEST_F(Authorization, AnAuthorityThatIsNotThereIsAnInternalFailure)
{
    expectInternalFailure("polkit does not answer", "The name org.freedesktop.PolicyKit1 was not provided");
}

TEST_F(Authorization, ABusThatIsNotThereIsAnInternalFailure)
{
    bus_->kill();
    expectInternalFailure("No system bus", "Connection refused\n");
}

TEST_F(Authorization, AQuestionThatCannotBePutIsAnInternalFailure)
{
    failsToAsk = true;
    expectInternalFailure("Cannot ask polkit", "Cannot allocate memory\n");
    failsToAsk = false;
}

TEST_F(Authorization, AnAnswerThatIsNoneIsAnInternalFailure)
{
    startPolkit(Answer::anotherType);
    expectInternalFailure("polkit answers nonsense", "b\n");
    polkit_->setAnswer(Answer::grant);
    failsToRead = true;
    expectInternalFailure("polkit answers nonsense", "Bad message\n");
    failsToRead = false;
}

TEST_F(Authorization, AnActionThatPolkitDoesNotKnowIsAnInternalFailure)
{
    startPolkit(Answer::unknownAction);
    expectInternalFailure("polkit does not answer", "Action is not registered\n");
}

TEST_F(Authorization, AnAuthorityThatDiesWhileItIsAskedIsAnInternalFailure)
{
    startPolkit(Answer::die);
    expectInternalFailure("polkit does not answer", "");
    EXPECT_FALSE(isInHand());
}

TEST_F(Authorization, ABusThatDiesWhileThePersonThinksIsAnInternalFailure)
{
    startPolkit(Answer::nothing);
    std::thread killer([this] {
        pavo::test::waitFor([this] { return !polkit_->questions().empty(); }, std::chrono::seconds(20));
        bus_->kill();
    });
    expectInternalFailure("polkit does not answer", "");
    killer.join();
}

TEST_F(Authorization, ASlowAnswerIsWaitedForAndHoldsNobodyElseUp)
{
    startPolkit(Answer::whenAskedAgain);
    OSStatus first = errAuthorizationInternal;
    std::thread asker([this, &first] { first = copyRights(kAsk); });
    EXPECT_TRUE(
        pavo::test::waitFor([this] { return polkit_->questions().size() == 1; }, std::chrono::seconds(20)));
    EXPECT_FALSE(isInHand()) << "the answer is still to come";
    EXPECT_EQ(copyRights(kAsk), errAuthorizationSuccess);
    asker.join();
    EXPECT_EQ(first, errAuthorizationSuccess);
}

TEST_F(Authorization, APersonMayTakeTenMinutes)
{
    startPolkit(Answer::grant);
    copyRights(kAsk);
    EXPECT_EQ(wantedTimeout_us, 10ULL * 60 * 1'000'000);
    copyRights(kAuthorizationFlagExtendRights);
    EXPECT_EQ(wantedTimeout_us, 25ULL * 1'000'000) << "polkit itself is quick";
}

TEST_F(Authorization, ThePromptOfAPersonWhoLeftIsTakenBack)
{
    startPolkit(Answer::nothing);
    shortenedTimeout_us = 50'000;
    EXPECT_EQ(copyRights(kAsk), errAuthorizationCanceled);
    ASSERT_TRUE(
        pavo::test::waitFor([this] { return !polkit_->cancellations().empty(); }, std::chrono::seconds(20)));
    EXPECT_EQ(polkit_->cancellations()[0], polkit_->questions()[0].cancellation);
}

TEST_F(Authorization, AnAuthorityThatIsSilentWithoutAPromptIsAnInternalFailure)
{
    startPolkit(Answer::nothing);
    shortenedTimeout_us = 50'000;
    expectInternalFailure("polkit does not answer", "", kAuthorizationFlagExtendRights);
    EXPECT_TRUE(polkit_->cancellations().empty());
}

TEST_F(Authorization, TwoQuestionsHaveDifferentCancellations)
{
    startPolkit(Answer::deny);
    copyRights(kAsk);
    copyRights(kAsk);
    ASSERT_EQ(polkit_->questions().size(), 2U);
    EXPECT_NE(polkit_->questions()[0].cancellation, polkit_->questions()[1].cancellation);
}

TEST_F(Authorization, ARightThatNobodyKnowsIsDeniedWithoutAQuestion)
{
    startPolkit(Answer::grant);
    EXPECT_EQ(copyRights(kAsk, "com.example.unknown"), errAuthorizationDenied);
    EXPECT_TRUE(polkit_->questions().empty());
}

TEST_F(Authorization, ARightIsInHandOnceItWasObtained)
{
    startPolkit(Answer::grant);
    EXPECT_EQ(copyRights(kAuthorizationFlagDefaults), errAuthorizationDenied);
    EXPECT_EQ(copyRights(kAuthorizationFlagInteractionAllowed), errAuthorizationDenied);
    EXPECT_TRUE(polkit_->questions().empty()) << "without leave to extend the rights nobody is asked";
    EXPECT_EQ(copyRights(kAsk), errAuthorizationSuccess);
    EXPECT_EQ(copyRights(kAuthorizationFlagDefaults), errAuthorizationSuccess);
    EXPECT_EQ(polkit_->questions().size(), 1U);
}

TEST_F(Authorization, ARightThatIsRefusedLaterIsNoLongerInHand)
{
    startPolkit(Answer::grant);
    EXPECT_EQ(copyRights(kAsk), errAuthorizationSuccess);
    polkit_->setAnswer(Answer::deny);
    EXPECT_EQ(copyRights(kAsk), errAuthorizationDenied);
    EXPECT_FALSE(isInHand());
}

TEST_F(Authorization, AnotherOneDoesNotHaveTheRight)
{
    startPolkit(Answer::grant);
    EXPECT_EQ(copyRights(kAsk), errAuthorizationSuccess);
    AuthorizationRef another = nullptr;
    ASSERT_EQ(AuthorizationCreate(nullptr, nullptr, kAuthorizationFlagDefaults, &another),
              errAuthorizationSuccess);
    AuthorizationItem item{kBlessRight, 0, nullptr, 0};
    const AuthorizationRights rights{1, &item};
    EXPECT_EQ(AuthorizationCopyRights(another, &rights, nullptr, kAuthorizationFlagDefaults, nullptr),
              errAuthorizationDenied);
    AuthorizationFree(another, kAuthorizationFlagDefaults);
}

TEST_F(Authorization, TheFirstRightThatIsRefusedEndsTheRequest)
{
    startPolkit(Answer::grant);
    std::array<AuthorizationItem, 2> items = {
        {{"com.example.unknown", 0, nullptr, 0}, {kBlessRight, 0, nullptr, 0}}};
    const AuthorizationRights rights{2, items.data()};
    AuthorizationRights* authorized = nullptr;
    EXPECT_EQ(AuthorizationCopyRights(authorization_, &rights, nullptr, kAsk, &authorized),
              errAuthorizationDenied);
    EXPECT_EQ(authorized, nullptr);
    EXPECT_TRUE(polkit_->questions().empty());
}

TEST_F(Authorization, PartialRightsAreThoseThatWereGranted)
{
    startPolkit(Answer::grant);
    std::array<AuthorizationItem, 2> items = {
        {{"com.example.unknown", 0, nullptr, 0}, {kBlessRight, 0, nullptr, 0}}};
    AuthorizationRights rights{2, items.data()};
    AuthorizationRights* authorized = nullptr;
    ASSERT_EQ(AuthorizationCopyRights(authorization_, &rights, nullptr,
                                      kAsk | kAuthorizationFlagPartialRights, &authorized),
              errAuthorizationSuccess);
    ASSERT_EQ(authorized->count, 1U);
    EXPECT_STREQ(authorized->items[0].name, kBlessRight);
    EXPECT_EQ(AuthorizationFreeItemSet(authorized), errAuthorizationSuccess);
    rights.count = 1;
    EXPECT_EQ(AuthorizationCopyRights(authorization_, &rights, nullptr,
                                      kAsk | kAuthorizationFlagPartialRights, nullptr),
              errAuthorizationDenied)
        << "none was granted";
}

TEST_F(Authorization, NoRightsAreAlwaysHeld)
{
    const AuthorizationRights none{0, nullptr};
    AuthorizationRights* authorized = nullptr;
    ASSERT_EQ(AuthorizationCopyRights(authorization_, &none, nullptr, kAsk, &authorized),
              errAuthorizationSuccess);
    EXPECT_EQ(authorized->count, 0U);
    AuthorizationFreeItemSet(authorized);
}

TEST_F(Authorization, CanBeMadeWithItsRights)
{
    startPolkit(Answer::grant);
    AuthorizationItem item{kBlessRight, 0, nullptr, 0};
    const AuthorizationRights rights{1, &item};
    AuthorizationRef another = nullptr;
    ASSERT_EQ(AuthorizationCreate(&rights, nullptr, kAsk, &another), errAuthorizationSuccess);
    EXPECT_EQ(AuthorizationCopyRights(another, &rights, nullptr, kAuthorizationFlagDefaults, nullptr),
              errAuthorizationSuccess);
    AuthorizationFree(another, kAuthorizationFlagDefaults);
    EXPECT_EQ(AuthorizationCreate(&rights, nullptr, kAsk, nullptr), errAuthorizationSuccess) << "to ask only";
    polkit_->setAnswer(Answer::deny);
    another = nullptr;
    EXPECT_EQ(AuthorizationCreate(&rights, nullptr, kAsk, &another), errAuthorizationDenied);
    EXPECT_EQ(another, nullptr);
}

TEST_F(Authorization, DestroyingItsRightsGivesThemBack)
{
    startPolkit(Answer::grantForAWhile);
    EXPECT_EQ(copyRights(kAsk), errAuthorizationSuccess);
    EXPECT_EQ(AuthorizationFree(authorization_, kAuthorizationFlagDestroyRights), errAuthorizationSuccess);
    authorization_ = nullptr;
    EXPECT_EQ(polkit_->revocations(), std::vector<std::string>{"tmpauthz7"});
}

TEST_F(Authorization, FreeingItLeavesItsRightsToRunOut)
{
    startPolkit(Answer::grantForAWhile);
    EXPECT_EQ(copyRights(kAsk), errAuthorizationSuccess);
    EXPECT_EQ(AuthorizationFree(authorization_, kAuthorizationFlagDefaults), errAuthorizationSuccess);
    authorization_ = nullptr;
    EXPECT_TRUE(polkit_->revocations().empty());
}

TEST_F(Authorization, IsFreedThoughPolkitHasGone)
{
    startPolkit(Answer::grantForAWhile);
    EXPECT_EQ(copyRights(kAsk), errAuthorizationSuccess);
    polkit_.reset();
    testing::internal::CaptureStderr();
    EXPECT_EQ(AuthorizationFree(authorization_, kAuthorizationFlagDestroyRights), errAuthorizationSuccess);
    authorization_ = nullptr;
    EXPECT_THAT(testing::internal::GetCapturedStderr(),
                HasSubstr("Cannot give an authorization back: The name org.freedesktop.PolicyKit1 was not"));
}

TEST_F(Authorization, IsFreedThoughTheBusHasGone)
{
    startPolkit(Answer::grantForAWhile);
    EXPECT_EQ(copyRights(kAsk), errAuthorizationSuccess);
    bus_->kill();
    testing::internal::CaptureStderr();
    EXPECT_EQ(AuthorizationFree(authorization_, kAuthorizationFlagDestroyRights), errAuthorizationSuccess);
    authorization_ = nullptr;
    EXPECT_THAT(testing::internal::GetCapturedStderr(),
                EndsWith("Cannot give an authorization back: Connection refused\n"));
}

TEST_F(Authorization, RefusesWhatIsNoRequest)
{
    AuthorizationItem nameless{nullptr, 0, nullptr, 0};
    const AuthorizationRights withoutName{1, &nameless};
    const AuthorizationRights withoutItems{1, nullptr};
    AuthorizationItem item{kBlessRight, 0, nullptr, 0};
    const AuthorizationRights rights{1, &item};
    EXPECT_EQ(AuthorizationCopyRights(nullptr, &rights, nullptr, kAsk, nullptr), errAuthorizationInvalidRef);
    EXPECT_EQ(AuthorizationCopyRights(authorization_, nullptr, nullptr, kAsk, nullptr),
              errAuthorizationInvalidSet);
    EXPECT_EQ(AuthorizationCopyRights(authorization_, &withoutItems, nullptr, kAsk, nullptr),
              errAuthorizationInvalidSet);
    EXPECT_EQ(AuthorizationCopyRights(authorization_, &withoutName, nullptr, kAsk, nullptr),
              errAuthorizationInvalidSet);
    EXPECT_EQ(copyRights(kAuthorizationFlagDestroyRights), errAuthorizationInvalidFlags);
    EXPECT_EQ(copyRights(0x20), errAuthorizationInvalidFlags);
    AuthorizationRef another = nullptr;
    EXPECT_EQ(AuthorizationCreate(nullptr, nullptr, 0x20, &another), errAuthorizationInvalidFlags);
    EXPECT_EQ(AuthorizationCreate(nullptr, nullptr, kAuthorizationFlagDefaults, nullptr),
              errAuthorizationInvalidPointer);
    EXPECT_EQ(AuthorizationFree(nullptr, kAuthorizationFlagDefaults), errAuthorizationInvalidRef);
    EXPECT_EQ(AuthorizationFree(authorization_, kAuthorizationFlagExtendRights),
              errAuthorizationInvalidFlags);
    EXPECT_EQ(AuthorizationFreeItemSet(nullptr), errAuthorizationInvalidPointer);
}

TEST_F(Authorization, AsksFromSeveralThreadsAtOnce)
{
    startPolkit(Answer::grant);
    std::atomic<int> granted = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([this, &granted] {
            if (copyRights(kAsk) == errAuthorizationSuccess && isInHand()) ++granted;
        });
    for (auto& thread : threads)
        thread.join();
    EXPECT_EQ(granted, 4);
    EXPECT_EQ(polkit_->questions().size(), 4U);
}

TEST_F(Authorization, LeavesNothingOpen)
{
    startPolkit(Answer::grant);
    copyRights(kAsk);  // what the library opens once
    const auto before = pavo::test::openDescriptorCount();
    for (const auto answer :
         {Answer::grant, Answer::deny, Answer::dismiss, Answer::anotherType, Answer::die}) {
        polkit_->setAnswer(answer);
        copyRights(kAsk);
    }
    // The stand-in has ended, and its connection with it, for which newer libraries open more than one.
    EXPECT_TRUE(pavo::test::waitFor([before] { return pavo::test::openDescriptorCount() < before; },
                                    std::chrono::seconds(20)))
        << pavo::test::openDescriptorCount() << " of " << before;
}

TEST_F(Authorization, CanBeUsedFromC)
{
    EXPECT_EQ(authorizeFromC(), errAuthorizationDenied);
}

}  // namespace
