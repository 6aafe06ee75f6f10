#pragma once

#include <cstdint>

namespace pavo::tools {

// Of which standard the matrix is that makes luma and chroma of colours. The camera's is BT.601's.
enum class Matrix { bt601, bt709 };

// The one that video with so many lines has by convention where it does not say. It is what players take it
// for, and what encoders make.
constexpr Matrix usualMatrix(std::uint32_t height)
{
    constexpr std::uint32_t kFewestLinesOfHd = 720;
    return height < kFewestLinesOfHd ? Matrix::bt601 : Matrix::bt709;
}

}  // namespace pavo::tools
