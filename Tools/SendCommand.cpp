#include "Tools/Arguments.h"
#include "Tools/ByteReader.h"
#include "Tools/Commands.h"
#include "Tools/ConvertedSource.h"
#include "Tools/FrameSender.h"
#include "Tools/PatternSource.h"
#include "Tools/PictureSource.h"
#include "Tools/PngFile.h"
#include "Tools/RawVideoSource.h"
#include "Tools/Reporter.h"
#include "Tools/StopSignal.h"
#include "Tools/Y4MSource.h"

#include <memory>
#include <string>
#include <unistd.h>

namespace pavo::tools {
namespace {

struct SendOptions {
    std::string input;
    std::string pngPath;
    std::string size;
    std::string packing;
    std::string matrix;
    std::string rate;
    std::uint64_t frames = 0;
    bool isJson = false;
};

using Source = Result<std::unique_ptr<FrameSource>>;

// What does not go together on the command line; empty where all is well.
std::string conflictIn(const SendOptions& options)
{
    if (!options.input.empty() && options.input != "-")
        return "the input is - for standard input, not '" + options.input + "'; a picture is sent with --png";
    const bool isStream = !options.input.empty();
    if (isStream && !options.pngPath.empty()) return "send either --png or standard input";
    if (!options.pngPath.empty() && !options.size.empty()) return "a PNG has its own size: leave --size out";
    if (!options.packing.empty() && !isStream) return "--format describes raw video on standard input: add -";
    if (!options.matrix.empty() && !isStream) return "--matrix describes video on standard input: add -";
    if (isStream && options.size.empty() != options.packing.empty())
        return "raw video needs both --size and --format; YUV4MPEG2 needs neither";
    if (!options.matrix.empty() && !options.packing.empty() &&
        parsePacking(options.packing).value() == Packing::bgra)
        return "BGRA has no matrix: leave --matrix out";
    return {};
}

Source openStandardInput(const SendOptions& options, const StopSignal& stop)
{
    auto reader = std::make_unique<ByteReader>(STDIN_FILENO, stop.descriptor());
    if (reader->startsWith(kY4MMagic)) return Y4MSource::open(std::move(reader));
    if (!options.size.empty()) {
        const Size size = parseSize(options.size).value();
        const VideoFormat format{parsePacking(options.packing).value(), size.width, size.height};
        return std::unique_ptr<FrameSource>(std::make_unique<RawVideoSource>(std::move(reader), format));
    }
    if (reader->wasStopped()) return Problem{"stopped before the input began"};
    std::uint8_t first = 0;
    if (reader->read({&first, 1}) == 0) return Problem{"standard input is empty"};
    return Problem{"standard input is not YUV4MPEG2; raw video needs --size and --format"};
}

// Frames as the camera wants them.
Source withMatrixOfCamera(Source source, const SendOptions& options)
{
    if (!source) return source;
    const VideoFormat format = source.value()->format();
    std::optional<Matrix> matrix;
    if (!options.matrix.empty()) matrix = parseMatrix(options.matrix).value();
    if (!matrix) matrix = usualMatrix(format.height);
    if (format.packing == Packing::bgra || *matrix == Matrix::bt601) return source;
    return std::unique_ptr<FrameSource>(
        std::make_unique<ConvertedSource>(std::move(source.value()), *matrix));
}

Source openSource(const SendOptions& options, const StopSignal& stop)
{
    if (!options.input.empty()) return withMatrixOfCamera(openStandardInput(options, stop), options);
    if (!options.pngPath.empty()) {
        auto picture = readPng(options.pngPath);
        if (!picture) return picture.problem();
        return std::unique_ptr<FrameSource>(std::make_unique<PictureSource>(std::move(picture.value())));
    }
    const Size size = options.size.empty() ? Size{1920, 1080} : parseSize(options.size).value();
    return std::unique_ptr<FrameSource>(std::make_unique<PatternSource>(size.width, size.height));
}

int send(const SendOptions& options)
{
    Reporter reporter("pavo send", options.isJson);
    if (const auto conflict = conflictIn(options); !conflict.empty()) {
        reporter.error(conflict);
        return kWrongUsage;
    }
    const StopSignal stop;
    auto source = openSource(options, stop);
    if (!source) {
        reporter.error(source.problem().text);
        return kFailure;
    }
    FrameRate rate = source.value()->rate().value_or(FrameRate{60, 1});
    if (!options.rate.empty()) rate = parseRate(options.rate).value();
    FrameSender sender(*source.value(), rate, reporter, stop);
    return sender.run(options.frames) ? 0 : kFailure;
}

}  // namespace

void addSendCommand(CLI::App& app, int& exitCode)
{
    auto options = std::make_shared<SendOptions>();
    CLI::App* command = app.add_subcommand("send", "Be a producer: send pictures to the camera");
    command->add_option("input", options->input, "- for video on standard input; default: a test pattern");
    command->add_option("--png", options->pngPath, "Send this picture, again and again")
        ->check(checkedBy(parseName))
        ->type_name("FILE");
    command
        ->add_option("--size", options->size,
                     "WIDTHxHEIGHT of the test pattern or of raw video; default: 1920x1080")
        ->check(checkedBy(parseSize))
        ->type_name("SIZE");
    command->add_option("--format", options->packing, "Of raw video: UYVY, YUY2, NV12, I420 or BGRA")
        ->check(checkedBy(parsePacking))
        ->type_name("FORMAT");
    command
        ->add_option("--matrix", options->matrix,
                     "Of YUV video: auto, bt601 or bt709; auto is bt709 from 720 lines on")
        ->check(checkedBy(parseMatrix))
        ->type_name("MATRIX");
    command
        ->add_option("--fps", options->rate,
                     "Frames per second, as 29.97 or 30000/1001; default: what the input says, or 60")
        ->check(checkedBy(parseRate))
        ->type_name("RATE");
    command->add_option("--frames", options->frames, "End after so many frames, sent or not")
        ->check(checkedBy(parseCount))
        ->type_name("COUNT");
    command->add_flag("--json", options->isJson,
                      "Say what happens on standard output, one JSON object a line");
    command->footer(
        "Standard input is YUV4MPEG2 (8 bits, 4:2:0 or 4:2:2) or, with --size and --format, raw video:\n"
        "    ffmpeg -re -i clip.mp4 -f yuv4mpegpipe - | pavo send -\n"
        "    ffmpeg -re -i clip.mp4 -f rawvideo -pix_fmt uyvy422 - | pavo send - --size 1280x720 --format "
        "UYVY\n"
        "Sending begins when the camera is there; a lost camera is dialled again. While nobody watches the\n"
        "camera, frames are left out but keep their pace, so a live input is never held up.");
    command->callback([options, &exitCode] { exitCode = send(*options); });
}

}  // namespace pavo::tools
