// The preview's page in a real browser.

#include "Tests/Tools/BrowserTab.h"
#include "Tests/Tools/PreviewFixture.h"

#include <gmock/gmock.h>

#include <signal.h>

#include <filesystem>
#include <fstream>
#include <string>

namespace pavo::test {
namespace {

using testing::HasSubstr;
using testing::StartsWith;

class PreviewInBrowser : public PreviewTest {
protected:
    void SetUp() override
    {
        if (BrowserTab::program().empty()) GTEST_SKIP() << "no Chromium is installed";
        tab_ = std::make_unique<BrowserTab>(path("."));
        ASSERT_TRUE(tab_->isReady()) << readFile(path("browser.log"));
        tab_->resize(1280, 1000);
    }
    // Leaves a picture of the page in the build folder, for people to look at.
    void keepScreenshot(const std::string& name)
    {
        std::filesystem::create_directories(PAVO_SCREENSHOTS);
        const std::string png = tab_->screenshot();
        EXPECT_THAT(png, StartsWith("\x89PNG\r\n"));
        std::ofstream(std::string(PAVO_SCREENSHOTS) + "/" + name + ".png") << png;
    }
    std::string text(const std::string& id)
    {
        const auto value = tab_->evaluate("document.getElementById('" + id + "').textContent");
        return value.is_string() ? value.get<std::string>() : std::string();
    }
    bool waitForText(const std::string& id, const std::string& part)
    {
        return tab_->waitUntil("document.getElementById('" + id + "').textContent.includes('" + part + "')");
    }
    void openPage(std::uint16_t port)
    {
        tab_->open("http://localhost:" + std::to_string(port) + "/");
        ASSERT_TRUE(
            tab_->waitUntil("document.readyState !== 'loading' && !!document.getElementById('state')"));
    }

    std::unique_ptr<BrowserTab> tab_;
};

// How many different pictures were to be seen; counted in the page, which may read its own pictures.
constexpr const char* kCountPictures = R"((() => {
    window.seen ??= new Set();
    const picture = document.getElementById('picture');
    if (picture.hidden || picture.naturalWidth === 0) return 0;
    const canvas = new OffscreenCanvas(160, 90);
    const context = canvas.getContext('2d');
    context.drawImage(picture, 0, 0, 160, 90);
    window.seen.add(context.getImageData(0, 0, 160, 90).data.join());
    return window.seen.size;
})())";

TEST_F(PreviewInBrowser, ShowsTheMovingPictureAndWhoWatches)
{
    startCamera();
    startProducer();
    auto client = start("view", {"view", "--remote", "pavo-0"});
    const auto port = startPage();
    ASSERT_NE(port, 0);
    openPage(port);
    EXPECT_TRUE(waitForText("state", "Live: pavo")) << text("state");
    EXPECT_TRUE(tab_->waitUntil(std::string(kCountPictures) + " >= 5")) << "the picture moves";
    EXPECT_EQ(tab_->evaluate("document.getElementById('picture').naturalWidth"), 960);
    EXPECT_THAT(tab_->evaluate("document.getElementById('picture').alt").get<std::string>(),
                HasSubstr("sent by pavo"));
    EXPECT_TRUE(waitForText("producer", "pavo (" + std::to_string(producer_.pid()) + ")"));
    EXPECT_TRUE(waitForText("clients", std::to_string(client.pid())));
    EXPECT_TRUE(waitForText("clients", std::to_string(page_.pid())));
    EXPECT_TRUE(waitForText("clients", "this preview"));
    EXPECT_TRUE(tab_->waitUntil("Number(document.getElementById('rate').textContent) > 1"));
    for (const char* count : {"sent", "drawn", "dropped"})
        EXPECT_THAT(text(count), testing::MatchesRegex("[0-9,]+")) << count;
    tab_->setColorScheme("dark");
    keepScreenshot("preview-live-dark");
    tab_->setColorScheme("light");
    keepScreenshot("preview-live-light");
    tab_->resize(420, 1400);
    EXPECT_EQ(tab_->evaluate("document.documentElement.scrollWidth <= 420"), true) << "nothing sticks out";
    keepScreenshot("preview-live-narrow");
}

TEST_F(PreviewInBrowser, SaysWhatToDoWhereThereIsNoCameraOrNoProducer)
{
    const auto port = startPage();
    ASSERT_NE(port, 0);
    openPage(port);
    EXPECT_TRUE(waitForText("state", "Camera not running"));
    EXPECT_EQ(text("notice-title"), "The camera is not running");
    EXPECT_EQ(text("notice-command"), "pavo camera");
    keepScreenshot("preview-no-camera");

    startCamera();
    EXPECT_TRUE(waitForText("state", "Placeholder: no producer connected"));
    EXPECT_TRUE(waitForText("caption", "pavo send"));
    EXPECT_TRUE(tab_->waitUntil("!document.getElementById('picture').hidden"));
    EXPECT_TRUE(tab_->waitUntil("document.getElementById('picture').naturalWidth === 960"));
    keepScreenshot("preview-placeholder");

    page_.signal(SIGINT);
    EXPECT_EQ(page_.waitForExit(kDeadline), 0);
    EXPECT_TRUE(waitForText("state", "Preview ended"));
    EXPECT_EQ(text("notice-command"), "pavo preview --http");
    page_ = start("again", {"preview", "--http", "--port", std::to_string(port)});
    EXPECT_TRUE(waitForText("state", "Placeholder: no producer connected")) << "it goes on by itself";
    EXPECT_TRUE(tab_->waitUntil("!document.getElementById('picture').hidden"));
}

TEST_F(PreviewInBrowser, AnotherSitesPageCannotUseIt)
{
    startCamera();
    const auto port = startPage();
    ASSERT_NE(port, 0);
    const std::string address = "http://127.0.0.1:" + std::to_string(port);
    // A page without an origin of its own stands for any other site.
    tab_->open("data:text/html,<img id=picture src='" + address + "/picture.mjpeg'>");
    EXPECT_TRUE(tab_->waitUntil("document.getElementById('picture')?.complete === true"));
    EXPECT_EQ(tab_->evaluate("document.getElementById('picture').naturalWidth"), 0);
    tab_->evaluate("fetch('" + address +
                   "/status.json').then(a => a.text()).then(t => window.got = t)"
                   ".catch(() => window.got = 'refused')");
    EXPECT_TRUE(tab_->waitUntil("window.got === 'refused'"));
    EXPECT_EQ(previewStatus(port)["pictures"], 0);
}

}  // namespace
}  // namespace pavo::test
