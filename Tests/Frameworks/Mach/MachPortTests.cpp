#include <fcntl.h>
#include <gtest/gtest.h>
#include <mach/port.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "NamespaceFixture.h"
#include "Tests/Support/Descriptors.h"

namespace {

namespace fs = std::filesystem;

class MachPort : public pavo::test::NamespaceFixture {
protected:
    // The one socket in the process's folder.
    std::string onlySocket() const
    {
        std::string path;
        for (const auto& entry : fs::directory_iterator(processFolder())) {
            EXPECT_TRUE(path.empty()) << entry.path();
            path = entry.path();
        }
        return path;
    }
};

using MachPortDeathTest = MachPort;

int option(mach_port_t port, int name)
{
    int value = -1;
    socklen_t size = sizeof value;
    EXPECT_EQ(getsockopt(static_cast<int>(port), SOL_SOCKET, name, &value, &size), 0);
    return value;
}

TEST(MachPortConstants, HaveTheirFixedValues)
{
    EXPECT_EQ(MACH_PORT_NULL, 0);
    EXPECT_EQ(MACH_PORT_DEAD, 0xFFFF'FFFFU);
    EXPECT_EQ(MACH_PORT_RIGHT_SEND, 0U);
    EXPECT_EQ(MACH_PORT_RIGHT_RECEIVE, 1U);
    EXPECT_EQ(KERN_SUCCESS, 0);
    EXPECT_EQ(KERN_INVALID_ARGUMENT, 4);
    EXPECT_EQ(KERN_FAILURE, 5);
    EXPECT_EQ(KERN_INVALID_NAME, 15);
    EXPECT_EQ(KERN_INVALID_TASK, 16);
    EXPECT_EQ(KERN_INVALID_RIGHT, 17);
    EXPECT_EQ(KERN_INVALID_VALUE, 18);
    EXPECT_TRUE(MACH_PORT_VALID(3));
    EXPECT_FALSE(MACH_PORT_VALID(MACH_PORT_NULL));
    EXPECT_FALSE(MACH_PORT_VALID(MACH_PORT_DEAD));
}

TEST_F(MachPort, AReceiveRightIsAListeningStreamSocket)
{
    const auto port = allocate();
    EXPECT_EQ(option(port, SO_DOMAIN), AF_UNIX);
    EXPECT_EQ(option(port, SO_TYPE), SOCK_STREAM);
    EXPECT_EQ(option(port, SO_ACCEPTCONN), 1);
    EXPECT_NE(fcntl(static_cast<int>(port), F_GETFL) & O_NONBLOCK, 0);
    EXPECT_NE(fcntl(static_cast<int>(port), F_GETFD) & FD_CLOEXEC, 0);
    deallocate(port);
}

TEST_F(MachPort, ASocketIsForItsOwnerOnly)
{
    const auto port = allocate();
    struct stat status{};
    ASSERT_EQ(stat(onlySocket().c_str(), &status), 0);
    EXPECT_TRUE(S_ISSOCK(status.st_mode));
    EXPECT_EQ(status.st_mode & 07777, 0600U);
    ASSERT_EQ(stat(processFolder().c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0700U);
    ASSERT_EQ(stat(userFolder().c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0700U);
    deallocate(port);
}

TEST_F(MachPort, DeallocatingClosesAndRemovesTheSocket)
{
    const auto before = pavo::test::openDescriptorCount();
    const auto port = allocate();
    const auto path = onlySocket();
    EXPECT_EQ(pavo::test::openDescriptorCount(), before + 1);
    EXPECT_EQ(deallocate(port), KERN_SUCCESS);
    EXPECT_EQ(pavo::test::openDescriptorCount(), before);
    EXPECT_FALSE(fs::exists(path));
}

TEST_F(MachPort, EachReceiveRightHasASocketOfItsOwn)
{
    const auto first = allocate();
    const auto second = allocate();
    EXPECT_NE(first, second);
    EXPECT_EQ(std::distance(fs::directory_iterator(processFolder()), fs::directory_iterator()), 2);
    deallocate(first);
    deallocate(second);
}

TEST_F(MachPort, GoesPastTheSocketsThatADeadProcessOfTheSameNumberLeft)
{
    // Numbers go up by one, so the next socket's name is known, and is taken here.
    const auto probe = allocate();
    const auto number = std::stoi(fs::path(onlySocket()).stem().string());
    const auto left = processFolder() + "/" + std::to_string(number + 1) + ".sock";
    fs::rename(onlySocket(), left);
    const auto port = allocate();
    EXPECT_TRUE(fs::exists(processFolder() + "/" + std::to_string(number + 2) + ".sock"));
    EXPECT_TRUE(fs::exists(left));
    deallocate(port);
    deallocate(probe);
    EXPECT_TRUE(fs::exists(left));
}

TEST_F(MachPort, ClosesADescriptorThatIsNoReceiveRight)
{
    const auto before = pavo::test::openDescriptorCount();
    const int descriptor = dup(2);
    ASSERT_GT(descriptor, 0);
    EXPECT_EQ(deallocate(static_cast<mach_port_t>(descriptor)), KERN_SUCCESS);
    EXPECT_EQ(pavo::test::openDescriptorCount(), before);
}

TEST_F(MachPort, RefusesToDeallocateWhatIsNoPort)
{
    EXPECT_EQ(deallocate(MACH_PORT_NULL), KERN_INVALID_NAME);
    EXPECT_EQ(deallocate(MACH_PORT_DEAD), KERN_INVALID_NAME);
    EXPECT_EQ(deallocate(mach_task_self()), KERN_INVALID_NAME);
    const auto port = allocate();
    EXPECT_EQ(deallocate(port), KERN_SUCCESS);
    EXPECT_EQ(deallocate(port), KERN_INVALID_NAME);
}

TEST_F(MachPort, DeallocatingANamespaceIsHarmless)
{
    EXPECT_EQ(deallocate(userNamespace()), KERN_SUCCESS);
    EXPECT_EQ(deallocate(bootstrap_port), KERN_SUCCESS);
    const auto port = allocate();
    EXPECT_EQ(registerName(userNamespace(), "name", port), BOOTSTRAP_SUCCESS);
    deallocate(port);
}

TEST_F(MachPort, RefusesWrongArguments)
{
    mach_port_t port = 7;
    EXPECT_EQ(mach_port_allocate(mach_task_self(), MACH_PORT_RIGHT_SEND, &port), KERN_INVALID_VALUE);
    EXPECT_EQ(mach_port_allocate(mach_task_self(), MACH_PORT_RIGHT_RECEIVE, nullptr), KERN_INVALID_ARGUMENT);
    EXPECT_EQ(mach_port_allocate(MACH_PORT_NULL, MACH_PORT_RIGHT_RECEIVE, &port), KERN_INVALID_TASK);
    EXPECT_EQ(mach_port_deallocate(MACH_PORT_NULL, 3), KERN_INVALID_TASK);
    EXPECT_EQ(port, 7U);
}

TEST_F(MachPort, FailsWhereItsFolderCannotBeMade)
{
    moveTo("/proc/self/pavo");
    mach_port_t port = 7;
    EXPECT_EQ(mach_port_allocate(mach_task_self(), MACH_PORT_RIGHT_RECEIVE, &port), KERN_FAILURE);
    EXPECT_EQ(port, 7U);
}

TEST_F(MachPortDeathTest, NeverGivesTheNumberOfAStandardStream)
{
    EXPECT_EXIT(
        {
            close(0);
            close(1);
            const auto listener = allocate();
            mach_port_t connection = MACH_PORT_NULL;
            registerName(userNamespace(), "name", listener);
            bootstrap_look_up(bootstrap_port, "name", &connection);
            _exit(listener > 2 && connection > 2 ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
}

TEST_F(MachPortDeathTest, TheFolderOfAProcessGoesWhenItEnds)
{
    EXPECT_EXIT(
        {
            registerName(userNamespace(), "name", allocate());
            registerName(bootstrap_port, "own name", allocate());
            std::exit(fs::exists(processFolder()) && fs::is_symlink(userFolder() + "/name") ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
    EXPECT_TRUE(fs::exists(userFolder()));
    EXPECT_TRUE(fs::is_empty(userFolder()));
}

TEST_F(MachPortDeathTest, AForkedChildLeavesTheFilesOfItsParent)
{
    const auto port = allocate();
    ASSERT_EQ(registerName(userNamespace(), "name", port), BOOTSTRAP_SUCCESS);
    const auto path = onlySocket();
    EXPECT_EXIT(
        {
            deallocate(port);
            std::exit(0);
        },
        testing::ExitedWithCode(0), "");
    EXPECT_TRUE(fs::exists(path));
    mach_port_t connection = MACH_PORT_NULL;
    EXPECT_EQ(bootstrap_look_up(bootstrap_port, "name", &connection), BOOTSTRAP_SUCCESS);
    deallocate(connection);
    deallocate(port);
}

}  // namespace
