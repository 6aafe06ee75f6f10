#pragma once

#include <os/log.h>

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace pavo::test {

struct RecordedMessage {
    std::string message;
    std::optional<std::string> category;
    os_log_type_t type;

    bool operator==(const RecordedMessage&) const = default;
};

// Records what is logged from its construction on, as the process's interceptor; ends with its destruction.
//
// Threads: safe from any thread. One at a time: a second one takes the messages from the first.
class RecordingInterceptor final {
public:
    RecordingInterceptor();
    ~RecordingInterceptor();
    RecordingInterceptor(const RecordingInterceptor&) = delete;
    RecordingInterceptor& operator=(const RecordingInterceptor&) = delete;

    std::vector<RecordedMessage> messages() const;
    // How many messages read exactly `text`.
    std::size_t count(std::string_view text) const;
    void clear();

private:
    class Recorder;

    std::shared_ptr<Recorder> recorder_;
};

}  // namespace pavo::test
