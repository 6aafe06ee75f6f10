// The privileged helper's protocol: its encodings, its replies, and a helper that is not there.

#include "Bundle/mac/HelperServiceProtocol.h"
#include "CMIOExtensionSupport/BosunServiceProtocol.h"
#include "Platform/XPC/XPCConnection.h"
#include "Tests/MacOS/AdapterFixture.h"

#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <optional>
#include <string>

// A helper's object: answers with what it was asked.
@interface PavoHelper : NSObject <BosunServiceProtocol>
- (pavo::test::Strings)received;
@end

@implementation PavoHelper {
    pavo::test::Strings _received;
}

- (pavo::test::Strings)received
{
    return _received;
}

- (void)getCommunicationVersionWithReply:(void (^)(uint64_t version))reply
{
    reply(0xFFFFFFFF00000005);
}

- (void)ping
{
    _received.push_back("ping");
}

- (void)launchStudioIfNeeded
{
    _received.push_back("launch");
}

- (void)doInstallWithStepIdentifier:(NSString*)stepIdentifier
                     encodedContext:(NSData*)encodedContext
     encodedFrozenInstallationState:(NSData*)encodedFrozenInstallationState
                              reply:(void (^)(NSData* result, NSError* error))reply
{
    _received.push_back(stepIdentifier.UTF8String);
    reply(encodedContext,
          [NSError errorWithDomain:@"helper"
                              code:static_cast<NSInteger>(encodedFrozenInstallationState.length)
                          userInfo:nil]);
}

- (void)doComponentUninstallWithReply:(void (^)(NSError* error))reply
{
    reply(nil);
}

- (void)coreadiosdWithReply:(void (^)(NSError* error))reply
{
    reply([NSError errorWithDomain:@"helper" code:7 userInfo:nil]);
}

- (void)checkCMIOExtensionRegisteredWithReply:(void (^)(BOOL isRegistered))reply
{
    reply(YES);
}

@end

namespace pavo::test {
namespace {

using Helper = xpc::Remote<BosunServiceProtocol>;

class HelperAdapter : public AdapterTest {
protected:
    HelperAdapter()
        : connection_(xpc::Connection::withMachServiceName(kHelperLabel, xpc::ConnectionOptions::privileged))
    {
        connection_->setRemoteObjectInterface(xpc::describe<BosunServiceProtocol>());
    }

    static NSXPCConnection* system() { return connections().at(0); }
    Helper synchronous()
    {
        const auto proxy = connection_->synchronousRemoteObjectProxyWithErrorHandler(
            [this](const ns::Error& error) { error_ = error; });
        return Helper::cast(proxy).value();
    }

    const std::shared_ptr<xpc::Connection> connection_;
    std::optional<ns::Error> error_;
};

TEST_F(HelperAdapter, IsLookedUpInTheSystemsNamespace)
{
    EXPECT_STREQ(system().serviceName.UTF8String, "com.tarnwell.macos.cam.PrivilegedHelper");
    EXPECT_EQ(system().options, 0x1000U);
}

TEST_F(HelperAdapter, ProtocolHasTheEncodingsOfTheWire)
{
    const auto* const protocol = (__bridge objc::ProtocolRecord*)@protocol(BosunServiceProtocol);
    const std::map<std::string, std::string> expected = {
        {"getCommunicationVersionWithReply:", "v24@0:8@?<v@?Q>16"},
        {"ping", "v16@0:8"},
        {"launchStudioIfNeeded", "v16@0:8"},
        {"doInstallWithStepIdentifier:encodedContext:encodedFrozenInstallationState:reply:",
         "v48@0:8@\"NSString\"16@\"NSData\"24@\"NSData\"32@?<v@?@\"NSData\"@\"NSError\">40"},
        {"doComponentUninstallWithReply:", "v24@0:8@?<v@?@\"NSError\">16"},
        {"coreadiosdWithReply:", "v24@0:8@?<v@?@\"NSError\">16"},
        {"checkCMIOExtensionRegisteredWithReply:", "v24@0:8@?<v@?c>16"}};
    ASSERT_EQ(protocol->instanceMethods->count, expected.size());
    for (const auto& [selector, types] : expected)
        EXPECT_STREQ(objc::extendedTypes(protocol, selector.c_str()), types.c_str()) << selector;
}

TEST_F(HelperAdapter, AnswersBeforeASynchronousCallReturns)
{
    PavoHelper* const object = [[PavoHelper alloc] init];
    system().peer = object;
    std::uint64_t version = 0;
    synchronous().call<&BosunServiceProtocol::getCommunicationVersion>(
        [&version](std::uint64_t answer) { version = answer; });
    EXPECT_EQ(version, 0xFFFFFFFF00000005U);
    std::optional<bool> isRegistered;
    synchronous().call<&BosunServiceProtocol::checkCMIOExtensionRegistered>(
        [&isRegistered](bool answer) { isRegistered = answer; });
    EXPECT_EQ(isRegistered, true);
    EXPECT_EQ(error_, std::nullopt);
}

TEST_F(HelperAdapter, CarriesTextDataAndErrorsBothWays)
{
    PavoHelper* const object = [[PavoHelper alloc] init];
    system().peer = object;
    const ns::Data context = {std::byte{1}, std::byte{0}, std::byte{255}};
    std::optional<ns::Data> result;
    std::optional<ns::Error> error;
    synchronous().call<&BosunServiceProtocol::doInstall>(
        [&](const std::optional<ns::Data>& data, const std::optional<ns::Error>& failure) {
            result = data;
            error = failure;
        },
        std::string("a step"), context, ns::Data(9));
    EXPECT_EQ([object received], (Strings{"a step"}));
    EXPECT_EQ(result, context);
    EXPECT_EQ(error, (ns::Error{"helper", 9}));
    std::optional<ns::Error> none = ns::Error{};
    synchronous().call<&BosunServiceProtocol::doComponentUninstall>(
        [&none](const std::optional<ns::Error>& failure) { none = failure; });
    EXPECT_EQ(none, std::nullopt);
}

TEST_F(HelperAdapter, IsSentMessagesWithoutAReply)
{
    PavoHelper* const object = [[PavoHelper alloc] init];
    system().peer = object;
    synchronous().send<&BosunServiceProtocol::launchStudioIfNeeded>();
    synchronous().send<&BosunServiceProtocol::ping>();
    EXPECT_EQ([object received], (Strings{"launch", "ping"}));
}

TEST_F(HelperAdapter, TellsTheErrorHandlerThatTheHelperIsAbsent)
{
    bool isAnswered = false;
    synchronous().call<&BosunServiceProtocol::getCommunicationVersion>(
        [&isAnswered](std::uint64_t) { isAnswered = true; });
    EXPECT_FALSE(isAnswered);
    EXPECT_EQ(error_, (ns::Error{"NSCocoaErrorDomain", 4099}));
    error_.reset();
    synchronous().send<&BosunServiceProtocol::launchStudioIfNeeded>();
    EXPECT_EQ(error_, std::nullopt);
}

}  // namespace
}  // namespace pavo::test
