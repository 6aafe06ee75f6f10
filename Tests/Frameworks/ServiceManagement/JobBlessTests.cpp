// The installation of a helper over a real message bus, with stand-ins for polkit and systemd on it, out of a
// bundle in a temporary folder. The machine's own polkit and systemd are never asked.

#include <ServiceManagement/ServiceManagement.h>

#include "StandInSystemd.h"

#include "Platform/Support/Ref.h"
#include "Tests/Support/Descriptors.h"
#include "Tests/Support/PrivateSystemBus.h"
#include "Tests/Support/StandInPolkit.h"
#include "Tests/Support/Wait.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

extern "C" CFIndex blessFromC(void);

namespace {

namespace fs = std::filesystem;
using pavo::test::StandInPolkit;
using pavo::test::StandInSystemd;
using JobEnd = StandInSystemd::JobEnd;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

constexpr const char* kLabel = "com.example.Helper";
constexpr uid_t kSomebody = 65534;

// What the process is told of itself and of its files.
std::string programPath;                // as which program it runs
uid_t effectiveUser = kSomebody;        // as whom
std::map<ino_t, uid_t> foreignOwners;   // files that are not root's
std::atomic<bool> isTimeShort = false;  // whether the library waits for long
std::atomic<std::uint64_t> wantedWait_us = 0;
std::atomic<std::uint64_t> wantedTimeout_us = 0;
constexpr std::uint64_t kShortTime_us = 50'000;

}  // namespace

extern "C" {

uid_t __real_geteuid();
uid_t __wrap_geteuid()
{
    return effectiveUser;
}

ssize_t __real_readlink(const char* path, char* target, size_t size);
ssize_t __wrap_readlink(const char* path, char* target, size_t size)
{
    if (std::string_view(path) != "/proc/self/exe") return __real_readlink(path, target, size);
    const auto length = std::min(size, programPath.size());
    std::memcpy(target, programPath.data(), length);
    return static_cast<ssize_t>(length);
}

// The files that the test makes count as root's, whoever runs it.
int __real_fstat(int file, struct stat* status);
int __wrap_fstat(int file, struct stat* status)
{
    const int result = __real_fstat(file, status);
    if (result != 0) return result;
    if (status->st_uid == __real_geteuid()) status->st_uid = 0;
    if (const auto found = foreignOwners.find(status->st_ino); found != foreignOwners.end())
        status->st_uid = found->second;
    return result;
}

int __real_sd_bus_call(sd_bus* bus, sd_bus_message* call, uint64_t timeout, sd_bus_error* error,
                       sd_bus_message** reply);
int __wrap_sd_bus_call(sd_bus* bus, sd_bus_message* call, uint64_t timeout, sd_bus_error* error,
                       sd_bus_message** reply)
{
    wantedTimeout_us = timeout;
    return __real_sd_bus_call(bus, call, isTimeShort ? kShortTime_us : timeout, error, reply);
}

int __real_sd_bus_wait(sd_bus* bus, uint64_t timeout);
int __wrap_sd_bus_wait(sd_bus* bus, uint64_t timeout)
{
    wantedWait_us = timeout;
    return __real_sd_bus_wait(bus, isTimeShort ? kShortTime_us : timeout);
}

}  // extern "C"

namespace {

struct Outcome {
    bool isBlessed = false;
    std::string domain;
    CFIndex code = 0;
    std::string text;
};

// As the log writes it.
std::string inOneLine(std::string text)
{
    for (auto end = text.find('\n'); end != std::string::npos; end = text.find('\n'))
        text.replace(end, 1, "\\n");
    return text;
}

class JobBless : public testing::Test {
protected:
    void SetUp() override
    {
        std::string why;
        if (!pavo::test::PrivateSystemBus::isAvailable(&why)) GTEST_SKIP() << why;
        bus_ = std::make_unique<pavo::test::PrivateSystemBus>();
        ASSERT_TRUE(bus_->isReady());
        polkit_ = std::make_unique<StandInPolkit>(StandInPolkit::Answer::grant);
        systemd_ = std::make_unique<StandInSystemd>();
        ASSERT_TRUE(polkit_->isReady() && systemd_->isReady());
        effectiveUser = kSomebody;
        foreignOwners.clear();
        isTimeShort = false;
        ASSERT_EQ(AuthorizationCreate(nullptr, nullptr, kAuthorizationFlagDefaults, &authorization_), 0);
        makeBundle();
    }
    void TearDown() override
    {
        isTimeShort = false;
        if (authorization_) AuthorizationFree(authorization_, kAuthorizationFlagDefaults);
    }

    // The program that runs, the helper and the helper's unit.
    void makeBundle()
    {
        const auto contents = bundle() + "/Contents";
        fs::create_directories(contents + "/Linux");
        fs::create_directories(contents + "/Library/LaunchServices");
        write(contents + "/Info.plist", "<plist/>", 0644);
        programPath = contents + "/Linux/Program";
        write(programPath, "program", 0755);
        write(helper(), "helper", 0755);
        write(unit(), "[Service]\nExecStart=" + helper() + "\n", 0644);
        for (const auto& entry : fs::recursive_directory_iterator(folder_.path()))
            if (entry.is_directory()) chmod(entry.path().c_str(), 0755);
    }
    static void write(const std::string& path, const std::string& content, mode_t mode)
    {
        std::ofstream(path) << content;
        chmod(path.c_str(), mode);
    }

    std::string bundle() const { return folder_.path() + "/Pavo.app"; }
    std::string helper() const { return bundle() + "/Contents/Library/LaunchServices/" + kLabel; }
    std::string unit() const { return helper() + ".service"; }
    std::string socket() const { return helper() + ".socket"; }

    void obtainTheRight()
    {
        AuthorizationItem item{kSMRightBlessPrivilegedHelper, 0, nullptr, 0};
        const AuthorizationRights rights{1, &item};
        ASSERT_EQ(AuthorizationCopyRights(authorization_, &rights, nullptr, kAuthorizationFlagExtendRights,
                                          nullptr),
                  errAuthorizationSuccess);
    }

    Outcome bless(const std::string& label = kLabel) const
    {
        const auto text =
            cf::adopt(CFStringCreateWithCString(kCFAllocatorDefault, label.c_str(), kCFStringEncodingUTF8));
        cf::Ref<CFErrorRef> error;
        Outcome outcome;
        testing::internal::CaptureStderr();
        outcome.isBlessed =
            SMJobBless(kSMDomainSystemLaunchd, text.get(), authorization_, error.receive()) != 0;
        const auto log = testing::internal::GetCapturedStderr();
        EXPECT_NE(outcome.isBlessed, static_cast<bool>(error))
            << "an error comes with false, and with that only";
        if (!error) {
            EXPECT_EQ(log, "");
            return outcome;
        }
        EXPECT_EQ(CFGetRetainCount(error.get()), 1);
        outcome.domain = CFStringGetCStringPtr(CFErrorGetDomain(error.get()), kCFStringEncodingUTF8);
        outcome.code = CFErrorGetCode(error.get());
        outcome.text = CFStringGetCStringPtr(cf::adopt(CFErrorCopyDescription(error.get())).get(),
                                             kCFStringEncodingUTF8);
        EXPECT_THAT(log, EndsWith(" Error [com.tarnwell.macos.cam.platform:ServiceManagement] "
                                  "Cannot install a helper: " +
                                  inOneLine(outcome.text) + "\n"));
        return outcome;
    }
    // With the right in hand. Expects a refusal that is found here, before systemd hears of anything.
    void expectRefusal(CFIndex code, const std::string& words)
    {
        const auto outcome = bless();
        EXPECT_EQ(outcome.domain, "CFErrorDomainFramework");
        EXPECT_EQ(outcome.code, code) << outcome.text;
        EXPECT_THAT(outcome.text, HasSubstr(words));
        EXPECT_THAT(systemd_->calls(), IsEmpty());
    }
    // With the right in hand. Expects that systemd's side fails, after these calls.
    Outcome expectFailure(CFIndex code)
    {
        auto outcome = bless();
        EXPECT_EQ(outcome.domain, "CFErrorDomainLaunchd");
        EXPECT_EQ(outcome.code, code) << outcome.text;
        return outcome;
    }
    void giveAway(const std::string& path)
    {
        struct stat status{};
        ASSERT_EQ(stat(path.c_str(), &status), 0);
        foreignOwners = {{status.st_ino, kSomebody}};
    }

    const pavo::test::TemporaryFolder folder_;
    std::unique_ptr<pavo::test::PrivateSystemBus> bus_;
    std::unique_ptr<StandInPolkit> polkit_;
    std::unique_ptr<StandInSystemd> systemd_;
    AuthorizationRef authorization_ = nullptr;
};

TEST(JobBlessConstants, HaveTheirFixedValues)
{
    EXPECT_STREQ(kSMRightBlessPrivilegedHelper, "com.apple.ServiceManagement.blesshelper");
    EXPECT_TRUE(CFEqual(kSMDomainSystemLaunchd, CFSTR("kSMDomainSystemLaunchd")));
    EXPECT_TRUE(CFEqual(kSMErrorDomainFramework, CFSTR("CFErrorDomainFramework")));
    EXPECT_TRUE(CFEqual(kSMErrorDomainLaunchd, CFSTR("CFErrorDomainLaunchd")));
    EXPECT_EQ(kSMErrorInternalFailure, 2);
    EXPECT_EQ(kSMErrorInvalidSignature, 3);
    EXPECT_EQ(kSMErrorAuthorizationFailure, 4);
    EXPECT_EQ(kSMErrorToolNotValid, 5);
    EXPECT_EQ(kSMErrorJobNotFound, 6);
    EXPECT_EQ(kSMErrorServiceUnavailable, 7);
    EXPECT_EQ(kSMErrorJobPlistNotFound, 8);
    EXPECT_EQ(kSMErrorJobMustBeEnabled, 9);
    EXPECT_EQ(kSMErrorInvalidPlist, 10);
}

TEST_F(JobBless, WithoutTheRightNothingReachesSystemd)
{
    expectRefusal(kSMErrorAuthorizationFailure, "not in hand");
    EXPECT_THAT(polkit_->questions(), IsEmpty()) << "nobody is prompted either";
}

TEST_F(JobBless, WithoutAnAuthorizationNothingReachesSystemd)
{
    AuthorizationFree(authorization_, kAuthorizationFlagDefaults);
    authorization_ = nullptr;
    expectRefusal(kSMErrorAuthorizationFailure, "not in hand");
}

TEST_F(JobBless, ARightThatWasRefusedIsNotInHand)
{
    polkit_->setAnswer(StandInPolkit::Answer::deny);
    AuthorizationItem item{kSMRightBlessPrivilegedHelper, 0, nullptr, 0};
    const AuthorizationRights rights{1, &item};
    EXPECT_EQ(
        AuthorizationCopyRights(authorization_, &rights, nullptr, kAuthorizationFlagExtendRights, nullptr),
        errAuthorizationDenied);
    expectRefusal(kSMErrorAuthorizationFailure, "not in hand");
}

TEST_F(JobBless, WithTheRightSystemdIsToldToLinkEnableReadAndStart)
{
    obtainTheRight();
    EXPECT_TRUE(bless().isBlessed);
    EXPECT_THAT(systemd_->calls(), ElementsAre("Subscribe", "LinkUnitFiles " + unit() + " runtime=0 force=1",
                                               "EnableUnitFiles com.example.Helper.service runtime=0 force=1",
                                               "Reload", "RestartUnit com.example.Helper.service replace"));
    EXPECT_FALSE(systemd_->wasPromptAllowed()) << "the person was asked once already";
}

TEST_F(JobBless, RootNeedsNoRight)
{
    effectiveUser = 0;
    EXPECT_TRUE(bless().isBlessed);
    EXPECT_EQ(systemd_->calls().size(), 5U);
    EXPECT_THAT(polkit_->questions(), IsEmpty());
}

TEST_F(JobBless, TheSocketOfAHelperIsUpBeforeItsService)
{
    obtainTheRight();
    write(socket(), "[Socket]\nListenStream=/run/pavo/com.example.Helper\n", 0644);
    EXPECT_TRUE(bless().isBlessed);
    EXPECT_THAT(
        systemd_->calls(),
        ElementsAre("Subscribe", "LinkUnitFiles " + unit() + " " + socket() + " runtime=0 force=1",
                    "EnableUnitFiles com.example.Helper.service com.example.Helper.socket runtime=0 force=1",
                    "Reload", "StartUnit com.example.Helper.socket replace",
                    "RestartUnit com.example.Helper.service replace"));
}

TEST_F(JobBless, AJobThatIsOverBeforeItsCallHasReturnedCounts)
{
    obtainTheRight();
    systemd_->setJob(JobEnd::beforeReply);
    EXPECT_TRUE(bless().isBlessed);
}

TEST_F(JobBless, BlessesAgain)
{
    obtainTheRight();
    EXPECT_TRUE(bless().isBlessed);
    EXPECT_TRUE(bless().isBlessed);
    EXPECT_EQ(systemd_->calls().size(), 10U);
}

TEST_F(JobBless, WhatSystemdRefusesEndsTheInstallation)
{
    struct Case {
        const char* method;
        const char* error;
        CFIndex code;
        std::size_t callCount;
    };
    obtainTheRight();
    std::size_t before = 0;
    for (const auto& [method, error, code, callCount] :
         {Case{"RestartUnit", "org.freedesktop.systemd1.UnitMasked", kSMErrorJobMustBeEnabled, 5},
          Case{"RestartUnit", "org.freedesktop.systemd1.NoSuchUnit", kSMErrorJobNotFound, 5},
          Case{"RestartUnit", "org.freedesktop.systemd1.BadUnitSetting", kSMErrorInvalidPlist, 5},
          Case{"RestartUnit", "org.freedesktop.systemd1.LoadFailed", kSMErrorInvalidPlist, 5},
          Case{"Reload", "org.freedesktop.DBus.Error.InteractiveAuthorizationRequired",
               kSMErrorAuthorizationFailure, 4},
          Case{"EnableUnitFiles", "org.freedesktop.DBus.Error.Failed", kSMErrorInternalFailure, 3},
          Case{"LinkUnitFiles", "org.freedesktop.DBus.Error.AccessDenied", kSMErrorAuthorizationFailure, 2},
          Case{"Subscribe", "org.freedesktop.DBus.Error.AccessDenied", kSMErrorAuthorizationFailure, 1}}) {
        systemd_->refuse(method, error);
        EXPECT_THAT(expectFailure(code).text, StartsWith("systemd refuses " + std::string(method) + ": "))
            << error;
        EXPECT_EQ(systemd_->calls().size() - before, callCount) << error;
        before = systemd_->calls().size();
    }
}

TEST_F(JobBless, AServiceThatDoesNotComeUpIsAFailure)
{
    obtainTheRight();
    for (const std::string result : {"failed", "timeout", "canceled", "dependency", "skipped"}) {
        systemd_->setJob(JobEnd::afterReply, result);
        EXPECT_THAT(expectFailure(kSMErrorInternalFailure).text,
                    HasSubstr("com.example.Helper.service did not start: " + result));
    }
}

TEST_F(JobBless, AServiceIsWaitedForSome200Seconds)
{
    obtainTheRight();
    systemd_->setJob(JobEnd::never);
    isTimeShort = true;
    EXPECT_THAT(expectFailure(kSMErrorServiceUnavailable).text, HasSubstr("is not up"));
    EXPECT_LE(wantedWait_us, 200'000'000U);
    EXPECT_GT(wantedWait_us, 100'000'000U) << "what is left of it";
}

TEST_F(JobBless, ASilentSystemdIsUnavailable)
{
    obtainTheRight();
    systemd_->ignore("Reload");
    isTimeShort = true;
    expectFailure(kSMErrorServiceUnavailable);
    EXPECT_EQ(wantedTimeout_us, 90'000'000U);
}

TEST_F(JobBless, ASystemdThatIsNotThereIsUnavailable)
{
    obtainTheRight();
    systemd_.reset();
    expectFailure(kSMErrorServiceUnavailable);
}

TEST_F(JobBless, ABusThatIsNotThereIsUnavailable)
{
    obtainTheRight();
    bus_->kill();
    EXPECT_EQ(expectFailure(kSMErrorServiceUnavailable).text,
              "systemd cannot be reached: Connection refused");
}

TEST_F(JobBless, ASystemdThatDiesInACallIsUnavailable)
{
    obtainTheRight();
    systemd_->dieAt("EnableUnitFiles");
    expectFailure(kSMErrorServiceUnavailable);
    EXPECT_EQ(systemd_->calls().size(), 3U);
}

TEST_F(JobBless, ASystemdThatDiesBeforeTheServiceIsUpIsUnavailable)
{
    obtainTheRight();
    systemd_->setJob(JobEnd::death);
    EXPECT_THAT(expectFailure(kSMErrorServiceUnavailable).text, HasSubstr("has ended"));
}

TEST_F(JobBless, AnAnswerWithoutAJobIsAFailure)
{
    obtainTheRight();
    systemd_->garble("RestartUnit");
    EXPECT_EQ(expectFailure(kSMErrorInternalFailure).text, "systemd answers RestartUnit without a job");
}

TEST_F(JobBless, ABundleWithoutTheHelperHasNothingToInstall)
{
    obtainTheRight();
    fs::remove(helper());
    expectRefusal(kSMErrorToolNotValid, helper());
}

TEST_F(JobBless, AProgramThatLiesInNoBundleHasNothingToInstall)
{
    obtainTheRight();
    programPath = folder_.path() + "/Program";
    write(programPath, "program", 0755);
    expectRefusal(kSMErrorToolNotValid, folder_.path() + "/Contents/Library/LaunchServices/");
    fs::remove(programPath);
    expectRefusal(kSMErrorToolNotValid, "No such file");
    programPath.clear();
    expectRefusal(kSMErrorToolNotValid, "No such file");
}

TEST_F(JobBless, OnlyAProgramIsAHelper)
{
    obtainTheRight();
    chmod(helper().c_str(), 0644);
    expectRefusal(kSMErrorToolNotValid, "is no program");
    fs::remove(helper());
    fs::create_directory(helper());
    chmod(helper().c_str(), 0755);
    expectRefusal(kSMErrorToolNotValid, "is no regular file");
}

TEST_F(JobBless, AHelperWithoutAUnitIsNotInstalled)
{
    obtainTheRight();
    fs::remove(unit());
    expectRefusal(kSMErrorJobPlistNotFound, unit());
}

TEST_F(JobBless, AUnitThatStartsAnotherProgramIsNotInstalled)
{
    obtainTheRight();
    write(unit(), "[Service]\nExecStart=/usr/bin/true\n", 0644);
    expectRefusal(kSMErrorInvalidPlist, "does not start");
    write(unit(), "", 0644);
    expectRefusal(kSMErrorInvalidPlist, "does not start");
}

TEST_F(JobBless, EverythingHasToBeRoots)
{
    obtainTheRight();
    write(socket(), "[Socket]\n", 0644);
    for (const auto& path : {helper(), unit(), socket(), bundle() + "/Contents/Library/LaunchServices",
                             bundle() + "/Contents", bundle(), folder_.path()}) {
        giveAway(path);
        expectRefusal(kSMErrorInvalidSignature, "other than root");
    }
    foreignOwners.clear();
    EXPECT_TRUE(bless().isBlessed);
}

TEST_F(JobBless, TheUserThatAsksMayNotOwnTheHelperEither)
{
    obtainTheRight();
    giveAway(helper());
    ASSERT_EQ(foreignOwners.begin()->second, effectiveUser);
    expectRefusal(kSMErrorInvalidSignature, "other than root");
}

TEST_F(JobBless, NobodyElseMayBeAbleToWriteToIt)
{
    obtainTheRight();
    write(socket(), "[Socket]\n", 0644);
    for (const auto& path : {helper(), unit(), socket(), bundle() + "/Contents/Library/LaunchServices",
                             bundle() + "/Contents", bundle(), folder_.path()})
        for (const mode_t extra : {S_IWGRP, S_IWOTH}) {
            struct stat status{};
            ASSERT_EQ(stat(path.c_str(), &status), 0);
            ASSERT_EQ(chmod(path.c_str(), status.st_mode | extra), 0);
            expectRefusal(kSMErrorInvalidSignature, "other than root");
            ASSERT_EQ(chmod(path.c_str(), status.st_mode), 0);
        }
    EXPECT_TRUE(bless().isBlessed);
}

TEST_F(JobBless, NoLinkLeadsToAHelper)
{
    obtainTheRight();
    fs::rename(helper(), folder_.path() + "/elsewhere");
    fs::create_symlink(folder_.path() + "/elsewhere", helper());
    expectRefusal(kSMErrorToolNotValid, "symbolic links");
    fs::remove(helper());
    fs::rename(folder_.path() + "/elsewhere", helper());
    fs::create_symlink(unit(), socket());
    expectRefusal(kSMErrorJobPlistNotFound, "symbolic links");
}

TEST_F(JobBless, ALabelIsANameAndNoPath)
{
    obtainTheRight();
    for (const std::string& label : {std::string(), std::string("../helper"), std::string(".hidden"),
                                     std::string("a/b"), std::string("template@"), std::string("two words"),
                                     std::string(241, 'n'), std::string("new\nline"), std::string("é")}) {
        const auto outcome = bless(label);
        EXPECT_EQ(outcome.domain, "CFErrorDomainFramework") << label;
        EXPECT_EQ(outcome.code, kSMErrorToolNotValid) << label;
        EXPECT_THAT(outcome.text, HasSubstr("No helper can be named"));
    }
    EXPECT_THAT(systemd_->calls(), IsEmpty());
}

TEST_F(JobBless, OnlyTheSystemsDomainHasHelpers)
{
    obtainTheRight();
    struct Case {
        CFStringRef domain;
        CFStringRef label;
        CFIndex code;
        const char* text;
    };
    const char* const wrongDomain = "Only the system's domain has privileged helpers";
    for (const auto& [domain, label, code, text] :
         {Case{CFSTR("kSMDomainUserLaunchd"), CFSTR("com.example.Helper"), kSMErrorInternalFailure,
               wrongDomain},
          Case{nullptr, CFSTR("com.example.Helper"), kSMErrorInternalFailure, wrongDomain},
          Case{kSMDomainSystemLaunchd, nullptr, kSMErrorToolNotValid, "The helper has no label"}}) {
        cf::Ref<CFErrorRef> error;
        testing::internal::CaptureStderr();
        EXPECT_FALSE(SMJobBless(domain, label, authorization_, error.receive()));
        EXPECT_THAT(testing::internal::GetCapturedStderr(),
                    EndsWith(std::string("Cannot install a helper: ") + text + "\n"));
        ASSERT_TRUE(error);
        EXPECT_EQ(CFErrorGetCode(error.get()), code);
    }
    EXPECT_THAT(systemd_->calls(), IsEmpty());
}

TEST_F(JobBless, TheErrorNeedNotBeWanted)
{
    EXPECT_FALSE(SMJobBless(kSMDomainSystemLaunchd, CFSTR("com.example.Helper"), authorization_, nullptr));
}

TEST_F(JobBless, LeavesNothingOpen)
{
    obtainTheRight();
    bless();  // what the library opens once
    const auto before = pavo::test::openDescriptorCount();
    EXPECT_TRUE(bless().isBlessed);
    systemd_->refuse("Reload", "org.freedesktop.DBus.Error.Failed");
    EXPECT_FALSE(bless().isBlessed);
    fs::remove(unit());
    EXPECT_FALSE(bless().isBlessed);
    EXPECT_EQ(pavo::test::openDescriptorCount(), before);
}

TEST_F(JobBless, CanBeUsedFromC)
{
    EXPECT_EQ(blessFromC(), kSMErrorInternalFailure);
}

}  // namespace
