#pragma once

#include "Tools/LiveCamera.h"
#include "Tools/PictureFeed.h"
#include "Tools/PreviewOptions.h"
#include "Tools/Reporter.h"
#include "Tools/StatusWatch.h"
#include "Tools/StopSignal.h"

#include <nlohmann/json.hpp>

namespace pavo::tools {

// The camera as a page for the browsers of this computer. It is a client of the camera only while a viewer
// watches the picture.
//
// Threads: for one thread, which run keeps until the end.
class BrowserPreview final {
public:
    BrowserPreview(const PreviewOptions& options, StatusWatch::Source source, Reporter& reporter,
                   const StopSignal& stop);

    // Until a signal comes. False: the page cannot be served, and that has been reported.
    bool run();

private:
    void passPictures();
    void passPicturesOfOneConnection();
    nlohmann::json status();

    const PreviewOptions options_;
    Reporter& reporter_;
    const StopSignal& stop_;
    StatusWatch watch_;
    LiveCamera camera_;
    PictureFeed feed_;
};

}  // namespace pavo::tools
