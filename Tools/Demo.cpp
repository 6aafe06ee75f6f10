#include "Tools/Demo.h"

#include "Tools/ProgramPaths.h"
#include "Tools/TestPattern.h"

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <utility>

namespace pavo::tools {
namespace {

constexpr std::uint32_t kPictureWidth = 480, kPictureHeight = 270;
constexpr double kPlaceholderRate = 60, kVideoRate = 30, kPatternRate = 50;
// The second producer's pictures are 4:3: on the camera they stand between black bars.
constexpr const char* kPatternSize = "640x480";
constexpr double kPatternLeft = (kPictureWidth - kPictureHeight * 4.0 / 3) / 2;
constexpr auto kStartDeadline = std::chrono::seconds(15);
// How long after a change its gap is looked for; rates are taken after that.
constexpr std::int64_t kChangeNs = 1'000'000'000;
// A busy machine drops frames; half of them would be a fault.
constexpr double kLeastShareOfRate = 0.5;
constexpr double kLongestGapAtKillMs = 500;

std::string format(const char* pattern, double value)
{
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), pattern, value);
    return text.data();
}

// Mean difference of two pictures' bytes.
double difference(const std::vector<std::uint8_t>& a, const std::vector<std::uint8_t>& b)
{
    if (a.size() != b.size() || a.empty()) return 255;
    double sum = 0;
    for (std::size_t i = 0; i < a.size(); ++i)
        sum += std::abs(int{a[i]} - int{b[i]});
    return sum / static_cast<double>(a.size());
}

}  // namespace

Demo::Demo(const DemoOptions& options, Reporter& reporter, const StopSignal& stop)
    : options_(options),
      reporter_(reporter),
      stop_(stop)
{}

Demo::~Demo()
{
    // Readers end with what they read from, so each process goes before its stream.
    for (auto* child : {&producer_, &decoder_, &foreign_, &view_, &camera_})
        if (*child) (*child)->process.end();
}

UniqueFd Demo::logFile() const
{
    const std::string path = session_->folder() + "/log";
    return UniqueFd(::open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600));
}

ChildProcess::Options Demo::optionsFor(std::vector<std::string> arguments) const
{
    ChildProcess::Options options;
    options.arguments = std::move(arguments);
    options.environment = session_->environment();
    options.standardError = logFile();
    return options;
}

std::unique_ptr<Demo::Child> Demo::startPavo(std::string name, std::vector<std::string> arguments,
                                             UniqueFd input)
{
    arguments.insert(arguments.begin(), programPath());
    auto options = optionsFor(std::move(arguments));
    options.standardInput = std::move(input);
    auto [readEnd, writeEnd] = Pipe::create();
    options.standardOutput = std::move(writeEnd);
    auto process = ChildProcess::start(std::move(options));
    if (!process) return nullptr;
    return std::make_unique<Child>(
        Child{std::move(name), std::move(*process), std::make_unique<EventStream>(std::move(readEnd))});
}

bool Demo::prepare()
{
    for (const char* program : {"gst-launch-1.0", "ffmpeg"}) {
        if (isProgramInstalled(program)) continue;
        reporter_.error(std::string(program) + " is not installed; \"make dependencies\" installs it");
        return false;
    }
    auto session = DemoSession::start(options_.session);
    if (!session) {
        reporter_.error(session.problem().text);
        return false;
    }
    session_ = std::move(session.value());
    constexpr std::array kKinds = {"", "the running PipeWire daemon", "a private PipeWire daemon",
                                   "the camera's own PipeWire server"};
    reporter_.say(std::string("The camera is on ") + kKinds[static_cast<std::size_t>(session_->kind())] +
                  ".");
    return true;
}

bool Demo::startCamera()
{
    camera_ = startPavo("camera", {"camera", "--json"}, {});
    return camera_ && camera_->events->waitFor("started", 0, kStartDeadline);
}

bool Demo::startClients()
{
    const std::int64_t nowNs = monotonicNs();
    view_ = startPavo("pavo view", {"view", "--json", "--trace", "--wait", "15"}, {});

    const std::string size =
        "width=" + std::to_string(kPictureWidth) + ",height=" + std::to_string(kPictureHeight);
    auto options = optionsFor({"gst-launch-1.0", "-q", "pipewiresrc", "target-object=pavo-camera", "!",
                               "video/x-raw,colorimetry=2:4:7:1", "!", "videoscale", "!",
                               "video/x-raw," + size, "!", "videoconvert", "!",
                               "video/x-raw,format=RGB," + size, "!", "fdsink", "fd=1", "sync=false"});
    auto [readEnd, writeEnd] = Pipe::create();
    options.standardOutput = std::move(writeEnd);
    // The camera's node must be there before GStreamer asks for it by name.
    if (!view_ || !view_->events->waitFor("frame", nowNs, kStartDeadline)) return false;
    auto process = ChildProcess::start(std::move(options));
    if (!process) return false;
    pictures_ = std::make_unique<PictureStream>(std::move(readEnd), kPictureWidth, kPictureHeight);
    foreign_ = std::make_unique<Child>(Child{"gst-launch-1.0", std::move(*process), nullptr});
    return pictures_->waitForFirst(kStartDeadline);
}

// A real file to decode: H.264, as a phone would record it, but made on the spot.
bool Demo::makeClip()
{
    const double seconds = options_.phaseSeconds + 5;
    auto process = ChildProcess::start(
        optionsFor({"ffmpeg", "-nostdin", "-v", "error", "-y", "-f", "lavfi", "-i",
                    "mandelbrot=size=960x540:rate=" + std::to_string(static_cast<int>(kVideoRate)), "-t",
                    format("%.1f", seconds), "-c:v", "libx264", "-preset", "ultrafast", "-pix_fmt", "yuv420p",
                    session_->folder() + "/clip.mp4"}));
    return process && process->wait(std::chrono::seconds(60)) == 0;
}

bool Demo::startVideoProducer()
{
    auto [readEnd, writeEnd] = Pipe::create();
    auto options = optionsFor({"ffmpeg", "-nostdin", "-v", "error", "-re", "-i",
                               session_->folder() + "/clip.mp4", "-f", "yuv4mpegpipe", "-"});
    options.standardOutput = std::move(writeEnd);
    auto process = ChildProcess::start(std::move(options));
    if (!process) return false;
    decoder_ = std::make_unique<Child>(Child{"ffmpeg", std::move(*process), nullptr});
    producer_ = startPavo("pavo send", {"send", "-", "--json"}, std::move(readEnd));
    return producer_ && producer_->events->waitFor("watcherAdded", 0, kStartDeadline);
}

bool Demo::startPatternProducer()
{
    producer_ = startPavo(
        "pavo send", {"send", "--json", "--size", kPatternSize, "--fps", format("%.0f", kPatternRate)}, {});
    return producer_ && producer_->events->waitFor("watcherAdded", 0, kStartDeadline);
}

void Demo::stopProducer(int signal)
{
    producer_->process.signal(signal);
    producer_->process.wait(std::chrono::seconds(5));
    if (decoder_) decoder_->process.end();
    decoder_.reset();
}

bool Demo::isPicture(Picture picture, const std::vector<std::uint8_t>& rgb) const
{
    if (rgb.empty()) return false;
    constexpr double kSame = 3;
    switch (picture) {
    case Picture::placeholder:
        return placeholder_.empty() || difference(rgb, placeholder_) < kSame;
    case Picture::video:
        return difference(rgb, placeholder_) >= kSame;
    case Picture::pattern:
        break;
    }
    const auto width = static_cast<std::uint32_t>(kPictureWidth - 2 * kPatternLeft);
    const auto counter = readCounter(width, kPictureHeight, [&rgb](std::uint32_t x, std::uint32_t y) -> int {
        const std::size_t pixel = std::size_t{y} * kPictureWidth + x + static_cast<std::size_t>(kPatternLeft);
        return rgb[pixel * 3 + 1];
    });
    return counter.has_value();
}

bool Demo::playPhase(std::string name, double expectedRate, std::int64_t beginNs, Picture picture)
{
    Phase phase{std::move(name), expectedRate, beginNs, 0, {}, {}};
    reporter_.say(phase.name + "…");
    const auto lengthNs = static_cast<std::int64_t>(options_.phaseSeconds * 1e9);
    for (const double share : {0.4, 0.9}) {
        const std::int64_t atNs = beginNs + static_cast<std::int64_t>(share * static_cast<double>(lengthNs));
        if (stop_.waitUntil(atNs)) return false;
        auto rgb = pictures_->latest();
        check(isPicture(picture, rgb), phase.name + ": GStreamer does not see the right picture");
        if (placeholder_.empty() && picture == Picture::placeholder) placeholder_ = rgb;
        const double atSeconds = static_cast<double>(monotonicNs() - beginNs) / 1e9;
        phase.tiles.push_back({"after " + format("%.1f s", atSeconds), std::move(rgb)});
    }
    if (stop_.waitUntil(beginNs + lengthNs)) return false;
    phase.endNs = monotonicNs();
    if (picture != Picture::placeholder) {
        bool isComplete = false;
        phase.told = whoWasTold(&isComplete);
        check(isComplete, phase.name + ": the producer was not told each client's process exactly");
    }
    phases_.push_back(std::move(phase));
    return true;
}

bool Demo::playPhases()
{
    if (!playPhase("Placeholder", kPlaceholderRate, monotonicNs(), Picture::placeholder)) return false;

    const auto failedToSend = [this] {
        check(false, "the producer was never told who watches");
        return true;
    };
    std::int64_t beginNs = monotonicNs();
    if (!startVideoProducer()) return failedToSend();
    if (!playPhase("A video file, 960x540", kVideoRate, beginNs, Picture::video)) return false;

    beginNs = monotonicNs();
    stopProducer(SIGKILL);
    if (!playPhase("Producer killed", kPlaceholderRate, beginNs, Picture::placeholder)) return false;

    beginNs = monotonicNs();
    if (!startPatternProducer()) return failedToSend();
    if (!playPhase(std::string("Second producer, ") + kPatternSize, kPatternRate, beginNs, Picture::pattern))
        return false;

    beginNs = monotonicNs();
    stopProducer(SIGTERM);
    return playPhase("Producer stopped", kPlaceholderRate, beginNs, Picture::placeholder);
}

// The processes that the current producer has heard of.
std::string Demo::whoWasTold(bool* isComplete) const
{
    std::string told;
    bool isViewKnown = false, isForeignKnown = false;
    for (const auto& event : producer_->events->events()) {
        const bool isAdded = event.is("watcherAdded");
        if (!isAdded && !event.is("watcherRemoved")) continue;
        const pid_t pid = event.content.value("pid", 0);
        const bool isView = pid == view_->process.pid(), isForeign = pid == foreign_->process.pid();
        isViewKnown = isView ? isAdded : isViewKnown;
        isForeignKnown = isForeign ? isAdded : isForeignKnown;
        told += (told.empty() ? "" : " ") + std::string(isAdded ? "+" : "-") + std::to_string(pid);
        told += isView ? " (pavo view)" : isForeign ? " (gst-launch-1.0)" : " (a stranger)";
    }
    *isComplete = isViewKnown && isForeignKnown;
    return told;
}

std::vector<std::int64_t> Demo::arrivalsAtView() const
{
    std::vector<std::int64_t> arrivals;
    for (const auto& event : view_->events->events())
        if (event.is("frame")) arrivals.push_back(event.content.value("arrivalNs", std::int64_t{0}));
    return arrivals;
}

Demo::Seen Demo::seenBy(const std::vector<std::int64_t>& arrivalsNs, const Phase& phase) const
{
    Seen seen;
    std::size_t steadyFrames = 0;
    std::int64_t previousNs = 0;
    for (const std::int64_t arrivalNs : arrivalsNs) {
        const bool isInside = arrivalNs >= phase.beginNs && arrivalNs < phase.endNs;
        if (isInside) ++seen.frames;
        if (isInside && arrivalNs >= phase.beginNs + kChangeNs) ++steadyFrames;
        // The interval in which the change lies counts, too.
        if (isInside && arrivalNs < phase.beginNs + kChangeNs && previousNs != 0)
            seen.gapAtChangeMs =
                std::max(seen.gapAtChangeMs, static_cast<double>(arrivalNs - previousNs) / 1e6);
        previousNs = arrivalNs;
    }
    const double steadySeconds = static_cast<double>(phase.endNs - phase.beginNs - kChangeNs) / 1e9;
    if (steadySeconds > 0) seen.rate = static_cast<double>(steadyFrames) / steadySeconds;
    return seen;
}

void Demo::check(bool isGood, const std::string& sentence)
{
    if (!isGood) failures_.push_back(sentence);
}

bool Demo::run()
{
    if (!prepare()) return false;
    const auto giveUp = [this](const char* sentence) {
        reporter_.error(sentence);
        printLog();
        return false;
    };
    reporter_.say("Making a video file…");
    if (!makeClip()) return giveUp("ffmpeg cannot make the video file");
    if (!startCamera()) return giveUp("the camera does not start");
    reporter_.say("Starting the clients: pavo view and GStreamer's pipewiresrc…");
    if (!startClients()) return giveUp("a client gets no picture");
    if (!playPhases()) return giveUp("interrupted");
    report();
    if (!failures_.empty()) printLog();
    return failures_.empty();
}

void Demo::report()
{
    check(view_->process.isRunning(), "pavo view has not lived through it");
    check(foreign_->process.isRunning(), "GStreamer has not lived through it");
    check(camera_->process.isRunning(), "the camera has not lived through it");
    const auto viewArrivals = arrivalsAtView(), foreignArrivals = pictures_->arrivalsNs();
    ContactSheet sheet("Pavo Camera, as GStreamer's pipewiresrc saw it", kPictureWidth, kPictureHeight);

    std::printf("\n%-26s %17s %19s %24s\n", "", "frames", "frames per second", "longest gap at change, ms");
    std::printf("%-26s %8s %8s %9s %9s %12s %12s\n", "phase", "view", "gst", "view", "gst", "view", "gst");
    for (auto& phase : phases_) {
        const Seen view = seenBy(viewArrivals, phase), foreign = seenBy(foreignArrivals, phase);
        std::printf("%-26s %8zu %8zu %9.1f %9.1f %12.1f %12.1f\n", phase.name.c_str(), view.frames,
                    foreign.frames, view.rate, foreign.rate, view.gapAtChangeMs, foreign.gapAtChangeMs);
        if (!phase.told.empty()) std::printf("    told the producer: %s\n", phase.told.c_str());
        for (const auto& [client, seen] : {std::pair("pavo view", view), std::pair("GStreamer", foreign)}) {
            check(seen.rate >= phase.expectedRate * kLeastShareOfRate,
                  phase.name + ": " + client + " sees fewer frames than it should");
            const bool isLoss = phase.name.starts_with("Producer ");
            check(!isLoss || seen.gapAtChangeMs <= kLongestGapAtKillMs,
                  phase.name + ": " + client + " waited too long for the placeholder");
        }
        sheet.addRow(phase.name + format(": %.1f frames per second", foreign.rate) +
                         format(", longest gap at the change %.0f ms", foreign.gapAtChangeMs),
                     std::move(phase.tiles));
    }
    check(phases_.size() == 5, "not all phases were played");
    if (const auto problem = sheet.write(options_.sheetPath))
        check(false, problem->text);
    else
        std::printf("\nWhat GStreamer saw: %s\n", options_.sheetPath.c_str());
    std::fflush(stdout);
    for (const auto& failure : failures_)
        reporter_.error(failure);
}

// What the children had to say, for whoever looks for the fault.
void Demo::printLog() const
{
    std::ifstream log(session_->folder() + "/log");
    std::fprintf(stderr, "\nLog of the camera and the others:\n");
    for (std::string line; std::getline(log, line);)
        std::fprintf(stderr, "    %s\n", line.c_str());
}

}  // namespace pavo::tools
