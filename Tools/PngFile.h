#pragma once

#include "Tools/Result.h"
#include "Tools/VideoImage.h"

#include <cstdint>
#include <optional>
#include <span>
#include <string>

namespace pavo::tools {

// Any PNG as BGRA. What shines through is black.
Result<Image> readPng(const std::string& path);

// Writes RGB pixels without padding. None: all is well. The file appears whole or not at all.
[[nodiscard]] std::optional<Problem> writePng(const std::string& path, std::uint32_t width,
                                              std::uint32_t height, std::span<const std::uint8_t> rgb);

}  // namespace pavo::tools
