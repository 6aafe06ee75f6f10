#include "CMIOExtensionSupport/PrivilegedHelperInstallManager.h"

#include "Tests/CMIOExtensionSupport/AuthorizationRecorder.h"
#include "Tests/Doubles/Foundation/FoundationDouble.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace pavo {
namespace {

using test::takeAuthorizationCalls;
using testing::ElementsAre;
using testing::IsEmpty;

std::vector<std::string> functions(const std::vector<test::AuthorizationCall>& calls)
{
    std::vector<std::string> names;
    for (const auto& call : calls)
        names.push_back(call.function);
    return names;
}

class PrivilegedHelperInstallManagerTest : public testing::Test {
protected:
    PrivilegedHelperInstallManagerTest()
    {
        test::resetAuthorization();
        test::resetFoundationDouble();
        test::setUserIdentifier(1000);
        GTEST_FLAG_SET(death_test_style, "threadsafe");
    }
    ~PrivilegedHelperInstallManagerTest() override { test::resetAuthorization(); }
};

using PrivilegedHelperInstallManagerDeathTest = PrivilegedHelperInstallManagerTest;

TEST_F(PrivilegedHelperInstallManagerTest, IsMadeWithAnEmptyAuthorization)
{
    const PrivilegedHelperInstallManager manager;
    const auto calls = takeAuthorizationCalls();
    ASSERT_THAT(functions(calls), ElementsAre("AuthorizationCreate"));
    EXPECT_THAT(calls[0].rights, IsEmpty());
    EXPECT_FALSE(calls[0].hasEnvironment);
    EXPECT_EQ(calls[0].flags, 0U);
}

TEST_F(PrivilegedHelperInstallManagerTest, AsksForTheOneRightThatBlessingNeeds)
{
    PrivilegedHelperInstallManager manager;
    takeAuthorizationCalls();
    EXPECT_EQ(manager.obtainBlessRight(), std::nullopt);

    const auto calls = takeAuthorizationCalls();
    ASSERT_THAT(functions(calls), ElementsAre("AuthorizationCopyRights"));
    EXPECT_EQ(calls[0].reference, test::recordedAuthorization());
    EXPECT_EQ(calls[0].flags, 0x13U);
    EXPECT_FALSE(calls[0].hasEnvironment);
    EXPECT_FALSE(calls[0].wantsResult);
    ASSERT_EQ(calls[0].rights.size(), 1U);
    EXPECT_EQ(calls[0].rights[0].name, "com.apple.ServiceManagement.blesshelper");
    EXPECT_EQ(calls[0].rights[0].valueLength, 0U);
    EXPECT_FALSE(calls[0].rights[0].hasValue);
    EXPECT_EQ(calls[0].rights[0].flags, 0U);
}

TEST_F(PrivilegedHelperInstallManagerTest, RootAsksForNoRight)
{
    test::setUserIdentifier(0);
    PrivilegedHelperInstallManager manager;
    takeAuthorizationCalls();
    EXPECT_EQ(manager.obtainBlessRight(), std::nullopt);
    EXPECT_THAT(takeAuthorizationCalls(), IsEmpty());
    EXPECT_EQ(manager.installHelper(), std::nullopt);

    const auto calls = takeAuthorizationCalls();
    ASSERT_THAT(functions(calls), ElementsAre("SMJobBless"));
    EXPECT_EQ(calls[0].reference, test::recordedAuthorization());
}

TEST_F(PrivilegedHelperInstallManagerTest, InstallsTheHelperWithTheRightInHand)
{
    PrivilegedHelperInstallManager manager;
    EXPECT_EQ(manager.installHelper(), std::nullopt);

    const auto calls = takeAuthorizationCalls();
    ASSERT_THAT(functions(calls),
                ElementsAre("AuthorizationCreate", "AuthorizationCopyRights", "SMJobBless"));
    EXPECT_EQ(calls[2].domain, "system");
    EXPECT_EQ(calls[2].label, "com.tarnwell.macos.cam.PrivilegedHelper");
    EXPECT_EQ(calls[2].reference, test::recordedAuthorization());
}

TEST_F(PrivilegedHelperInstallManagerTest, RefusalsAndCancelledPromptsAreReturnedAndNothingIsBlessed)
{
    for (const OSStatus status : {-60005, -60006, -60007, -60008}) {
        test::authorizationBehaviour().copyRights = status;
        PrivilegedHelperInstallManager manager;
        EXPECT_EQ(manager.obtainBlessRight(), (ns::Error{"NSOSStatusErrorDomain", status}));
        takeAuthorizationCalls();
        EXPECT_EQ(manager.installHelper(), (ns::Error{"NSOSStatusErrorDomain", status}));
        EXPECT_THAT(functions(takeAuthorizationCalls()), ElementsAre("AuthorizationCopyRights"));
    }
}

TEST_F(PrivilegedHelperInstallManagerTest, ErrorOfTheBlessingIsReturnedAndReleased)
{
    test::authorizationBehaviour().blesses = false;
    test::authorizationBehaviour().errorDomain = "CFErrorDomainFramework";
    test::authorizationBehaviour().errorCode = 8;
    PrivilegedHelperInstallManager manager;
    EXPECT_EQ(manager.installHelper(), (ns::Error{"CFErrorDomainFramework", 8}));
    EXPECT_EQ(test::heldErrorCount(), 0);
}

TEST_F(PrivilegedHelperInstallManagerTest, NeverFreesItsAuthorization)
{
    {
        PrivilegedHelperInstallManager manager;
        manager.installHelper();
    }
    EXPECT_THAT(functions(takeAuthorizationCalls()),
                ElementsAre("AuthorizationCreate", "AuthorizationCopyRights", "SMJobBless"));
}

TEST_F(PrivilegedHelperInstallManagerDeathTest, NoAuthorizationAtAllEndsTheProcess)
{
    test::authorizationBehaviour().create = -60008;
    EXPECT_DEATH(PrivilegedHelperInstallManager(), "CMIOExtensionSupport/PrivilegedHelperInstallManager.*"
                                                   "Fatal error: Unexpectedly raised an error: "
                                                   "NSOSStatusErrorDomain -60008");
}

TEST_F(PrivilegedHelperInstallManagerDeathTest, FailedBlessingWithoutAnErrorEndsTheProcess)
{
    test::authorizationBehaviour().blesses = false;
    test::authorizationBehaviour().errorDomain.reset();
    EXPECT_DEATH(PrivilegedHelperInstallManager().installHelper(),
                 "Fatal error: SMJobBless failed without an error");
}

}  // namespace
}  // namespace pavo
