#include <CoreFoundation/CFObject.h>
#include <CoreFoundation/CoreFoundation.h>

#include <gtest/gtest.h>

#include <atomic>
#include <climits>
#include <string>
#include <thread>
#include <vector>

#include "Platform/Support/Ref.h"

extern "C" CFIndex countFromC(void);

namespace {

// An object of a type that has nothing but its base, and that tells when it goes.
struct Plain : cf::runtime::Object {
    explicit Plain(std::atomic<int>& counter) : Object(classInfo()), destroyed(counter) {}
    ~Plain() { ++destroyed; }
    Plain(const Plain&) = delete;
    Plain& operator=(const Plain&) = delete;
    static const cf::runtime::Class& classInfo()
    {
        static constinit const cf::runtime::Class info{"Plain", cf::runtime::destroy<Plain>};
        return info;
    }
    std::atomic<int>& destroyed;
};

std::string textOf(CFStringRef string)
{
    return CFStringGetCStringPtr(string, kCFStringEncodingUTF8);
}

TEST(CFRuntime, ANewObjectHasOneReference)
{
    std::atomic<int> destroyed = 0;
    const auto object = cf::adopt<CFTypeRef>(cf::runtime::create<Plain>(destroyed));
    EXPECT_EQ(CFGetRetainCount(object.get()), 1);
}

TEST(CFRuntime, RetainReturnsItsArgumentAndCounts)
{
    std::atomic<int> destroyed = 0;
    const CFTypeRef object = cf::runtime::create<Plain>(destroyed);
    EXPECT_EQ(CFRetain(object), object);
    EXPECT_EQ(CFGetRetainCount(object), 2);
    CFRelease(object);
    EXPECT_EQ(CFGetRetainCount(object), 1);
    EXPECT_EQ(destroyed, 0);
    CFRelease(object);
    EXPECT_EQ(destroyed, 1);
}

TEST(CFRuntime, ReferencesOfManyThreadsDestroyAnObjectOnce)
{
    std::atomic<int> destroyed = 0;
    const CFTypeRef object = cf::runtime::create<Plain>(destroyed);
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        CFRetain(object);
        threads.emplace_back([object] {
            for (int k = 0; k < 1000; ++k) {
                CFRetain(object);
                CFRelease(object);
            }
            CFRelease(object);
        });
    }
    CFRelease(object);
    for (auto& thread : threads)
        thread.join();
    EXPECT_EQ(destroyed, 1);
}

TEST(CFRuntime, AConstantIsNeitherCountedNorDestroyed)
{
    EXPECT_EQ(CFGetRetainCount(kCFBooleanTrue), LONG_MAX);
    CFRelease(kCFBooleanTrue);
    CFRelease(CFSTR("immortal"));
    EXPECT_EQ(CFRetain(kCFBooleanTrue), kCFBooleanTrue);
    EXPECT_EQ(CFGetRetainCount(kCFBooleanTrue), LONG_MAX);
    EXPECT_EQ(CFGetRetainCount(CFSTR("immortal")), LONG_MAX);
}

TEST(CFRuntime, AnObjectWithoutEqualityIsEqualToItselfOnly)
{
    std::atomic<int> destroyed = 0;
    const auto first = cf::adopt<CFTypeRef>(cf::runtime::create<Plain>(destroyed));
    const auto second = cf::adopt<CFTypeRef>(cf::runtime::create<Plain>(destroyed));
    EXPECT_TRUE(CFEqual(first.get(), first.get()));
    EXPECT_FALSE(CFEqual(first.get(), second.get()));
    EXPECT_EQ(CFHash(first.get()), CFHash(first.get()));
    EXPECT_NE(CFHash(first.get()), CFHash(second.get()));
}

TEST(CFRuntime, AnObjectWithoutDescriptionIsDescribedByItsTypeAndAddress)
{
    std::atomic<int> destroyed = 0;
    const auto object = cf::adopt<CFTypeRef>(cf::runtime::create<Plain>(destroyed));
    const auto description = cf::adopt(CFCopyDescription(object.get()));
    EXPECT_TRUE(textOf(description.get()).starts_with("<Plain 0x"));
    EXPECT_TRUE(textOf(description.get()).ends_with(">"));
}

TEST(CFRuntime, EachTypeHasAnIdentifierOfItsOwn)
{
    const int value = 1;
    const auto number = cf::adopt(CFNumberCreate(kCFAllocatorDefault, kCFNumberIntType, &value));
    EXPECT_EQ(CFGetTypeID(number.get()), CFNumberGetTypeID());
    EXPECT_EQ(CFGetTypeID(kCFBooleanFalse), CFBooleanGetTypeID());
    EXPECT_EQ(CFGetTypeID(CFSTR("text")), CFStringGetTypeID());
    EXPECT_NE(CFNumberGetTypeID(), CFBooleanGetTypeID());
    EXPECT_NE(CFArrayGetTypeID(), CFDictionaryGetTypeID());
}

TEST(CFRuntime, ObjectsOfDifferentTypesAreNotEqual)
{
    const int one = 1;
    const auto number = cf::adopt(CFNumberCreate(kCFAllocatorDefault, kCFNumberIntType, &one));
    EXPECT_FALSE(CFEqual(number.get(), kCFBooleanTrue));
    EXPECT_FALSE(CFEqual(number.get(), CFSTR("1")));
}

TEST(CFRuntime, TheDefaultAllocatorIsNull)
{
    EXPECT_EQ(kCFAllocatorDefault, nullptr);
}

TEST(CFRuntime, IsUsableFromC)
{
    EXPECT_EQ(countFromC(), 2);
}

TEST(CFRuntimeDeathTest, EndsTheProcessWithTheFunctionsNameWhenAnArgumentIsNull)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(CFRelease(nullptr), "Fatal error: CFRelease\\(\\) called with NULL");
    EXPECT_DEATH(CFRetain(nullptr), "Fatal error: CFRetain\\(\\) called with NULL");
    EXPECT_DEATH(CFGetTypeID(nullptr), "Fatal error: CFGetTypeID\\(\\) called with NULL");
    EXPECT_DEATH(CFEqual(kCFBooleanTrue, nullptr), "Fatal error: CFEqual\\(\\) called with NULL");
    EXPECT_DEATH(CFHash(nullptr), "Fatal error: CFHash\\(\\) called with NULL");
    EXPECT_DEATH(CFCopyDescription(nullptr), "Fatal error: CFCopyDescription\\(\\) called with NULL");
}

}  // namespace
