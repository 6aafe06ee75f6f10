"""What the built files must be, to the letter: the names, selectors and encodings by which the stub, the
camera system, the producer and the privileged helper know us. A file that has less, or more, is refused.

In an encoding {BOOL} stands for the architecture's truth value. After a | comes the extended encoding, where it
is not the same: the message system reads the classes of arguments from it. An encoding of None is one that
names types of ours, which nobody outside ever sees.
"""

ARCHITECTURES = ["arm64", "x86_64"]
MINIMUM_VERSION = "12.3"
# Truth values are not the same type on both.
BOOL = {"arm64": "B", "x86_64": "c"}

# Encodings.
OBJECT = "@16@0:8"  # of a method that takes nothing and returns an object
ACTION = "v16@0:8"
PROPERTIES = "@32@0:8@16^@24"
SET_PROPERTIES = "{BOOL}32@0:8@16^@24"
START_STOP = "{BOOL}24@0:8^@16"
REPLY_WITH_ERROR = 'v24@0:8@?16|v24@0:8@?<v@?@"NSError">16'
TIMING = "{?={?=qiIq}{?=qiIq}{?=qiIq}}"

# Methods that the compiler adds to a class for its C++ fields, of whose kind our classes may have any.
COMPILER_METHODS = {".cxx_construct", ".cxx_destruct"}

VERSION = "0.1.0"
FRAMEWORK = "/System/Library/Frameworks/{0}.framework/Versions/{1}/{0}"
LOGGING_INSTALL_NAME = "@rpath/PavoLoggingSupport.framework/Versions/A/PavoLoggingSupport"


def objc_class(methods, protocols=()):
    return {"superclass": "NSObject", "protocols": list(protocols), "methods": methods}


def protocol(required, adopted=("NSObject",), optional=None):
    return {"adopted": list(adopted), "required": required, "optional": optional or {}}


def information(name, identifier, package_type, **more):
    return {
        "CFBundleDevelopmentRegion": "en", "CFBundleExecutable": name, "CFBundleIdentifier": identifier,
        "CFBundleInfoDictionaryVersion": "6.0", "CFBundleName": name, "CFBundlePackageType": package_type,
        "CFBundleShortVersionString": VERSION, "CFBundleSupportedPlatforms": ["MacOSX"],
        "CFBundleVersion": VERSION, "LSMinimumSystemVersion": MINIMUM_VERSION, **more}


CLASSES = {
    # What the stub creates.
    "TWCMIOExtensionSupportEntryPoint": objc_class(
        {"init": OBJECT, "start": ACTION, "stop": ACTION},
        ["TWCMIOExtensionStubSupportEntryPointProtocol"]),
    # What the camera system asks.
    "CMIOExtensionSupport.ProviderSource": objc_class(
        {
            "init": OBJECT,
            "initWithAdapter:": None,
            "connectClient:error:": "{BOOL}32@0:8@16^@24",
            "disconnectClient:": "v24@0:8@16",
            "availableProperties": OBJECT,
            "providerPropertiesForProperties:error:": PROPERTIES,
            "setProviderProperties:error:": SET_PROPERTIES,
        },
        ["CMIOExtensionProviderSource"]),
    "CMIOExtensionSupport.VideoDeviceSource": objc_class(
        {
            "init": OBJECT,
            "initWithAdapter:": None,
            "availableProperties": OBJECT,
            "devicePropertiesForProperties:error:": PROPERTIES,
            "setDeviceProperties:error:": SET_PROPERTIES,
        },
        ["CMIOExtensionDeviceSource"]),
    "CMIOExtensionSupport.VideoStreamSource": objc_class(
        {
            "init": OBJECT,
            "initWithAdapter:": None,
            "formats": OBJECT,
            "availableProperties": OBJECT,
            "streamPropertiesForProperties:error:": PROPERTIES,
            "setStreamProperties:error:": SET_PROPERTIES,
            "authorizedToStartStreamForClient:": "{BOOL}24@0:8@16",
            "startStreamAndReturnError:": START_STOP,
            "stopStreamAndReturnError:": START_STOP,
        },
        ["CMIOExtensionStreamSource"]),
    # Of our own adapters.
    "PavoVideoFrameConsumer": objc_class(
        {
            "initWithObject:": None,
            "didRecieveRawFrame:timingInfo:": f"v96@0:8@16{TIMING}24",
            "targetFPSChangedTo:": "v24@0:8d16",
        },
        ["CMIOExtensionSupport.VideoFrameConsumerService"]),
    "PavoListenerDelegate": objc_class(
        {"initWithDelegate:": None, "listener:shouldAcceptNewConnection:": "{BOOL}32@0:8@16@24"},
        ["NSXPCListenerDelegate"]),
    "PavoStreamingClientsObserver": objc_class({
        "initWithStream:handler:": None,
        "end": ACTION,
        "observeValueForKeyPath:ofObject:change:context:": "v48@0:8@16@24@32^v40",
    }),
}

OWN_PROTOCOLS = {
    "TWCMIOExtensionStubSupportEntryPointProtocol": protocol(
        {"init": OBJECT, "start": ACTION, "stop": ACTION}, adopted=[]),
    "CMIOExtensionSupport.VideoFrameConsumerService": protocol({
        "didRecieveRawFrame:timingInfo:": f'v96@0:8@16{TIMING}24|v96@0:8@"IOSurface"16{TIMING}24',
        "targetFPSChangedTo:": "v24@0:8d16",
    }),
    "CMIOExtensionSupport.VideoFrameProducerService": protocol({
        "subscribeToVideoFrames": ACTION,
        "unsubscribeFromVideoFrames": ACTION,
    }),
    "CMIOExtensionSupport.VideoFrameProducerServiceReportReceiving": protocol(
        {"subconsumerSubscriptionWithPID:isSubscribedChangedTo:": "v24@0:8i16{BOOL}20"},
        adopted=["CMIOExtensionSupport.VideoFrameProducerService"]),
    # Spoken with the privileged helper.
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
}

# The compiler writes down every protocol that ours adopt, as we declare it.
SYSTEM_PROTOCOLS = {
    "NSObject": protocol(
        {
            "isEqual:": "{BOOL}24@0:8@16", "class": "#16@0:8", "self": OBJECT,
            "performSelector:": "@24@0:8:16", "performSelector:withObject:": "@32@0:8:16@24",
            "performSelector:withObject:withObject:": "@40@0:8:16@24@32",
            "isProxy": "{BOOL}16@0:8", "isKindOfClass:": "{BOOL}24@0:8#16",
            "isMemberOfClass:": "{BOOL}24@0:8#16",
            "conformsToProtocol:": '{BOOL}24@0:8@16|{BOOL}24@0:8@"Protocol"16',
            "respondsToSelector:": "{BOOL}24@0:8:16", "hash": "Q16@0:8", "superclass": "#16@0:8",
            "description": f'{OBJECT}|@"NSString"16@0:8',
        },
        adopted=[], optional={"debugDescription": f'{OBJECT}|@"NSString"16@0:8'}),
    "NSXPCListenerDelegate": protocol({}, optional={
        "listener:shouldAcceptNewConnection:":
            '{BOOL}32@0:8@16@24|{BOOL}32@0:8@"NSXPCListener"16@"NSXPCConnection"24',
    }),
    "CMIOExtensionProviderSource": protocol({
        "connectClient:error:": '{BOOL}32@0:8@16^@24|{BOOL}32@0:8@"CMIOExtensionClient"16^@24',
        "disconnectClient:": 'v24@0:8@16|v24@0:8@"CMIOExtensionClient"16',
        "providerPropertiesForProperties:error:":
            f'{PROPERTIES}|@"CMIOExtensionProviderProperties"32@0:8@"NSSet"16^@24',
        "setProviderProperties:error:":
            SET_PROPERTIES + '|{BOOL}32@0:8@"CMIOExtensionProviderProperties"16^@24',
        "availableProperties": f'{OBJECT}|@"NSSet"16@0:8',
    }),
    "CMIOExtensionDeviceSource": protocol({
        "devicePropertiesForProperties:error:":
            f'{PROPERTIES}|@"CMIOExtensionDeviceProperties"32@0:8@"NSSet"16^@24',
        "setDeviceProperties:error:": SET_PROPERTIES + '|{BOOL}32@0:8@"CMIOExtensionDeviceProperties"16^@24',
        "availableProperties": f'{OBJECT}|@"NSSet"16@0:8',
    }),
    "CMIOExtensionStreamSource": protocol({
        "streamPropertiesForProperties:error:":
            f'{PROPERTIES}|@"CMIOExtensionStreamProperties"32@0:8@"NSSet"16^@24',
        "setStreamProperties:error:": SET_PROPERTIES + '|{BOOL}32@0:8@"CMIOExtensionStreamProperties"16^@24',
        "authorizedToStartStreamForClient:":
            '{BOOL}24@0:8@16|{BOOL}24@0:8@"CMIOExtensionClient"16',
        "startStreamAndReturnError:": START_STOP,
        "stopStreamAndReturnError:": START_STOP,
        "formats": f'{OBJECT}|@"NSArray"16@0:8',
        "availableProperties": f'{OBJECT}|@"NSSet"16@0:8',
    }),
}

PRODUCT = {
    "folder": "CMIOExtensionSupport.bundle",
    "executable": "Contents/MacOS/CMIOExtensionSupport",
    "information_path": "Contents/Info.plist",
    "information": information("CMIOExtensionSupport", "com.tarnwell.macos.cam.CMIOExtensionSupport", "BNDL"),
    "files": ["Contents/Frameworks/PavoLoggingSupport.framework",
              "Contents/Resources/configure-pavo-full.png"],
    "file_type": "bundle",
    "install_name": None,
    "run_paths": ["@loader_path/../Frameworks"],
    "libraries": [
        *(FRAMEWORK.format(name, "A") for name in (
            "CoreFoundation", "CoreGraphics", "CoreImage", "CoreMedia", "CoreMediaIO", "CoreVideo",
            "IOSurface", "Security", "ServiceManagement")),
        FRAMEWORK.format("Foundation", "C"), "/usr/lib/libSystem.B.dylib", "/usr/lib/libc++.1.dylib",
        "/usr/lib/libobjc.A.dylib", LOGGING_INSTALL_NAME,
    ],
    "exports": [
        "_OBJC_CLASS_$_TWCMIOExtensionSupportEntryPoint",
        "_OBJC_METACLASS_$_TWCMIOExtensionSupportEntryPoint",
        "_dynamically_register_mach_service_for_endpoint",
        "_dynamically_register_mach_service_for_endpoint_on_parent",
    ],
    "classes": CLASSES,
    "protocols": {**OWN_PROTOCOLS, **SYSTEM_PROTOCOLS},
}

LOGGING = {
    "folder": "CMIOExtensionSupport.bundle/Contents/Frameworks/PavoLoggingSupport.framework",
    "executable": "Versions/A/PavoLoggingSupport",
    "information_path": "Versions/A/Resources/Info.plist",
    "information": information("PavoLoggingSupport", "com.tarnwell.macos.PavoLoggingSupport", "FMWK"),
    "files": [],
    "file_type": "dylib",
    "install_name": LOGGING_INSTALL_NAME,
    "run_paths": [],
    "libraries": [
        FRAMEWORK.format("CoreFoundation", "A"), FRAMEWORK.format("Foundation", "C"),
        "/usr/lib/libSystem.B.dylib", "/usr/lib/libc++.1.dylib", "/usr/lib/libobjc.A.dylib",
    ],
    # Patterns: functions of a class with all that their names carry.
    "exports": [
        "__ZN4pavo6Logger*", "__ZNK4pavo6Logger*",
        "__ZN4pavo19GlobalLoggingConfig*", "__ZNK4pavo19GlobalLoggingConfig*",
        "__ZN4pavo10objectTextEPKv", "__ZN4pavo10quotedTextE*", "__ZN4pavo17floatingPointTextEd",
    ],
    # In the image so that the system finds its bundle.
    "classes": {"PavoLoggingSupport._PluginMarker": objc_class({})},
    "protocols": {},
}

EXTENSION_NAME = "com.tarnwell.macos.cam.extension"
EXTENSION = {
    "folder": f"{EXTENSION_NAME}.systemextension",
    "executable": f"Contents/MacOS/{EXTENSION_NAME}",
    "information_path": "Contents/Info.plist",
    "information": information(
        EXTENSION_NAME, EXTENSION_NAME, "SYSX", CFBundleDisplayName="Pavo Camera",
        CMIOExtension={"CMIOExtensionMachServiceName": f"TEAM.{EXTENSION_NAME}"},
        NSSystemExtensionUsageDescription=
        "Pavo Camera shows the pictures of your studio to every program that can use a camera."),
    "files": ["Contents/PlugIns/CMIOExtensionSupport.bundle"],
    "file_type": "execute",
    "install_name": None,
    "run_paths": [],
    "libraries": [
        FRAMEWORK.format("Foundation", "C"), "/usr/lib/libSystem.B.dylib", "/usr/lib/libc++.1.dylib",
        "/usr/lib/libobjc.A.dylib",
    ],
    "exports": ["__mh_execute_header", "_main"],
    "classes": {},
    "protocols": {},
}

MODULES = [LOGGING, PRODUCT, EXTENSION]
