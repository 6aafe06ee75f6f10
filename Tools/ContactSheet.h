#pragma once

#include "Tools/Result.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace pavo::tools {

// Pictures in rows, each row under a line of text.
class ContactSheet final {
public:
    struct Tile {
        std::string label;
        std::vector<std::uint8_t> rgb;  // of the sheet's tile size
    };

    ContactSheet(std::string title, std::uint32_t tileWidth, std::uint32_t tileHeight);

    void addRow(std::string heading, std::vector<Tile> tiles);
    // Writes a PNG file; its folder is made. None: all is well.
    [[nodiscard]] std::optional<Problem> write(const std::string& path) const;

private:
    struct Row {
        std::string heading;
        std::vector<Tile> tiles;
    };

    const std::string title_;
    const std::uint32_t tileWidth_;
    const std::uint32_t tileHeight_;
    std::vector<Row> rows_;
};

}  // namespace pavo::tools
