#include "Platform/CoreMediaIO/mac/CMIOConversions.h"

#include "Platform/Foundation/mac/NSConversions.h"

namespace cmio {

NSDictionary* toObject(CMTime time)
{
    return (__bridge_transfer NSDictionary*)CMTimeCopyAsDictionary(time, kCFAllocatorDefault);
}

ExtensionClient fromObject(CMIOExtensionClient* client)
{
    return {ns::fromObject(client.clientID), client.pid};
}

std::vector<ExtensionClient> fromObject(NSArray<CMIOExtensionClient*>* clients)
{
    std::vector<ExtensionClient> result;
    for (CMIOExtensionClient* client in clients)
        result.push_back(fromObject(client));
    return result;
}

NSArray<CMIOExtensionStreamFormat*>* toObject(const std::vector<ExtensionStreamFormat>& formats)
{
    NSMutableArray<CMIOExtensionStreamFormat*>* const result = [NSMutableArray array];
    for (const auto& format : formats) {
        NSMutableArray<NSDictionary*>* const durations = [NSMutableArray array];
        for (const auto& duration : format.validFrameDurations)
            [durations addObject:toObject(duration)];
        [result addObject:[[CMIOExtensionStreamFormat alloc]
                              initWithFormatDescription:format.formatDescription.get()
                                       maxFrameDuration:format.maxFrameDuration
                                       minFrameDuration:format.minFrameDuration
                                    validFrameDurations:durations]];
    }
    return result;
}

}  // namespace cmio
