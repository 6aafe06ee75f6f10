#pragma once

#include <cstdint>
#include <string>

namespace pavo::test {

// Makes the picture file at `path` one of that size. Each system's tests have their own.
void makePictureFile(const std::string& path, std::uint32_t width, std::uint32_t height);

}  // namespace pavo::test
