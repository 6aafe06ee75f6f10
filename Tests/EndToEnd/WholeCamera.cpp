#include "Tests/EndToEnd/WholeCamera.h"

#include <signal.h>

#include <algorithm>
#include <cstdlib>

namespace pavo::test {

namespace {

std::string joined(const std::vector<std::string>& lines)
{
    std::string text;
    for (const auto& line : lines)
        text += line + "\n";
    return text;
}

template <typename Wanted>
bool seesFrames(PavoProcess& client, std::size_t count, Wanted isWanted)
{
    const std::size_t before = client.frames().size();
    return eventually([&] {
        const auto& frames = client.frames();
        const auto begin = frames.begin() + static_cast<std::ptrdiff_t>(before);
        return static_cast<std::size_t>(std::count_if(begin, frames.end(), isWanted)) >= count;
    });
}

}  // namespace

std::string nameOf(Server server)
{
    return server == Server::daemon ? "Daemon" : "Embedded";
}

std::string added(pid_t client)
{
    return "watcherAdded " + std::to_string(client);
}

std::string removed(pid_t client)
{
    return "watcherRemoved " + std::to_string(client);
}

void WholeCamera::SetUp()
{
    std::string why;
    if (!PipeWireSession::isAvailable(&why)) GTEST_SKIP() << why;
    const bool isEmbedded = server_ == Server::embedded;
    session_ = std::make_unique<PipeWireSession>(isEmbedded ? PipeWireSession::Daemon::absent
                                                            : PipeWireSession::Daemon::running);
    ASSERT_TRUE(session_->isReady());
    ::setenv("PAVO_BOOTSTRAP_DIR", names_.path().c_str(), 1);
    ::setenv("PAVO_LOG", "stderr", 1);
    ::setenv("OS_ACTIVITY_MODE", "debug", 1);
    ::setenv("PAVO_PIPEWIRE", isEmbedded ? "embedded" : "daemon", 1);
    ::setenv("PIPEWIRE_REMOTE", isEmbedded ? "pavo-0" : "pipewire-0", 1);
    camera_ = std::make_unique<CameraProcess>();
    ASSERT_TRUE(eventually([this] { return camera_->countWith("Connected to PipeWire") == 1; }))
        << joined(camera_->texts());
}

void WholeCamera::TearDown()
{
    if (camera_) {
        EXPECT_EQ(camera_->end(SIGTERM), 0);
        if (HasFailure()) ADD_FAILURE() << "The camera wrote:\n" << joined(camera_->texts());
    }
    camera_.reset();
    session_.reset();
    for (const char* name : {"PAVO_BOOTSTRAP_DIR", "PAVO_LOG", "OS_ACTIVITY_MODE"})
        ::unsetenv(name);
}

std::string WholeCamera::serviceSocket() const
{
    return names_.path() + "/user/com.tarnwell.macos.cam.avextension";
}

PavoProcess WholeCamera::watch(const std::vector<std::string>& more)
{
    std::vector<std::string> arguments = {"view", "--trace", "--wait", std::to_string(kPatience.count())};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return PavoProcess(std::move(arguments));
}

PavoProcess WholeCamera::produce(const std::vector<std::string>& more)
{
    std::vector<std::string> arguments = {"send"};
    if (std::find(more.begin(), more.end(), "--size") == more.end())
        arguments.insert(arguments.end(), {"--size", "640x360"});
    arguments.insert(arguments.end(), more.begin(), more.end());
    return PavoProcess(std::move(arguments));
}

bool WholeCamera::seesProducer(PavoProcess& client, std::size_t frames)
{
    return seesFrames(client, frames, [](const ViewedFrame& frame) { return frame.counter.has_value(); });
}

bool WholeCamera::seesPlaceholder(PavoProcess& client, std::size_t frames)
{
    return seesFrames(client, frames, [](const ViewedFrame& frame) { return !frame.counter.has_value(); });
}

void WholeCamera::expectStory(PavoProcess& process, const std::vector<std::string>& expected)
{
    eventually([&] { return process.story().size() >= expected.size(); });
    EXPECT_EQ(process.story(), expected) << joined(process.texts());
}

bool WholeCamera::waitForLosses(std::size_t count)
{
    return camera_->waitForLog("Connection died. Swapping back to dead relay frame…", count);
}

bool WholeCamera::waitForAdded(pid_t client)
{
    return camera_->waitForLog("Subconsumer state changed: " + std::to_string(client) +
                               " was added, reporting to producer");
}

bool WholeCamera::waitForRemoved(pid_t client)
{
    return camera_->waitForLog("Subconsumer state changed: " + std::to_string(client) +
                               " was removed, reporting to producer");
}

}  // namespace pavo::test
