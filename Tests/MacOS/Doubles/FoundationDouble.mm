// Bundles, the process, identifiers, and key-value observing.

#include "Tests/MacOS/Doubles/FoundationDouble.h"

#include "Tests/MacOS/Runtime/Runtime.h"

#include <sys/random.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <utility>

namespace objc = pavo::test::objc;

namespace {

std::map<std::string, pavo::test::BundleContents> bundles;
std::string mainBundlePath;
std::string bundleOfClassesPath;
std::string lastClass;
NSOperatingSystemVersion operatingSystemVersion;

struct Observation {
    const void* object;
    __unsafe_unretained NSObject* observer;
    std::string keyPath;
    void* context;
};

std::mutex observationMutex;
std::vector<Observation> observations;

NSBundle* bundleAt(const std::string& path)
{
    return [NSBundle bundleWithPath:pavo::test::makeString(path)];
}

std::vector<std::pair<NSObject*, void*>> observersOf(id object, NSString* keyPath)
{
    const std::string path = keyPath.UTF8String;
    const auto* const address = (__bridge const void*)object;
    std::vector<std::pair<NSObject*, void*>> found;
    const std::lock_guard lock(observationMutex);
    for (const auto& observation : observations)
        if (observation.object == address && observation.keyPath == path)
            found.emplace_back(observation.observer, observation.context);
    return found;
}

}  // namespace

NSKeyValueChangeKey const NSKeyValueChangeNewKey = @"new";

@implementation NSBundle {
    std::string _path;
}

+ (NSBundle*)mainBundle
{
    return bundleAt(mainBundlePath);
}

+ (NSBundle*)bundleForClass:(Class)type
{
    lastClass = class_getName(type);
    return bundleAt(bundleOfClassesPath);
}

+ (instancetype)bundleWithPath:(NSString*)path
{
    if (!bundles.contains(path.UTF8String)) return nil;
    NSBundle* const bundle = [[NSBundle alloc] init];
    bundle->_path = path.UTF8String;
    return bundle;
}

- (NSString*)bundlePath
{
    return pavo::test::makeString(_path);
}

- (NSString*)bundleIdentifier
{
    const auto& identifier = bundles.at(_path).identifier;
    return identifier.empty() ? nil : pavo::test::makeString(identifier);
}

- (NSURL*)URLForResource:(NSString*)name withExtension:(NSString*)extension
{
    const auto& resources = bundles.at(_path).resources;
    const auto found = resources.find(std::string(name.UTF8String) + "." + extension.UTF8String);
    return found == resources.end() ? nil : [NSURL fileURLWithPath:pavo::test::makeString(found->second)];
}

@end

@implementation NSProcessInfo

+ (NSProcessInfo*)processInfo
{
    return [[NSProcessInfo alloc] init];
}

- (NSOperatingSystemVersion)operatingSystemVersion
{
    return operatingSystemVersion;
}

@end

@implementation NSUUID {
    std::array<unsigned char, 16> _bytes;
}

+ (instancetype)UUID
{
    std::array<unsigned char, 16> bytes{};
    if (getrandom(bytes.data(), bytes.size(), 0) != 16) return nil;
    bytes[6] = (bytes[6] & 0x0F) | 0x40;
    bytes[8] = (bytes[8] & 0x3F) | 0x80;
    return [[self alloc] initWithUUIDBytes:bytes.data()];
}

- (instancetype)initWithUUIDString:(NSString*)string
{
    const std::string_view text(string.UTF8String);
    std::array<unsigned char, 16> bytes{};
    std::size_t digits = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const bool isDash = i == 8 || i == 13 || i == 18 || i == 23;
        const char* const place = std::strchr("0123456789abcdef", text[i] | 0x20);
        if (isDash ? text[i] != '-' : !place || text[i] < '0' || digits >= 32) return nil;
        if (isDash) continue;
        const auto digit = static_cast<unsigned char>(place - std::strchr("0123456789abcdef", '0'));
        bytes[digits / 2] = static_cast<unsigned char>(bytes[digits / 2] << 4 | digit);
        ++digits;
    }
    return digits == 32 ? [self initWithUUIDBytes:bytes.data()] : nil;
}

- (instancetype)initWithUUIDBytes:(const unsigned char[16])bytes
{
    self = [super init];
    std::copy_n(bytes, 16, _bytes.begin());
    return self;
}

- (void)getUUIDBytes:(unsigned char[16])bytes
{
    std::copy_n(_bytes.begin(), 16, bytes);
}

- (NSString*)UUIDString
{
    std::string text;
    for (std::size_t i = 0; i < _bytes.size(); ++i) {
        char digits[3];
        std::snprintf(digits, sizeof(digits), "%02X", _bytes[i]);
        text += i == 4 || i == 6 || i == 8 || i == 10 ? "-" : "";
        text += digits;
    }
    return pavo::test::makeString(text);
}

@end

@implementation NSObject (NSKeyValueObserving)

- (void)addObserver:(NSObject*)observer
         forKeyPath:(NSString*)keyPath
            options:(NSKeyValueObservingOptions)options
            context:(void*)context
{
    if (options != NSKeyValueObservingOptionNew) objc::die("Only the new value is to be observed");
    const std::lock_guard lock(observationMutex);
    observations.push_back({(__bridge const void*)self, observer, keyPath.UTF8String, context});
}

- (void)removeObserver:(NSObject*)observer forKeyPath:(NSString*)keyPath context:(void*)context
{
    const std::string path = keyPath.UTF8String;
    const auto* const object = (__bridge const void*)self;
    const std::lock_guard lock(observationMutex);
    if (std::erase_if(observations, [&](const Observation& observation) {
            return observation.object == object && observation.observer == observer &&
                   observation.keyPath == path && observation.context == context;
        }) == 0)
        objc::die("An observer is removed that is not registered");
}

- (void)observeValueForKeyPath:(NSString*)keyPath
                      ofObject:(id)object
                        change:(NSDictionary*)change
                       context:(void*)context
{
    objc::die("A change was received but not handled: ", keyPath.UTF8String);
}

@end

namespace pavo::test {

void setBundles(std::map<std::string, BundleContents> newBundles)
{
    bundles = std::move(newBundles);
}

void setMainBundle(const std::string& path)
{
    mainBundlePath = path;
}

void setBundleOfClasses(const std::string& path)
{
    bundleOfClassesPath = path;
}

std::string lastClassOfBundle()
{
    return lastClass;
}

void setOperatingSystemVersion(NSOperatingSystemVersion version)
{
    operatingSystemVersion = version;
}

void tellObservers(id object, NSString* keyPath, id newValue)
{
    NSDictionary* const change = makeDictionary({{"new", newValue ? newValue : [NSNull null]}});
    for (const auto& [observer, context] : observersOf(object, keyPath))
        [observer observeValueForKeyPath:keyPath ofObject:object change:change context:context];
}

void tellObserversWithContext(id object, NSString* keyPath, void* context)
{
    for (const auto& [observer, ownContext] : observersOf(object, keyPath))
        [observer observeValueForKeyPath:keyPath
                                ofObject:object
                                  change:[NSDictionary dictionary]
                                 context:context];
}

void requireNoObservers(const void* object)
{
    const std::lock_guard lock(observationMutex);
    for (const auto& observation : observations)
        if (observation.object == object) objc::die("An object goes that is still observed");
}

}  // namespace pavo::test
