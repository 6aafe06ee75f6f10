#pragma once

#include <cstdint>

// What the compiler writes about Objective-C classes, categories and protocols in the form that macOS uses.
namespace pavo::test::objc {

struct Method {
    const char* name;
    const char* types;
    void (*implementation)();
};

struct MethodList {
    std::uint32_t entrySize;
    std::uint32_t count;
    Method methods[1];  // `count` of them
};

struct ProtocolRecord;

struct ProtocolList {
    std::uint64_t count;
    ProtocolRecord* protocols[1];  // `count` of them
};

struct ProtocolRecord {
    void* isa;
    const char* name;
    ProtocolList* adopted;
    MethodList* instanceMethods;
    MethodList* classMethods;
    MethodList* optionalInstanceMethods;
    MethodList* optionalClassMethods;
    void* properties;
    std::uint32_t size;
    std::uint32_t flags;
    const char** extendedTypes;  // of all methods, in the order of the lists above
};

struct Field {
    const std::int32_t* offset;
    const char* name;
    const char* type;
    std::uint32_t alignment;
    std::uint32_t size;
};

struct FieldList {
    std::uint32_t entrySize;
    std::uint32_t count;
    Field fields[1];  // `count` of them
};

struct ClassData {
    static constexpr std::uint32_t kIsMetaclass = 1;

    std::uint32_t flags;
    std::uint32_t instanceStart;
    std::uint32_t instanceSize;
    std::uint32_t reserved;
    const void* strongLayout;
    const char* name;
    MethodList* methods;
    ProtocolList* protocols;
    FieldList* fields;
};

struct ClassRecord {
    ClassRecord* isa;
    ClassRecord* superclass;
    void* cache;
    void* virtualTable;
    ClassData* data;

    bool isMetaclass() const { return data->flags & ClassData::kIsMetaclass; }
};

struct CategoryRecord {
    const char* name;
    ClassRecord* type;
    MethodList* instanceMethods;
    MethodList* classMethods;
};

}  // namespace pavo::test::objc
