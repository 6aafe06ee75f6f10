#pragma once

#include <Foundation/Foundation.h>

#include <map>
#include <string>
#include <string_view>
#include <vector>

// In place of Foundation: its small classes, working as far as the adapters use them.
namespace pavo::test {

NSString* makeString(std::string_view text);
NSArray* makeArray(const std::vector<id>& objects);
NSSet* makeSet(const std::vector<id>& objects);
NSDictionary* makeDictionary(const std::map<std::string, id>& entries);
std::vector<id> objectsIn(id<NSFastEnumeration> collection);
double numberIn(NSNumber* number);
bool isBoolean(NSNumber* number);

struct BundleContents {
    std::string identifier;                        // empty: none
    std::map<std::string, std::string> resources;  // "name.extension" to path
};

// The bundles that exist, by path.
void setBundles(std::map<std::string, BundleContents> bundles);
void setMainBundle(const std::string& path);
// Where bundleForClass: leads; it keeps the name of the class that was asked for.
void setBundleOfClasses(const std::string& path);
std::string lastClassOfBundle();

void setOperatingSystemVersion(NSOperatingSystemVersion version);

// Tells the observers of the object's property. Nil: the property was set to nothing.
void tellObservers(id object, NSString* keyPath, id newValue);
// The same with a context that no observer gave.
void tellObserversWithContext(id object, NSString* keyPath, void* context);
// For an object that goes: leaving observers behind is a mistake.
void requireNoObservers(const void* object);

}  // namespace pavo::test
