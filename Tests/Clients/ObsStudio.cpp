#include "Tests/Clients/ObsStudio.h"

#include "Tests/Support/Patience.h"

#include <glob.h>
#include <nlohmann/json.hpp>
#include <signal.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>

namespace pavo::test {

namespace {

// Older plugins of this name have sources of screens only.
constexpr const char* kPlugins = "/usr/lib*/{,*/}obs-plugins/linux-pipewire.so";
constexpr const char* kCameraSource = "pipewire-camera-source";
// By which OBS knows the profile, the scene collection and what is in it.
constexpr const char* kName = "Pavo";
constexpr const char* kSceneId = "5d0b1a34-7f0c-4a0e-9a55-0c4f6e6f1d01";
constexpr const char* kSourceId = "5d0b1a34-7f0c-4a0e-9a55-0c4f6e6f1d02";

bool hasCameraSource()
{
    glob_t found{};
    bool hasSource = false;
    if (::glob(kPlugins, GLOB_BRACE, nullptr, &found) == 0)
        for (std::size_t plugin = 0; plugin < found.gl_pathc; ++plugin)
            hasSource |= readFile(found.gl_pathv[plugin]).find(kCameraSource) != std::string::npos;
    ::globfree(&found);
    return hasSource;
}

// Nothing to ask the user at the start or at the end.
void describeApplication(const std::string& folder)
{
    std::ofstream(folder + "/global.ini")
        << "[General]\nFirstRun=true\nConfirmOnExit=false\n"
           "[Basic]\nProfile="
        << kName << "\nProfileDir=" << kName << "\nSceneCollection=" << kName
        << "\nSceneCollectionFile=" << kName << "\n";
}

// Numbers and names of codecs are FFmpeg's. The colours stay RGB on the way into the recording.
void describeProfile(const std::string& folder, const std::string& size, const std::string& recording)
{
    std::filesystem::create_directories(folder);
    std::ofstream(folder + "/basic.ini")
        << "[General]\nName=" << kName
        << "\n[Output]\nMode=Advanced\n"
           "[AdvOut]\nRecType=FFmpeg\nFFOutputToFile=false\nFFURL=file:"
        << recording
        << "\nFFFormat=nut\nFFIgnoreCompat=true\nFFVEncoderId=13\nFFVEncoder=rawvideo\n"
           "FFAEncoderId=65536\nFFAEncoder=pcm_s16le\nFFAudioMixes=1\n"
           "[Video]\nFPSType=0\nFPSCommon=30\nColorFormat=RGB\n"
        << size;
}

// The camera as a user has chosen it, with nothing said about its format.
void describeScenes(const std::string& folder, std::uint32_t width, std::uint32_t height)
{
    constexpr int kStretched = 1, kTopLeft = 5;
    using nlohmann::json;
    const json item = {{"name", "Camera"},
                       {"source_uuid", kSourceId},
                       {"visible", true},
                       {"id", 1},
                       {"align", kTopLeft},
                       {"bounds_type", kStretched},
                       {"bounds", {{"x", width}, {"y", height}}},
                       {"pos", {{"x", 0}, {"y", 0}}},
                       {"scale", {{"x", 1}, {"y", 1}}}};
    const json camera = {{"id", kCameraSource},
                         {"name", "Camera"},
                         {"uuid", kSourceId},
                         {"settings", {{"device_id", "pavo-camera"}}}};
    const json scene = {{"id", "scene"},
                        {"name", "Scene"},
                        {"uuid", kSceneId},
                        {"settings", {{"id_counter", 1}, {"items", json::array({item})}}}};
    std::filesystem::create_directories(folder);
    std::ofstream(folder + "/" + kName + ".json")
        << json({{"name", kName},
                 {"current_scene", "Scene"},
                 {"current_program_scene", "Scene"},
                 {"scene_order", json::array({{{"name", "Scene"}}})},
                 {"sources", json::array({camera, scene})}});
}

std::string sizeOfVideo(std::uint32_t width, std::uint32_t height)
{
    std::string size;
    for (const char* kind : {"Base", "Output"})
        size += std::string(kind) + "CX=" + std::to_string(width) + "\n" + kind +
                "CY=" + std::to_string(height) + "\n";
    return size;
}

}  // namespace

bool ObsStudio::isAvailable(std::string* why)
{
    for (const char* program : {"obs", "Xvfb", "ffmpeg"}) {
        if (isOnPath(program)) continue;
        *why = std::string(program) + " is not installed";
        return false;
    }
    if (hasCameraSource()) return true;
    *why = "this OBS has no source of PipeWire cameras";
    return false;
}

ObsStudio::ObsStudio(const std::string& folder, std::uint32_t width, std::uint32_t height)
    : folder_(folder),
      recording_(folder + "/recording")
{
    const std::string home = folder + "/obs-studio";
    describeProfile(home + "/basic/profiles/" + kName, sizeOfVideo(width, height), recording_);
    describeScenes(home + "/basic/scenes", width, height);
    describeApplication(home);
    ::mkfifo(recording_.c_str(), 0600);

    // It takes a number that no other screen has, and says which once it is there.
    const std::string number = folder + "/screen";
    screen_ = ChildProcess({"sh", "-c", "exec Xvfb -displayfd 3 -nolisten tcp 3>\"$0\"", number},
                           folder + "/screen.log");
    if (!eventually([&number] { return readFile(number).ends_with('\n'); })) return;
    std::string display = readFile(number);
    display.pop_back();
    process_ = ChildProcess({"env", "DISPLAY=:" + display, "QT_QPA_PLATFORM=xcb", "obs", "--multi",
                             "--minimize-to-tray", "--disable-shutdown-check",
                             "--disable-missing-files-check", "--startrecording"},
                            folder + "/obs.log");
}

ObsStudio::~ObsStudio()
{
    end();
    screen_.end(SIGTERM);
}

void ObsStudio::end()
{
    process_.end(SIGTERM);
}

std::string ObsStudio::log() const
{
    return readFile(folder_ + "/obs.log");
}

}  // namespace pavo::test
