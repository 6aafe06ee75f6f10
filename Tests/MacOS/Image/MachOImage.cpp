#include "Tests/MacOS/Image/MachOImage.h"

#include "Tests/MacOS/Runtime/Runtime.h"

#include <sys/mman.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <utility>

namespace pavo::test {

namespace {

constexpr std::uint32_t kUniversal = 0xCAFEBABE;
constexpr std::uint32_t kMachO = 0xFEEDFACF;
constexpr std::uint32_t kX86 = 0x01000007;
constexpr std::uint32_t kSymbolTable = 0x2;
constexpr std::uint32_t kSegment = 0x19;
constexpr std::uint32_t kDyldInfo = 0x80000022;
constexpr std::uint64_t kPage = 0x1000;

template <typename T>
T valueAt(const void* place)
{
    T value;
    std::memcpy(&value, place, sizeof(T));
    return value;
}

std::uint32_t wordAt(const char* place)
{
    return valueAt<std::uint32_t>(place);
}

std::uint32_t bigWordAt(const char* place)
{
    return __builtin_bswap32(wordAt(place));
}

std::string nameAt(const char* place)
{
    return {place, strnlen(place, 16)};
}

std::uint64_t readNumber(const unsigned char*& at)
{
    std::uint64_t value = 0;
    for (int shift = 0;; shift += 7) {
        value |= std::uint64_t{*at & 0x7FU} << shift;
        if (*at++ < 0x80) return value;
    }
}

// The x86_64 part of a file, universal or not; empty where there is none.
std::string_view x86Part(std::string_view file)
{
    if (file.size() > 32 && wordAt(file.data()) == kMachO && wordAt(file.data() + 4) == kX86) return file;
    if (file.size() < 8 || bigWordAt(file.data()) != kUniversal) return {};
    for (std::uint32_t i = 0; i < bigWordAt(file.data() + 4); ++i) {
        const char* const entry = file.data() + 8 + 20 * i;
        if (bigWordAt(entry) == kX86) return file.substr(bigWordAt(entry + 8), bigWordAt(entry + 12));
    }
    return {};
}

std::uint64_t pages(std::uint64_t size)
{
    return (size + kPage - 1) / kPage * kPage;
}

}  // namespace

std::unique_ptr<MachOImage> MachOImage::load(const std::string& path, const Resolver& resolve)
{
    std::ifstream stream(path, std::ios::binary);
    const std::string content{std::istreambuf_iterator<char>(stream), {}};
    const auto file = x86Part(content);
    std::unique_ptr<MachOImage> image(new MachOImage);
    if (file.empty() || !image->map(file)) {
        std::fprintf(stderr, "%s: no image for x86_64\n", path.c_str());
        return nullptr;
    }
    const auto program = [&](int i) {
        return reinterpret_cast<const unsigned char*>(file.data()) + image->fixups_[2 * i];
    };
    image->rebase(program(0), program(0) + image->fixups_[1]);
    if (!image->bind(program(1), program(1) + image->fixups_[3], resolve) ||
        !image->bind(program(2), program(2) + image->fixups_[5], resolve))
        return nullptr;
    image->protectCode();
    image->registerMetadata();
    image->runInitializers();
    return image;
}

void* MachOImage::symbol(const std::string& name) const
{
    const auto found = exports_.find(name);
    return found == exports_.end() ? nullptr : found->second;
}

bool MachOImage::map(std::string_view file)
{
    const char* const firstCommand = file.data() + 32;
    const auto forEachCommand = [&](auto&& visit) {
        const char* command = firstCommand;
        for (std::uint32_t i = 0; i < wordAt(file.data() + 16); ++i, command += wordAt(command + 4))
            visit(wordAt(command), command);
    };
    std::uint64_t size = 0;
    forEachCommand([&](std::uint32_t kind, const char* command) {
        if (kind == kSegment)
            size =
                std::max(size, valueAt<std::uint64_t>(command + 24) + valueAt<std::uint64_t>(command + 32));
    });
    void* const memory =
        mmap(nullptr, pages(size), PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) return false;
    base_ = static_cast<char*>(memory);
    forEachCommand([&](std::uint32_t kind, const char* command) {
        if (kind == kSegment)
            mapSegment(command, file);
        else if (kind == kSymbolTable)
            readSymbols(command, file);
        else if (kind == kDyldInfo)
            for (const auto& [from, to] : {std::pair{8, 0}, {12, 1}, {16, 2}, {20, 3}, {32, 4}, {36, 5}})
                fixups_[to] = wordAt(command + from);
    });
    return true;
}

void MachOImage::mapSegment(const char* command, std::string_view file)
{
    constexpr std::uint32_t kExecutable = 4;
    char* const start = base_ + valueAt<std::uint64_t>(command + 24);
    segments_.push_back(
        {start, valueAt<std::uint64_t>(command + 32), (wordAt(command + 60) & kExecutable) != 0});
    std::memcpy(start, file.data() + valueAt<std::uint64_t>(command + 40),
                valueAt<std::uint64_t>(command + 48));
    for (std::uint32_t i = 0; i < wordAt(command + 64); ++i) {
        const char* const section = command + 72 + 80 * i;
        sections_[nameAt(section)] = {base_ + valueAt<std::uint64_t>(section + 32),
                                      valueAt<std::uint64_t>(section + 40)};
    }
}

void MachOImage::readSymbols(const char* command, std::string_view file)
{
    constexpr std::size_t kEntrySize = 16;
    const char* entry = file.data() + wordAt(command + 8);
    const char* const names = file.data() + wordAt(command + 16);
    for (std::uint32_t i = 0; i < wordAt(command + 12); ++i, entry += kEntrySize) {
        // External, and defined in a section.
        if (entry[4] != 0x0F) continue;
        exports_[names + wordAt(entry) + 1] = base_ + valueAt<std::uint64_t>(entry + 8);
    }
}

void MachOImage::rebase(const unsigned char* at, const unsigned char* end)
{
    char* place = nullptr;
    const auto apply = [&](std::uint64_t count, std::uint64_t skip) {
        for (; count > 0; --count, place += 8 + skip) {
            const auto pointer = valueAt<std::uint64_t>(place) + reinterpret_cast<std::uint64_t>(base_);
            std::memcpy(place, &pointer, 8);
        }
    };
    while (at < end) {
        const unsigned operation = *at & 0xF0U;
        const unsigned immediate = *at++ & 0x0FU;
        switch (operation) {
        case 0x20:
            place = segments_[immediate].start + readNumber(at);
            break;
        case 0x30:
            place += readNumber(at);
            break;
        case 0x40:
            place += 8UL * immediate;
            break;
        case 0x50:
            apply(immediate, 0);
            break;
        case 0x60:
            apply(readNumber(at), 0);
            break;
        case 0x70:
            apply(1, readNumber(at));
            break;
        case 0x80: {
            const auto count = readNumber(at);
            apply(count, readNumber(at));
            break;
        }
        default:
            break;  // the end, and the only kind of pointer
        }
    }
}

bool MachOImage::bind(const unsigned char* at, const unsigned char* end, const Resolver& resolve)
{
    char* place = nullptr;
    char* value = nullptr;
    std::uint64_t addend = 0;
    bool allFound = true;
    const auto apply = [&](std::uint64_t count, std::uint64_t skip) {
        for (; count > 0; --count, place += 8 + skip) {
            char* const pointer = value + addend;
            std::memcpy(place, &pointer, 8);
        }
    };
    while (at < end) {
        const unsigned operation = *at & 0xF0U;
        const unsigned immediate = *at++ & 0x0FU;
        switch (operation) {
        case 0x20:
            readNumber(at);
            break;  // which library: names are found wherever they are
        case 0x40: {
            std::string name(reinterpret_cast<const char*>(at));
            at += name.size() + 1;
            name.erase(0, name.starts_with('_') ? 1 : 0);
            value = static_cast<char*>(resolve(name));
            if (!value) std::fprintf(stderr, "The image takes %s, which is not here\n", name.c_str());
            allFound = allFound && value;
            break;
        }
        case 0x60:
            addend = readNumber(at);
            break;
        case 0x70:
            place = segments_[immediate].start + readNumber(at);
            break;
        case 0x80:
            place += readNumber(at);
            break;
        case 0x90:
            apply(1, 0);
            break;
        case 0xA0:
            apply(1, readNumber(at));
            break;
        case 0xB0:
            apply(1, 8UL * immediate);
            break;
        case 0xC0: {
            const auto count = readNumber(at);
            apply(count, readNumber(at));
            break;
        }
        default:
            break;  // the end of an entry, short forms of the library, and the only kind of pointer
        }
    }
    return allFound;
}

void MachOImage::protectCode()
{
    for (const auto& segment : segments_)
        if (segment.isCode) mprotect(segment.start, pages(segment.size), PROT_READ | PROT_EXEC);
}

template <typename T>
std::span<T> MachOImage::section(const std::string& name) const
{
    const auto found = sections_.find(name);
    if (found == sections_.end()) return {};
    return {reinterpret_cast<T*>(found->second.data()), found->second.size() / sizeof(T)};
}

void MachOImage::registerMetadata()
{
    objc::registerMetadata(
        {section<objc::ClassRecord*>("__objc_classlist"), section<objc::CategoryRecord*>("__objc_catlist"),
         section<objc::ProtocolRecord*>("__objc_protolist"), section<const char*>("__objc_selrefs")});
}

void MachOImage::runInitializers()
{
    for (auto* const initialize : section<void (*)()>("__mod_init_func"))
        initialize();
}

}  // namespace pavo::test
