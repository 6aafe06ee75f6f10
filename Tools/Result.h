#pragma once

#include <string>
#include <utility>
#include <variant>

namespace pavo::tools {

// Why something did not work, as one sentence for the person at the terminal.
struct Problem {
    std::string text;
};

// A value, or why there is none.
template <typename T>
class Result final {
public:
    Result(T value) : content_(std::move(value)) {}
    Result(Problem problem) : content_(std::move(problem)) {}

    explicit operator bool() const { return std::holds_alternative<T>(content_); }
    T& value() { return std::get<T>(content_); }
    const T& value() const { return std::get<T>(content_); }
    const Problem& problem() const { return std::get<Problem>(content_); }

private:
    std::variant<T, Problem> content_;
};

}  // namespace pavo::tools
