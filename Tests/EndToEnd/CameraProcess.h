#pragma once

#include "Tests/EndToEnd/PavoProcess.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace pavo::test {

// One line of a camera's log.
struct LogLine {
    std::int64_t timeNs = 0;  // CLOCK_MONOTONIC
    std::string level;
    std::string category;
    std::string text;
};

// `pavo camera` with its log on standard error.
class CameraProcess final : public PavoProcess {
public:
    CameraProcess() : PavoProcess({"camera"}) {}

    const std::vector<LogLine>& log();
    // How many lines read exactly `text`.
    std::size_t countOf(const std::string& text);
    // How many lines contain `part`.
    std::size_t countWith(const std::string& part);
    // True once `count` lines read exactly `text`.
    bool waitForLog(const std::string& text, std::size_t count = 1);

private:
    std::vector<LogLine> log_;
    std::size_t textsRead_ = 0;
};

}  // namespace pavo::test
