#include "Platform/Foundation/NSUUID.h"

#include "Platform/Foundation/mac/NSConversions.h"

#include <bit>

namespace ns {

UUID UUID::random()
{
    return fromObject([NSUUID UUID]);
}

std::optional<UUID> UUID::withString(std::string_view text)
{
    NSString* const string = toObject(text);
    NSUUID* const uuid = string ? [[NSUUID alloc] initWithUUIDString:string] : nil;
    return uuid ? std::optional(fromObject(uuid)) : std::nullopt;
}

std::string UUID::uuidString() const
{
    return toText(toObject(*this).UUIDString);
}

NSUUID* toObject(const UUID& uuid)
{
    return [[NSUUID alloc] initWithUUIDBytes:uuid.bytes().data()];
}

UUID fromObject(NSUUID* uuid)
{
    std::array<std::uint8_t, 16> bytes{};
    [uuid getUUIDBytes:bytes.data()];
    return std::bit_cast<UUID>(bytes);
}

}  // namespace ns
