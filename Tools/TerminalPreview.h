#pragma once

#include "Tools/LiveCamera.h"
#include "Tools/PreviewOptions.h"
#include "Tools/StatusWatch.h"
#include "Tools/StopSignal.h"
#include "Tools/TerminalPicture.h"
#include "Tools/TerminalScreen.h"

#include <cstdint>
#include <string>

namespace pavo::tools {

// The camera on the terminal, over a line that says how it is. Frames that the terminal has no time for are
// left out.
//
// Threads: for one thread, which run keeps until the end.
class TerminalPreview final {
public:
    TerminalPreview(const PreviewOptions& options, StatusWatch::Source source, const StopSignal& stop,
                    TerminalScreen& screen);

    // Until a signal comes, q is pressed, or the terminal has gone.
    void run();

private:
    // False: it is over.
    bool findCamera();
    bool wait();
    bool drawFrame(const CameraFrame& frame);
    bool drawNotice(const std::string& title, const std::string& text);
    bool drawStatus();
    std::string statusLine();
    std::string statusText();
    int pictureRows() const { return size_.rows > 1 ? size_.rows - 1 : 1; }

    const StopSignal& stop_;
    TerminalScreen& screen_;
    StatusWatch watch_;
    LiveCamera camera_;
    TerminalPicture picture_;
    TerminalSize size_;
    bool isCleared_ = true;       // whether nothing else is on the screen
    std::string notice_;          // what is shown instead of a picture
    std::string noticeText_;      // below it
    std::int64_t nextTryNs_ = 0;  // to connect
    std::int64_t lastFrameNs_ = 0;
    std::int64_t windowStartNs_ = 0;  // of the second in which drawn frames are counted
    unsigned windowFrames_ = 0;
    double drawnPerSecond_ = 0;
};

// Text of others without what a terminal would obey.
std::string printable(std::string_view text);

}  // namespace pavo::tools
