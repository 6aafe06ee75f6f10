#include "Tools/TerminalPreview.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <poll.h>
#include <utility>

namespace pavo::tools {
namespace {

constexpr int kLookAtTheClockMs = 250;
// What is drawn in between appears at once, where the terminal knows how.
constexpr std::string_view kUpdateBegin = "\x1b[?2026h", kUpdateEnd = "\x1b[?2026l";
constexpr std::string_view kClear = "\x1b[0m\x1b[2J";

std::string centered(const std::string& text, int row, const TerminalSize& size)
{
    const std::string shown = text.substr(0, static_cast<std::size_t>(size.columns));
    return moveTo(row, (size.columns - static_cast<int>(shown.size())) / 2) + shown;
}

}  // namespace

std::string printable(std::string_view text)
{
    std::string shown(text);
    std::ranges::replace_if(shown, [](unsigned char c) { return c < 0x20 || c > 0x7E; }, '?');
    return shown;
}

TerminalPreview::TerminalPreview(const PreviewOptions& options, StatusWatch::Source source,
                                 const StopSignal& stop, TerminalScreen& screen)
    : stop_(stop),
      screen_(screen),
      watch_(std::move(source)),
      camera_(options.camera()),
      picture_(options.graphics),
      size_(screen.size())
{}

void TerminalPreview::run()
{
    while (findCamera() && wait()) {
        const auto kept = camera_.takeFrame();
        if (kept ? !drawFrame(kept->frame) : !drawStatus()) return;
    }
}

bool TerminalPreview::findCamera()
{
    if (camera_.isAlive()) return true;
    const std::int64_t now = monotonicNs();
    if (now < nextTryNs_) return true;
    camera_.disconnect();
    if (nextTryNs_ == 0 && !drawNotice("Looking for the camera ...", "")) return false;
    const bool isThere = camera_.connect();
    nextTryNs_ = monotonicNs() + kSecondNs;
    if (isThere) return drawNotice("No picture yet", "The camera runs; its picture is on the way.");
    return drawNotice("The camera is not running", "Start it with: pavo camera");
}

// For something to do.
bool TerminalPreview::wait()
{
    std::array<pollfd, 4> waiting = {{{stop_.descriptor(), POLLIN, 0},
                                      {screen_.keyDescriptor(), POLLIN, 0},
                                      {screen_.signalDescriptor(), POLLIN, 0},
                                      {camera_.descriptor(), POLLIN, 0}}};
    ::poll(waiting.data(), waiting.size(), kLookAtTheClockMs);
    if (waiting[0].revents || (waiting[1].revents & (POLLHUP | POLLERR))) return false;
    if (waiting[1].revents && screen_.takeKeys().find_first_of("qQ") != std::string::npos) return false;
    if (!waiting[2].revents) return true;
    screen_.handleSignals();
    size_ = screen_.size();
    isCleared_ = false;
    if (notice_.empty()) return screen_.write(std::string(picture_.clear()) + std::string(kClear));
    return drawNotice(std::exchange(notice_, {}), noticeText_);
}

bool TerminalPreview::drawFrame(const CameraFrame& frame)
{
    std::string drawing(kUpdateBegin);
    if (!std::exchange(notice_, {}).empty() || !std::exchange(isCleared_, true)) drawing += kClear;
    drawing += picture_.draw(frame, size_, pictureRows());
    ++windowFrames_;
    lastFrameNs_ = monotonicNs();
    if (const auto elapsed = lastFrameNs_ - windowStartNs_; elapsed >= kSecondNs) {
        drawnPerSecond_ = static_cast<double>(windowFrames_) * 1e9 / static_cast<double>(elapsed);
        windowStartNs_ = lastFrameNs_;
        windowFrames_ = 0;
    }
    drawing += statusLine();
    drawing += kUpdateEnd;
    return screen_.write(drawing);
}

bool TerminalPreview::drawNotice(const std::string& title, const std::string& text)
{
    if (notice_ == title) return drawStatus();
    notice_ = title;
    noticeText_ = text;
    std::string drawing(kUpdateBegin);
    drawing.append(picture_.clear()).append(kClear);
    const int middle = pictureRows() / 2;
    drawing += "\x1b[1m" + centered(title, middle, size_) + "\x1b[0m";
    if (!text.empty() && middle + 1 < pictureRows()) drawing += centered(text, middle + 1, size_);
    drawing += statusLine();
    drawing += kUpdateEnd;
    return screen_.write(drawing);
}

bool TerminalPreview::drawStatus()
{
    return screen_.write(statusLine());
}

std::string TerminalPreview::statusLine()
{
    if (size_.rows < 2) return {};
    std::string text = printable(statusText());
    text.resize(std::min(text.size(), static_cast<std::size_t>(size_.columns)));
    return moveTo(size_.rows - 1, 0) + "\x1b[0;7m" + text +
           std::string(static_cast<std::size_t>(size_.columns) - text.size(), ' ') + "\x1b[0m";
}

std::string TerminalPreview::statusText()
{
    const auto live = camera_.status();
    const nlohmann::json all = watch_.latest();
    const nlohmann::json& camera = all["camera"];
    std::string producer;
    if (camera.is_object()) {
        const auto who = camera.value("producer", nlohmann::json());
        producer = who.is_object() ? " | live: " + who.value("program", std::string("?")) + " (" +
                                         std::to_string(who.value("pid", 0)) + ")"
                                   : " | placeholder: no producer";
    }
    if (!live.isConnected) return " Pavo Camera | " + live.problem + " | q ends";
    const bool isMoving = monotonicNs() - lastFrameNs_ < 2 * kSecondNs;
    std::array<char, 160> rates{};
    std::snprintf(rates.data(), rates.size(), " | %ux%u %s | %.1f frames/s, %.1f drawn/s", live.width,
                  live.height, std::string(nameOf(live.format)).c_str(), live.framesPerSecond,
                  isMoving ? drawnPerSecond_ : 0.0);
    return " Pavo Camera" + producer + rates.data() + " | q ends";
}

}  // namespace pavo::tools
