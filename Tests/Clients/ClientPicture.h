#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace pavo::test {

// One picture that a client got from the camera, as that client shows it: RGB, without padding, at any size.
struct ClientPicture {
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    std::vector<std::uint8_t> rgb;
};

// Nothing where the file is no picture.
std::optional<ClientPicture> readPicture(const std::string& pngPath);

// Keeps it for people to look at, as `name`.png in the folder that PAVO_CLIENT_PICTURES names; where it names
// none, in the build folder's client-pictures.
void keepPicture(const ClientPicture& picture, const std::string& name);

// The counter of `pavo send`'s test pattern, where the picture shows the whole pattern and nothing else.
std::optional<std::uint32_t> counterOf(const ClientPicture& picture);

// How far the pattern's seven bars are from their right colours: the largest distance of all, of 255. That
// much for a picture without content.
int worstBarError(const ClientPicture& picture);

// The largest such distance that rounding explains: half a step of luma and of chroma is up to 1.6 of a
// colour, and clients multiply with few bits and cut off the rest.
inline constexpr int kColourTolerance = 5;

// Whether it is the picture that the camera shows while nobody sends, in the same colours.
bool isPlaceholder(const ClientPicture& picture);

}  // namespace pavo::test
