#include "Tools/Arguments.h"
#include "Tools/CameraViewer.h"
#include "Tools/Commands.h"

#include <memory>
#include <string>

namespace pavo::tools {
namespace {

struct ViewArguments {
    ViewerOptions viewer;
    std::string rawPath;
    std::string y4mPath;
    std::string format;
    bool isJson = false;
};

constexpr std::array kFormatNames = {"YUY2", "UYVY", "NV12", "BGRx"};
constexpr std::array kFormats = {CameraFormat::yuy2, CameraFormat::uyvy, CameraFormat::nv12,
                                 CameraFormat::bgrx};

// What does not go together on the command line; empty where all is well.
std::string conflictIn(const ViewArguments& arguments)
{
    const ViewerOptions& viewer = arguments.viewer;
    if (!arguments.rawPath.empty() && !arguments.y4mPath.empty()) return "write either --raw or --y4m";
    if (arguments.isJson && (arguments.rawPath == "-" || arguments.y4mPath == "-"))
        return "--json and video cannot both go to standard output";
    if (viewer.everySeconds > 0 && viewer.picturePattern.empty()) return "--every needs --out";
    if (viewer.everySeconds <= 0 && !viewer.picturePattern.empty()) return "--out needs --every";
    if (viewer.afterSeconds > 0 && viewer.snapshotPath.empty()) return "--after needs --snapshot";
    if (viewer.tracesFrames && !arguments.isJson) return "--trace needs --json";
    return {};
}

int view(const ViewArguments& arguments)
{
    Reporter reporter("pavo view", arguments.isJson);
    if (const auto conflict = conflictIn(arguments); !conflict.empty()) {
        reporter.error(conflict);
        return kWrongUsage;
    }
    ViewerOptions options = arguments.viewer;
    options.isY4M = !arguments.y4mPath.empty();
    options.videoPath = options.isY4M ? arguments.y4mPath : arguments.rawPath;
    for (std::size_t i = 0; i < kFormats.size(); ++i)
        if (arguments.format == kFormatNames[i]) options.format = kFormats[i];
    const StopSignal stop;
    CameraViewer viewer(options, reporter, stop);
    return viewer.run() ? 0 : kFailure;
}

}  // namespace

void addViewCommand(CLI::App& app, int& exitCode)
{
    auto arguments = std::make_shared<ViewArguments>();
    ViewerOptions& viewer = arguments->viewer;
    CLI::App* command = app.add_subcommand("view", "Be a client: watch the camera");
    command->add_option("--snapshot", viewer.snapshotPath, "Write one picture to this PNG file, and end");
    command->add_option("--after", viewer.afterSeconds, "Seconds from the first frame to the snapshot")
        ->check(CLI::NonNegativeNumber);
    command->add_option("--every", viewer.everySeconds, "Write a picture every so many seconds")
        ->check(CLI::PositiveNumber);
    command->add_option("--out", viewer.picturePattern, "Their file names, as shot-%04d.png")
        ->check([](const std::string& text) {
            const auto name = numberedName(text, 0);
            return name ? std::string() : name.problem().text;
        });
    command->add_option("--raw", arguments->rawPath,
                        "Write the frames' bytes to this file, or - for standard output");
    command->add_option("--y4m", arguments->y4mPath, "The same as YUV4MPEG2");
    command
        ->add_option("--format", arguments->format,
                     "Ask for YUY2, UYVY, NV12 or BGRx; default: the camera's choice")
        ->transform(CLI::IsMember(std::vector<std::string>(kFormatNames.begin(), kFormatNames.end()),
                                  CLI::ignore_case));
    command->add_option("--frames", viewer.frames, "End after so many frames")->check(CLI::PositiveNumber);
    command->add_option("--seconds", viewer.seconds, "End after so many seconds")->check(CLI::PositiveNumber);
    command->add_option("--wait", viewer.waitSeconds, "Seconds to wait for the camera; default: 5")
        ->check(CLI::NonNegativeNumber);
    command->add_option("--camera", viewer.cameraName, "The camera's node.name; default: pavo-camera");
    command->add_option("--remote", viewer.remoteName,
                        "The PipeWire to ask; default: as PIPEWIRE_REMOTE says");
    command->add_flag("--json", arguments->isJson,
                      "Say what happens on standard output, one JSON object a line");
    command->add_flag("--trace", viewer.tracesFrames,
                      "With --json: say when each frame came, and its test counter");
    command->footer(
        "Ends with the number of frames, their rate, and the gaps between them. Without an end on the\n"
        "command line it watches until Ctrl-C. Examples:\n"
        "    pavo view --snapshot now.png\n"
        "    pavo view --every 10 --out shot-%04d.png\n"
        "    pavo view --y4m - | ffplay -");
    command->callback([arguments, &exitCode] { exitCode = view(*arguments); });
}

}  // namespace pavo::tools
