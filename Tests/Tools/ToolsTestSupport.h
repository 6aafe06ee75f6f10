#pragma once

#include "Platform/Support/UniqueFd.h"
#include "Tools/ByteReader.h"
#include "Tools/VideoImage.h"

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace pavo::tools {

// An input of these bytes, which ends behind them.
class TestInput {
public:
    explicit TestInput(std::string_view bytes);

    // A new reader at the place where the last one stopped.
    std::unique_ptr<ByteReader> reader() const { return std::make_unique<ByteReader>(descriptor_.get()); }

private:
    UniqueFd descriptor_;
};

// Bytes 0, 1, 2 … 255, 0 …
std::string countingBytes(std::size_t count);

// A picture whose rows are followed by padding that nobody may write.
class PaddedImage {
public:
    explicit PaddedImage(const VideoFormat& format);

    ImageView view();
    // The rows without padding, one after the other.
    std::string pixels();
    bool isPaddingUntouched();

private:
    VideoFormat format_;
    std::vector<std::uint8_t> bytes_;
};

}  // namespace pavo::tools
