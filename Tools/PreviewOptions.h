#pragma once

#include "Tools/Arguments.h"
#include "Tools/LiveCamera.h"
#include "Tools/TerminalPicture.h"

#include <cstdint>
#include <string>

namespace pavo::tools {

// On a telephone's keys it says PAVO.
inline constexpr std::uint16_t kPreviewPort = 7286;

// How a live preview looks at the camera, wherever it shows it.
struct PreviewOptions {
    std::string remoteName;
    std::string cameraName = "pavo-camera";
    double framesPerSecond = 30;
    Size size = {960, 540};             // at most; of the page's picture
    std::uint16_t port = kPreviewPort;  // of the page
    Graphics graphics = Graphics::automatic;

    LiveCamera::Options camera() const { return {remoteName, cameraName, "pavo-preview", framesPerSecond}; }
};

}  // namespace pavo::tools
