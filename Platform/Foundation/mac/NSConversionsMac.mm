#include "Platform/Foundation/mac/NSConversions.h"

namespace ns {

NSString* toObject(std::string_view text)
{
    return [[NSString alloc] initWithBytes:text.data() length:text.size() encoding:NSUTF8StringEncoding];
}

std::string toText(NSString* string)
{
    const char* const text = string.UTF8String;
    return text ? std::string(text) : std::string();
}

NSData* toObject(const Data& data)
{
    return [NSData dataWithBytes:data.data() length:data.size()];
}

Data toData(NSData* data)
{
    const auto* const bytes = static_cast<const std::byte*>(data.bytes);
    return {bytes, bytes + data.length};
}

NSError* toObject(const Error& error)
{
    return [NSError errorWithDomain:toObject(error.domain) code:error.code userInfo:nil];
}

Error toError(NSError* error)
{
    return {toText(error.domain), error.code};
}

void store(NSError* error, Error* result)
{
    if (error && result) *result = toError(error);
}

}  // namespace ns
