#pragma once

#include "Tests/MacOS/Runtime/Metadata.h"

#include <atomic>
#include <cstddef>
#include <span>
#include <vector>

// A small Objective-C runtime for Linux, in the place of the one of macOS: it runs the unmodified adapters in
// tests. Clang writes the metadata of macOS into ELF files, this reads it: classes, categories, protocols,
// message sending with forwarding, reference counting with weak references and pools, blocks, associations.
// A mistake that macOS would answer with a crash or an exception ends the process.
//
// Core Foundation objects of the Linux frameworks are bridged: they can be retained, released and sent
// messages, as their like can on macOS.
namespace pavo::test::objc {

struct Object {
    ClassRecord* isa;
};

// The lists of an image. Those of the program itself are registered before its first line runs.
struct ImageMetadata {
    std::span<ClassRecord*> classes;
    std::span<CategoryRecord*> categories;
    std::span<ProtocolRecord*> protocols;
    std::span<const char*> selectors;
};
void registerMetadata(const ImageMetadata& image);

// Objects and blocks on the heap that nobody has freed.
std::size_t liveObjectCount();
// Names of their classes, for a test's complaint.
std::vector<const char*> liveObjectClasses();

// The class of an object or class; of a Core Foundation object, the class that stands for it. Null for what
// is no object that can be sent messages, as a block or a protocol.
ClassRecord* classOf(const void* object);
bool isObjectiveC(const void* object);
bool isBlock(const void* object);
ClassRecord* findClass(const char* name);
ProtocolRecord* findProtocol(const char* name);
bool protocolConforms(const ProtocolRecord* protocol, const ProtocolRecord* other);
bool classConforms(const ClassRecord* type, const ProtocolRecord* protocol);
// Of the class itself, without its superclasses and categories.
bool classAdopts(const ClassRecord* type, const ProtocolRecord* protocol);
bool classHasMethod(ClassRecord* type, const char* selector);
bool classImplements(const ClassRecord* type, const char* selector);
const char* methodTypes(const ClassRecord* type, const char* selector);
// The extended types of a required method, adopted protocols included; null where there is none.
const char* extendedTypes(const ProtocolRecord* protocol, const char* selector);

// The place of a field that the object's class declares.
void* fieldOf(void* object, const char* name);

// For the root class.
Object* allocate(ClassRecord* type);
void destroy(Object* object);

// Inside the runtime.
const char* uniqueSelector(const char* name);
using Implementation = void (*)();
// Null where neither the class nor a superclass has the method.
Implementation findImplementation(ClassRecord* type, const char* uniqueName);
Implementation findOwnImplementation(ClassRecord* type, const char* uniqueName);
[[noreturn]] void die(const char* what, const char* first = "", const char* second = "");
void countLive(const void* object, const char* name);
void forgetLive(const void* object);
void removeAssociations(const void* object);

}  // namespace pavo::test::objc
