#pragma once

#include <Foundation/NSObjCRuntime.h>

typedef NSUInteger NSKeyValueObservingOptions;
enum : NSKeyValueObservingOptions { NSKeyValueObservingOptionNew = 0x01 };

typedef NSString* NSKeyValueChangeKey;
FOUNDATION_EXPORT NSKeyValueChangeKey const NSKeyValueChangeNewKey;

// Observers are told on the thread that changes the value. They are not kept.
@interface NSObject (NSKeyValueObserving)
- (void)addObserver:(NSObject*)observer
         forKeyPath:(NSString*)keyPath
            options:(NSKeyValueObservingOptions)options
            context:(void*)context;
- (void)removeObserver:(NSObject*)observer forKeyPath:(NSString*)keyPath context:(void*)context;
- (void)observeValueForKeyPath:(NSString*)keyPath
                      ofObject:(id)object
                        change:(NSDictionary<NSKeyValueChangeKey, id>*)change
                       context:(void*)context;
@end

@interface NSObject (NSKeyValueCoding)
- (void)setValue:(id)value forKey:(NSString*)key;
@end
