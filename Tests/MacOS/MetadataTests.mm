// What the compiler wrote about the adapters' classes and protocols, letter for letter. The encodings are
// those of Intel machines, where a BOOL is a signed character.

#include "Bundle/mac/FrameServiceProtocols.h"
#include "Bundle/mac/TWCMIOExtensionStubSupportEntryPointProtocol.h"
#include "Tests/MacOS/AdapterFixture.h"

#include <CoreMediaIO/CoreMediaIO.h>

#include <gtest/gtest.h>

#include <map>
#include <string>

namespace pavo::test {
namespace {

using Types = std::map<std::string, std::string>;

objc::ProtocolRecord* record(Protocol* protocol)
{
    return (__bridge objc::ProtocolRecord*)protocol;
}

Types methodsOf(const objc::ProtocolRecord* protocol)
{
    Types types;
    const auto* methods = protocol->instanceMethods;
    for (std::uint32_t i = 0; methods && i < methods->count; ++i)
        types[methods->methods[i].name] = methods->methods[i].types;
    return types;
}

Types extendedOf(const objc::ProtocolRecord* protocol)
{
    Types types;
    const auto* methods = protocol->instanceMethods;
    for (std::uint32_t i = 0; methods && i < methods->count; ++i)
        types[methods->methods[i].name] = protocol->extendedTypes[i];
    return types;
}

Strings adoptedBy(const objc::ProtocolRecord* protocol)
{
    Strings names;
    for (std::uint64_t i = 0; protocol->adopted && i < protocol->adopted->count; ++i)
        names.emplace_back(protocol->adopted->protocols[i]->name);
    return names;
}

void expectNothingElse(const objc::ProtocolRecord* protocol)
{
    EXPECT_EQ(protocol->classMethods, nullptr);
    EXPECT_EQ(protocol->optionalInstanceMethods, nullptr);
    EXPECT_EQ(protocol->optionalClassMethods, nullptr);
    EXPECT_EQ(protocol->properties, nullptr);
}

TEST(AdapterMetadata, EntryPointHasThreeOperationsInThisOrder)
{
    const auto* const protocol = record(objc_getProtocol("TWCMIOExtensionStubSupportEntryPointProtocol"));
    ASSERT_NE(protocol, nullptr);
    const auto* const methods = protocol->instanceMethods;
    ASSERT_EQ(methods->count, 3U);
    EXPECT_STREQ(methods->methods[0].name, "init");
    EXPECT_STREQ(methods->methods[1].name, "start");
    EXPECT_STREQ(methods->methods[2].name, "stop");
    EXPECT_EQ(methodsOf(protocol), (Types{{"init", "@16@0:8"}, {"start", "v16@0:8"}, {"stop", "v16@0:8"}}));
    EXPECT_EQ(protocol->adopted, nullptr);
    expectNothingElse(protocol);
}

TEST(AdapterMetadata, EntryPointClassConformsAndResponds)
{
    auto* const type = objc::findClass("TWCMIOExtensionSupportEntryPoint");
    ASSERT_NE(type, nullptr);
    EXPECT_STREQ(type->superclass->data->name, "NSObject");
    EXPECT_TRUE(objc::classAdopts(type, record(@protocol(TWCMIOExtensionStubSupportEntryPointProtocol))));
    for (const char* selector : {"init", "start", "stop"})
        EXPECT_TRUE(objc::classImplements(type, selector)) << selector;
}

TEST(AdapterMetadata, FrameProtocolsHaveTheEncodingsOfTheWire)
{
    const auto* const consumer = record(objc_getProtocol("CMIOExtensionSupport.VideoFrameConsumerService"));
    ASSERT_NE(consumer, nullptr);
    EXPECT_EQ(methodsOf(consumer),
              (Types{{"didRecieveRawFrame:timingInfo:", "v96@0:8@16{?={?=qiIq}{?=qiIq}{?=qiIq}}24"},
                     {"targetFPSChangedTo:", "v24@0:8d16"}}));
    EXPECT_EQ(extendedOf(consumer), (Types{{"didRecieveRawFrame:timingInfo:",
                                            "v96@0:8@\"IOSurface\"16{?={?=qiIq}{?=qiIq}{?=qiIq}}24"},
                                           {"targetFPSChangedTo:", "v24@0:8d16"}}));
    EXPECT_EQ(adoptedBy(consumer), (Strings{"NSObject"}));
    expectNothingElse(consumer);

    const auto* const producer = record(objc_getProtocol("CMIOExtensionSupport.VideoFrameProducerService"));
    ASSERT_NE(producer, nullptr);
    EXPECT_EQ(extendedOf(producer),
              (Types{{"subscribeToVideoFrames", "v16@0:8"}, {"unsubscribeFromVideoFrames", "v16@0:8"}}));
    EXPECT_EQ(adoptedBy(producer), (Strings{"NSObject"}));
    expectNothingElse(producer);

    const auto* const reported =
        record(objc_getProtocol("CMIOExtensionSupport.VideoFrameProducerServiceReportReceiving"));
    ASSERT_NE(reported, nullptr);
    EXPECT_EQ(extendedOf(reported),
              (Types{{"subconsumerSubscriptionWithPID:isSubscribedChangedTo:", "v24@0:8i16c20"}}));
    EXPECT_EQ(adoptedBy(reported), (Strings{producer->name}));
    expectNothingElse(reported);
}

TEST(AdapterMetadata, FrameProtocolsAreStoredAsTheSystemLooksThemUp)
{
    EXPECT_STREQ(record(@protocol(VideoFrameConsumerService))->name,
                 "_TtP20CMIOExtensionSupport25VideoFrameConsumerService_");
    EXPECT_EQ(objc_getProtocol("CMIOExtensionSupport.VideoFrameConsumerService"),
              @protocol(VideoFrameConsumerService));
    EXPECT_EQ(objc_getProtocol("CMIOExtensionSupport.VideoFrameProducerService"),
              @protocol(VideoFrameProducerService));
    EXPECT_EQ(objc_getProtocol("CMIOExtensionSupport.VideoFrameProducerServiceReportReceiving"),
              @protocol(VideoFrameProducerServiceReportReceiving));
}

struct SourceClass {
    const char* name;
    Protocol* protocol;
    Types methods;
};

TEST(AdapterMetadata, SourcesImplementEveryMemberOfTheirProtocol)
{
    const SourceClass classes[] = {{"CMIOExtensionSupport.ProviderSource",
                                    @protocol(CMIOExtensionProviderSource),
                                    {{"connectClient:error:", "c32@0:8@16^@24"},
                                     {"disconnectClient:", "v24@0:8@16"},
                                     {"availableProperties", "@16@0:8"},
                                     {"providerPropertiesForProperties:error:", "@32@0:8@16^@24"},
                                     {"setProviderProperties:error:", "c32@0:8@16^@24"}}},
                                   {"CMIOExtensionSupport.VideoDeviceSource",
                                    @protocol(CMIOExtensionDeviceSource),
                                    {{"availableProperties", "@16@0:8"},
                                     {"devicePropertiesForProperties:error:", "@32@0:8@16^@24"},
                                     {"setDeviceProperties:error:", "c32@0:8@16^@24"}}},
                                   {"CMIOExtensionSupport.VideoStreamSource",
                                    @protocol(CMIOExtensionStreamSource),
                                    {{"formats", "@16@0:8"},
                                     {"availableProperties", "@16@0:8"},
                                     {"streamPropertiesForProperties:error:", "@32@0:8@16^@24"},
                                     {"setStreamProperties:error:", "c32@0:8@16^@24"},
                                     {"authorizedToStartStreamForClient:", "c24@0:8@16"},
                                     {"startStreamAndReturnError:", "c24@0:8^@16"},
                                     {"stopStreamAndReturnError:", "c24@0:8^@16"}}}};
    for (const auto& expected : classes) {
        auto* const type = objc::findClass(expected.name);
        ASSERT_NE(type, nullptr) << expected.name;
        EXPECT_STREQ(type->superclass->data->name, "NSObject");
        EXPECT_TRUE(objc::classAdopts(type, record(expected.protocol)));
        EXPECT_EQ(methodsOf(record(expected.protocol)), expected.methods);
        for (const auto& [selector, types] : expected.methods)
            EXPECT_STREQ(objc::methodTypes(type, selector.c_str()), types.c_str()) << selector;
    }
}

TEST(AdapterMetadata, LoggingModuleHasAClassToFindItsBundleBy)
{
    EXPECT_NE(objc::findClass("PavoLoggingSupport._PluginMarker"), nullptr);
}

}  // namespace
}  // namespace pavo::test
