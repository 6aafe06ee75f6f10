#pragma once

#include <gtest/gtest.h>
#include <os/log.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace pavo::test {

// The kinds and privacies of items in an argument buffer.
enum Kind : std::uint8_t { kScalar = 0, kCount = 1, kCString = 2, kObject = 4, kErrno = 6 };
enum Privacy : std::uint8_t { kDefault = 0, kPrivate = 1, kPublic = 2, kSensitive = 5 };

// Encodes arguments as the compiler does.
class ArgumentBuffer {
public:
    template <typename T>
    ArgumentBuffer& add(Kind kind, Privacy privacy, T value)
    {
        bytes_.push_back(static_cast<std::uint8_t>(kind << 4 | privacy));
        bytes_.push_back(sizeof value);
        const auto begin = bytes_.size();
        bytes_.resize(begin + sizeof value);
        std::memcpy(bytes_.data() + begin, &value, sizeof value);
        ++bytes_[1];
        return *this;
    }
    ArgumentBuffer& addErrno()
    {
        bytes_.push_back(kErrno << 4);
        bytes_.push_back(0);
        ++bytes_[1];
        return *this;
    }

    std::vector<std::uint8_t> bytes() const { return bytes_; }

private:
    std::vector<std::uint8_t> bytes_ = {0, 0};
};

// Sends the messages of a test to standard error, and gives them back.
class LogFixture : public testing::Test {
protected:
    LogFixture()
    {
        setenv("PAVO_LOG", "stderr", 1);
        unsetenv("OS_ACTIVITY_MODE");
    }
    ~LogFixture() override
    {
        unsetenv("PAVO_LOG");
        unsetenv("OS_ACTIVITY_MODE");
    }

    template <typename Work>
    static std::string captured(Work work)
    {
        testing::internal::CaptureStderr();
        work();
        return testing::internal::GetCapturedStderr();
    }

    // What a format and its arguments become, without the head of the line.
    static std::string message(const char* format, std::vector<std::uint8_t> buffer)
    {
        const auto line = captured([format, &buffer] {
            _os_log_impl(nullptr, os_log_create("s", "c"), OS_LOG_TYPE_DEFAULT, format, buffer.data(),
                         static_cast<std::uint32_t>(buffer.size()));
        });
        const std::string head = " Default [s:c] ";
        const auto begin = line.find(head);
        if (begin == std::string::npos || !line.ends_with('\n')) return "no line: " + line;
        return line.substr(begin + head.size(), line.size() - begin - head.size() - 1);
    }
    static std::string message(const char* format, const ArgumentBuffer& buffer)
    {
        return message(format, buffer.bytes());
    }
};

}  // namespace pavo::test
