#pragma once

#include <CoreImage/CoreImage.h>

#include <string>

// In place of CoreImage: knows how large images are and where they lie, and paints one value.
namespace pavo::test {

inline constexpr unsigned char kRenderedByte = 0x5A;

// The one picture that can be read.
void setPicture(const std::string& path, CGSize size);

}  // namespace pavo::test
