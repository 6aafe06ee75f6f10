#pragma once

#include <map>
#include <string>
#include <vector>

namespace pavo::test {

// What Documentation/WireFormat.md says, for tests that compare it with what the camera does.
class WireDocument {
public:
    WireDocument();

    // Empty where the document could not be read.
    const std::string& text() const { return text_; }
    // The cells of each table row under a heading that contains `heading`, without the table's own heading.
    // Backquotes are left out.
    std::vector<std::vector<std::string>> rowsUnder(const std::string& heading) const;
    // The bytes of each hexadecimal listing, in order.
    std::vector<std::string> listings() const;

private:
    std::vector<std::string> lines_;
    std::string text_;
};

}  // namespace pavo::test
