"""What the built files must be, to the letter: the names, selectors and encodings by which the stub, the camera
system, the producer and the privileged helper know us. A file that has less, or more, is refused.

In an encoding {BOOL} stands for the architecture's truth value, and after a | comes the extended encoding that the
message system reads argument classes from.
"""

ARCHITECTURES = ["arm64", "x86_64"]
MINIMUM_VERSION = "12.3"
# Truth values are not the same type on both.
BOOL = {"arm64": "B", "x86_64": "c"}

GETTER = "@16@0:8"
ACTION = "v16@0:8"
PROPERTIES_FOR = "@32@0:8@16^@24"
SET_PROPERTIES = "{BOOL}32@0:8@16^@24"
START_STOP = "{BOOL}24@0:8^@16"
REPLY_WITH_ERROR = 'v24@0:8@?16|v24@0:8@?<v@?@"NSError">16'
TIMING = "{?={?=qiIq}{?=qiIq}{?=qiIq}}"


def image(**fields):
    return {"exports": [], "classes": {}, "protocols": {}, "run_paths": [], "install_name": None, **fields}


def objc_class(protocols, methods, superclass="NSObject", class_methods=None):
    return {"superclass": superclass, "protocols": protocols, "methods": methods,
            "class_methods": class_methods or {}}


def protocol(required, adopted=("NSObject",), optional=None):
    return {"adopted": list(adopted), "required": required, "optional": optional or {}}


SYSTEM = "/System/Library/Frameworks/{0}.framework/Versions/{1}/{0}"
LOGGING = "@rpath/PavoLoggingSupport.framework/Versions/A/PavoLoggingSupport"

PRODUCT = image(
    path="Contents/MacOS/CMIOExtensionSupport",
    file_type="bundle",
    identifier="com.tarnwell.macos.cam.CMIOExtensionSupport",
    libraries=[
        SYSTEM.format("CoreFoundation", "A"), SYSTEM.format("CoreGraphics", "A"), SYSTEM.format("CoreImage", "A"),
        SYSTEM.format("CoreMedia", "A"), SYSTEM.format("CoreMediaIO", "A"), SYSTEM.format("CoreVideo", "A"),
        SYSTEM.format("Foundation", "C"), SYSTEM.format("IOSurface", "A"),
        "/usr/lib/libSystem.B.dylib", "/usr/lib/libc++.1.dylib", "/usr/lib/libobjc.A.dylib", LOGGING,
    ],
    run_paths=["@loader_path/../Frameworks"],
    exports=[
        "_OBJC_CLASS_$_TWCMIOExtensionSupportEntryPoint",
        "_OBJC_METACLASS_$_TWCMIOExtensionSupportEntryPoint",
        "_dynamically_register_mach_service_for_endpoint",
        "_dynamically_register_mach_service_for_endpoint_on_parent",
    ],
    classes={
        "TWCMIOExtensionSupportEntryPoint": objc_class(
            ["TWCMIOExtensionStubSupportEntryPointProtocol"],
            {"init": GETTER, "start": ACTION, "stop": ACTION}),
        "CMIOExtensionSupport.ProviderSource": objc_class(
            ["CMIOExtensionProviderSource"],
            {
                "connectClient:error:": "{BOOL}32@0:8@16^@24",
                "disconnectClient:": "v24@0:8@16",
                "availableProperties": GETTER,
                "providerPropertiesForProperties:error:": PROPERTIES_FOR,
                "setProviderProperties:error:": SET_PROPERTIES,
            }),
        "CMIOExtensionSupport.VideoDeviceSource": objc_class(
            ["CMIOExtensionDeviceSource"],
            {
                "availableProperties": GETTER,
                "devicePropertiesForProperties:error:": PROPERTIES_FOR,
                "setDeviceProperties:error:": SET_PROPERTIES,
            }),
        "CMIOExtensionSupport.VideoStreamSource": objc_class(
            ["CMIOExtensionStreamSource"],
            {
                "formats": GETTER,
                "availableProperties": GETTER,
                "streamPropertiesForProperties:error:": PROPERTIES_FOR,
                "setStreamProperties:error:": SET_PROPERTIES,
                "authorizedToStartStreamForClient:": "{BOOL}24@0:8@16",
                "startStreamAndReturnError:": START_STOP,
                "stopStreamAndReturnError:": START_STOP,
            }),
    },
    protocols={
        "TWCMIOExtensionStubSupportEntryPointProtocol": protocol(
            {"init": GETTER, "start": ACTION, "stop": ACTION}, adopted=[]),
        "CMIOExtensionSupport.VideoFrameConsumerService": protocol({
            "didRecieveRawFrame:timingInfo:":
                f'v96@0:8@16{TIMING}24|v96@0:8@"IOSurface"16{TIMING}24',
            "targetFPSChangedTo:": "v24@0:8d16",
        }),
        "CMIOExtensionSupport.VideoFrameProducerService": protocol({
            "subscribeToVideoFrames": ACTION,
            "unsubscribeFromVideoFrames": ACTION,
        }),
        "CMIOExtensionSupport.VideoFrameProducerServiceReportReceiving": protocol(
            {"subconsumerSubscriptionWithPID:isSubscribedChangedTo:": "v24@0:8i16{BOOL}20"},
            adopted=["CMIOExtensionSupport.VideoFrameProducerService"]),
        "BosunServiceProtocol": protocol({
            "getCommunicationVersionWithReply:": "v24@0:8@?16|v24@0:8@?<v@?Q>16",
            "ping": ACTION,
            "launchStudioIfNeeded": ACTION,
            "doInstallWithStepIdentifier:encodedContext:encodedFrozenInstallationState:reply:":
                'v48@0:8@16@24@32@?40|'
                'v48@0:8@"NSString"16@"NSData"24@"NSData"32@?<v@?@"NSData"@"NSError">40',
            "doComponentUninstallWithReply:": REPLY_WITH_ERROR,
            "coreadiosdWithReply:": REPLY_WITH_ERROR,
            "checkCMIOExtensionRegisteredWithReply:": "v24@0:8@?16|v24@0:8@?<v@?{BOOL}>16",
        }),
    },
)

MODULES = [PRODUCT]
