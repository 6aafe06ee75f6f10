// Browsers see the camera as every desktop application does that asks the camera portal: in a page's list of
// cameras, and through everything that happens to producers.

#include "Tests/Clients/Browser.h"
#include "Tests/Clients/CameraPage.h"
#include "Tests/Clients/CameraPortal.h"
#include "Tests/EndToEnd/WholeCamera.h"

#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>

namespace pavo::test {
namespace {

using Arguments = std::vector<std::string>;

struct BrowserKind {
    const char* name;
    const char* program;
    // The command line but for the page's address, and what has to be in `profile` beforehand.
    Arguments (*prepare)(const std::string& profile);
};

Arguments prepareChromium(const std::string& profile)
{
    Arguments arguments = {"chromium", "--headless=new", "--enable-features=WebRtcPipeWireCamera",
                           // Says yes to the page, as a user would.
                           "--use-fake-ui-for-media-stream",
                           // What a machine for tests may lack.
                           "--disable-gpu", "--disable-dev-shm-usage",
                           // Nothing but the page.
                           "--no-first-run", "--disable-component-update", "--disable-sync",
                           "--disable-breakpad", "--enable-logging=stderr", "--user-data-dir=" + profile};
    // It refuses to run as root with its sandbox.
    if (::geteuid() == 0) arguments.emplace_back("--no-sandbox");
    return arguments;
}

Arguments prepareFirefox(const std::string& profile)
{
    std::ofstream(profile + "/user.js") << R"(
user_pref("media.webrtc.camera.allow-pipewire", true);
// Says yes to the page, as a user would, and lets it play.
user_pref("media.navigator.permission.disabled", true);
user_pref("media.autoplay.default", 0);
// Nothing but the page.
user_pref("browser.aboutwelcome.enabled", false);
user_pref("browser.shell.checkDefaultBrowser", false);
user_pref("browser.startup.homepage_override.mstone", "ignore");
user_pref("app.normandy.enabled", false);
user_pref("app.update.enabled", false);
user_pref("datareporting.policy.dataSubmissionEnabled", false);
user_pref("network.captive-portal-service.enabled", false);
user_pref("network.connectivity-service.enabled", false);
user_pref("toolkit.telemetry.enabled", false);
)";
    return {"firefox-esr", "--headless", "--no-remote", "--profile", profile};
}

void PrintTo(const BrowserKind& browser, std::ostream* stream)
{
    *stream << browser.name;
}

const BrowserKind kBrowsers[] = {{"Chromium", "chromium", prepareChromium},
                                 {"Firefox", "firefox-esr", prepareFirefox}};

bool showsPlaceholder(const CameraPage::Seen& seen)
{
    return isPlaceholder(seen.picture);
}

bool showsPattern(const CameraPage::Seen& seen)
{
    return counterOf(seen.picture).has_value();
}

class CameraInABrowser : public WholeCamera, public testing::WithParamInterface<BrowserKind> {
protected:
    CameraInABrowser() : WholeCamera(Server::daemon) {}
    void SetUp() override
    {
        std::string why;
        if (!isOnPath(GetParam().program)) GTEST_SKIP() << GetParam().program << " is not installed";
        if (!CameraPortal::isAvailable(&why)) GTEST_SKIP() << why;
        WholeCamera::SetUp();
        if (IsSkipped() || HasFatalFailure()) return;
        portal_ = std::make_unique<CameraPortal>(folder());
        ASSERT_TRUE(portal_->isReady()) << readFile(folder() + "/portal.log");
    }
    void TearDown() override
    {
        if (HasFailure() && browser_) ADD_FAILURE() << "The browser wrote:\n" << readFile(log());
        browser_.reset();
        portal_.reset();
        WholeCamera::TearDown();
    }

    std::string log() const { return folder() + "/browser.log"; }
    // What the page shows first, once it shows the placeholder.
    //
    // Chromium's capture process may end itself as it begins: a check of its own, that two of its threads do
    // not meet, fails now and then on a busy machine, before the first frame. Then, and only then, the page
    // is opened again.
    CameraPage::Seen open()
    {
        constexpr int kAttempts = 3;
        CameraPage::Seen seen;
        for (int attempt = 0; attempt < kAttempts && (attempt == 0 || hasEndedItself()); ++attempt) {
            page_ = std::make_unique<CameraPage>();
            const std::string profile = folder() + "/profile-" + std::to_string(attempt);
            std::filesystem::create_directory(profile);
            Arguments arguments = GetParam().prepare(profile);
            arguments.push_back(page_->url());
            browser_.reset();
            browser_ = std::make_unique<Browser>(arguments, log());
            seen = page_->waitForSeen(showsPlaceholder, [this] { return hasEndedItself(); });
        }
        return seen;
    }
    bool hasEndedItself() const { return readFile(log()).find("RaceDetected()") != std::string::npos; }
    CameraPage& page() { return *page_; }
    Browser& browser() { return *browser_; }
    CameraPortal& portal() { return *portal_; }
    void keep(const CameraPage::Seen& seen, const std::string& what)
    {
        keepPicture(seen.picture, std::string(GetParam().program) + "-" + what);
    }

private:
    std::unique_ptr<CameraPortal> portal_;
    std::unique_ptr<CameraPage> page_;
    std::unique_ptr<Browser> browser_;
};
INSTANTIATE_TEST_SUITE_P(Of, CameraInABrowser, testing::ValuesIn(kBrowsers),
                         [](const auto& test) { return std::string(test.param.name); });

TEST_P(CameraInABrowser, ShowsProducersComeAndGoInOneOpenTrack)
{
    const auto before = open();
    ASSERT_GT(before.frames, 0U) << testing::PrintToString(page().story());
    keep(before, "placeholder");
    const nlohmann::json opened = page().waitUntilOpened();
    ASSERT_FALSE(opened.is_null());
    EXPECT_EQ(opened["labels"], nlohmann::json::array({"Pavo Camera"}));
    EXPECT_EQ(opened["label"], "Pavo Camera");
    EXPECT_EQ(opened["settings"]["width"], 1920);
    EXPECT_EQ(opened["settings"]["height"], 1080);
    EXPECT_EQ(opened["settings"]["frameRate"], 60);
    EXPECT_EQ(portal().questions(), 1);

    PavoProcess producer = produce({"--size", "1920x1080"});
    const auto during = page().waitForSeen(showsPattern);
    ASSERT_GT(during.frames, 0U);
    keep(during, "pattern");
    EXPECT_EQ(during.width, 1920);
    EXPECT_EQ(during.height, 1080);
    EXPECT_LE(worstBarError(during.picture), kColourTolerance);
    const auto later = page().waitForSeen(
        [&during](const CameraPage::Seen& seen) { return seen.frames >= during.frames + 120; });
    ASSERT_GT(later.frames, 0U);
    EXPECT_GT(counterOf(later.picture), counterOf(during.picture));
    std::printf("%s shows %.1f frames a second\n", GetParam().name,
                static_cast<double>(later.frames - during.frames) * 1000 / (later.timeMs - during.timeMs));
    // The producer knows by whom it is seen, though the portal opened the camera for the browser.
    const auto watcher = producer.lastReport("watcherAdded");
    ASSERT_FALSE(watcher.is_null()) << testing::PrintToString(producer.story());
    EXPECT_TRUE(browser().has(watcher["pid"])) << watcher;
    EXPECT_EQ(producer.end(SIGTERM), 0);

    const auto after = page().waitForSeen(showsPlaceholder);
    ASSERT_GT(after.frames, 0U);
    keep(after, "placeholder-again");
    // Neither ended nor opened again.
    EXPECT_EQ(page().story(), (std::vector<std::string>{"serving", "opened"}));
    EXPECT_TRUE(browser().isRunning());
    browser().end();
    EXPECT_TRUE(waitForRemoved(watcher["pid"]));
}

}  // namespace
}  // namespace pavo::test
