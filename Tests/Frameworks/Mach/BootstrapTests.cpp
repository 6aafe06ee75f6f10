#include <fcntl.h>
#include <gtest/gtest.h>
#include <servers/bootstrap.h>
#include <servers/bootstrap_private.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "NamespaceFixture.h"
#include "Platform/Support/UniqueFd.h"
#include "Tests/Support/Descriptors.h"

namespace {

namespace fs = std::filesystem;

class Bootstrap : public pavo::test::NamespaceFixture {
protected:
    // Whether the name leads to this very receive right: what is sent to the one arrives at the other.
    static bool leadsTo(mach_port_t where, const std::string& name, mach_port_t port)
    {
        mach_port_t found = MACH_PORT_NULL;
        if (bootstrap_look_up(where, name.c_str(), &found) != BOOTSTRAP_SUCCESS) return false;
        const pavo::UniqueFd client(static_cast<int>(found));
        const pavo::UniqueFd server(accept4(static_cast<int>(port), nullptr, nullptr, SOCK_CLOEXEC));
        char letter = '\0';
        return server.isValid() && write(client.get(), "x", 1) == 1 && read(server.get(), &letter, 1) == 1 &&
               letter == 'x';
    }

    static kern_return_t lookUp(mach_port_t where, const std::string& name)
    {
        mach_port_t found = MACH_PORT_NULL;
        const auto status = bootstrap_look_up(where, name.c_str(), &found);
        if (status == BOOTSTRAP_SUCCESS) deallocate(found);
        return status;
    }

    // Another process that registers the name with the user and keeps it until it is killed.
    class OtherOwner {
    public:
        explicit OtherOwner(const std::string& name)
        {
            int ready[2];
            EXPECT_EQ(pipe2(ready, O_CLOEXEC), 0);
            pid_ = fork();
            if (pid_ == 0) {
                const bool isOwner = registerName(userNamespace(), name, allocate()) == BOOTSTRAP_SUCCESS;
                if (write(ready[1], isOwner ? "y" : "n", 1) != 1) _exit(1);
                for (;;)
                    pause();
            }
            const pavo::UniqueFd reader(ready[0]);
            close(ready[1]);
            char answer = '\0';
            EXPECT_EQ(read(reader.get(), &answer, 1), 1);
            EXPECT_EQ(answer, 'y');
        }
        ~OtherOwner() { end(); }
        OtherOwner(const OtherOwner&) = delete;
        OtherOwner& operator=(const OtherOwner&) = delete;

        void end()
        {
            if (pid_ <= 0) return;
            kill(pid_, SIGKILL);
            waitpid(pid_, nullptr, 0);
            pid_ = -1;
        }

    private:
        pid_t pid_ = -1;
    };
};

TEST(BootstrapCodes, HaveTheirFixedValuesAndATextEach)
{
    EXPECT_EQ(BOOTSTRAP_SUCCESS, 0);
    EXPECT_EQ(BOOTSTRAP_NOT_PRIVILEGED, 1100);
    EXPECT_EQ(BOOTSTRAP_NAME_IN_USE, 1101);
    EXPECT_EQ(BOOTSTRAP_UNKNOWN_SERVICE, 1102);
    EXPECT_EQ(BOOTSTRAP_SERVICE_ACTIVE, 1103);
    EXPECT_EQ(BOOTSTRAP_BAD_COUNT, 1104);
    EXPECT_EQ(BOOTSTRAP_NO_MEMORY, 1105);
    EXPECT_EQ(BOOTSTRAP_NO_CHILDREN, 1106);
    EXPECT_STREQ(bootstrap_strerror(BOOTSTRAP_SUCCESS), "Success");
    for (int code = BOOTSTRAP_NOT_PRIVILEGED; code <= BOOTSTRAP_NO_CHILDREN; ++code)
        EXPECT_STRNE(bootstrap_strerror(code), bootstrap_strerror(-1)) << code;
    EXPECT_STREQ(bootstrap_strerror(-1), "Unknown bootstrap error");
}

TEST_F(Bootstrap, EachNamespaceHasAParentAndTheSystemIsItsOwn)
{
    EXPECT_NE(userNamespace(), bootstrap_port);
    EXPECT_NE(systemNamespace(), userNamespace());
    mach_port_t parent = MACH_PORT_NULL;
    EXPECT_EQ(bootstrap_parent(systemNamespace(), &parent), BOOTSTRAP_SUCCESS);
    EXPECT_EQ(parent, systemNamespace());
    EXPECT_EQ(bootstrap_system_port(), systemNamespace());
}

TEST_F(Bootstrap, OnlyANamespaceHasAParent)
{
    mach_port_t parent = 7;
    EXPECT_EQ(bootstrap_parent(MACH_PORT_NULL, &parent), KERN_INVALID_ARGUMENT);
    EXPECT_EQ(bootstrap_parent(bootstrap_port, nullptr), KERN_INVALID_ARGUMENT);
    EXPECT_EQ(parent, 7U);
}

TEST_F(Bootstrap, ARegisteredNameLeadsToItsPort)
{
    const auto before = pavo::test::openDescriptorCount();
    const auto port = allocate();
    EXPECT_EQ(registerName(userNamespace(), "com.example.service", port), BOOTSTRAP_SUCCESS);
    EXPECT_TRUE(leadsTo(userNamespace(), "com.example.service", port));
    EXPECT_EQ(deallocate(port), KERN_SUCCESS);
    EXPECT_EQ(pavo::test::openDescriptorCount(), before);
}

TEST_F(Bootstrap, TheConnectionBlocksAndIsNotInherited)
{
    const auto port = allocate();
    ASSERT_EQ(registerName(userNamespace(), "name", port), BOOTSTRAP_SUCCESS);
    mach_port_t found = MACH_PORT_NULL;
    ASSERT_EQ(bootstrap_look_up(userNamespace(), "name", &found), BOOTSTRAP_SUCCESS);
    EXPECT_EQ(fcntl(static_cast<int>(found), F_GETFL) & O_NONBLOCK, 0);
    EXPECT_NE(fcntl(static_cast<int>(found), F_GETFD) & FD_CLOEXEC, 0);
    deallocate(found);
    deallocate(port);
}

TEST_F(Bootstrap, NothingThatARegistrationHoldsIsInherited)
{
    const auto port = allocate();
    ASSERT_EQ(registerName(userNamespace(), "name", port), BOOTSTRAP_SUCCESS);
    int held = 0;
    for (const auto& entry : fs::directory_iterator("/proc/self/fd")) {
        std::error_code gone;  // the descriptor of the walk itself is in the list, too
        const auto target = fs::read_symlink(entry.path(), gone).string();
        if (!target.starts_with(folder_.path())) continue;
        ++held;
        EXPECT_NE(fcntl(std::stoi(entry.path().filename()), F_GETFD) & FD_CLOEXEC, 0) << target;
    }
    EXPECT_EQ(held, 1) << "the lock of the name";
    deallocate(port);
}

TEST_F(Bootstrap, LooksInTheParentsOfANamespace)
{
    const auto user = allocate();
    const auto system = allocate();
    ASSERT_EQ(registerName(userNamespace(), "user", user), BOOTSTRAP_SUCCESS);
    ASSERT_EQ(registerName(systemNamespace(), "system", system), BOOTSTRAP_SUCCESS);
    EXPECT_TRUE(leadsTo(bootstrap_port, "user", user));
    EXPECT_TRUE(leadsTo(bootstrap_port, "system", system));
    EXPECT_TRUE(leadsTo(userNamespace(), "system", system));
    EXPECT_EQ(lookUp(systemNamespace(), "user"), BOOTSTRAP_UNKNOWN_SERVICE);
    deallocate(user);
    deallocate(system);
}

TEST_F(Bootstrap, ANearerNamespaceComesFirst)
{
    const auto own = allocate();
    const auto user = allocate();
    ASSERT_EQ(registerName(bootstrap_port, "name", own), BOOTSTRAP_SUCCESS);
    ASSERT_EQ(registerName(userNamespace(), "name", user), BOOTSTRAP_SUCCESS);
    EXPECT_TRUE(leadsTo(bootstrap_port, "name", own));
    EXPECT_TRUE(leadsTo(userNamespace(), "name", user));
    deallocate(own);
    EXPECT_TRUE(leadsTo(bootstrap_port, "name", user));
    deallocate(user);
}

TEST_F(Bootstrap, ANameThatNobodyRegisteredIsUnknown)
{
    const auto before = pavo::test::openDescriptorCount();
    EXPECT_EQ(lookUp(bootstrap_port, "nobody"), BOOTSTRAP_UNKNOWN_SERVICE);
    EXPECT_EQ(pavo::test::openDescriptorCount(), before);
    EXPECT_FALSE(fs::exists(userFolder())) << "looking up makes no folders";
}

TEST_F(Bootstrap, OnePortMayHaveSeveralNames)
{
    const auto port = allocate();
    ASSERT_EQ(registerName(userNamespace(), "one", port), BOOTSTRAP_SUCCESS);
    ASSERT_EQ(registerName(userNamespace(), "two", port), BOOTSTRAP_SUCCESS);
    EXPECT_TRUE(leadsTo(bootstrap_port, "one", port));
    EXPECT_TRUE(leadsTo(bootstrap_port, "two", port));
    deallocate(port);
    EXPECT_EQ(lookUp(bootstrap_port, "one"), BOOTSTRAP_UNKNOWN_SERVICE);
    EXPECT_EQ(lookUp(bootstrap_port, "two"), BOOTSTRAP_UNKNOWN_SERVICE);
}

TEST_F(Bootstrap, APortKnowsTheNameThatItWasRegisteredUnderLast)
{
    const auto port = allocate();
    name_t name{};
    EXPECT_EQ(bootstrap_name_of(port, name), KERN_INVALID_NAME);
    const std::string longest(BOOTSTRAP_MAX_NAME_LEN - 1, 'n');
    for (const auto& wanted : {std::string("com.example.first"), longest}) {
        ASSERT_EQ(registerName(userNamespace(), wanted, port), BOOTSTRAP_SUCCESS);
        EXPECT_EQ(bootstrap_name_of(port, name), BOOTSTRAP_SUCCESS);
        EXPECT_EQ(name, wanted);
    }
    EXPECT_EQ(bootstrap_name_of(port, nullptr), KERN_INVALID_ARGUMENT);
    deallocate(port);
    EXPECT_EQ(bootstrap_name_of(port, name), KERN_INVALID_NAME);
    EXPECT_EQ(bootstrap_name_of(MACH_PORT_NULL, name), KERN_INVALID_NAME);
}

TEST_F(Bootstrap, ANameIsActiveWhileItsPortLives)
{
    const auto first = allocate();
    const auto second = allocate();
    ASSERT_EQ(registerName(userNamespace(), "name", first), BOOTSTRAP_SUCCESS);
    EXPECT_EQ(registerName(userNamespace(), "name", second), BOOTSTRAP_SERVICE_ACTIVE);
    EXPECT_EQ(registerName(userNamespace(), "name", first), BOOTSTRAP_SERVICE_ACTIVE);
    EXPECT_TRUE(leadsTo(userNamespace(), "name", first));
    deallocate(first);
    EXPECT_EQ(registerName(userNamespace(), "name", second), BOOTSTRAP_SUCCESS);
    EXPECT_TRUE(leadsTo(userNamespace(), "name", second));
    deallocate(second);
}

TEST_F(Bootstrap, AskingWhetherANameIsActiveConnectsToNobody)
{
    const auto first = allocate();
    const auto second = allocate();
    ASSERT_EQ(registerName(userNamespace(), "name", first), BOOTSTRAP_SUCCESS);
    ASSERT_EQ(registerName(userNamespace(), "name", second), BOOTSTRAP_SERVICE_ACTIVE);
    EXPECT_EQ(accept4(static_cast<int>(first), nullptr, nullptr, SOCK_CLOEXEC), -1);
    EXPECT_EQ(errno, EAGAIN);
    deallocate(first);
    deallocate(second);
}

TEST_F(Bootstrap, OnlyOneOfSeveralThreadsGetsAName)
{
    std::atomic<int> winners = 0;
    std::atomic<int> losers = 0;
    std::vector<mach_port_t> ports(4);
    std::vector<std::thread> threads;
    for (auto& port : ports)
        threads.emplace_back([&port, &winners, &losers] {
            port = allocate();
            const auto status = registerName(userNamespace(), "name", port);
            if (status == BOOTSTRAP_SUCCESS) ++winners;
            if (status == BOOTSTRAP_SERVICE_ACTIVE) ++losers;
        });
    for (auto& thread : threads)
        thread.join();
    EXPECT_EQ(winners, 1);
    EXPECT_EQ(losers, 3);
    for (const auto port : ports)
        deallocate(port);
}

TEST_F(Bootstrap, ANameOfAnotherLivingProcessIsActive)
{
    OtherOwner owner("name");
    const auto port = allocate();
    EXPECT_EQ(registerName(userNamespace(), "name", port), BOOTSTRAP_SERVICE_ACTIVE);
    EXPECT_EQ(lookUp(bootstrap_port, "name"), BOOTSTRAP_SUCCESS);
    deallocate(port);
}

TEST_F(Bootstrap, TheNameOfAKilledProcessIsUnknownUntilItIsTakenOver)
{
    OtherOwner owner("name");
    owner.end();
    EXPECT_TRUE(fs::is_symlink(userFolder() + "/name")) << "a killed process leaves its files";
    EXPECT_EQ(lookUp(bootstrap_port, "name"), BOOTSTRAP_UNKNOWN_SERVICE);
    const auto port = allocate();
    EXPECT_EQ(registerName(userNamespace(), "name", port), BOOTSTRAP_SUCCESS);
    EXPECT_TRUE(leadsTo(bootstrap_port, "name", port));
    deallocate(port);
}

TEST_F(Bootstrap, ADeallocatedPortLeavesNoFileOfItsNames)
{
    const auto port = allocate();
    ASSERT_EQ(registerName(userNamespace(), "name", port), BOOTSTRAP_SUCCESS);
    EXPECT_TRUE(fs::is_symlink(userFolder() + "/name"));
    EXPECT_TRUE(fs::exists(userFolder() + "/name.lock"));
    deallocate(port);
    EXPECT_FALSE(fs::is_symlink(userFolder() + "/name"));
    EXPECT_FALSE(fs::exists(userFolder() + "/name.lock"));
}

TEST_F(Bootstrap, RegistersOnlyAReceiveRightOfThisProcess)
{
    EXPECT_EQ(registerName(userNamespace(), "name", MACH_PORT_NULL), KERN_INVALID_ARGUMENT);
    EXPECT_EQ(registerName(userNamespace(), "name", MACH_PORT_DEAD), KERN_INVALID_ARGUMENT);
    EXPECT_EQ(registerName(userNamespace(), "name", 2), KERN_INVALID_RIGHT);
    const auto port = allocate();
    EXPECT_EQ(registerName(MACH_PORT_NULL, "name", port), KERN_INVALID_ARGUMENT);
    deallocate(port);
    EXPECT_EQ(registerName(userNamespace(), "name", port), KERN_INVALID_RIGHT);
}

TEST_F(Bootstrap, ANullNameIsAnErrorAndNoCrash)
{
    const auto port = allocate();
    mach_port_t found = 7;
    EXPECT_EQ(bootstrap_register(userNamespace(), nullptr, port), KERN_INVALID_ARGUMENT);
    EXPECT_EQ(bootstrap_look_up(userNamespace(), nullptr, &found), KERN_INVALID_ARGUMENT);
    EXPECT_EQ(bootstrap_look_up(userNamespace(), "name", nullptr), KERN_INVALID_ARGUMENT);
    EXPECT_EQ(bootstrap_look_up(MACH_PORT_NULL, "name", &found), KERN_INVALID_ARGUMENT);
    EXPECT_EQ(found, 7U);
    deallocate(port);
}

TEST_F(Bootstrap, RefusesNamesThatAreNoFileNames)
{
    const auto port = allocate();
    for (const std::string name : {"", ".", "..", "../escape", "a/b", "/tmp/name", ".hidden", "new\nline",
                                   "process-1", "name.sock", "name.lock"}) {
        EXPECT_EQ(registerName(userNamespace(), name, port), KERN_INVALID_ARGUMENT) << name;
        EXPECT_EQ(lookUp(userNamespace(), name), BOOTSTRAP_UNKNOWN_SERVICE) << name;
    }
    deallocate(port);
}

TEST_F(Bootstrap, ANameMayBe127BytesLong)
{
    const auto port = allocate();
    EXPECT_EQ(registerName(userNamespace(), std::string(127, 'n'), port), BOOTSTRAP_SUCCESS);
    EXPECT_TRUE(leadsTo(bootstrap_port, std::string(127, 'n'), port));
    name_t tooLong;
    std::memset(tooLong, 'n', sizeof tooLong);
    EXPECT_EQ(bootstrap_register(userNamespace(), tooLong, port), KERN_INVALID_ARGUMENT);
    deallocate(port);
}

TEST_F(Bootstrap, AFolderMayHaveALongerPathThanASocketAddressHasRoomFor)
{
    moveTo(folder_.path() + "/" + std::string(150, 'd'));
    const auto port = allocate();
    EXPECT_EQ(registerName(userNamespace(), "name", port), BOOTSTRAP_SUCCESS);
    EXPECT_TRUE(leadsTo(bootstrap_port, "name", port));
    deallocate(port);
}

TEST_F(Bootstrap, DoesNotTrustAFolderThatOthersMayWriteTo)
{
    const auto port = allocate();
    ASSERT_EQ(registerName(userNamespace(), "name", port), BOOTSTRAP_SUCCESS);
    ASSERT_EQ(chmod(userFolder().c_str(), 0777), 0);
    EXPECT_EQ(lookUp(bootstrap_port, "name"), BOOTSTRAP_UNKNOWN_SERVICE);
    EXPECT_EQ(registerName(userNamespace(), "another", port), BOOTSTRAP_NOT_PRIVILEGED);
    ASSERT_EQ(chmod(userFolder().c_str(), 0700), 0);
    EXPECT_TRUE(leadsTo(bootstrap_port, "name", port));
    deallocate(port);
}

TEST_F(Bootstrap, DoesNotFollowWhatSomebodyElseOwns)
{
    if (geteuid() != 0) GTEST_SKIP() << "only root can give a file away";
    constexpr uid_t somebody = 12345;
    const auto port = allocate();
    ASSERT_EQ(registerName(userNamespace(), "name", port), BOOTSTRAP_SUCCESS);
    const auto link = userFolder() + "/name";
    ASSERT_EQ(lchown(link.c_str(), somebody, somebody), 0);
    EXPECT_EQ(lookUp(bootstrap_port, "name"), BOOTSTRAP_UNKNOWN_SERVICE) << "the link is somebody else's";
    ASSERT_EQ(lchown(link.c_str(), 0, 0), 0);
    EXPECT_TRUE(leadsTo(bootstrap_port, "name", port));
    ASSERT_EQ(chown(link.c_str(), somebody, somebody), 0);
    EXPECT_EQ(lookUp(bootstrap_port, "name"), BOOTSTRAP_UNKNOWN_SERVICE) << "the socket is somebody else's";
    deallocate(port);
}

TEST_F(Bootstrap, ASystemNameThatSomebodyElsePlantedIsNotFollowed)
{
    if (geteuid() != 0) GTEST_SKIP() << "only root can give a file away";
    constexpr uid_t somebody = 65534;
    const auto before = pavo::test::openDescriptorCount();
    const auto port = allocate();
    ASSERT_EQ(registerName(systemNamespace(), "name", port), BOOTSTRAP_SUCCESS);
    const auto link = systemFolder() + "/name";
    for (const std::string& planted : {link, fs::read_symlink(link).string(), systemFolder(), folder_.path(),
                                       processFolder(), userFolder()}) {
        ASSERT_EQ(lchown(planted.c_str(), somebody, 0), 0) << planted;
        EXPECT_EQ(lookUp(systemNamespace(), "name"), BOOTSTRAP_UNKNOWN_SERVICE) << planted;
        ASSERT_EQ(lchown(planted.c_str(), 0, 0), 0) << planted;
        EXPECT_TRUE(leadsTo(systemNamespace(), "name", port));
    }
    deallocate(port);
    EXPECT_EQ(pavo::test::openDescriptorCount(), before);
}

TEST_F(Bootstrap, ASystemSocketThatSomebodyElsePlantedIsNotFollowed)
{
    if (geteuid() != 0) GTEST_SKIP() << "only root can give a file away";
    constexpr uid_t somebody = 65534;
    const auto port = allocate();
    ASSERT_EQ(registerName(systemNamespace(), "link", port), BOOTSTRAP_SUCCESS);
    const auto socket = systemFolder() + "/name";
    fs::rename(fs::read_symlink(systemFolder() + "/link"), socket);
    ASSERT_EQ(chown(socket.c_str(), somebody, 0), 0);
    EXPECT_EQ(lookUp(systemNamespace(), "name"), BOOTSTRAP_UNKNOWN_SERVICE);
    ASSERT_EQ(chown(socket.c_str(), 0, 0), 0);
    EXPECT_TRUE(leadsTo(systemNamespace(), "name", port));
    deallocate(port);
}

TEST_F(Bootstrap, NobodyElseMayWriteWhereASystemNameLeads)
{
    const auto port = allocate();
    ASSERT_EQ(registerName(systemNamespace(), "name", port), BOOTSTRAP_SUCCESS);
    for (const auto& folder : {systemFolder(), folder_.path(), processFolder(), userFolder()}) {
        ASSERT_EQ(chmod(folder.c_str(), 0777), 0);
        EXPECT_EQ(lookUp(systemNamespace(), "name"), BOOTSTRAP_UNKNOWN_SERVICE) << folder;
        ASSERT_EQ(chmod(folder.c_str(), 0700), 0);
    }
    EXPECT_TRUE(leadsTo(systemNamespace(), "name", port));
    deallocate(port);
}

TEST_F(Bootstrap, ASystemNameLeadsThroughNoOtherLink)
{
    const auto port = allocate();
    ASSERT_EQ(registerName(systemNamespace(), "name", port), BOOTSTRAP_SUCCESS);
    const auto socket = fs::read_symlink(systemFolder() + "/name").string();
    fs::create_symlink(systemFolder() + "/name", systemFolder() + "/twice");
    EXPECT_EQ(lookUp(systemNamespace(), "twice"), BOOTSTRAP_UNKNOWN_SERVICE);
    fs::create_symlink(processFolder(), folder_.path() + "/elsewhere");
    fs::create_symlink(folder_.path() + "/elsewhere/" + fs::path(socket).filename().string(),
                       systemFolder() + "/around");
    EXPECT_EQ(lookUp(systemNamespace(), "around"), BOOTSTRAP_UNKNOWN_SERVICE);
    fs::rename(systemFolder(), folder_.path() + "/moved");
    fs::create_symlink(folder_.path() + "/moved", systemFolder());
    EXPECT_EQ(lookUp(systemNamespace(), "name"), BOOTSTRAP_UNKNOWN_SERVICE) << "the folder is a link";
    EXPECT_EQ(registerName(systemNamespace(), "another", port), BOOTSTRAP_NOT_PRIVILEGED);
    deallocate(port);
}

TEST_F(Bootstrap, EveryUserFindsAServiceOfRootsWhoseSocketIsOpenToAll)
{
    if (geteuid() != 0) GTEST_SKIP() << "only root can become somebody else";
    const auto port = allocate();
    ASSERT_EQ(registerName(systemNamespace(), "link", port), BOOTSTRAP_SUCCESS);
    const auto socket = systemFolder() + "/name";
    fs::rename(fs::read_symlink(systemFolder() + "/link"), socket);
    for (const auto& folder : {folder_.path(), systemFolder()})
        ASSERT_EQ(chmod(folder.c_str(), 0755), 0);
    const auto lookUpAsSomebody = [] {
        const pid_t somebody = fork();
        if (somebody == 0)
            _exit(setresuid(65534, 65534, 65534) == 0 && lookUp(bootstrap_system_port(), "name") == 0 ? 0
                                                                                                      : 1);
        int status = -1;
        return waitpid(somebody, &status, 0) == somebody && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    };
    ASSERT_EQ(chmod(socket.c_str(), 0666), 0);
    EXPECT_EQ(lookUpAsSomebody(), 0);
    ASSERT_EQ(chmod(socket.c_str(), 0600), 0);
    EXPECT_EQ(lookUpAsSomebody(), 1) << "the socket's mode decides who may connect";
    deallocate(port);
}

TEST_F(Bootstrap, ASocketThatSomebodyElseListensOnIsNotFollowed)
{
    if (geteuid() != 0) GTEST_SKIP() << "only root can become somebody else";
    const auto port = allocate();
    ASSERT_EQ(registerName(userNamespace(), "name", port), BOOTSTRAP_SUCCESS);
    ASSERT_EQ(registerName(systemNamespace(), "name", port), BOOTSTRAP_SUCCESS);
    const pid_t listener = fork();
    if (listener == 0)
        _exit(setresuid(65534, 65534, 65534) == 0 && listen(static_cast<int>(port), 4) == 0 ? 0 : 1);
    int status = -1;
    ASSERT_EQ(waitpid(listener, &status, 0), listener);
    ASSERT_EQ(status, 0);
    EXPECT_EQ(lookUp(userNamespace(), "name"), BOOTSTRAP_UNKNOWN_SERVICE);
    EXPECT_EQ(lookUp(systemNamespace(), "name"), BOOTSTRAP_UNKNOWN_SERVICE);
    deallocate(port);
}

TEST_F(Bootstrap, AFileThatIsNoSocketIsNoService)
{
    const auto port = allocate();
    ASSERT_EQ(registerName(userNamespace(), "name", port), BOOTSTRAP_SUCCESS);
    std::ofstream(userFolder() + "/file") << "text";
    fs::create_symlink(userFolder() + "/nowhere", userFolder() + "/dangling");
    EXPECT_EQ(lookUp(bootstrap_port, "file"), BOOTSTRAP_UNKNOWN_SERVICE);
    EXPECT_EQ(lookUp(bootstrap_port, "dangling"), BOOTSTRAP_UNKNOWN_SERVICE);
    deallocate(port);
}

TEST_F(Bootstrap, ASocketThatLiesUnderItsOwnNameIsAService)
{
    // So a service that the system starts on demand can be found.
    const auto port = allocate();
    ASSERT_EQ(registerName(systemNamespace(), "link", port), BOOTSTRAP_SUCCESS);
    fs::rename(fs::read_symlink(systemFolder() + "/link"), systemFolder() + "/name");
    EXPECT_TRUE(leadsTo(bootstrap_port, "name", port));
    deallocate(port);
}

TEST_F(Bootstrap, IsNotPrivilegedWhereTheNamespaceCannotBeWrittenTo)
{
    const auto port = allocate();
    std::ofstream(systemFolder()) << "in the way";
    EXPECT_EQ(registerName(systemNamespace(), "name", port), BOOTSTRAP_NOT_PRIVILEGED);
    deallocate(port);
}

TEST_F(Bootstrap, AFailedRegistrationLeavesNoLock)
{
    const auto port = allocate();
    fs::create_directory(userFolder() + "/name");
    EXPECT_EQ(registerName(userNamespace(), "name", port), BOOTSTRAP_NOT_PRIVILEGED);
    EXPECT_FALSE(fs::exists(userFolder() + "/name.lock"));
    fs::remove(userFolder() + "/name");
    EXPECT_EQ(registerName(userNamespace(), "name", port), BOOTSTRAP_SUCCESS);
    deallocate(port);
}

TEST_F(Bootstrap, TheUsersNamespaceLiesInTheRuntimeFolder)
{
    const pavo::test::TemporaryFolder runtime;
    const char* const inherited = std::getenv("XDG_RUNTIME_DIR");
    const std::string before = inherited ? inherited : "";
    unsetenv("PAVO_BOOTSTRAP_DIR");
    setenv("XDG_RUNTIME_DIR", runtime.path().c_str(), 1);
    const auto port = allocate();
    EXPECT_EQ(registerName(userNamespace(), "name", port), BOOTSTRAP_SUCCESS);
    EXPECT_TRUE(fs::is_symlink(runtime.path() + "/pavo/name"));
    EXPECT_TRUE(leadsTo(bootstrap_port, "name", port));
    deallocate(port);
    if (inherited)
        setenv("XDG_RUNTIME_DIR", before.c_str(), 1);
    else
        unsetenv("XDG_RUNTIME_DIR");
}

}  // namespace
