#include "Platform/Foundation/linux/PropertyList.h"

#include <plist/plist.h>

#include <cstdint>
#include <fstream>
#include <memory>
#include <type_traits>

namespace ns {

namespace {

// An Info.plist has a few kilobytes.
constexpr std::streamsize kFileSizeLimit = 1 << 20;

using PropertyList = std::unique_ptr<std::remove_pointer_t<plist_t>, decltype(&plist_free)>;

std::optional<std::string> contentOf(const std::string& path)
{
    std::ifstream file(path, std::ios::binary | std::ios::ate);
    const auto size = static_cast<std::streamsize>(file.tellg());
    if (!file || size > kFileSizeLimit) return std::nullopt;
    std::string content(static_cast<std::size_t>(size), '\0');
    file.seekg(0);
    if (!file.read(content.data(), size)) return std::nullopt;
    return content;
}

}  // namespace

std::optional<std::string> propertyListString(const std::string& path, const char* key)
{
    const auto content = contentOf(path);
    if (!content) return std::nullopt;
    const auto size = static_cast<std::uint32_t>(content->size());
    plist_t parsed = nullptr;
    // One function for both forms exists, too, but not with the same arguments in all versions.
    if (plist_is_binary(content->data(), size))
        plist_from_bin(content->data(), size, &parsed);
    else
        plist_from_xml(content->data(), size, &parsed);
    const PropertyList root(parsed, plist_free);
    if (plist_get_node_type(root.get()) != PLIST_DICT) return std::nullopt;
    const plist_t value = plist_dict_get_item(root.get(), key);
    if (plist_get_node_type(value) != PLIST_STRING) return std::nullopt;
    std::uint64_t length = 0;
    const char* text = plist_get_string_ptr(value, &length);
    return text ? std::optional(std::string(text, length)) : std::nullopt;
}

}  // namespace ns
