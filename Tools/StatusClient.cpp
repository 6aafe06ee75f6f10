#include "Tools/StatusClient.h"

#include "Platform/XPC/XPCConnection.h"
#include "Tools/CameraStatusService.h"

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

namespace pavo::tools {
namespace {

constexpr const char* kNoCamera = "no camera is running; \"pavo camera\" starts one";
constexpr const char* kSilentCamera =
    "a camera is running, but it does not answer; its log may say why, and ending it lets another one start";

// What becomes of the question, for the thread that waits.
class Answer {
public:
    void put(const ns::Data& data)
    {
        const std::lock_guard lock(mutex_);
        text_.emplace(reinterpret_cast<const char*>(data.data()), data.size());
        changed_.notify_one();
    }
    void lose()
    {
        const std::lock_guard lock(mutex_);
        isLost_ = true;
        changed_.notify_one();
    }
    Result<std::string> wait(std::chrono::milliseconds patience)
    {
        std::unique_lock lock(mutex_);
        changed_.wait_for(lock, patience, [this] { return text_ || isLost_; });
        if (text_) return *text_;
        return Problem{isLost_ ? kNoCamera : kSilentCamera};
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    std::optional<std::string> text_;
    bool isLost_ = false;
};

}  // namespace

Result<CameraStatus> askForStatus(std::chrono::milliseconds patience)
{
    const auto answer = std::make_shared<Answer>();
    const auto connection = xpc::Connection::withMachServiceName(kStatusServiceName);
    connection->setRemoteObjectInterface(xpc::describe<CameraStatusService>());
    connection->setInvalidationHandler([answer] { answer->lose(); });
    connection->setInterruptionHandler([answer] { answer->lose(); });
    connection->resume();
    xpc::Remote<CameraStatusService>::cast(connection->remoteObjectProxy())
        ->call<&CameraStatusService::status>([answer](const ns::Data& data) { answer->put(data); });
    const auto text = answer->wait(patience);
    connection->invalidate();
    if (!text) return text.problem();
    auto status = statusFromJson(nlohmann::json::parse(text.value(), nullptr, false));
    if (!status) return Problem{"a camera is running, but " + status.problem().text};
    return status;
}

}  // namespace pavo::tools
