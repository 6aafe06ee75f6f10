// What the commands say about themselves, and to those who use them wrongly.

#include "Tests/Tools/CommandRun.h"

#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>
#include <regex>
#include <set>
#include <string>
#include <vector>

namespace pavo::test {
namespace {

using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::SizeIs;
using testing::StartsWith;
using Words = std::vector<std::string>;

constexpr int kFailure = 1, kWrongUsage = 2;

std::string join(const Words& words)
{
    std::string text;
    for (const auto& word : words)
        text += " " + word;
    return text;
}

struct Mistake {
    Words arguments;
    std::string message;  // part of the one line that says what is wrong
};

class CommandLine : public CommandTest {
protected:
    // Each of them is answered with one line, of the command's own, and an exit code that says so.
    void expectMistakes(const std::string& command, const std::vector<Mistake>& mistakes) const
    {
        for (const auto& [arguments, message] : mistakes) {
            SCOPED_TRACE("pavo" + join(arguments));
            const auto result = run(arguments);
            EXPECT_EQ(result.exitCode, kWrongUsage);
            EXPECT_EQ(result.out, "");
            EXPECT_THAT(result.errorLines(), SizeIs(1));
            EXPECT_THAT(result.err, AllOf(StartsWith(command + ": "), HasSubstr(message)));
            EXPECT_LT(result.err.size(), 200U);
        }
    }
    void expectOptions(const Words& command, const std::set<std::string>& options) const
    {
        auto arguments = command;
        arguments.emplace_back("--help");
        const auto help = run(arguments);
        EXPECT_EQ(help.exitCode, 0);
        EXPECT_EQ(help.err, "");
        static const std::regex entry(R"(^  (?:-h,)?(--[a-z0-9]+)(?: [A-Z]+)? +([A-Z].*)$)");
        std::set<std::string> explained;
        std::istringstream lines(help.out);
        for (std::string line; std::getline(lines, line);) {
            std::smatch match;
            if (std::regex_match(line, match, entry)) explained.insert(match[1]);
            EXPECT_LE(line.size(), 110U) << line;
        }
        auto expected = options;
        expected.insert("--help");
        EXPECT_EQ(explained, expected) << help.out;
    }
};

TEST_F(CommandLine, HelpOfEachCommandExplainsEachOption)
{
    expectOptions({}, {"--version"});
    expectOptions({"camera"}, {"--bundle", "--json"});
    expectOptions({"send"}, {"--png", "--size", "--format", "--matrix", "--fps", "--frames", "--json"});
    expectOptions({"view"}, {"--snapshot", "--after", "--every", "--out", "--raw", "--y4m", "--format",
                             "--frames", "--seconds", "--wait", "--camera", "--remote", "--json", "--trace"});
    expectOptions({"preview"},
                  {"--http", "--port", "--size", "--fps", "--graphics", "--camera", "--remote", "--json"});
    expectOptions({"status"}, {"--json", "--watch"});
    expectOptions({"demo"}, {"--sheet", "--phase", "--pipewire"});
    expectOptions({"doctor"}, {"--json", "--list"});
}

TEST_F(CommandLine, HelpNamesTheCommands)
{
    const auto help = run({"--help"});
    for (const char* command :
         {"  camera ", "  send ", "  view ", "  preview ", "  status ", "  demo ", "  doctor "})
        EXPECT_THAT(help.out, HasSubstr(command));
}

TEST_F(CommandLine, VersionIsOneLine)
{
    const auto version = run({"--version"});
    EXPECT_EQ(version.exitCode, 0);
    EXPECT_TRUE(std::regex_match(version.out, std::regex("pavo [0-9]+\\.[0-9]+\\.[0-9]+\n"))) << version.out;
}

TEST_F(CommandLine, CommandThatIsMissingOrUnknownIsAMistake)
{
    expectMistakes("pavo", {{{}, "a command is missing: camera, send, view, preview, status, demo or doctor"},
                            {{"film"}, "there is no command 'film': camera, send, view, preview, status"},
                            {{"--film"}, "there is no command '--film'"}});
}

TEST_F(CommandLine, SendRefusesBadValues)
{
    expectMistakes(
        "pavo send",
        {{{"send", "--size", "12"}, "--size: a size is WIDTHxHEIGHT, as 1280x720, not '12'"},
         {{"send", "--size", "0x5"}, "--size: both sides of a size are from 1 to 16384, unlike in '0x5'"},
         {{"send", "--size", "16385x1"}, "from 1 to 16384"},
         {{"send", "--fps", "0"}, "--fps: a frame rate is a number above 0 and at most 1000"},
         {{"send", "--fps", "fast"}, "not 'fast'"},
         {{"send", "-", "--size", "2x2", "--format", "RGB"},
          "--format: a format is UYVY, YUY2, NV12, I420 or BGRA"},
         {{"send", "-", "--matrix", "bt2020"}, "--matrix: a matrix is auto, bt601 or bt709, not 'bt2020'"},
         {{"send", "--frames", "0"}, "--frames: a count is a whole number from 1, not '0'"},
         {{"send", "--frames", "-1"}, "not '-1'"},
         {{"send", "--frames", "99999999999999999999"}, "not '99999999999999999999'"},
         {{"send", "--png", ""}, "--png: the name is empty"},
         {{"send", "--size"}, "--size: 1 required"}});
}

TEST_F(CommandLine, SendRefusesWhatDoesNotGoTogether)
{
    expectMistakes(
        "pavo send",
        {{{"send", "clip.mp4"}, "the input is - for standard input, not 'clip.mp4'"},
         {{"send", "-", "--png", "a.png"}, "send either --png or standard input"},
         {{"send", "--png", "a.png", "--size", "2x2"}, "a PNG has its own size"},
         {{"send", "--format", "UYVY"}, "--format describes raw video on standard input"},
         {{"send", "-", "--size", "2x2"}, "raw video needs both --size and --format"},
         {{"send", "-", "--format", "UYVY"}, "raw video needs both --size and --format"},
         {{"send", "--matrix", "auto"}, "--matrix describes video on standard input"},
         {{"send", "-", "--size", "2x2", "--format", "bgra", "--matrix", "bt709"}, "BGRA has no matrix"},
         {{"send", "-", "more"}, "not expected: more"},
         {{"send", "--loud"}, "not expected: --loud"}});
}

TEST_F(CommandLine, ViewRefusesBadValues)
{
    expectMistakes(
        "pavo view",
        {{{"view", "--frames", "0"}, "--frames: a count is a whole number from 1, not '0'"},
         {{"view", "--seconds", "0"}, "--seconds: a time is a number of seconds above 0"},
         {{"view", "--seconds", "nan"}, "not 'nan'"},
         {{"view", "--seconds", "1e300"}, "not '1e300'"},
         {{"view", "--wait", "-1"}, "--wait: a time is a number of seconds from 0, as 2.5, not '-1'"},
         {{"view", "--wait", "soon"}, "not 'soon'"},
         {{"view", "--after", "inf"}, "--after: a time"},
         {{"view", "--every", "0"}, "--every: a time"},
         {{"view", "--format", "RGB"}, "--format: a format is YUY2, UYVY, NV12 or BGRx, not 'RGB'"},
         {{"view", "--every", "1", "--out", "shot.png"}, "--out: a file name for several pictures"},
         {{"view", "--snapshot", ""}, "--snapshot: the name is empty"},
         {{"view", "--camera", ""}, "--camera: the name is empty"},
         {{"view", "--remote", ""}, "--remote: the name is empty"}});
}

TEST_F(CommandLine, ViewRefusesWhatDoesNotGoTogether)
{
    expectMistakes("pavo view",
                   {{{"view", "--raw", "a", "--y4m", "b"}, "write either --raw or --y4m"},
                    {{"view", "--json", "--raw", "-"}, "--json and video cannot both go to standard output"},
                    {{"view", "--json", "--y4m", "-"}, "--json and video cannot both go to standard output"},
                    {{"view", "--every", "1"}, "--every needs --out"},
                    {{"view", "--out", "a-%d.png"}, "--out needs --every"},
                    {{"view", "--after", "1"}, "--after needs --snapshot"},
                    {{"view", "--trace"}, "--trace needs --json"},
                    {{"view", "more"}, "not expected: more"},
                    {{"view", "--loud"}, "not expected: --loud"}});
}

TEST_F(CommandLine, OtherCommandsRefuseBadValues)
{
    expectMistakes("pavo camera", {{{"camera", "more"}, "not expected: more"},
                                   {{"camera", "--loud"}, "not expected: --loud"},
                                   {{"camera", "--bundle", ""}, "--bundle: the name is empty"}});
    expectMistakes("pavo status",
                   {{{"status", "more"}, "not expected: more"},
                    {{"status", "--loud"}, "not expected: --loud"},
                    {{"status", "--watch"},
                     "--watch needs a terminal; with --json it writes one line a second anywhere"}});
    expectMistakes("pavo demo",
                   {{{"demo", "--loud"}, "not expected: --loud"},
                    {{"demo", "--phase", "1"}, "--phase: a phase takes from 2 to 15 seconds, not '1'"},
                    {{"demo", "--phase", "long"}, "not 'long'"},
                    {{"demo", "--pipewire", "mine"},
                     "--pipewire: a PipeWire is auto, running, private or embedded, not 'mine'"},
                    {{"demo", "--sheet", ""}, "--sheet: the name is empty"}});
    expectMistakes("pavo doctor", {{{"doctor", "more"}, "not expected: more"}});
}

struct BadInput {
    Words options;
    std::string content;
    std::string message;
};

TEST_F(CommandLine, InputThatIsNoVideoIsAFailureBeforeTheCameraIsLookedFor)
{
    const std::vector<BadInput> inputs = {
        {{}, "", "standard input is empty"},
        {{}, "GIF89a", "standard input is not YUV4MPEG2; raw video needs --size and --format"},
        {{}, "YUV4MPEG2 W2 H2", "the YUV4MPEG2 header has no end"},
        {{}, "YUV4MPEG2 W2\n", "the YUV4MPEG2 header does not say the size"},
        {{}, "YUV4MPEG2 W99999 H2\n", "the YUV4MPEG2 header has a bad parameter: W99999"},
        {{}, "YUV4MPEG2 W2 H2 C444\n", "YUV4MPEG2 with colour space 444 is not supported"}};
    for (const auto& [options, content, message] : inputs) {
        SCOPED_TRACE(content);
        std::ofstream(path("input")) << content;
        const auto result = run({"send", "-"}, path("input"));
        EXPECT_EQ(result.exitCode, kFailure);
        EXPECT_THAT(result.errorLines(), SizeIs(1));
        EXPECT_THAT(result.err, StartsWith("pavo send: " + message));
    }
}

TEST_F(CommandLine, FilesThatCannotBeUsedAreNamed)
{
    const auto missing = run({"send", "--png", path("none.png")});
    EXPECT_EQ(missing.exitCode, kFailure);
    EXPECT_EQ(missing.err, "pavo send: cannot open " + path("none.png") + ": No such file or directory\n");

    std::ofstream(path("text.png")) << "no picture";
    const auto broken = run({"send", "--png", path("text.png")});
    EXPECT_EQ(broken.exitCode, kFailure);
    EXPECT_THAT(broken.err, StartsWith("pavo send: no picture in " + path("text.png") + ": "));

    const auto video = run({"view", "--y4m", path("no/folder")});
    EXPECT_EQ(video.exitCode, kFailure);
    EXPECT_EQ(video.err, "pavo view: cannot write " + path("no/folder") + ": No such file or directory\n");

    const auto bundle = run({"camera", "--bundle", path("none.bundle")});
    EXPECT_EQ(bundle.exitCode, kFailure);
    EXPECT_THAT(bundle.errorLines(), SizeIs(1));
    EXPECT_THAT(bundle.err, HasSubstr("cannot load the bundle " + path("none.bundle")));
}

TEST_F(CommandLine, StatusSaysThatThereIsNoCamera)
{
    for (const auto& options : {Words{"status"}, {"status", "--json"}, {"status", "--json", "--watch"}}) {
        const auto result = run(options);
        EXPECT_EQ(result.exitCode, kFailure);
        EXPECT_EQ(result.out, "");
        EXPECT_EQ(result.err, "pavo status: no camera is running; \"pavo camera\" starts one\n");
    }
}

TEST_F(CommandLine, CameraSaysThatNobodyCouldFindIt)
{
    // A file where the folder should be, which stops even root.
    const std::string file = path("file");
    std::ofstream(file) << "no folder";
    ::setenv("PAVO_BOOTSTRAP_DIR", file.c_str(), 1);
    const auto result = run({"camera"});
    EXPECT_EQ(result.exitCode, kFailure);
    EXPECT_THAT(result.err, HasSubstr("pavo camera: no program could find this camera: the folder for its "
                                      "sockets cannot be made or used, PAVO_BOOTSTRAP_DIR is " +
                                      file + "\n"));
}

TEST_F(CommandLine, PreviewRefusesBadValues)
{
    expectMistakes("pavo preview",
                   {{{"preview", "--http", "--port", "65536"},
                     "--port: a port is a whole number from 0 to 65535, not '65536'"},
                    {{"preview", "--http", "--port", "-1"}, "not '-1'"},
                    {{"preview", "--http", "--port", "http"}, "not 'http'"},
                    {{"preview", "--http", "--port", ""}, "not ''"},
                    {{"preview", "--http", "--size", "big"}, "--size: a size is WIDTHxHEIGHT"},
                    {{"preview", "--fps", "0"}, "--fps: a frame rate"},
                    {{"preview", "--graphics", "ascii"},
                     "--graphics: graphics are auto, symbols, sixels or kitty, not 'ascii'"},
                    {{"preview", "--camera", ""}, "--camera: the name is empty"},
                    {{"preview", "--remote", ""}, "--remote: the name is empty"}});
}

TEST_F(CommandLine, PreviewRefusesWhatDoesNotGoTogether)
{
    expectMistakes("pavo preview",
                   {{{"preview", "--port", "8000"}, "--port needs --http"},
                    {{"preview", "--size", "640x360"}, "--size needs --http"},
                    {{"preview", "--json"}, "--json needs --http"},
                    {{"preview", "--http", "--graphics", "sixels"}, "--graphics is for the terminal"},
                    {{"preview", "8000"}, "not expected: 8000"},
                    {{"preview", "--loud"}, "not expected: --loud"}});
}

TEST_F(CommandLine, PreviewNeedsATerminalThatShowsPictures)
{
    const auto file = run({"preview"});
    EXPECT_EQ(file.exitCode, kFailure);
    EXPECT_EQ(file.out, "");
    EXPECT_EQ(file.err, "pavo preview: standard output is no terminal; \"pavo preview --http\" shows the "
                        "camera in a browser\n");
}

TEST_F(CommandLine, ViewSaysThatThereIsNoPipeWire)
{
    const auto none = run({"view", "--wait", "0"});
    EXPECT_EQ(none.exitCode, kFailure);
    EXPECT_THAT(none.errorLines(), SizeIs(1));
    EXPECT_THAT(none.err, StartsWith("pavo view: no PipeWire answers: "));
    const auto named = run({"view", "--wait", "0", "--remote", "pavo-7"});
    EXPECT_THAT(named.err, StartsWith("pavo view: no PipeWire named pavo-7 answers: "));
}

TEST_F(CommandLine, SaysThatTheCamerasOwnProgramIsMissing)
{
    namespace fs = std::filesystem;
    const fs::path pavo = PAVO_PROGRAM;
    fs::copy_file(pavo, path("pavo"));
    fs::create_directory_symlink(pavo.parent_path() / "CMIOExtensionSupport.bundle",
                                 path("CMIOExtensionSupport.bundle"));
    // Standard error, too.
    ChildProcess camera({"sh", "-c", "exec \"$0\" camera --json 2>&1", path("pavo")}, path("said"));
    EXPECT_EQ(camera.waitForExit(std::chrono::seconds(30)), kFailure);
    std::ifstream said(path("said"));
    std::string line;
    ASSERT_TRUE(std::getline(said, line));
    EXPECT_EQ(line, "pavo camera: cannot start " + path("pavo-camera") + ": No such file or directory");
    EXPECT_FALSE(std::getline(said, line));
}

}  // namespace
}  // namespace pavo::test
