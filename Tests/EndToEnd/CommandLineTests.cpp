// Bad input on the command line and through pipes: an error in words, an exit status that is not 0, and a
// camera that goes on.

#include "Tests/EndToEnd/WholeCamera.h"
#include "Tests/Support/ChildProcess.h"

#include <signal.h>
#include <sys/stat.h>

#include <fstream>

namespace pavo::test {
namespace {

constexpr int kFailure = 1;
constexpr int kWrongUsage = 2;

// A shell's command line, in which $PAVO is the program.
Ended run(const std::string& script)
{
    return runToItsEnd({"env", "PAVO=" + pavoProgram(), "sh", "-c", script});
}

void expectError(const std::string& script, int status, const std::string& sentence)
{
    const Ended ended = run(script);
    EXPECT_EQ(ended.status, status) << script;
    EXPECT_THAT(ended.output, testing::HasSubstr(sentence)) << script;
}

std::string fileOf(const TemporaryFolder& folder, const std::string& content)
{
    const std::string path = folder.path() + "/input";
    std::ofstream(path, std::ios::binary) << content;
    return path;
}

class PavoWithACamera : public WholeCamera {};

TEST_F(PavoWithACamera, SaysWhatIsWrongWithItsInputBeforeTheCameraHearsOfIt)
{
    const TemporaryFolder folder;
    const std::string path = fileOf(folder, "This is no picture.");
    expectError("exec $PAVO send --png " + path, kFailure, "pavo send: no picture in " + path + ": ");
    expectError("exec $PAVO send - <" + path, kFailure, "pavo send: standard input is not YUV4MPEG2");
    expectError("exec $PAVO send - </dev/null", kFailure, "pavo send: standard input is empty");
    expectError("exec $PAVO send --size 640", kWrongUsage, "a size is WIDTHxHEIGHT, as 1280x720, not '640'");
    expectError("exec $PAVO send --size 100000x480", kWrongUsage, "both sides of a size are from 1 to");
    EXPECT_EQ(camera().countWith("Received XPC connection"), 0U);
    PavoProcess client = watch();
    EXPECT_TRUE(seesPlaceholder(client));
}

TEST_F(PavoWithACamera, SaysWhereAnInputEndsThatEndsInsideOfAFrame)
{
    const TemporaryFolder folder;
    const std::string input = fileOf(folder, std::string(64 * 48 * 2 * 3 / 2, 'x'));
    const std::string script = "exec $PAVO send - --size 64x48 --format UYVY <" + input;
    const std::string error = "pavo send: the input ends inside of frame 1: 3072 of 6144 bytes";
    expectError(script, kFailure, error);
    // Also when somebody watches, so that the frame is not just skipped.
    PavoProcess client = watch();
    ASSERT_TRUE(seesPlaceholder(client));
    expectError(script, kFailure, error);
    EXPECT_TRUE(seesPlaceholder(client));
}

TEST_F(PavoWithACamera, SaysThatAPipeWasClosedInsideOfAFrame)
{
    PavoProcess client = watch();
    ASSERT_TRUE(seesPlaceholder(client));
    expectError("head -c 20000 /dev/zero | $PAVO send - --size 64x48 --format NV12", kFailure,
                "pavo send: the input ends inside of frame 4: 1568 of 4608 bytes");
    EXPECT_TRUE(seesPlaceholder(client));
}

TEST_F(PavoWithACamera, SaysThatTheReaderOfItsVideoHasGone)
{
    PavoProcess client = watch();
    ASSERT_TRUE(seesPlaceholder(client));
    for (const std::string kind : {"--raw", "--y4m"}) {
        // The shell says how the first command of the pipe ended.
        const Ended ended =
            run("{ $PAVO view " + kind + " - ; echo status $? >&2; } | head -c 100000 >/dev/null");
        EXPECT_THAT(ended.output, testing::HasSubstr("pavo view: the reader of the video has gone\n"));
        EXPECT_THAT(ended.output, testing::HasSubstr("status 1\n"));
    }
    EXPECT_TRUE(seesPlaceholder(client));
}

TEST_F(PavoWithACamera, SaysThatItCannotWriteItsPicture)
{
    expectError("exec $PAVO view --snapshot /nowhere/picture.png", kFailure,
                "pavo view: cannot write /nowhere/picture.png: No such file or directory");
}

}  // namespace
}  // namespace pavo::test
