#include "Tools/BrowserPreview.h"

#include "Tools/JpegEncoder.h"
#include "Tools/PreviewServer.h"

#include <chrono>
#include <poll.h>
#include <thread>
#include <unistd.h>
#include <utility>

namespace pavo::tools {
namespace {

constexpr int kQuality = 80;
constexpr std::chrono::milliseconds kRetry(1000);  // of a camera that is not there
constexpr int kLookAtViewersMs = 250;

}  // namespace

BrowserPreview::BrowserPreview(const PreviewOptions& options, StatusWatch::Source source, Reporter& reporter,
                               const StopSignal& stop)
    : options_(options),
      reporter_(reporter),
      stop_(stop),
      watch_(std::move(source)),
      camera_(options.camera())
{}

bool BrowserPreview::run()
{
    auto server = PreviewServer::start(options_.port, feed_, [this] { return status(); });
    if (!server) {
        reporter_.error(server.problem().text);
        return false;
    }
    const auto port = server.value()->port();
    const std::string address = "http://localhost:" + std::to_string(port) + "/";
    reporter_.say("The preview is at " + address + " for this computer's browsers. Ctrl-C ends it.");
    reporter_.emit({{"event", "serving"}, {"port", port}, {"address", address}});
    std::thread pictures([this] { passPictures(); });
    stop_.wait();
    server.value().reset();
    pictures.join();
    return true;
}

void BrowserPreview::passPictures()
{
    while (feed_.waitForViewers()) {
        if (camera_.connect()) passPicturesOfOneConnection();
        camera_.disconnect();
        // Somebody who still watches has lost the camera, or never had it.
        for (auto left = kRetry; left.count() > 0; left -= std::chrono::milliseconds(kLookAtViewersMs)) {
            if (!feed_.isWatchedFor(std::chrono::milliseconds(kLookAtViewersMs))) break;
            feed_.endVanished();
        }
    }
}

void BrowserPreview::passPicturesOfOneConnection()
{
    JpegEncoder encoder(kQuality);
    while (camera_.isAlive() && feed_.isWatchedFor(std::chrono::milliseconds(0))) {
        pollfd waiting{camera_.descriptor(), POLLIN, 0};
        ::poll(&waiting, 1, kLookAtViewersMs);
        feed_.endVanished();
        const auto kept = camera_.takeFrame();
        if (!kept) continue;
        Image picture = bgraOf(kept->frame, options_.size.width, options_.size.height);
        if (const auto jpeg = encoder.encode(picture); !jpeg.empty()) feed_.publish(jpeg);
    }
}

nlohmann::json BrowserPreview::status()
{
    nlohmann::json all = watch_.latest();
    const auto camera = camera_.status();
    nlohmann::json preview = {{"pid", ::getpid()},
                              {"viewers", feed_.viewers()},
                              {"most_viewers", PictureFeed::kMostViewers},
                              {"pictures", feed_.published()},
                              {"rate", camera.framesPerSecond},
                              {"watching", camera.isConnected},
                              {"problem", nullptr},
                              {"format", nullptr}};
    if (!camera.problem.empty()) preview["problem"] = camera.problem;
    if (camera.width > 0)
        preview["format"] = {
            {"pixel", nameOf(camera.format)}, {"width", camera.width}, {"height", camera.height}};
    all["preview"] = std::move(preview);
    return all;
}

}  // namespace pavo::tools
