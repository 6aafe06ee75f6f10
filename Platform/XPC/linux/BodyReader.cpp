#include "Platform/XPC/linux/BodyReader.h"

#include "Platform/Support/Fatal.h"
#include "Platform/XPC/linux/WireNumber.h"
#include "Platform/XPC/linux/WireText.h"

#include <algorithm>
#include <array>

namespace xpc {

namespace {

constexpr std::size_t kStructureAlignment = 8;
constexpr const char* kWrongSize = "wrong size of the arguments";

}  // namespace

std::optional<std::vector<Argument>> BodyReader::readAll(std::span<const ArgumentType> types)
{
    std::vector<Argument> arguments;
    arguments.reserve(types.size());
    for (const auto type : types) {
        auto argument = read(type);
        if (refusal_) return std::nullopt;
        arguments.push_back(std::move(*argument));
    }
    if (offset_ != raw_.body().size()) refuse(kWrongSize);
    return refusal_ ? std::nullopt : std::optional(std::move(arguments));
}

std::optional<Argument> BodyReader::read(ArgumentType type)
{
    switch (type) {
    case ArgumentType::int32:
        return number<std::int32_t>();
    case ArgumentType::boolean:
        return readBoolean();
    case ArgumentType::real:
        return number<double>();
    case ArgumentType::sampleTiming:
        return readTiming();
    case ArgumentType::surface:
        return readSurface();
    case ArgumentType::uint64:
        return number<std::uint64_t>();
    case ArgumentType::string:
        return readString();
    case ArgumentType::data:
        return readData();
    case ArgumentType::optionalData:
        return readOptionalData();
    case ArgumentType::optionalError:
        return readOptionalError();
    }
    pavo::fatalError("Unknown argument type");
}

std::optional<Argument> BodyReader::readTiming()
{
    take(0, kStructureAlignment);
    CMSampleTimingInfo timing{};
    timing.duration = readTime();
    timing.presentationTimeStamp = readTime();
    timing.decodeTimeStamp = readTime();
    return timing;
}

// 24 bytes, so that the next one is where its alignment wants it.
CMTime BodyReader::readTime()
{
    CMTime time{};
    time.value = number<std::int64_t>();
    time.timescale = number<std::int32_t>();
    time.flags = number<std::uint32_t>();
    time.epoch = number<std::int64_t>();
    return time;
}

std::optional<Argument> BodyReader::readSurface()
{
    const auto index = number<std::uint32_t>();
    if (refusal_) return std::nullopt;
    cf::Ref<IOSurfaceRef> surface;
    if (index < raw_.descriptors().size()) {
        const auto port = static_cast<mach_port_t>(raw_.descriptors()[index].get());
        surface = cf::adopt(IOSurfaceLookupFromMachPort(port));
    }
    if (!surface) {
        refuse("no sound surface");
        return std::nullopt;
    }
    surfaces_.keep(surface);
    return surface;
}

std::optional<Argument> BodyReader::readOptionalData()
{
    take(0, kStructureAlignment);
    const bool isThere = readBoolean();
    auto data = readData();
    if (!isThere && !data.empty()) refuse("content where there is no value");
    return isThere ? std::optional(std::move(data)) : std::nullopt;
}

std::optional<Argument> BodyReader::readOptionalError()
{
    take(0, kStructureAlignment);
    const bool isThere = readBoolean();
    ns::Error error;
    error.domain = readString();
    error.code = number<std::int64_t>();
    if (!isThere && error != ns::Error()) refuse("content where there is no value");
    return isThere ? std::optional(std::move(error)) : std::nullopt;
}

bool BodyReader::readBoolean()
{
    const auto value = number<std::uint32_t>();
    if (value > 1) refuse("neither true nor false");
    return value == 1;
}

std::string BodyReader::readString()
{
    const auto size = number<std::uint32_t>();
    const auto bytes = take(std::size_t{size} + 1, 1);
    if (refusal_) return {};
    std::string text(reinterpret_cast<const char*>(bytes.data()), size);
    if (bytes.back() != std::byte{0} || !isWireText(text)) refuse("text that is not UTF-8");
    return text;
}

ns::Data BodyReader::readData()
{
    const auto bytes = take(number<std::uint32_t>(), 1);
    return {bytes.begin(), bytes.end()};
}

std::span<const std::byte> BodyReader::take(std::size_t size, std::size_t alignment)
{
    static constexpr std::array<std::byte, 8> kNothing{};
    const auto body = raw_.body();
    const auto begin = (offset_ + alignment - 1) / alignment * alignment;
    if (refusal_ || begin > body.size() || size > body.size() - begin) {
        refuse(kWrongSize);
        return std::span(kNothing).first(std::min(size, kNothing.size()));
    }
    const auto padding = body.subspan(offset_, begin - offset_);
    if (std::any_of(padding.begin(), padding.end(), [](std::byte byte) { return byte != std::byte{0}; }))
        refuse("padding that is not zero");
    offset_ = begin + size;
    return body.subspan(begin, size);
}

template <typename Number>
Number BodyReader::number()
{
    return wireNumber<Number>(take(sizeof(Number), sizeof(Number)), raw_.isBigEndian());
}

// The first reason is the one that counts.
void BodyReader::refuse(const char* reason)
{
    if (!refusal_) refusal_ = reason;
}

}  // namespace xpc
