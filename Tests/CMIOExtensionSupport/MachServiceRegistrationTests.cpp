#include "CMIOExtensionSupport/MachServiceRegistration.h"
#include "Tests/CMIOExtensionSupport/CameraTestSupport.h"

#include <servers/bootstrap.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace pavo {
namespace {

using namespace test;
using testing::IsEmpty;

class MachServiceRegistration : public testing::Test {
protected:
    ~MachServiceRegistration() override { resetDoubles(); }

    std::shared_ptr<xpc::Listener> listener = xpc::Listener::anonymousListener();
    xpc::ListenerEndpoint endpoint = listener->endpoint();
    CFStringRef name = CFSTR("com.example.lämp");
};

TEST_F(MachServiceRegistration, RegistersTheEndpointsPortInTheProcessesOwnNamespace)
{
    dynamically_register_mach_service_for_endpoint(endpoint.object(), name);

    const auto registrations = takeRegistrations();
    ASSERT_EQ(registrations.size(), 1u);
    EXPECT_EQ(registrations[0].namespacePort, bootstrap_port);
    EXPECT_EQ(registrations[0].name, "com.example.lämp");
    EXPECT_EQ(registrations[0].port, xpc::test::port(*listener));
}

TEST_F(MachServiceRegistration, RegistersTheEndpointsPortInTheParentNamespace)
{
    dynamically_register_mach_service_for_endpoint_on_parent(endpoint.object(), name);

    const auto registrations = takeRegistrations();
    ASSERT_EQ(registrations.size(), 1u);
    EXPECT_EQ(registrations[0].namespacePort, kParentPort);
    EXPECT_EQ(registrations[0].name, "com.example.lämp");
    EXPECT_EQ(registrations[0].port, xpc::test::port(*listener));
}

TEST_F(MachServiceRegistration, WithoutAParentTheRegistrationGoesToPortZero)
{
    failures().bootstrapParent = BOOTSTRAP_NOT_PRIVILEGED;
    dynamically_register_mach_service_for_endpoint_on_parent(endpoint.object(), name);

    const auto registrations = takeRegistrations();
    ASSERT_EQ(registrations.size(), 1u);
    EXPECT_EQ(registrations[0].namespacePort, 0u);
}

TEST_F(MachServiceRegistration, ARegistrationThatIsRefusedReturnsNormallyWithNothingLogged)
{
    failures().bootstrapRegister = BOOTSTRAP_SERVICE_ACTIVE;
    Journal journal;
    dynamically_register_mach_service_for_endpoint(endpoint.object(), name);
    dynamically_register_mach_service_for_endpoint_on_parent(endpoint.object(), name);

    EXPECT_EQ(takeRegistrations().size(), 2u);
    EXPECT_THAT(journal.entries(), IsEmpty());
}

TEST_F(MachServiceRegistration, RetainsNothing)
{
    const auto count = CFGetRetainCount(endpoint.object());
    dynamically_register_mach_service_for_endpoint(endpoint.object(), name);
    dynamically_register_mach_service_for_endpoint_on_parent(endpoint.object(), name);

    EXPECT_EQ(CFGetRetainCount(endpoint.object()), count);
    EXPECT_EQ(listener.use_count(), 1);
}

TEST_F(MachServiceRegistration, PassesAMissingEndpointOrNameOnAsItIs)
{
    dynamically_register_mach_service_for_endpoint(nullptr, name);
    dynamically_register_mach_service_for_endpoint_on_parent(endpoint.object(), nullptr);

    const auto registrations = takeRegistrations();
    ASSERT_EQ(registrations.size(), 2u);
    EXPECT_EQ(registrations[0].port, 0u);
    EXPECT_EQ(registrations[1].name, std::nullopt);
}

}  // namespace
}  // namespace pavo
