#pragma once

#include "Platform/CoreMediaIO/mac/CMIOSourceAdapters.h"

#include <CoreMediaIO/CoreMediaIO.h>

// The objects that the framework asks about the camera. The system sees their classes under the names of the
// camera's own classes, which stand behind them.

__attribute__((objc_runtime_name("CMIOExtensionSupport.ProviderSource")))
@interface PavoProviderSource : NSObject<CMIOExtensionProviderSource>
- (instancetype)initWithAdapter:(cmio::ProviderSourceAdapter)adapter;
@end

__attribute__((objc_runtime_name("CMIOExtensionSupport.VideoDeviceSource")))
@interface PavoVideoDeviceSource : NSObject<CMIOExtensionDeviceSource>
- (instancetype)initWithAdapter:(cmio::DeviceSourceAdapter)adapter;
@end

__attribute__((objc_runtime_name("CMIOExtensionSupport.VideoStreamSource")))
@interface PavoVideoStreamSource : NSObject<CMIOExtensionStreamSource>
- (instancetype)initWithAdapter:(cmio::StreamSourceAdapter)adapter;
@end
