#include "Tools/CameraViewer.h"

#include "Tools/Arguments.h"
#include "Tools/MatrixConversion.h"
#include "Tools/PngFile.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <nlohmann/json.hpp>
#include <poll.h>
#include <sys/eventfd.h>
#include <utility>

namespace pavo::tools {
namespace {

// How many frames wait for a slow reader before the oldest is given up.
constexpr std::size_t kNotesKept = 16;

std::int64_t nanoseconds(double seconds)
{
    return static_cast<std::int64_t>(seconds * 1e9);
}

int closeFile(std::FILE* file)
{
    return file == stdout ? std::fflush(file) : std::fclose(file);
}

}  // namespace

CameraViewer::CameraViewer(const ViewerOptions& options, Reporter& reporter, const StopSignal& stop)
    : options_(options),
      reporter_(reporter),
      stop_(stop),
      wakeSignal_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)),
      video_(nullptr, closeFile)
{}

CameraViewer::~CameraViewer() = default;

void CameraViewer::wake()
{
    ::eventfd_write(wakeSignal_.get(), 1);
}

// What the frame is wanted for. On the data thread, with the mutex held.
void CameraViewer::decide(Note& note)
{
    note.isFirst = statistics_.frames() == 0;
    if (note.isFirst) firstArrivalNs_ = nextPictureNs_ = note.arrivalNs;
    if (!options_.snapshotPath.empty() && !hasSnapshot_ &&
        note.arrivalNs - firstArrivalNs_ >= nanoseconds(options_.afterSeconds))
        note.isForSnapshot = hasSnapshot_ = true;
    if (options_.everySeconds > 0 && note.arrivalNs >= nextPictureNs_) {
        nextPictureNs_ += nanoseconds(options_.everySeconds);
        note.isForSeries = true;
    }
}

void CameraViewer::arrived(const CameraFrame& frame)
{
    if (!isWhole(frame)) return;
    Note note;
    note.arrivalNs = frame.arrivalNs;
    note.presentationTimeNs = frame.presentationTimeNs;
    note.sequence = frame.sequence;
    if (options_.tracesFrames) note.counter = counterOf(frame);
    {
        const std::lock_guard lock(mutex_);
        if (options_.frames > 0 && statistics_.frames() >= options_.frames) return;
        decide(note);
        if (!note.isFirst && note.sequence > lastSequence_ + 1)
            framesMissing_ += note.sequence - lastSequence_ - 1;
        lastSequence_ = note.sequence;
        statistics_.add(note.arrivalNs);
        if (video_ || note.isFirst || note.isForSnapshot || note.isForSeries)
            note.frame = std::make_shared<const KeptFrame>(frame);
        else if (!options_.tracesFrames)
            return;
        notes_.push_back(std::move(note));
        if (notes_.size() > kNotesKept) {
            notes_.pop_front();
            ++notesDropped_;
        }
    }
    wake();
}

bool CameraViewer::openVideo()
{
    if (options_.videoPath.empty()) return true;
    video_.reset(options_.videoPath == "-" ? stdout : std::fopen(options_.videoPath.c_str(), "wbe"));
    if (video_) return true;
    reporter_.error("cannot write " + options_.videoPath + ": " + std::strerror(errno));
    return false;
}

bool CameraViewer::writeVideo(const KeptFrame& kept)
{
    std::FILE* file = video_.get();
    bool isGood = true;
    if (options_.isY4M) {
        if (framesWritten_ == 0)
            isGood = std::fprintf(file, "YUV4MPEG2 W%u H%u F60:1 Ip A1:1 C420mpeg2 XCOLORRANGE=LIMITED\n",
                                  kept.frame.width, kept.frame.height) > 0;
        Image image = i420Of(kept.frame);
        // The header has no word for the matrix, so readers take the usual one.
        const Matrix usual = usualMatrix(kept.frame.height);
        if (usual != kept.frame.matrix) MatrixConversion(kept.frame.matrix, usual).convert(image.view());
        isGood = isGood && std::fputs("FRAME\n", file) >= 0 &&
                 std::fwrite(image.bytes().data(), 1, image.bytes().size(), file) == image.bytes().size();
    } else {
        isGood = std::fwrite(kept.bytes.data(), 1, kept.bytes.size(), file) == kept.bytes.size();
    }
    if (isGood && std::fflush(file) == 0) {
        ++framesWritten_;
        return true;
    }
    reporter_.error(errno == EPIPE ? std::string("the reader of the video has gone")
                                   : "cannot write the video: " + std::string(std::strerror(errno)));
    return false;
}

bool CameraViewer::writePicture(const KeptFrame& kept, const std::string& path)
{
    if (const auto problem = writePng(path, kept.frame.width, kept.frame.height, rgbOf(kept.frame))) {
        reporter_.error(problem->text);
        return false;
    }
    reporter_.say("Wrote " + path + ".");
    reporter_.emit({{"event", "picture"}, {"file", path}, {"arrivalNs", kept.frame.arrivalNs}});
    return true;
}

bool CameraViewer::handle(const Note& note)
{
    if (note.isFirst) {
        const CameraFrame& frame = note.frame->frame;
        reporter_.say("Watching " + options_.cameraName + ": " + std::to_string(frame.width) + "x" +
                      std::to_string(frame.height) + " " + std::string(nameOf(frame.format)) + ".");
        reporter_.emit({{"event", "format"},
                        {"width", frame.width},
                        {"height", frame.height},
                        {"format", nameOf(frame.format)}});
        // The camera has one format for all who watch, which the first of them chose.
        if (options_.format && *options_.format != frame.format)
            reporter_.say("Others watch it already: it cannot be " + std::string(nameOf(*options_.format)) +
                          " until they have gone.");
    }
    if (options_.tracesFrames) {
        nlohmann::json event = {{"event", "frame"},
                                {"arrivalNs", note.arrivalNs},
                                {"presentationTimeNs", note.presentationTimeNs},
                                {"sequence", note.sequence}};
        event["counter"] = note.counter ? nlohmann::json(*note.counter) : nlohmann::json();
        if (!reporter_.emit(event)) return false;
    }
    if (video_ && !writeVideo(*note.frame)) return false;
    if (note.isForSnapshot) {
        if (!writePicture(*note.frame, options_.snapshotPath)) return false;
        isSnapshotWritten_ = true;
    }
    if (!note.isForSeries) return true;
    return writePicture(*note.frame, numberedName(options_.picturePattern, picturesWritten_++).value());
}

bool CameraViewer::handle(const StateNote& note)
{
    switch (note.state) {
    case CameraState::paused:
        reporter_.emit({{"event", "paused"}});
        return true;
    case CameraState::streaming:
        reporter_.emit({{"event", "streaming"}});
        return true;
    case CameraState::lost:
        break;
    }
    reporter_.emit({{"event", "lost"}, {"reason", note.reason}});
    reporter_.error(note.reason);
    return false;
}

// Handles what the data thread has left until now; it may leave things faster than they can be written. Once
// the program is to end, pictures that wait are left out. False: it is over, because something failed.
bool CameraViewer::drain()
{
    std::deque<Note> notes;
    std::deque<StateNote> states;
    {
        const std::lock_guard lock(mutex_);
        notes.swap(notes_);
        states.swap(states_);
    }
    for (const auto& note : notes) {
        if (note.frame && stop_.hasCome()) {
            const std::lock_guard lock(mutex_);
            ++notesDropped_;
        } else if (!handle(note)) {
            return false;
        }
    }
    return std::all_of(states.begin(), states.end(), [this](const StateNote& note) { return handle(note); });
}

bool CameraViewer::isOver()
{
    if (options_.seconds > 0 && monotonicNs() - startNs_ >= nanoseconds(options_.seconds)) return true;
    const bool endsWithSnapshot = options_.seconds <= 0 && options_.frames == 0 && options_.everySeconds <= 0;
    if (isSnapshotWritten_ && endsWithSnapshot) return true;
    const std::lock_guard lock(mutex_);
    return options_.frames > 0 && statistics_.frames() >= options_.frames && notes_.empty();
}

bool CameraViewer::run()
{
    if (!openVideo()) return false;
    CameraClient::Options wanted;
    wanted.remoteName = options_.remoteName;
    wanted.cameraName = options_.cameraName;
    wanted.deadline = std::chrono::milliseconds(static_cast<std::int64_t>(options_.waitSeconds * 1000));
    if (options_.format) wanted.formats = {*options_.format};
    wanted.onFrame = [this](const CameraFrame& frame) { arrived(frame); };
    wanted.onStateChanged = [this](CameraState state, std::string_view reason) {
        {
            const std::lock_guard lock(mutex_);
            states_.push_back({state, std::string(reason)});
        }
        wake();
    };
    client_ = std::make_unique<CameraClient>(std::move(wanted));
    if (const auto problem = client_->start()) {
        reporter_.error(*problem);
        return false;
    }
    startNs_ = monotonicNs();
    bool isGood = true;
    std::array<pollfd, 2> waiting = {{{stop_.descriptor(), POLLIN, 0}, {wakeSignal_.get(), POLLIN, 0}}};
    while (isGood && !waiting[0].revents && !isOver()) {
        constexpr int kLookAtTheClockMs = 50;
        ::poll(waiting.data(), waiting.size(), kLookAtTheClockMs);
        eventfd_t wakes = 0;
        if (waiting[1].revents) ::eventfd_read(wakeSignal_.get(), &wakes);
        isGood = drain();
        showStatus();
    }
    client_->stop();
    isGood = isGood && drain();
    reportStatistics();
    return isGood;
}

void CameraViewer::showStatus()
{
    const std::int64_t now = monotonicNs();
    if (now < nextStatusNs_) return;
    nextStatusNs_ = now + Reporter::kStatusEveryNs;
    IntervalStatistics::Summary summary;
    {
        const std::lock_guard lock(mutex_);
        summary = statistics_.summary();
    }
    std::array<char, 128> text{};
    std::snprintf(text.data(), text.size(), "%zu frames, %.1f per second, longest gap %.1f ms",
                  summary.frames, summary.framesPerSecond, summary.longestMs);
    reporter_.status(text.data());
}

void CameraViewer::reportStatistics()
{
    const auto summary = statistics_.summary();
    std::array<char, 256> text{};
    std::snprintf(
        text.data(), text.size(),
        "%zu frame%s, %.2f per second; between frames: median %.1f ms, 99 %% within %.1f ms, longest "
        "%.1f ms; %llu missing.",
        summary.frames, summary.frames == 1 ? "" : "s", summary.framesPerSecond, summary.medianMs,
        summary.percentile99Ms, summary.longestMs, static_cast<unsigned long long>(framesMissing_));
    reporter_.say(text.data());
    if (notesDropped_ > 0)
        reporter_.say(std::to_string(notesDropped_) + " frames were left out because writing was too slow.");
    reporter_.emit({{"event", "statistics"},
                    {"frames", summary.frames},
                    {"framesPerSecond", summary.framesPerSecond},
                    {"medianMs", summary.medianMs},
                    {"percentile99Ms", summary.percentile99Ms},
                    {"longestMs", summary.longestMs},
                    {"missing", framesMissing_},
                    {"leftOut", notesDropped_}});
}

}  // namespace pavo::tools
