// The smaller parts of the live previews.

#include "Tests/Support/Descriptors.h"
#include "Tests/Support/Patience.h"
#include "Tools/JpegEncoder.h"
#include "Tools/LoopbackListener.h"
#include "Tools/StatusWatch.h"
#include "Tools/TerminalPicture.h"
#include "Tools/TerminalPreview.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/socket.h>
#include <turbojpeg.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <future>
#include <string>

namespace {

// What the wrapped functions fail with, or 0.
int bindError = 0;
int socketErrorForIPv6 = 0;

}  // namespace

extern "C" {

int __real_bind(int socket, const sockaddr* address, socklen_t size);
int __real_socket(int family, int type, int protocol);

int __wrap_bind(int socket, const sockaddr* address, socklen_t size)
{
    if (bindError == 0) return __real_bind(socket, address, size);
    errno = bindError;
    return -1;
}

int __wrap_socket(int family, int type, int protocol)
{
    if (family != AF_INET6 || socketErrorForIPv6 == 0) return __real_socket(family, type, protocol);
    errno = socketErrorForIPv6;
    return -1;
}
}

namespace pavo::tools {
namespace {

using test::eventually;
using testing::AnyOf;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

class Listener : public testing::Test {
protected:
    ~Listener() override { bindError = socketErrorForIPv6 = 0; }
};

TEST_F(Listener, FindsAFreePort)
{
    const auto listener = LoopbackListener::open(0);
    ASSERT_TRUE(listener);
    EXPECT_GT(listener.value().port, 0);
    const auto again = LoopbackListener::open(listener.value().port);
    ASSERT_FALSE(again);
    EXPECT_EQ(again.problem().text,
              "port " + std::to_string(listener.value().port) +
                  " is in use by another program; --port names another one, 0 any free one");
}

TEST_F(Listener, SaysThatAPortIsNotAllowed)
{
    bindError = EACCES;
    const auto listener = LoopbackListener::open(80);
    ASSERT_FALSE(listener);
    EXPECT_EQ(listener.problem().text,
              "port 80 is not allowed to this user; --port names another one, from 1024 up");
}

TEST_F(Listener, SaysWhatElseIsWrong)
{
    bindError = ENOBUFS;
    const auto before = test::openDescriptorCount();
    const auto listener = LoopbackListener::open(7286);
    ASSERT_FALSE(listener);
    EXPECT_EQ(listener.problem().text, "cannot wait for connections at port 7286: No buffer space available");
    EXPECT_EQ(test::openDescriptorCount(), before);
}

TEST_F(Listener, DoesWithoutIPv6)
{
    socketErrorForIPv6 = EAFNOSUPPORT;
    const auto listener = LoopbackListener::open(0);
    ASSERT_TRUE(listener);
    EXPECT_EQ(listener.value().sockets.size(), 1U);
}

TEST(Jpeg, HasThePicturesSizeAndColors)
{
    constexpr int kWidth = 64, kHeight = 48;
    Image picture({Packing::bgra, kWidth, kHeight});
    const auto view = picture.view();
    for (std::size_t y = 0; y < kHeight; ++y)
        for (std::size_t x = 0; x < kWidth; ++x) {
            const bool isLeft = x < kWidth / 2;
            const std::array<std::uint8_t, 4> pixel = {static_cast<std::uint8_t>(isLeft ? 200 : 20), 100,
                                                       static_cast<std::uint8_t>(isLeft ? 30 : 220), 0};
            std::copy(pixel.begin(), pixel.end(), view.row(0, y) + x * 4);
        }
    JpegEncoder encoder(80);
    auto jpeg = encoder.encode(picture);
    ASSERT_FALSE(jpeg.empty());

    tjhandle decoder = ::tjInitDecompress();
    int width = 0, height = 0, subsampling = 0, colorspace = 0;
    ASSERT_EQ(
        ::tjDecompressHeader3(decoder, jpeg.data(), jpeg.size(), &width, &height, &subsampling, &colorspace),
        0);
    EXPECT_EQ(width, kWidth);
    EXPECT_EQ(height, kHeight);
    std::vector<std::uint8_t> rgb(std::size_t{3} * kWidth * kHeight);
    ASSERT_EQ(::tjDecompress2(decoder, jpeg.data(), jpeg.size(), rgb.data(), kWidth, 0, kHeight, TJPF_RGB, 0),
              0);
    const auto pixelAt = [&rgb](std::size_t x, std::size_t y) { return rgb.data() + (y * kWidth + x) * 3; };
    EXPECT_NEAR(pixelAt(8, 20)[0], 30, 6);
    EXPECT_NEAR(pixelAt(8, 20)[1], 100, 6);
    EXPECT_NEAR(pixelAt(8, 20)[2], 200, 6);
    EXPECT_NEAR(pixelAt(56, 20)[0], 220, 6);
    EXPECT_NEAR(pixelAt(56, 20)[2], 20, 6);
    ::tjDestroy(decoder);
}

TEST(StatusWatch, AsksNobodyUntilSomebodyWantsToKnow)
{
    std::atomic<int> asked = 0;
    StatusWatch watch([&asked]() -> Result<nlohmann::json> {
        ++asked;
        return nlohmann::json{{"pid", 7}};
    });
    EXPECT_EQ(asked, 0);
    EXPECT_EQ(watch.latest(), (nlohmann::json{{"camera", nullptr}, {"problem", nullptr}}));
    EXPECT_TRUE(eventually([&] { return !watch.latest()["camera"].is_null(); }));
    EXPECT_EQ(watch.latest(), (nlohmann::json{{"camera", {{"pid", 7}}}, {"problem", nullptr}}));
    EXPECT_TRUE(eventually([&] { return watch.latest().is_object() && asked > 1; }))
        << "and again, a second later";
}

TEST(StatusWatch, SaysWhyTheCameraSaysNothing)
{
    StatusWatch watch([]() -> Result<nlohmann::json> { return Problem{"no camera is running"}; });
    EXPECT_TRUE(eventually([&] { return !watch.latest()["problem"].is_null(); }));
    EXPECT_EQ(watch.latest(), (nlohmann::json{{"camera", nullptr}, {"problem", "no camera is running"}}));
}

TEST(StatusWatch, AnswersWhileTheCameraThinks)
{
    std::promise<void> mayAnswer;
    auto permission = mayAnswer.get_future().share();
    std::atomic<bool> isAsked = false;
    StatusWatch watch([&isAsked, permission]() -> Result<nlohmann::json> {
        isAsked = true;
        permission.wait();
        return nlohmann::json("done");
    });
    watch.latest();
    EXPECT_TRUE(eventually([&] { return isAsked.load(); }));
    EXPECT_TRUE(watch.latest()["camera"].is_null());
    mayAnswer.set_value();
    EXPECT_TRUE(eventually([&] { return watch.latest()["camera"] == "done"; }));
}

TEST(Graphics, AreOnesThatAreKnown)
{
    EXPECT_EQ(parseGraphics("auto").value(), Graphics::automatic);
    EXPECT_EQ(parseGraphics("symbols").value(), Graphics::symbols);
    EXPECT_EQ(parseGraphics("sixels").value(), Graphics::sixels);
    EXPECT_EQ(parseGraphics("kitty").value(), Graphics::kitty);
    EXPECT_EQ(parseGraphics("").problem().text, "graphics are auto, symbols, sixels or kitty, not ''");
}

TEST(PrintableText, HasNothingThatATerminalObeys)
{
    EXPECT_EQ(printable("ffmpeg (12)"), "ffmpeg (12)");
    EXPECT_EQ(printable("a\x1b]0;owned\a\n\r\t\x7f\xc2\x9b"
                        "2J"),
              "a?]0;owned???????2J");
}

// A grey frame whose left half is black.
struct HalfFrame {
    std::vector<std::uint8_t> bytes;
    CameraFrame frame{};

    HalfFrame(std::uint32_t width, std::uint32_t height) : bytes(std::size_t{4} * width * height, 0)
    {
        for (std::size_t i = 0; i < bytes.size(); ++i)
            if (i / 4 % width >= width / 2) bytes[i] = 180;
        frame.format = CameraFormat::bgrx;
        frame.width = width;
        frame.height = height;
        frame.strideBytes = width * 4;
        frame.bytes = bytes;
    }
};

class TerminalPictureTest : public testing::Test {
protected:
    TerminalPictureTest()
    {
        ::setenv("TERM", "xterm-256color", 1);
        ::setenv("COLORTERM", "truecolor", 1);
        for (const char* name : {"TERM_PROGRAM", "KITTY_PID", "VTE_VERSION", "TMUX", "STY"})
            ::unsetenv(name);
    }
};

TEST_F(TerminalPictureTest, DrawsSymbolsInTheMiddleWithinTheRows)
{
    TerminalPicture picture(Graphics::symbols);
    const HalfFrame half(1600, 900);
    const auto text = picture.draw(half.frame, {100, 40, 10, 20}, 39);
    // A hundred columns of ten pixels are 16:9 with 28 rows of twenty and a part of one.
    EXPECT_THAT(text, StartsWith("\x1b[6;1H"));
    EXPECT_THAT(text, HasSubstr("\x1b[33;1H"));
    EXPECT_THAT(text, Not(HasSubstr("\x1b[35;1H")));
    EXPECT_THAT(text, Not(HasSubstr("\n")));
    EXPECT_THAT(text, AnyOf(HasSubstr("48;2;178;178;178"), HasSubstr("48;2;179;179;179")))
        << "in its colours, or nearly";
}

TEST_F(TerminalPictureTest, UsesTheColorsThatThereAre)
{
    ::setenv("TERM", "vt100", 1);
    ::unsetenv("COLORTERM");
    TerminalPicture picture(Graphics::automatic);
    const HalfFrame half(160, 90);
    EXPECT_THAT(picture.draw(half.frame, {40, 12, 10, 20}, 11), Not(HasSubstr("8;2;")));
}

TEST_F(TerminalPictureTest, DrawsSixelsAndKittyGraphicsWhereTheyAreAskedFor)
{
    const HalfFrame half(160, 90);
    TerminalPicture sixels(Graphics::sixels);
    EXPECT_THAT(sixels.draw(half.frame, {40, 12, 10, 20}, 11), HasSubstr("\x1bP"));
    TerminalPicture kitty(Graphics::kitty);
    const auto text = kitty.draw(half.frame, {40, 12, 10, 20}, 11);
    EXPECT_THAT(text, StartsWith("\x1b_Ga=d\x1b\\")) << "the picture before it goes";
    EXPECT_THAT(text, HasSubstr("\x1b_Ga=T"));
}

TEST_F(TerminalPictureTest, FitsTerminalsOfAnySize)
{
    TerminalPicture picture(Graphics::symbols);
    const HalfFrame half(160, 90), tall(3, 1000), wide(1000, 3);
    for (const auto& size : {TerminalSize{1, 1, 10, 20}, TerminalSize{2, 1, 7, 13},
                             TerminalSize{500, 3, 10, 20}, TerminalSize{3, 200, 10, 20}})
        for (const auto* frame : {&half.frame, &tall.frame, &wide.frame})
            EXPECT_NE(picture.draw(*frame, size, size.rows), "");
}

}  // namespace
}  // namespace pavo::tools
