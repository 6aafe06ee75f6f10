#pragma once

#include <gtest/gtest.h>
#include <mach/port.h>
#include <servers/bootstrap.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include "Tests/Support/Descriptors.h"

namespace pavo::test {

// Moves all namespaces into a folder of the test's own.
class NamespaceFixture : public testing::Test {
protected:
    NamespaceFixture() { moveTo(folder_.path()); }
    ~NamespaceFixture() override { unsetenv("PAVO_BOOTSTRAP_DIR"); }

    static void moveTo(const std::string& folder) { setenv("PAVO_BOOTSTRAP_DIR", folder.c_str(), 1); }

    std::string userFolder() const { return folder_.path() + "/user"; }
    std::string systemFolder() const { return folder_.path() + "/system"; }
    std::string processFolder() const { return userFolder() + "/process-" + std::to_string(getpid()); }

    static mach_port_t allocate()
    {
        mach_port_t port = MACH_PORT_NULL;
        EXPECT_EQ(mach_port_allocate(mach_task_self(), MACH_PORT_RIGHT_RECEIVE, &port), KERN_SUCCESS);
        return port;
    }
    static kern_return_t deallocate(mach_port_t port) { return mach_port_deallocate(mach_task_self(), port); }

    static mach_port_t userNamespace()
    {
        mach_port_t user = MACH_PORT_NULL;
        EXPECT_EQ(bootstrap_parent(bootstrap_port, &user), BOOTSTRAP_SUCCESS);
        return user;
    }
    static mach_port_t systemNamespace()
    {
        mach_port_t system = MACH_PORT_NULL;
        EXPECT_EQ(bootstrap_parent(userNamespace(), &system), BOOTSTRAP_SUCCESS);
        return system;
    }

    static kern_return_t registerName(mach_port_t where, std::string name, mach_port_t port)
    {
        return bootstrap_register(where, name.data(), port);
    }

    const TemporaryFolder folder_;
};

}  // namespace pavo::test
