#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace pavo::test {

// The x86_64 image of a Mach-O file, in the memory of this process and ready to run: what the loader of macOS
// does, for images as our linker writes them. Never unloaded.
//
// What the image takes from elsewhere, `resolve` finds by the name that C would use. Its Objective-C metadata
// goes to the runtime of the tests. C++ exceptions cannot leave its functions.
class MachOImage final {
public:
    using Resolver = std::function<void*(const std::string& name)>;

    // Null after a line on standard error.
    static std::unique_ptr<MachOImage> load(const std::string& path, const Resolver& resolve);

    // Address of what the image exports under that name; null where it exports no such thing.
    void* symbol(const std::string& name) const;

private:
    struct Segment {
        char* start;
        std::uint64_t size;
        bool isCode;
    };

    MachOImage() = default;

    bool map(std::string_view file);
    void mapSegment(const char* command, std::string_view file);
    void readSymbols(const char* command, std::string_view file);
    void rebase(const unsigned char* at, const unsigned char* end);
    bool bind(const unsigned char* at, const unsigned char* end, const Resolver& resolve);
    void protectCode();
    void registerMetadata();
    void runInitializers();
    template <typename T>
    std::span<T> section(const std::string& name) const;

    char* base_ = nullptr;
    std::vector<Segment> segments_;
    std::map<std::string, std::span<char>> sections_;
    std::map<std::string, void*> exports_;
    std::uint32_t fixups_[6] = {};  // places and sizes of the rebase, bind and lazy bind programs in the file
};

}  // namespace pavo::test
