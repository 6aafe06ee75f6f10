#pragma once

#include <nlohmann/json_fwd.hpp>

#include <cstdint>
#include <mutex>
#include <string_view>

namespace pavo::tools {

// How a command talks: sentences and a status line on standard error for people, or one JSON object a line on
// standard output for programs. Errors are sentences in both cases.
//
// Threads: any.
class Reporter final {
public:
    // How often a line of status is worth a look.
    static constexpr std::int64_t kStatusEveryNs = 500'000'000;

    Reporter(std::string_view command, bool isJson);
    ~Reporter();
    Reporter(const Reporter&) = delete;
    Reporter& operator=(const Reporter&) = delete;

    bool isJson() const { return isJson_; }
    // For people only.
    void say(std::string_view sentence);
    // For programs only. False once nobody reads it any more.
    bool emit(const nlohmann::json& event);
    void error(std::string_view sentence);
    // A line that the next one replaces; only where people watch a terminal.
    void status(std::string_view line);

private:
    void clearStatus();

    const std::string_view command_;
    const bool isJson_;
    const bool isTerminal_;
    std::mutex mutex_;
    bool hasStatus_ = false;
};

}  // namespace pavo::tools
