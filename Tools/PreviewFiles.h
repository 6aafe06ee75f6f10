#pragma once

#include <array>
#include <string_view>

namespace pavo::tools {

// The files of the preview's page, which are built into the program.
struct PreviewFile {
    std::string_view url;
    const char* type;
    std::string_view content;
};

extern const std::array<PreviewFile, 3> kPreviewFiles;

}  // namespace pavo::tools
