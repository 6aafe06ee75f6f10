// Live previews of a whole camera: what the page's addresses give, and what appears on a terminal.

#include "Tests/Support/PseudoTerminal.h"
#include "Tests/Support/Wait.h"
#include "Tests/Tools/HttpClient.h"
#include "Tests/Tools/PreviewFixture.h"
#include "Tools/TestPattern.h"

#include <gmock/gmock.h>

#include <signal.h>
#include <stdlib.h>
#include <turbojpeg.h>

#include <memory>
#include <regex>
#include <set>
#include <string>
#include <vector>

namespace pavo::test {
namespace {

using nlohmann::json;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::SizeIs;
using testing::StartsWith;

struct Picture {
    int width = 0;
    int height = 0;
    std::vector<std::uint8_t> grey;

    std::optional<std::uint32_t> counter() const
    {
        return tools::readCounter(static_cast<std::uint32_t>(width), static_cast<std::uint32_t>(height),
                                  [this](std::uint32_t x, std::uint32_t y) -> int {
                                      return grey[std::size_t{y} * static_cast<unsigned>(width) + x];
                                  });
    }
};

// The pictures of /picture.mjpeg, one after the other.
class PictureReader {
public:
    explicit PictureReader(std::uint16_t port) : connection_(port)
    {
        connection_.send("GET /picture.mjpeg HTTP/1.0\r\nHost: localhost\r\n\r\n");
    }
    // Without a size where none comes.
    Picture next()
    {
        const std::string mark = "Content-Length: ";
        const auto isThere = [&](std::size_t bytes) {
            while (text_.size() < bytes) {
                const auto more = connection_.readUntil([](const std::string& all) { return !all.empty(); });
                if (more.empty()) return false;
                text_ += more;
            }
            return true;
        };
        std::size_t begin = std::string::npos;
        while ((begin = text_.find(mark)) == std::string::npos ||
               text_.find("\r\n\r\n", begin) == std::string::npos)
            if (!isThere(text_.size() + 1)) return {};
        const std::size_t size = std::strtoul(text_.c_str() + begin + mark.size(), nullptr, 10);
        begin = text_.find("\r\n\r\n", begin) + 4;
        if (!isThere(begin + size)) return {};
        const Picture picture = decode(text_.substr(begin, size));
        text_.erase(0, begin + size);
        return picture;
    }

private:
    static Picture decode(const std::string& jpeg)
    {
        Picture picture;
        const auto* bytes = reinterpret_cast<const unsigned char*>(jpeg.data());
        tjhandle decoder = ::tjInitDecompress();
        int subsampling = 0, colorspace = 0;
        if (::tjDecompressHeader3(decoder, bytes, jpeg.size(), &picture.width, &picture.height, &subsampling,
                                  &colorspace) == 0) {
            picture.grey.resize(static_cast<std::size_t>(picture.width) *
                                static_cast<std::size_t>(picture.height));
            EXPECT_EQ(::tjDecompress2(decoder, bytes, jpeg.size(), picture.grey.data(), picture.width, 0,
                                      picture.height, TJPF_GRAY, 0),
                      0);
        }
        ::tjDestroy(decoder);
        return picture;
    }

    HttpConnection connection_;
    std::string text_;
};

class PreviewPage : public PreviewTest {};

TEST_F(PreviewPage, ShowsTheMovingPictureAndLetsTheCameraSleepOtherwise)
{
    startCamera();
    startProducer();
    const auto port = startPage();
    ASSERT_NE(port, 0);
    EXPECT_EQ(previewStatus(port)["watching"], false);
    EXPECT_THAT(readFile(path("send.out")), Not(HasSubstr("watcherAdded")));
    {
        PictureReader reader(port);
        std::set<std::uint32_t> counters;
        for (int i = 0; i < 300 && counters.size() < 5; ++i) {
            const auto picture = reader.next();
            ASSERT_EQ(picture.width, 960);
            ASSERT_EQ(picture.height, 540);
            if (const auto counter = picture.counter()) counters.insert(*counter);
        }
        EXPECT_GE(counters.size(), 5U) << "the pattern moves";
        ASSERT_TRUE(waitForText("send.out", "watcherAdded"));
        EXPECT_THAT(readFile(path("send.out")), HasSubstr("\"pid\":" + std::to_string(page_.pid())));
        const auto status = previewStatus(port);
        EXPECT_EQ(status["watching"], true);
        EXPECT_EQ(status["viewers"], 1);
        EXPECT_EQ(status["pid"], page_.pid());
        EXPECT_EQ(status["format"]["width"], 1920);
        EXPECT_TRUE(status["problem"].is_null());
    }
    EXPECT_TRUE(waitForText("send.out", "watcherRemoved")) << "nobody watches, so the camera may sleep";
    EXPECT_TRUE(waitFor([&] { return previewStatus(port)["watching"] == false; }, kDeadline));
}

TEST_F(PreviewPage, SaysThatThereIsNoCameraAndFindsOneThatComes)
{
    const auto port = startPage();
    ASSERT_NE(port, 0);
    EXPECT_EQ(ask(port, "GET", "/").status, 200);
    PictureReader reader(port);
    EXPECT_TRUE(waitFor([&] { return previewStatus(port)["problem"].is_string(); }, kDeadline));
    EXPECT_THAT(previewStatus(port)["problem"].get<std::string>(), StartsWith("no PipeWire answers: "));
    const auto camera = [&] { return json::parse(ask(port, "GET", "/status.json").body)["camera"]; };
    const auto problem = [&] { return json::parse(ask(port, "GET", "/status.json").body)["problem"]; };
    EXPECT_TRUE(waitFor([&] { return problem().is_string(); }, kDeadline));
    EXPECT_THAT(problem().get<std::string>(), HasSubstr("no camera is running"));

    startCamera();
    // Who no longer reads would not stay a viewer.
    const auto isSoon = [&](const auto& condition) {
        return waitFor([&] { return reader.next().width == 960 && condition(); }, kDeadline);
    };
    EXPECT_TRUE(isSoon([&] { return camera().is_object() && camera()["clients"].size() == 1; }));
    EXPECT_EQ(camera()["pid"], camera_.pid());
    EXPECT_EQ(camera()["state"], "placeholder");
    EXPECT_EQ(camera()["clients"][0]["pid"], page_.pid());

    camera_.signal(SIGKILL);
    EXPECT_TRUE(waitFor([&] { return previewStatus(port)["watching"] == false; }, kDeadline));
    camera_.waitForExit(kDeadline);
    const auto before = previewStatus(port)["pictures"].get<std::uint64_t>();
    startCamera("second");
    EXPECT_TRUE(isSoon([&] { return previewStatus(port)["pictures"] > before + 5; }))
        << "the same viewer goes on with the next camera";
}

TEST_F(PreviewPage, HasThePictureAsLargeAndAsOftenAsItIsAskedFor)
{
    startCamera();
    const auto port = startPage({"--size", "200x200", "--fps", "5"});
    ASSERT_NE(port, 0);
    PictureReader reader(port);
    const auto first = reader.next();
    EXPECT_EQ(first.width, 200);
    EXPECT_EQ(first.height, 113);
    const auto since = std::chrono::steady_clock::now();
    for (int i = 0; i < 6; ++i)
        reader.next();
    EXPECT_GT(std::chrono::steady_clock::now() - since, std::chrono::milliseconds(800));
}

TEST_F(PreviewPage, EndsCleanlyThoughSomebodyWatches)
{
    startCamera();
    const auto port = startPage();
    ASSERT_NE(port, 0);
    PictureReader reader(port);
    EXPECT_EQ(reader.next().width, 960);
    page_.signal(SIGINT);
    const auto result = resultOf("page", page_);
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_THAT(result.events(), SizeIs(1));
    EXPECT_EQ(result.events()[0]["event"], "serving");
    EXPECT_EQ(result.err, "");
    // The same port at once, though the last connections are fresh, and then not a second time.
    page_ = start("again", {"preview", "--http", "--port", std::to_string(port)});
    EXPECT_TRUE(waitForText("again.err", "http://localhost:" + std::to_string(port) + "/"))
        << readFile(path("again.err"));
    const auto third = run({"preview", "--http", "--port", std::to_string(port)});
    EXPECT_EQ(third.exitCode, 1);
    EXPECT_EQ(third.err, "pavo preview: port " + std::to_string(port) +
                             " is in use by another program; --port names another one, 0 any free one\n");
}

class PreviewOnTerminal : public PreviewTest {
protected:
    PreviewOnTerminal()
    {
        ::setenv("TERM", "xterm-256color", 1);
        ::setenv("COLORTERM", "truecolor", 1);
        for (const char* name : {"TERM_PROGRAM", "KITTY_PID", "VTE_VERSION", "TMUX", "STY"})
            ::unsetenv(name);
    }
    static std::unique_ptr<PseudoTerminal> openPreview(unsigned short columns = 80, unsigned short rows = 24)
    {
        return std::make_unique<PseudoTerminal>(kPreview, columns, rows);
    }
    // The updates of the whole screen that have pictures.
    static std::set<std::string> picturesIn(const std::string& output)
    {
        std::set<std::string> pictures;
        const std::string begin = "\x1b[?2026h", end = "\x1b[?2026l";
        for (std::size_t at = output.find(begin); at != std::string::npos; at = output.find(begin, at + 1)) {
            const auto last = output.find(end, at);
            const auto update = output.substr(at, last - at);
            if (last != std::string::npos && update.find("\x1b[38;2;") != std::string::npos)
                pictures.insert(update.substr(0, update.rfind("\x1b[0;7m")));  // without the status
        }
        return pictures;
    }
    static void expectRestored(const PseudoTerminal& terminal)
    {
        EXPECT_THAT(terminal.output(), HasSubstr(kBegin));
        EXPECT_THAT(terminal.output(), EndsWith(kEnd));
        EXPECT_TRUE(terminal.isRestored());
    }

    inline static const std::vector<std::string> kPreview = {PAVO_PROGRAM, "preview", "--graphics",
                                                             "symbols"};
    static constexpr const char* kBegin = "\x1b[?1049h\x1b[?25l";
    static constexpr const char* kEnd = "\x1b[0m\x1b[?25h\x1b[?1049l";
};

TEST_F(PreviewOnTerminal, ShowsTheMovingPictureAndRestoresTheTerminal)
{
    startCamera();
    startProducer();
    auto terminal = openPreview();
    EXPECT_TRUE(terminal->readUntil([](const std::string& all) { return picturesIn(all).size() >= 5; }));
    EXPECT_TRUE(terminal->readUntilText("1920x1080 "));
    EXPECT_TRUE(terminal->readUntilText("| live: pavo (" + std::to_string(producer_.pid()) + ")"));
    EXPECT_EQ(terminal->mode().c_lflag & static_cast<tcflag_t>(ECHO | ICANON), 0U);
    terminal->type("\x03");
    EXPECT_EQ(terminal->waitForExit(), 0);
    expectRestored(*terminal);
}

TEST_F(PreviewOnTerminal, EndsWithQAndWithASignal)
{
    for (const bool isKey : {true, false}) {
        auto terminal = openPreview();
        EXPECT_TRUE(terminal->readUntilText("\x1b[?25l"));
        if (isKey)
            terminal->type("xq");
        else
            ::kill(terminal->pid(), SIGTERM);
        EXPECT_EQ(terminal->waitForExit(), 0);
        expectRestored(*terminal);
    }
}

TEST_F(PreviewOnTerminal, FitsTheWindowWhenItChanges)
{
    startCamera();
    auto terminal = openPreview(80, 24);
    EXPECT_TRUE(terminal->readUntilText("placeholder"));
    EXPECT_TRUE(terminal->readUntilText("\x1b[24;1H\x1b[0;7m")) << "the status is on the last line";
    terminal->resize(40, 12);
    EXPECT_TRUE(terminal->readUntilText("\x1b[12;1H\x1b[0;7m"));
    terminal->forget();
    EXPECT_TRUE(terminal->readUntil([](const std::string& all) { return !picturesIn(all).empty(); }));
    static const std::regex place(R"(\x1b\[([0-9]+);([0-9]+)H)");
    for (std::sregex_iterator each(terminal->output().begin(), terminal->output().end(), place), end;
         each != end; ++each) {
        EXPECT_LE(std::stoi((*each)[1]), 12);
        EXPECT_LE(std::stoi((*each)[2]), 40);
    }
    terminal->resize(1, 1);
    terminal->resize(5, 2);
    terminal->resize(200, 50);
    EXPECT_TRUE(terminal->readUntilText("\x1b[50;1H\x1b[0;7m"));
    terminal->type("q");
    EXPECT_EQ(terminal->waitForExit(), 0);
}

TEST_F(PreviewOnTerminal, SaysThatThereIsNoCameraAndFindsOneThatComes)
{
    auto terminal = openPreview();
    EXPECT_TRUE(terminal->readUntilText("The camera is not running"));
    EXPECT_TRUE(terminal->readUntilText("Start it with: pavo camera"));
    EXPECT_TRUE(terminal->readUntilText("no PipeWire answers: "));
    startCamera();
    EXPECT_TRUE(terminal->readUntil([](const std::string& all) { return !picturesIn(all).empty(); }));
    camera_.signal(SIGKILL);
    terminal->forget();
    EXPECT_TRUE(terminal->readUntilText("The camera is not running"));
    terminal->type("\x03");
    EXPECT_EQ(terminal->waitForExit(), 0);
}

TEST_F(PreviewOnTerminal, EndsThoughTheTerminalTakesNothing)
{
    startCamera();
    startProducer();
    auto terminal = openPreview(200, 60);
    EXPECT_TRUE(terminal->readUntil([](const std::string& all) { return !picturesIn(all).empty(); }));
    // Stopped as with Ctrl-S: the program cannot write, and nobody reads.
    terminal->type("\x13");
    ::kill(terminal->pid(), SIGINT);
    EXPECT_EQ(terminal->waitForExitUnread(), 0);
}

TEST_F(PreviewOnTerminal, LeavesTheTerminalToTheShellWhileItIsStopped)
{
    startCamera();
    startProducer();
    PseudoTerminal terminal(underShell(kPreview));
    const auto isMoving = [](const std::string& all) { return picturesIn(all).size() >= 2; };
    ASSERT_TRUE(terminal.readUntil(isMoving));
    terminal.type("\x1a");
    ASSERT_TRUE(terminal.readUntilText("given back"));
    EXPECT_THAT(terminal.output(), HasSubstr(kEnd));
    EXPECT_TRUE(terminal.isRestored());
    terminal.forget();
    terminal.type("\n");
    ASSERT_TRUE(terminal.readUntil(isMoving));
    EXPECT_FALSE(terminal.isRestored());
    terminal.type("q");
    EXPECT_EQ(terminal.waitForExit(), 0);
    expectRestored(terminal);
}

// As in a window that has no shell.
TEST_F(PreviewOnTerminal, IsNotStoppedWhereNobodyCanLetItGoOn)
{
    const auto terminal = openPreview();
    ASSERT_TRUE(terminal->readUntilText("Start it with: pavo camera"));
    terminal->forget();
    terminal->type("\x1a");
    ASSERT_TRUE(terminal->readUntilText("Start it with: pavo camera")) << "drawn afresh";
    EXPECT_THAT(terminal->output(), HasSubstr(std::string(kEnd) + kBegin));
    terminal->type("q");
    EXPECT_EQ(terminal->waitForExit(), 0);
    expectRestored(*terminal);
}

TEST_F(PreviewOnTerminal, DrawsOnATerminalThatItMayNotOpen)
{
    PseudoTerminal terminal(kPreview, 80, 24, PseudoTerminal::Access::asGiven);
    EXPECT_TRUE(terminal.readUntilText("The camera is not running"));
    terminal.type("q");
    EXPECT_EQ(terminal.waitForExit(), 0);
    expectRestored(terminal);
}

TEST_F(PreviewOnTerminal, RefusesATerminalWithoutPictures)
{
    ::setenv("TERM", "dumb", 1);
    auto terminal = openPreview();
    EXPECT_EQ(terminal->waitForExit(), 1);
    EXPECT_EQ(terminal->output(), "pavo preview: the terminal can show no pictures: TERM is 'dumb'\r\n");
}

}  // namespace
}  // namespace pavo::test
