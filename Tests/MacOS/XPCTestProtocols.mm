// What macOS adds to the tests of XPC that hold on every system: the tests' protocols as a compiler writes
// them, objects that can be exported, and connections that carry messages inside of this process.

#include "Platform/XPC/mac/XPCRuntimeProtocol.h"
#include "Tests/MacOS/AdapterFixture.h"
#include "Tests/MacOS/Doubles/XPCLine.h"
#include "Tests/Platform/XPC/Thermometer.h"
#include "Tests/Platform/XPC/XPCFixture.h"
#include "Tests/Support/Wait.h"

#include <algorithm>
#include <utility>

@protocol PavoSwitching <NSObject>
- (void)switchOn;
- (void)switchOff;
@end

@protocol PavoLamp <PavoSwitching>
- (void)setBrightness:(double)brightness;
- (void)setColour:(int32_t)colour isFast:(BOOL)isFast;
- (void)shine:(IOSurface*)surface timingInfo:(CMSampleTimingInfo)timingInfo;
@end

@protocol PavoLampOwner <NSObject>
- (void)lampDidSwitch:(BOOL)isOn;
@end

@protocol PavoThermometer <NSObject>
- (void)temperatureWithReply:(void (^)(uint64_t degrees))reply;
- (void)isWarmWithReply:(void (^)(BOOL isWarm))reply;
- (void)placeInRoom:(NSString*)room
              marks:(NSData*)marks
              reply:(void (^)(NSData* result, NSError* error))reply;
- (void)settleWithReply:(void (^)(void))reply;
- (void)shake;
@end

// An exported object of the tests: passes what comes in to a C++ object.
@interface PavoTestObject : NSObject {
@protected
    xpc::ExportedObject _object;
}
- (instancetype)initWithObject:(xpc::ExportedObject)object;
@end

@implementation PavoTestObject

- (instancetype)initWithObject:(xpc::ExportedObject)object
{
    self = [super init];
    _object = std::move(object);
    return self;
}

@end

@interface PavoTestLamp : PavoTestObject <PavoLamp>
@end

@implementation PavoTestLamp

- (void)switchOn
{
    xpc::receive(_object, _cmd);
}

- (void)switchOff
{
    xpc::receive(_object, _cmd);
}

- (void)setBrightness:(double)brightness
{
    xpc::receive(_object, _cmd, brightness);
}

- (void)setColour:(int32_t)colour isFast:(BOOL)isFast
{
    xpc::receive(_object, _cmd, colour, xpc::ObjectiveC<bool>::to(isFast));
}

- (void)shine:(IOSurface*)surface timingInfo:(CMSampleTimingInfo)timingInfo
{
    xpc::receive(_object, _cmd, (__bridge IOSurfaceRef)surface, timingInfo);
}

@end

@interface PavoTestLampOwner : PavoTestObject <PavoLampOwner>
@end

@implementation PavoTestLampOwner

- (void)lampDidSwitch:(BOOL)isOn
{
    xpc::receive(_object, _cmd, xpc::ObjectiveC<bool>::to(isOn));
}

@end

@interface PavoTestThermometer : PavoTestObject <PavoThermometer>
@end

@implementation PavoTestThermometer

- (void)temperatureWithReply:(void (^)(uint64_t degrees))reply
{
    [self call:_cmd arguments:{} sink:[reply](auto answer) { reply(std::get<std::uint64_t>(answer[0])); }];
}

- (void)isWarmWithReply:(void (^)(BOOL isWarm))reply
{
    [self call:_cmd arguments:{} sink:[reply](auto answer) { reply(std::get<bool>(answer[0])); }];
}

- (void)placeInRoom:(NSString*)room marks:(NSData*)marks reply:(void (^)(NSData* result, NSError* error))reply
{
    const std::array<xpc::Argument, 2> arguments = {ns::toText(room), ns::toData(marks)};
    [self call:_cmd
        arguments:arguments
             sink:[reply](auto answer) {
                 const auto& result = std::get<std::optional<ns::Data>>(answer[0]);
                 const auto& error = std::get<std::optional<ns::Error>>(answer[1]);
                 reply(result ? ns::toObject(*result) : nil, error ? ns::toObject(*error) : nil);
             }];
}

- (void)settleWithReply:(void (^)(void))reply
{
    [self call:_cmd arguments:{} sink:[reply](auto) { reply(); }];
}

- (void)shake
{
    xpc::receive(_object, _cmd);
}

- (void)call:(SEL)selector arguments:(std::span<const xpc::Argument>)arguments sink:(xpc::ReplySink)sink
{
    _object.protocol->invoke(_object.object.get(), sel_getName(selector), arguments, sink);
}

@end

namespace pavo::test {
namespace {

template <typename Class>
id makeObject(xpc::ExportedObject object)
{
    return [[Class alloc] initWithObject:std::move(object)];
}

constexpr xpc::RuntimeProtocol kTestProtocols[] = {
    xpc::bindProtocol<Switching>([] { return @protocol(PavoSwitching); }),
    xpc::bindProtocol<Lamp>([] { return @protocol(PavoLamp); }, makeObject<PavoTestLamp>),
    xpc::bindProtocol<LampOwner>([] { return @protocol(PavoLampOwner); }, makeObject<PavoTestLampOwner>),
    xpc::bindProtocol<Thermometer>([] { return @protocol(PavoThermometer); },
                                   makeObject<PavoTestThermometer>),
};

class MacOS final : public TestSystem {
public:
    MacOS() { setCarriesMessages(true); }
    ~MacOS() override { setCarriesMessages(false); }

    void expectNothingLeft() override
    {
        EXPECT_TRUE(waitFor([] {
            return std::ranges::all_of(connections(), isOver<NSXPCConnection>) &&
                   std::ranges::all_of(listeners(), isOver<NSXPCListener>);
        }));
    }

private:
    template <typename Class>
    static bool isOver(Class* object)
    {
        return !object.isResumed || object.isInvalidated;
    }
};

}  // namespace

std::unique_ptr<TestSystem> makeTestSystem()
{
    return std::make_unique<MacOS>();
}

}  // namespace pavo::test

const xpc::RuntimeProtocol& protocolOfTheProduct(const xpc::ProtocolDescription& description) asm(
    "__real__ZN3xpc15runtimeProtocolERKNS_19ProtocolDescriptionE");
const xpc::RuntimeProtocol& protocolOfATest(const xpc::ProtocolDescription& description) asm(
    "__wrap__ZN3xpc15runtimeProtocolERKNS_19ProtocolDescriptionE");

const xpc::RuntimeProtocol& protocolOfATest(const xpc::ProtocolDescription& description)
{
    for (const auto& candidate : pavo::test::kTestProtocols)
        if (&candidate.description() == &description) return candidate;
    return protocolOfTheProduct(description);
}
