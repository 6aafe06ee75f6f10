// The camera's own words, as the process writes them.

#include "Tests/EndToEnd/WholeCamera.h"

#include <signal.h>

#include <algorithm>
#include <array>

namespace pavo::test {
namespace {

class CameraLog : public WholeCamera {
protected:
    // The lines of one category, each as "Level text".
    std::vector<std::string> linesOf(const std::string& category)
    {
        std::vector<std::string> lines;
        for (const auto& line : camera().log())
            if (line.category == category) lines.push_back(line.level + " " + line.text);
        return lines;
    }
    // Whether the camera has written these lines in that order, others between them or not.
    void expectInOrder(const std::vector<std::string>& texts)
    {
        const auto& log = camera().log();
        auto from = log.begin();
        for (const auto& text : texts) {
            const auto found =
                std::find_if(from, log.end(), [&](const auto& line) { return line.text == text; });
            ASSERT_NE(found, log.end()) << text;
            from = std::next(found);
        }
    }
};

TEST_F(CameraLog, TellsOfClientsAndProducersInOrderOnStandardError)
{
    PavoProcess client = watch();
    const std::string process = std::to_string(client.pid());
    ASSERT_TRUE(waitForAdded(client.pid()) && seesPlaceholder(client));
    PavoProcess producer = produce();
    ASSERT_TRUE(seesProducer(client));
    producer.end(SIGKILL);
    ASSERT_TRUE(waitForLosses(1));
    ASSERT_TRUE(seesPlaceholder(client));
    EXPECT_EQ(client.end(SIGTERM), 0);
    ASSERT_TRUE(
        camera().waitForLog("Subconsumer state changed: " + process + " was removed, reporting to producer"));

    expectInOrder({"Starting XPC listener!", "Starting stream! Yay :)",
                   "Subconsumer state changed: " + process + " was added, reporting to producer",
                   "Received XPC connection. Configuring…", "Now resuming XPC connection…",
                   "Target FPS changed to 60.000000", "Sending existing subconsumers (count = 1) to producer",
                   "The XPC connection was invalidated",
                   "Connection died. Swapping back to dead relay frame…", "Stopping stream! Bye :'(",
                   "Subconsumer state changed: " + process + " was removed, reporting to producer"});
    using Lines = std::vector<std::string>;
    EXPECT_EQ(linesOf("BidirectionalXPCServiceServer"),
              (Lines{"Default Starting XPC listener!", "Default Received XPC connection. Configuring…",
                     "Default Now resuming XPC connection…", "Error The XPC connection was invalidated"}));
    EXPECT_EQ(
        linesOf("VideoStreamSource"),
        (Lines{"Default Starting stream! Yay :)",
               "Default Subconsumer state changed: " + process + " was added, reporting to producer",
               "Info Frame rate changed to 60.000000",
               "Default Sending existing subconsumers (count = 1) to producer",
               "Info Connection died. Swapping back to dead relay frame…", "Default Stopping stream! Bye :'(",
               "Default Subconsumer state changed: " + process + " was removed, reporting to producer"}));
    EXPECT_EQ(linesOf("VideoFrameServiceClient"), Lines{"Info Target FPS changed to 60.000000"});
    EXPECT_EQ(linesOf("BasicDefaultFrameGenerator"),
              Lines{"Info Generating default frame for size: (1920.0, 1080.0)"});
    // One for the placeholder, which is no '2vuy', one for the producer, and one for the way back.
    EXPECT_EQ(linesOf("StreamBufferHelper"),
              (Lines{"Info Updating format description", "Info Updating frame rate related properties",
                     "Info Updating format description", "Info Updating format description"}));
}

TEST_F(CameraLog, EndsQuietlyAndWithSuccessOnSigterm)
{
    PavoProcess client = watch();
    ASSERT_TRUE(waitForAdded(client.pid()) && seesPlaceholder(client));
    const auto before = camera().log().size();
    EXPECT_EQ(camera().story(), std::vector<std::string>{"started " + std::to_string(camera().pid())});
    const std::string errors = [&] {
        std::string text;
        for (const auto& line : camera().log())
            if (line.level == "Error" || line.level == "Fault") text += line.text + "\n";
        return text;
    }();
    EXPECT_EQ(errors, "");
    EXPECT_EQ(camera().end(SIGTERM), 0);
    EXPECT_EQ(camera().log().size(), before);
    // The client is told, and ends in words.
    EXPECT_TRUE(eventually([&client] { return !client.isRunning(); }));
    EXPECT_EQ(client.story().back(), "statistics");
    EXPECT_FALSE(client.texts().empty());
}

}  // namespace
}  // namespace pavo::test
