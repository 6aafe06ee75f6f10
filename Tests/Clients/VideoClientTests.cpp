// GStreamer and ffmpeg see the camera in the formats that it offers, and in the right colours.

#include "Tests/Clients/VideoClient.h"
#include "Tests/EndToEnd/WholeCamera.h"

#include <cstdio>

namespace pavo::test {
namespace {

using Arguments = std::vector<std::string>;

const std::string kSize =
    "width=" + std::to_string(VideoClient::kWidth) + ",height=" + std::to_string(VideoClient::kHeight);

class CameraInADesktop : public WholeCamera {
protected:
    CameraInADesktop() : WholeCamera(Server::daemon) {}

    // A client that is open all the time: placeholder, producer, placeholder.
    void expectEverything(VideoClient& client, const std::string& name)
    {
        const ClientPicture before = client.waitFor(isPlaceholder);
        ASSERT_FALSE(before.rgb.empty()) << client.log();
        keepPicture(before, name + "-placeholder");

        PavoProcess producer = produce();
        const auto showsPattern = [](const ClientPicture& picture) { return counterOf(picture).has_value(); };
        const ClientPicture during = client.waitFor(showsPattern);
        ASSERT_FALSE(during.rgb.empty()) << client.log();
        keepPicture(during, name + "-pattern");
        EXPECT_LE(worstBarError(during), kColourTolerance);
        const std::size_t first = client.frameCount();
        ASSERT_TRUE(client.waitForFrames(60)) << client.log();
        std::printf("%s: %.1f frames a second\n", name.c_str(), client.rateSince(first));
        EXPECT_GT(counterOf(client.waitFor(showsPattern)), counterOf(during));
        EXPECT_EQ(producer.end(SIGTERM), 0);

        EXPECT_FALSE(client.waitFor(isPlaceholder).rgb.empty()) << client.log();
        EXPECT_TRUE(client.isRunning());
    }
};

// The camera's colours in GStreamer's words: range, matrix, transfer function and primaries.
const std::string kColorimetry = "2:4:7:1";

class CameraInGStreamer : public CameraInADesktop, public testing::WithParamInterface<const char*> {};
INSTANTIATE_TEST_SUITE_P(As, CameraInGStreamer, testing::Values("YUY2", "NV12"),
                         [](const auto& test) { return std::string(test.param); });

TEST_P(CameraInGStreamer, ShowsProducersComeAndGoInRightColours)
{
    if (!isOnPath("gst-launch-1.0")) GTEST_SKIP() << "gst-launch-1.0 is not installed";
    const std::string format = GetParam();
    // The caps let no other format or size through, and say of the colours what the plugin leaves out.
    VideoClient client(
        {"gst-launch-1.0", "-q", "pipewiresrc", "target-object=pavo-camera", "!",
         "video/x-raw,format=" + format + ",width=1920,height=1080,colorimetry=" + kColorimetry, "!",
         "videoconvert", "!", "video/x-raw,format=RGB", "!", "videoscale", "!", "video/x-raw," + kSize, "!",
         "fdsink", "fd=1", "sync=false"},
        folder() + "/gstreamer.log");
    expectEverything(client, "gstreamer-" + format);
    EXPECT_EQ(client.end(), 0) << client.log();
}

class CameraInFFmpeg : public CameraInADesktop {
protected:
    void SetUp() override
    {
        for (const char* program : {"ffmpeg", "ffprobe", "pw-v4l2"})
            if (!isOnPath(program)) GTEST_SKIP() << program << " is not installed";
        CameraInADesktop::SetUp();
    }
    // Runs to the end; what it wrote.
    std::string run(const Arguments& arguments)
    {
        const std::string output = folder() + "/output";
        ChildProcess process(arguments, output);
        EXPECT_EQ(process.waitForExit(kPatience), 0) << arguments.front();
        return readFile(output);
    }
};

const std::string kScale = "scale=480:270";

TEST_F(CameraInFFmpeg, ShowsProducersComeAndGoInRightColours)
{
    VideoClient client({"pw-v4l2", "ffmpeg", "-nostdin", "-v", "error", "-f", "v4l2", "-i", "/dev/video0",
                        "-vf", kScale, "-pix_fmt", "rgb24", "-f", "rawvideo", "-"},
                       folder() + "/ffmpeg.log");
    expectEverything(client, "ffmpeg");
    EXPECT_TRUE(client.end()) << client.log();
}

TEST_F(CameraInFFmpeg, RecordsAFile)
{
    PavoProcess producer = produce();
    ASSERT_TRUE(eventually([&producer] { return !producer.lastReport("connected").is_null(); }));
    const std::string file = folder() + "/recording.mkv";
    run({"pw-v4l2", "ffmpeg", "-nostdin", "-v", "error", "-f", "v4l2", "-i", "/dev/video0", "-frames:v", "60",
         "-colorspace", "smpte170m", "-c:v", "libx264", "-preset", "ultrafast", file});
    const auto facts =
        nlohmann::json::parse(run({"ffprobe", "-v", "error", "-count_frames", "-show_entries",
                                   "stream=width,height,nb_read_frames,color_space", "-of", "json", file}),
                              nullptr, false);
    ASSERT_TRUE(facts.is_object() && facts["streams"].size() == 1) << facts;
    EXPECT_EQ(facts["streams"][0]["width"], 1920);
    EXPECT_EQ(facts["streams"][0]["height"], 1080);
    EXPECT_EQ(facts["streams"][0]["nb_read_frames"], "60");
    EXPECT_EQ(facts["streams"][0]["color_space"], "smpte170m");

    const std::string last = folder() + "/last.png";
    run({"ffmpeg", "-nostdin", "-v", "error", "-sseof", "-0.2", "-i", file, "-update", "1", "-vf", kScale,
         last});
    const auto picture = readPicture(last);
    ASSERT_TRUE(picture);
    keepPicture(*picture, "ffmpeg-recording");
    EXPECT_TRUE(counterOf(*picture));
    EXPECT_LE(worstBarError(*picture), kColourTolerance);
    EXPECT_EQ(producer.end(SIGTERM), 0);
}

}  // namespace
}  // namespace pavo::test
