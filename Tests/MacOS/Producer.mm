#include "Tests/MacOS/Producer.h"

#include <mutex>
#include <string>
#include <utility>

using pavo::test::Strings;

@implementation PavoProducer {
    std::mutex _mutex;
    Strings _received;
}

- (void)note:(std::string)message
{
    const std::lock_guard lock(_mutex);
    _received.push_back(std::move(message));
}

- (void)subscribeToVideoFrames
{
    [self note:"subscribe"];
}

- (void)unsubscribeFromVideoFrames
{
    [self note:"unsubscribe"];
}

- (void)subconsumerSubscriptionWithPID:(pid_t)pid isSubscribedChangedTo:(BOOL)isSubscribed
{
    [self note:std::to_string(pid) + (isSubscribed == YES  ? " yes"
                                      : isSubscribed == NO ? " no"
                                                           : " neither")];
}

- (Strings)received
{
    const std::lock_guard lock(_mutex);
    return _received;
}

@end
