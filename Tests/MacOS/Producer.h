#pragma once

#include "Bundle/mac/FrameServiceProtocols.h"
#include "Tests/MacOS/AdapterFixture.h"

// A producer's object, which notes what the camera sends: "subscribe", "unsubscribe", "<pid> yes" or "no".
@interface PavoProducer : NSObject <VideoFrameProducerServiceReportReceiving>
- (pavo::test::Strings)received;
@end
