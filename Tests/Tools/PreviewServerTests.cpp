// The preview's web server, as browsers, curious web sites and broken clients meet it.

#include "Tools/PreviewServer.h"

#include "Tests/Support/Descriptors.h"
#include "Tests/Support/Wait.h"
#include "Tests/Tools/HttpClient.h"
#include "Tools/PreviewFiles.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <deque>
#include <fstream>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

namespace pavo::tools {
namespace {

using test::ask;
using test::HttpConnection;
using test::waitFor;
using testing::HasSubstr;
using testing::Not;

constexpr std::chrono::seconds kDeadline(60);
constexpr std::chrono::seconds kLittlePatience(1);

std::vector<std::uint8_t> bytesOf(const std::string& text)
{
    return {text.begin(), text.end()};
}

class PreviewServerTest : public testing::Test {
protected:
    explicit PreviewServerTest(std::chrono::seconds patience = kDeadline)
    {
        auto started = PreviewServer::start(
            0, feed_, [] { return nlohmann::json{{"camera", nullptr}, {"note", "\xFF"}}; }, patience);
        if (started) server_ = std::move(started.value());
    }
    void SetUp() override { ASSERT_NE(server_, nullptr); }

    std::uint16_t port() const { return server_->port(); }
    // Sends a picture's request, and no more. HTTP/1.0 has the picture as it is, not in chunks.
    HttpConnection watch(int receiveBufferBytes = 0) const
    {
        HttpConnection viewer(port(), receiveBufferBytes);
        viewer.send("GET /picture.mjpeg HTTP/1.0\r\nHost: localhost\r\n\r\n");
        return viewer;
    }
    bool waitForViewers(std::size_t count) const
    {
        return waitFor([&] { return feed_.viewers() == count; }, kDeadline);
    }
    static std::string readThrough(HttpConnection& viewer, const std::string& text)
    {
        return viewer.readUntil(
            [&text](const std::string& all) { return all.find(text) != std::string::npos; });
    }

    PictureFeed feed_;
    std::unique_ptr<PreviewServer> server_;
};

// Gives up connections soon.
class ImpatientPreviewServer : public PreviewServerTest {
protected:
    ImpatientPreviewServer() : PreviewServerTest(kLittlePatience) {}
};

TEST_F(PreviewServerTest, ServesThePageWithItsStyleAndScript)
{
    for (const auto& file : kPreviewFiles) {
        const auto answer = ask(port(), "GET", std::string(file.url));
        EXPECT_EQ(answer.status, 200) << file.url;
        EXPECT_EQ(answer.body, file.content);
        EXPECT_EQ(answer.header("Content-Type"), file.type);
        EXPECT_THAT(answer.header("Content-Security-Policy"), HasSubstr("default-src 'none'"));
        EXPECT_THAT(answer.header("Content-Security-Policy"), Not(HasSubstr("unsafe")));
        EXPECT_EQ(answer.header("Cross-Origin-Resource-Policy"), "same-origin");
        EXPECT_EQ(answer.header("X-Content-Type-Options"), "nosniff");
        EXPECT_EQ(answer.header("Cache-Control"), "no-store");
        EXPECT_THAT(answer.head, Not(HasSubstr("Access-Control-")));
    }
}

TEST_F(PreviewServerTest, ThePageNeedsNothingFromElsewhere)
{
    const std::string page = ask(port(), "GET", "/").body;
    static const std::regex reference(R"re((?:src|href)="([^"]*)")re");
    std::set<std::string> places;
    for (std::sregex_iterator each(page.begin(), page.end(), reference), end; each != end; ++each)
        places.insert((*each)[1].str().substr(0, (*each)[1].str().find(',')));
    EXPECT_EQ(places,
              (std::set<std::string>{"/preview.css", "/preview.js", "/picture.mjpeg", "data:image/svg+xml"}));
    // The policy forbids them, so they would not work.
    EXPECT_FALSE(std::regex_search(page, std::regex(R"(<style|\sstyle=|\son[a-z]+=|<script>)")));
}

TEST_F(PreviewServerTest, SaysHowTheCameraIs)
{
    const auto answer = ask(port(), "GET", "/status.json");
    EXPECT_EQ(answer.status, 200);
    EXPECT_EQ(answer.header("Content-Type"), "application/json");
    const auto status = nlohmann::json::parse(answer.body, nullptr, false);
    EXPECT_TRUE(status.is_object() && status["camera"].is_null()) << answer.body;
    EXPECT_EQ(status["note"], "\xEF\xBF\xBD") << "what is no UTF-8 is replaced";
}

TEST_F(PreviewServerTest, KnowsNoOtherPlace)
{
    for (const char* path : {"/index.html", "/../etc/passwd", "/%2e%2e/etc/passwd", "//", "/preview.css/",
                             "http://localhost/", "*"})
        EXPECT_NE(ask(port(), "GET", path).status, 200) << path;
    EXPECT_EQ(ask(port(), "GET", "/favicon.ico").status, 404);
}

TEST(LoopbackHost, IsOneThatOnlyThisComputerCalls)
{
    for (const char* host : {"localhost", "localhost:7286", "LocalHost:80", "127.0.0.1", "127.0.0.1:1",
                             "[::1]", "[::1]:7286", "localhost:"})
        EXPECT_TRUE(isLoopbackHost(host)) << host;
    for (const char* host :
         {"", ":", ":80", "evil.example", "localhost.evil.example", "evil.example:7286",
          "127.0.0.1.evil.example", "localhost:80:80", "localhost:http", "[::1", "[::1]x", "[::2]", "::1",
          "[", "0.0.0.0", "localhost ", "localhost@evil.example", "127.0.0.2", "localhost."})
        EXPECT_FALSE(isLoopbackHost(host)) << host;
}

TEST_F(PreviewServerTest, AnswersOnlyUnderTheNamesOfLoopback)
{
    for (const char* path : {"/", "/status.json", "/picture.mjpeg", "/preview.js"}) {
        const auto answer = ask(port(), "GET", path, "Host: evil.example\r\n");
        EXPECT_EQ(answer.status, 403) << path;
        EXPECT_THAT(answer.body, HasSubstr("localhost"));
    }
    EXPECT_EQ(ask(port(), "GET", "/", "Host: 127.0.0.1:7286\r\n").status, 200);
    EXPECT_EQ(ask(port(), "GET", "/", "hOST: [::1]:7286\r\nHost-Else: x\r\n").status, 400) << "and localhost";
    EXPECT_EQ(ask(port(), "GET", "/", "Host: localhost\r\nHost: evil.example\r\n").status, 400);
    HttpConnection without(port());
    without.send("GET / HTTP/1.0\r\n\r\n");
    EXPECT_EQ(test::parseAnswer(without.readAll()).status, 400);
    EXPECT_EQ(feed_.viewers(), 0U);
}

TEST_F(PreviewServerTest, RefusesThePagesOfOtherSites)
{
    for (const char* site : {"cross-site", "same-site", "nonsense", ""}) {
        const std::string header = "Sec-Fetch-Site: " + std::string(site) + "\r\n";
        EXPECT_EQ(ask(port(), "GET", "/picture.mjpeg", header + "Sec-Fetch-Mode: no-cors\r\n").status, 403);
        EXPECT_EQ(ask(port(), "GET", "/status.json", header + "Sec-Fetch-Mode: navigate\r\n").status, 403);
        EXPECT_EQ(ask(port(), "GET", "/", header).status, 403);
        EXPECT_EQ(ask(port(), "GET", "/", header + "Sec-Fetch-Mode: navigate\r\n").status, 200) << "a link";
    }
    EXPECT_EQ(ask(port(), "GET", "/status.json", "Sec-Fetch-Site: same-origin\r\n").status, 200);
    EXPECT_EQ(ask(port(), "GET", "/status.json", "Sec-Fetch-Site: none\r\n").status, 200);
}

TEST_F(PreviewServerTest, AnswersHeadWithoutContent)
{
    const auto page = ask(port(), "HEAD", "/");
    EXPECT_EQ(page.status, 200);
    EXPECT_EQ(page.header("Content-Length"), std::to_string(kPreviewFiles[0].content.size()));
    EXPECT_EQ(page.body, "");
    const auto picture = ask(port(), "HEAD", "/picture.mjpeg");
    EXPECT_EQ(picture.status, 200);
    EXPECT_EQ(picture.header("Content-Type"), PictureFeed::kContentType);
    EXPECT_EQ(picture.body, "");
    EXPECT_EQ(feed_.viewers(), 0U) << "who asks only what it would be does not watch";
}

TEST_F(PreviewServerTest, RefusesEveryOtherMethod)
{
    for (const char* method : {"POST", "PUT", "DELETE", "OPTIONS", "TRACE", "PATCH", "get", "NONSENSE"}) {
        const auto answer = ask(port(), method, "/", {}, "a body");
        EXPECT_EQ(answer.status, 405) << method;
        EXPECT_EQ(answer.header("Allow"), "GET, HEAD");
    }
    const auto large = ask(port(), "POST", "/status.json", {}, std::string(1'000'000, 'x'));
    EXPECT_TRUE(large.status == 405 || large.status == 0) << "it may close the connection amid the body";
    EXPECT_EQ(ask(port(), "GET", "/").status, 200);
}

TEST_F(ImpatientPreviewServer, SurvivesNonsense)
{
    const std::vector<std::string> requests = {
        std::string("\0\0\0\0\r\n\r\n", 8),
        "\r\n\r\n\r\n\r\n",
        "GET\r\n\r\n",
        "GET / HTTP/1.1\r\nHost localhost\r\n\r\n",
        "GET / HTTP/9.9\r\nHost: localhost\r\n\r\n",
        "GET / SPDY/1\r\nHost: localhost\r\n\r\n",
        "POST / HTTP/1.1\r\nHost: localhost\r\nContent-Length: -1\r\n\r\n",
        "POST / HTTP/1.1\r\nHost: localhost\r\nContent-Length: 99999999999999999999999\r\n\r\n",
        "POST / HTTP/1.1\r\nHost: localhost\r\nTransfer-Encoding: chunked\r\n\r\nFFFFFFFFFFFFFFFFFFFF\r\n",
        "\x16\x03\x01\x02\x00\x01\x00\x01\xFC\x03\x03",
        "GET /picture.mjpeg"};
    for (const auto& request : requests) {
        HttpConnection connection(port());
        connection.send(request);
        const auto answer = test::parseAnswer(connection.readAll());
        EXPECT_TRUE(connection.isClosed()) << request;
        EXPECT_NE(answer.status, 200) << request;
    }
    EXPECT_EQ(ask(port(), "GET", "/").status, 200);
}

TEST_F(PreviewServerTest, RefusesOversizeHeaders)
{
    const std::string much(100'000, 'x');
    for (const auto& request : {"GET /" + much + " HTTP/1.1\r\nHost: localhost\r\n\r\n",
                                "GET / HTTP/1.1\r\nHost: localhost\r\nX-Much: " + much + "\r\n\r\n",
                                "GET / HTTP/1.1\r\nHost: localhost\r\n" + much}) {
        HttpConnection connection(port());
        connection.send(request);
        const auto answer = test::parseAnswer(connection.readAll());
        EXPECT_TRUE(connection.isClosed());
        EXPECT_NE(answer.status, 200);
    }
    EXPECT_EQ(ask(port(), "GET", "/").status, 200);
}

TEST_F(PreviewServerTest, GivesAViewerThePicturesAsTheyCome)
{
    auto viewer = watch();
    ASSERT_TRUE(waitForViewers(1));
    feed_.publish(bytesOf("first"));
    const auto first = readThrough(viewer, "first\r\n--pavo\r\n");
    EXPECT_THAT(first, HasSubstr("200 OK"));
    EXPECT_THAT(first, HasSubstr("Content-Type: multipart/x-mixed-replace; boundary=pavo\r\n"));
    EXPECT_TRUE(first.ends_with("\r\n\r\n--pavo\r\nContent-Type: image/jpeg\r\nContent-Length: 5\r\n\r\n"
                                "first\r\n--pavo\r\n"))
        << first;
    feed_.publish(bytesOf("second"));
    EXPECT_EQ(readThrough(viewer, "--pavo\r\n"),
              "Content-Type: image/jpeg\r\nContent-Length: 6\r\n\r\nsecond\r\n--pavo\r\n");
    auto late = watch();
    EXPECT_THAT(
        readThrough(late, "--pavo\r\nContent-Type: image/jpeg\r\nContent-Length: 6\r\n\r\nsecond\r\n"),
        HasSubstr("second"))
        << "who comes between two pictures sees the last one";
}

TEST_F(PreviewServerTest, ASlowViewerMissesPicturesThatOthersSee)
{
    auto slow = watch(4096);
    auto quick = watch();
    ASSERT_TRUE(waitForViewers(2));
    const std::string filler(200'000, '.');
    constexpr int kPictures = 50;
    for (int i = 0; i < kPictures; ++i) {
        const std::string name = "picture " + std::to_string(i) + " ends";
        feed_.publish(bytesOf(filler + name));
        EXPECT_THAT(readThrough(quick, name), HasSubstr(name));
    }
    const std::string last = "picture " + std::to_string(kPictures - 1) + " ends";
    const std::string seen = readThrough(slow, last);
    EXPECT_THAT(seen, HasSubstr(last)) << "the newest one comes, whatever was missed";
    // No more than the system's buffers took while nobody read, and the newest.
    EXPECT_LT(seen.size(), filler.size() * 15);
}

TEST_F(ImpatientPreviewServer, AViewerThatNeverReadsIsGivenUpAndKeepsNobody)
{
    auto deaf = watch(4096);
    auto good = watch();
    ASSERT_TRUE(waitForViewers(2));
    const std::string filler(400'000, '.');
    int number = 0;
    const bool isGivenUp = waitFor(
        [&] {
            const std::string name = "picture " + std::to_string(number++) + " ends";
            feed_.publish(bytesOf(filler + name));
            EXPECT_THAT(readThrough(good, name), HasSubstr(name));
            return feed_.viewers() == 1;
        },
        kDeadline);
    EXPECT_TRUE(isGivenUp);
}

TEST_F(ImpatientPreviewServer, AViewerThatWaitsForPicturesIsNotGivenUp)
{
    auto viewer = watch();
    ASSERT_TRUE(waitForViewers(1));
    const auto since = std::chrono::steady_clock::now();
    waitFor([&] {
        return feed_.viewers() == 0 || std::chrono::steady_clock::now() - since > kLittlePatience * 3;
    });
    EXPECT_EQ(feed_.viewers(), 1U);
    feed_.publish(bytesOf("at last"));
    EXPECT_THAT(readThrough(viewer, "at last"), HasSubstr("at last"));
}

TEST_F(PreviewServerTest, ForgetsViewersThatVanish)
{
    std::deque<HttpConnection> viewers;
    for (int i = 0; i < 3; ++i)
        viewers.push_back(watch());
    ASSERT_TRUE(waitForViewers(3));
    viewers.pop_back();
    const auto endVanished = [this](std::size_t left) {
        return waitFor(
            [&] {
                feed_.endVanished();
                return feed_.viewers() == left;
            },
            kDeadline);
    };
    EXPECT_TRUE(endVanished(2)) << "in its sleep, before a picture came";
    feed_.publish(bytesOf("one"));
    for (auto& viewer : viewers)
        EXPECT_THAT(readThrough(viewer, "one"), HasSubstr("one"));
    viewers.pop_back();
    EXPECT_TRUE(endVanished(1)) << "in its sleep, between pictures";
    viewers.clear();
    EXPECT_TRUE(waitFor(
        [&] {
            feed_.publish(bytesOf("two"));
            return feed_.viewers() == 0;
        },
        kDeadline))
        << "while pictures flow";
}

TEST_F(PreviewServerTest, ManyViewersWatchAndMoreAreToldToComeLater)
{
    std::deque<HttpConnection> viewers;
    for (std::size_t i = 0; i < PictureFeed::kMostViewers; ++i)
        viewers.push_back(watch());
    ASSERT_TRUE(waitForViewers(PictureFeed::kMostViewers));
    const auto refused = ask(port(), "GET", "/picture.mjpeg");
    EXPECT_EQ(refused.status, 503);
    EXPECT_EQ(refused.header("Retry-After"), "5");
    EXPECT_EQ(ask(port(), "GET", "/status.json").status, 200);
    for (int i = 0; i < 20; ++i) {
        const std::string name = "picture " + std::to_string(i) + " ends";
        feed_.publish(bytesOf(name));
        for (auto& viewer : viewers)
            EXPECT_THAT(readThrough(viewer, name), HasSubstr(name));
    }
    viewers.clear();
    EXPECT_TRUE(waitFor(
        [&] {
            feed_.endVanished();
            return feed_.viewers() == 0;
        },
        kDeadline));
}

TEST_F(PreviewServerTest, EndsWithAllThatIsGoingOn)
{
    std::deque<HttpConnection> viewers;
    for (int i = 0; i < 4; ++i)
        viewers.push_back(watch(4096));
    ASSERT_TRUE(waitForViewers(4));
    feed_.publish(bytesOf(std::string(4'000'000, '.')));
    HttpConnection silent(port());
    HttpConnection half(port());
    half.send("GET / HT");
    server_.reset();
    EXPECT_EQ(feed_.viewers(), 0U);
    for (auto& viewer : viewers) {
        viewer.readAll();
        EXPECT_TRUE(viewer.isClosed());
    }
    EXPECT_EQ(half.readAll(), "");
    EXPECT_TRUE(half.isClosed());
}

TEST(PreviewServerEnd, LeavesNoDescriptors)
{
    PictureFeed warm;
    PreviewServer::start(0, warm, [] { return nlohmann::json(); }).value().reset();
    const auto before = test::openDescriptorCount();
    PictureFeed feed;
    auto server = std::move(PreviewServer::start(0, feed, [] { return nlohmann::json(); }).value());
    {
        HttpConnection viewer(server->port());
        viewer.send("GET /picture.mjpeg HTTP/1.0\r\nHost: localhost\r\n\r\n");
        EXPECT_TRUE(waitFor([&] { return feed.viewers() == 1; }, kDeadline));
        EXPECT_EQ(ask(server->port(), "GET", "/").status, 200);
        server.reset();
    }
    EXPECT_EQ(test::openDescriptorCount(), before);
}

TEST_F(PreviewServerTest, ListensOnLoopbackOnly)
{
    std::array<char, 8> hexPort{};
    std::snprintf(hexPort.data(), hexPort.size(), ":%04X", port());
    int listeners = 0;
    for (const auto& [file, loopback] :
         {std::pair("/proc/self/net/tcp", "0100007F"),
          std::pair("/proc/self/net/tcp6", "00000000000000000000000001000000")}) {
        std::ifstream table(file);
        for (std::string line; std::getline(table, line);) {
            std::istringstream words(line);
            std::string number, local, remote, state;
            words >> number >> local >> remote >> state;
            if (!local.ends_with(hexPort.data()) || state != "0A") continue;
            ++listeners;
            EXPECT_EQ(local.substr(0, local.find(':')), loopback);
        }
    }
    EXPECT_GE(listeners, 1);
}

TEST_F(PreviewServerTest, APortInUseIsAProblem)
{
    PictureFeed feed;
    const auto second = PreviewServer::start(port(), feed, [] { return nlohmann::json(); });
    ASSERT_FALSE(second);
    EXPECT_EQ(second.problem().text,
              "port " + std::to_string(port()) +
                  " is in use by another program; --port names another one, 0 any free "
                  "one");
}

}  // namespace
}  // namespace pavo::tools
