#pragma once

#include "Tools/PictureFeed.h"
#include "Tools/Result.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <nlohmann/json.hpp>
#include <string_view>

namespace pavo::tools {

// Serves the preview to browsers on this computer: the page at /, the picture at /picture.mjpeg and the state
// at /status.json.
//
// It is there for this computer's own pages and programs: it listens on loopback addresses only, answers only
// where it is asked for under a name of loopback, so that no web site can get here under a name of its own,
// and to no other site's page.
//
// Ownership: borrows the feed.
// Threads:   answers on threads of its own, which call `status`: that must not block.
class PreviewServer final {
public:
    using StatusSource = std::function<nlohmann::json()>;

    // Port 0 is any free one. A connection on which nothing moves, though it could, is closed after
    // `patience`: a browser that asks for nothing more, a viewer that reads no more. The problem says why
    // nobody can be served.
    static Result<std::unique_ptr<PreviewServer>>
    start(std::uint16_t port, PictureFeed& feed, StatusSource status,
          std::chrono::seconds patience = std::chrono::seconds(10));
    // Ends the feed, and with it all that is being answered.
    ~PreviewServer();
    PreviewServer(const PreviewServer&) = delete;
    PreviewServer& operator=(const PreviewServer&) = delete;

    std::uint16_t port() const;

private:
    struct Impl;

    explicit PreviewServer(std::unique_ptr<Impl> impl);

    std::unique_ptr<Impl> impl_;
};

// Whether a Host header names this computer as only itself does.
bool isLoopbackHost(std::string_view host);

}  // namespace pavo::tools
