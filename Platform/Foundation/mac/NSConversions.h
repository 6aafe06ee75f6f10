#pragma once

#include "Platform/Foundation/NSData.h"
#include "Platform/Foundation/NSError.h"
#include "Platform/Foundation/NSUUID.h"

#include <Foundation/Foundation.h>

#include <string>
#include <string_view>

// Between the faces' plain values and the objects of Foundation that stand for them.
namespace ns {

// Nil for bytes that are not UTF-8.
NSString* toObject(std::string_view text);
// Empty for nil.
std::string toText(NSString* string);

NSUUID* toObject(const UUID& uuid);
UUID fromObject(NSUUID* uuid);

NSData* toObject(const Data& data);
Data toData(NSData* data);

NSError* toObject(const Error& error);
Error toError(NSError* error);
// Tells the caller of a face why a call failed. Either may be null.
void store(NSError* error, Error* result);

}  // namespace ns
