#include "Tests/Support/RecordingInterceptor.h"

#include "PavoLoggingSupport/GlobalLoggingConfig.h"

#include <algorithm>
#include <mutex>

namespace pavo::test {

// Apart from its handle, because a thread that logs may hold the interceptor longer than the handle lives.
class RecordingInterceptor::Recorder final : public LogIntercepting {
public:
    void interceptLoggedMessage(const std::string& message, const std::optional<std::string>& category,
                                os_log_type_t type) override
    {
        const std::lock_guard lock(mutex_);
        messages_.push_back({message, category, type});
    }

    std::vector<RecordedMessage> messages() const
    {
        const std::lock_guard lock(mutex_);
        return messages_;
    }

    void clear()
    {
        const std::lock_guard lock(mutex_);
        messages_.clear();
    }

private:
    mutable std::mutex mutex_;
    std::vector<RecordedMessage> messages_;
};

RecordingInterceptor::RecordingInterceptor() : recorder_(std::make_shared<Recorder>())
{
    GlobalLoggingConfig::shared().setInterceptor(recorder_);
}

RecordingInterceptor::~RecordingInterceptor()
{
    GlobalLoggingConfig::shared().setInterceptor(nullptr);
}

std::vector<RecordedMessage> RecordingInterceptor::messages() const
{
    return recorder_->messages();
}

std::size_t RecordingInterceptor::count(std::string_view text) const
{
    const auto recorded = recorder_->messages();
    return static_cast<std::size_t>(
        std::count_if(recorded.begin(), recorded.end(),
                      [text](const RecordedMessage& entry) { return entry.message == text; }));
}

void RecordingInterceptor::clear()
{
    recorder_->clear();
}

}  // namespace pavo::test
