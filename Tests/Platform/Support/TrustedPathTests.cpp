// Which files are believed, on a tree of the test's own: <folder>/outer/inner/file.

#include "Platform/Support/linux/TrustedPath.h"
#include "Tests/Support/Descriptors.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>

namespace {

namespace fs = std::filesystem;
using pavo::openTrusted;
using pavo::TrustedOwner;
using pavo::UniqueFd;

constexpr uid_t kSomebody = 65534;

class TrustedPath : public testing::Test {
protected:
    TrustedPath()
    {
        fs::create_directories(inner());
        std::ofstream(file()) << "content";
        for (const auto& path : {outer(), inner()})
            chmod(path.c_str(), 0755);
        chmod(file().c_str(), 0644);
    }

    std::string outer() const { return folder_.path() + "/outer"; }
    std::string inner() const { return outer() + "/inner"; }
    std::string file() const { return inner() + "/file"; }

    // 0, or the reason for which the file is not believed.
    static int refusal(const std::string& path)
    {
        errno = 0;
        return openTrusted(path, TrustedOwner::rootOrSelf).isValid() ? 0 : errno;
    }

    const pavo::test::TemporaryFolder folder_;
};

TEST_F(TrustedPath, RootIsAlwaysTrustedAndTheUserOnRequest)
{
    EXPECT_TRUE(pavo::isTrusted(0, TrustedOwner::root));
    EXPECT_TRUE(pavo::isTrusted(0, TrustedOwner::rootOrSelf));
    EXPECT_TRUE(pavo::isTrusted(geteuid(), TrustedOwner::rootOrSelf));
    EXPECT_EQ(pavo::isTrusted(geteuid(), TrustedOwner::root), geteuid() == 0);
    EXPECT_FALSE(pavo::isTrusted(geteuid() + 1, TrustedOwner::rootOrSelf));
}

TEST_F(TrustedPath, LeadsToTheFileItself)
{
    const auto before = pavo::test::openDescriptorCount();
    {
        const auto opened = openTrusted(file(), TrustedOwner::rootOrSelf);
        ASSERT_TRUE(opened.isValid());
        struct stat byPath{};
        struct stat byDescriptor{};
        ASSERT_EQ(stat(file().c_str(), &byPath), 0);
        ASSERT_EQ(fstat(opened.get(), &byDescriptor), 0);
        EXPECT_EQ(byPath.st_ino, byDescriptor.st_ino);
        EXPECT_NE(fcntl(opened.get(), F_GETFD) & FD_CLOEXEC, 0);
    }
    EXPECT_EQ(pavo::test::openDescriptorCount(), before);
}

TEST_F(TrustedPath, AFolderServesToOpenWhatIsInIt)
{
    const auto folder = openTrusted(inner(), TrustedOwner::rootOrSelf);
    const UniqueFd opened(openat(folder.get(), "file", O_RDONLY | O_CLOEXEC));
    EXPECT_TRUE(opened.isValid());
}

TEST_F(TrustedPath, SuperfluousSlashesDoNotMatter)
{
    EXPECT_EQ(refusal("//" + inner() + "//file"), 0);
    EXPECT_EQ(refusal(inner() + "/"), 0);
    EXPECT_EQ(refusal("/"), 0);
}

TEST_F(TrustedPath, OnlyAnAbsolutePathThatGoesDownIsFollowed)
{
    EXPECT_EQ(refusal(""), EINVAL);
    EXPECT_EQ(refusal("relative"), EINVAL);
    EXPECT_EQ(refusal(inner() + "/../inner/file"), EINVAL);
    EXPECT_EQ(refusal(inner() + "/missing"), ENOENT);
    EXPECT_EQ(refusal(file() + "/below"), ENOTDIR);
}

TEST_F(TrustedPath, NobodyElseMayWriteToTheFileOrAFolderAboveIt)
{
    for (const auto& path : {outer(), inner(), file()})
        for (const mode_t extra : {S_IWGRP, S_IWOTH}) {
            struct stat status{};
            ASSERT_EQ(stat(path.c_str(), &status), 0);
            ASSERT_EQ(chmod(path.c_str(), status.st_mode | extra), 0);
            EXPECT_EQ(refusal(file()), EPERM) << path;
            ASSERT_EQ(chmod(path.c_str(), status.st_mode), 0);
        }
    EXPECT_EQ(refusal(file()), 0);
}

TEST_F(TrustedPath, AFolderInWhichOthersCannotMoveTheFileMayBeOpenToThem)
{
    ASSERT_EQ(chmod(inner().c_str(), 01777), 0);
    EXPECT_EQ(refusal(file()), 0);
    EXPECT_EQ(refusal(inner()), EPERM) << "what others put into it is not trusted";
}

TEST_F(TrustedPath, NobodyElseMayOwnTheFileOrAFolderAboveIt)
{
    if (geteuid() != 0) GTEST_SKIP() << "only root can give a file away";
    for (const auto& path : {outer(), inner(), file()}) {
        ASSERT_EQ(chown(path.c_str(), kSomebody, 0), 0);
        EXPECT_EQ(refusal(file()), EPERM) << path;
        ASSERT_EQ(chown(path.c_str(), 0, 0), 0);
    }
    EXPECT_EQ(refusal(file()), 0);
}

TEST_F(TrustedPath, NoLinkIsFollowed)
{
    fs::create_symlink(file(), outer() + "/fileLink");
    fs::create_symlink(inner(), outer() + "/folderLink");
    EXPECT_EQ(refusal(outer() + "/fileLink"), ELOOP);
    EXPECT_EQ(refusal(outer() + "/folderLink"), ELOOP);
    EXPECT_EQ(refusal(outer() + "/folderLink/file"), ENOTDIR);
}

TEST_F(TrustedPath, EverybodyMayWriteToASocket)
{
    const UniqueFd listener(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const auto path = inner() + "/socket";
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    ASSERT_LT(path.size(), sizeof address.sun_path);
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    ASSERT_EQ(bind(listener.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    ASSERT_EQ(chmod(path.c_str(), 0666), 0);
    EXPECT_EQ(refusal(path), 0);
}

TEST_F(TrustedPath, ARefusalLeavesNothingOpen)
{
    ASSERT_EQ(chmod(inner().c_str(), 0777), 0);
    const auto before = pavo::test::openDescriptorCount();
    EXPECT_EQ(refusal(file()), EPERM);
    EXPECT_EQ(pavo::test::openDescriptorCount(), before);
}

}  // namespace
