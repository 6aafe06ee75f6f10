#pragma once

#include "Platform/Support/UniqueFd.h"
#include "Tests/Support/ChildProcess.h"

#include <nlohmann/json.hpp>

#include <memory>
#include <string>

namespace pavo::test {

// A page in a Chromium without a window, steered by its own protocol.
class BrowserTab {
public:
    // The browser's name on PATH; empty where there is none.
    static std::string program();

    // Keeps all that the browser stores, and its output, in `folder`.
    explicit BrowserTab(const std::string& folder);
    BrowserTab(const BrowserTab&) = delete;
    BrowserTab& operator=(const BrowserTab&) = delete;

    // Whether the browser is there and has opened a page.
    bool isReady() const { return !session_.empty(); }
    void resize(int width, int height);
    // "dark" or "light", as the user likes it.
    void setColorScheme(const std::string& scheme);
    void open(const std::string& address);
    // The value of a JavaScript expression; null where it has none.
    nlohmann::json evaluate(const std::string& expression);
    // Until the expression is true. False: the deadline passed.
    bool waitUntil(const std::string& expression);
    // A PNG file of what is to be seen.
    std::string screenshot();

private:
    nlohmann::json call(const std::string& method, nlohmann::json parameters);

    UniqueFd input_;
    UniqueFd output_;
    ChildProcess process_;
    std::string received_;
    std::string session_;
    int lastId_ = 0;
};

}  // namespace pavo::test
