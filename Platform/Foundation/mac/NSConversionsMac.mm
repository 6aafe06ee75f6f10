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

NSError* toObject(const Error& error)
{
    return [NSError errorWithDomain:toObject(error.domain) code:error.code userInfo:nil];
}

void store(NSError* error, Error* result)
{
    if (error && result) *result = {toText(error.domain), error.code};
}

}  // namespace ns
