#include "Tools/Arguments.h"
#include "Tools/CameraViewer.h"
#include "Tools/Commands.h"

#include <algorithm>
#include <cctype>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace pavo::tools {
namespace {

struct ViewArguments {
    ViewerOptions viewer;
    std::string rawPath;
    std::string y4mPath;
    std::string format;
    bool isJson = false;
};

// In any case of letters.
std::optional<CameraFormat> formatNamed(std::string_view name)
{
    const auto isSame = [](char a, char b) {
        return std::toupper(static_cast<unsigned char>(a)) == std::toupper(static_cast<unsigned char>(b));
    };
    for (const auto format : {CameraFormat::yuy2, CameraFormat::uyvy, CameraFormat::nv12, CameraFormat::bgrx})
        if (std::ranges::equal(name, nameOf(format), isSame)) return format;
    return std::nullopt;
}

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
    options.format = formatNamed(arguments.format);
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
    command->add_option("--snapshot", viewer.snapshotPath, "Write one picture to this PNG file, and end")
        ->check(checkedBy(parseName))
        ->type_name("FILE");
    command->add_option("--after", viewer.afterSeconds, "From the first frame to the snapshot; default: 0")
        ->check(checkedBy(parseDelay))
        ->type_name("SECONDS");
    command->add_option("--every", viewer.everySeconds, "Write a picture every so many seconds")
        ->check(checkedBy(parseDuration))
        ->type_name("SECONDS");
    command->add_option("--out", viewer.picturePattern, "Their file names, as shot-%04d.png")
        ->check([](const std::string& text) {
            const auto name = numberedName(text, 0);
            return name ? std::string() : name.problem().text;
        })
        ->type_name("FILES");
    command
        ->add_option("--raw", arguments->rawPath,
                     "Write the frames' bytes to this file, or - for standard output")
        ->check(checkedBy(parseName))
        ->type_name("FILE");
    command->add_option("--y4m", arguments->y4mPath, "The same as YUV4MPEG2")
        ->check(checkedBy(parseName))
        ->type_name("FILE");
    command
        ->add_option("--format", arguments->format,
                     "Ask for YUY2, UYVY, NV12 or BGRx; default: the camera's choice")
        ->check([](const std::string& text) {
            return formatNamed(text) ? std::string()
                                     : "a format is YUY2, UYVY, NV12 or BGRx, not '" + text + "'";
        })
        ->type_name("FORMAT");
    command->add_option("--frames", viewer.frames, "End after so many frames")
        ->check(checkedBy(parseCount))
        ->type_name("COUNT");
    command->add_option("--seconds", viewer.seconds, "End after so many seconds")
        ->check(checkedBy(parseDuration))
        ->type_name("SECONDS");
    command->add_option("--wait", viewer.waitSeconds, "For the camera to appear; default: 5")
        ->check(checkedBy(parseDelay))
        ->type_name("SECONDS");
    command->add_option("--camera", viewer.cameraName, "The camera's node.name; default: pavo-camera")
        ->check(checkedBy(parseName))
        ->type_name("NAME");
    command
        ->add_option("--remote", viewer.remoteName,
                     "The PipeWire to ask, as pavo-0; default: as PIPEWIRE_REMOTE says")
        ->check(checkedBy(parseName))
        ->type_name("NAME");
    command->add_flag("--json", arguments->isJson,
                      "Say what happens on standard output, one JSON object a line");
    command->add_flag("--trace", viewer.tracesFrames,
                      "With --json: say when each frame was sent and came, and its test counter");
    command->footer(
        "Ends with the number of frames, their rate, and the gaps between them. Without an end on the\n"
        "command line it watches until Ctrl-C. Examples:\n"
        "    pavo view --snapshot now.png\n"
        "    pavo view --every 10 --out shot-%04d.png\n"
        "    pavo view --y4m - | ffplay -");
    command->callback([arguments, &exitCode] { exitCode = view(*arguments); });
}

}  // namespace pavo::tools
