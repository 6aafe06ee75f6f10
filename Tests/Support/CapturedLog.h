#pragma once

#include <gtest/gtest.h>

#include <string>

namespace pavo::test {

// What is written to standard error from its construction on, as the log is with PAVO_LOG=stderr.
class CapturedLog final {
public:
    CapturedLog() { testing::internal::CaptureStderr(); }
    ~CapturedLog() { end(); }
    CapturedLog(const CapturedLog&) = delete;
    CapturedLog& operator=(const CapturedLog&) = delete;

    // All of it. Nothing is captured any more.
    const std::string& end()
    {
        if (isCapturing_) text_ = testing::internal::GetCapturedStderr();
        isCapturing_ = false;
        return text_;
    }

private:
    bool isCapturing_ = true;
    std::string text_;
};

}  // namespace pavo::test
