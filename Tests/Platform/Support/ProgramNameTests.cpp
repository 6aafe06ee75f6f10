#include "Platform/Support/linux/ProgramName.h"
#include "Tests/Support/ChildProcess.h"
#include "Tests/Support/Descriptors.h"
#include "Tests/Support/Wait.h"

#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <limits>
#include <string>

namespace pavo::test {
namespace {

TEST(ProgramName, IsTheNameOfItsFileHoweverLong)
{
    const TemporaryFolder folder;
    const std::string name = "a program with a long name";
    std::filesystem::copy_file("/bin/sleep", folder.path() + "/" + name);
    const ChildProcess process({folder.path() + "/" + name, "100"});
    EXPECT_TRUE(waitFor([&] { return programName(process.pid()) == name; })) << programName(process.pid());
}

TEST(ProgramName, StaysWhenTheFileIsReplaced)
{
    const TemporaryFolder folder;
    const std::string path = folder.path() + "/updated";
    std::filesystem::copy_file("/bin/sleep", path);
    const ChildProcess process({path, "100"});
    ASSERT_TRUE(waitFor([&] { return programName(process.pid()) == "updated"; }));
    std::filesystem::remove(path);
    EXPECT_EQ(programName(process.pid()), "updated");
}

TEST(ProgramName, IsTheKernelsNameWhereTheFileIsNotToBeSeen)
{
    // A process that has ended and was not waited for has no file any more.
    const pid_t process = ::fork();
    if (process == 0) {
        ::prctl(PR_SET_NAME, "ended program");
        ::_exit(0);
    }
    siginfo_t ended{};
    ASSERT_EQ(::waitid(P_PID, static_cast<id_t>(process), &ended, WEXITED | WNOWAIT), 0);
    EXPECT_EQ(programName(process), "ended program");
    EXPECT_EQ(::waitpid(process, nullptr, 0), process);
}

TEST(ProgramName, IsEmptyWhereThereIsNoProcess)
{
    EXPECT_EQ(programName(std::numeric_limits<pid_t>::max()), "");
    EXPECT_EQ(programName(-1), "");
}

}  // namespace
}  // namespace pavo::test
