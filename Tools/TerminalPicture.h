#pragma once

#include "Tools/FrameConversion.h"
#include "Tools/Result.h"
#include "Tools/TerminalScreen.h"

#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace pavo::tools {

// How a terminal shows a picture.
enum class Graphics {
    automatic,  // the best that the terminal is known for
    symbols,    // characters in colours: every terminal
    sixels,
    kitty
};

Result<Graphics> parseGraphics(std::string_view text);

// Turns pictures into what a terminal draws them from.
//
// Threads: for one thread.
class TerminalPicture final {
public:
    explicit TerminalPicture(Graphics graphics);
    ~TerminalPicture();
    TerminalPicture(const TerminalPicture&) = delete;
    TerminalPicture& operator=(const TerminalPicture&) = delete;

    // The frame, which must be whole, in the middle of the first `rows` rows of the screen, as large as fits.
    std::string draw(const CameraFrame& frame, const TerminalSize& screen, int rows);
    // Takes away what a cleared screen still shows.
    std::string_view clear() const;

private:
    struct Impl;

    std::unique_ptr<Impl> impl_;
};

}  // namespace pavo::tools
