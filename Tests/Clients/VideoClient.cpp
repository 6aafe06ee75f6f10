#include "Tests/Clients/VideoClient.h"

#include "Tests/Support/ChildProcess.h"
#include "Tests/Support/Patience.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <utility>

namespace pavo::test {

VideoClient::VideoClient(std::vector<std::string> arguments, std::string logPath)
    : logPath_(std::move(logPath))
{
    auto [readEnd, writeEnd] = tools::Pipe::create();
    tools::ChildProcess::Options options;
    options.arguments = std::move(arguments);
    options.standardOutput = std::move(writeEnd);
    options.standardError =
        UniqueFd(::open(logPath_.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
    process_ = tools::ChildProcess::start(std::move(options));
    pictures_ = std::make_unique<tools::PictureStream>(std::move(readEnd), kWidth, kHeight);
}

VideoClient::~VideoClient()
{
    // The stream ends with the process.
    if (process_) process_->end();
}

bool VideoClient::isRunning()
{
    return process_ && process_->isRunning();
}

std::optional<int> VideoClient::end()
{
    if (!process_) return std::nullopt;
    process_->signal(SIGINT);
    return process_->wait(kPatience);
}

std::size_t VideoClient::frameCount() const
{
    return pictures_->arrivalsNs().size();
}

double VideoClient::rateSince(std::size_t first) const
{
    const auto arrivals = pictures_->arrivalsNs();
    if (arrivals.size() < first + 2) return 0;
    return static_cast<double>(arrivals.size() - 1 - first) * 1e9 /
           static_cast<double>(arrivals.back() - arrivals[first]);
}

ClientPicture VideoClient::waitFor(const std::function<bool(const ClientPicture&)>& isWanted)
{
    std::size_t known = frameCount();
    ClientPicture picture{kWidth, kHeight, {}};
    const bool isFound = eventually([&] {
        const std::size_t count = frameCount();
        if (count == known) return false;
        known = count;
        picture.rgb = pictures_->latest();
        return isWanted(picture);
    });
    if (isFound) return picture;
    ADD_FAILURE() << "The client has shown " << known << " pictures";
    if (!picture.rgb.empty()) keepPicture(picture, "unexpected");
    return {};
}

bool VideoClient::waitForFrames(std::size_t more)
{
    const std::size_t wanted = frameCount() + more;
    return eventually([this, wanted] { return frameCount() >= wanted; });
}

std::string VideoClient::log() const
{
    return readFile(logPath_);
}

}  // namespace pavo::test
