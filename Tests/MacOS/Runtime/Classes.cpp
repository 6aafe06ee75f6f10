// Finds the metadata in the program, and answers questions about it.

#include "Tests/MacOS/Runtime/Runtime.h"

#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <utility>

using namespace pavo::test::objc;

// The linker names the ends of each section.
#define PAVO_SECTION(Type, name)                                                                             \
    extern "C" Type* __start_##name[] __attribute__((weak, visibility("hidden")));                           \
    extern "C" Type* __stop_##name[] __attribute__((weak, visibility("hidden")));
PAVO_SECTION(ClassRecord, objc_classlist)
PAVO_SECTION(CategoryRecord, objc_catlist)
PAVO_SECTION(ProtocolRecord, objc_protolist)
PAVO_SECTION(const char, objc_selrefs)

namespace pavo::test::objc {

namespace {

struct MethodKey {
    const ClassRecord* type;
    const char* name;

    bool operator==(const MethodKey&) const = default;
};

struct MethodKeyHash {
    std::size_t operator()(const MethodKey& key) const
    {
        return std::hash<const void*>()(key.type) * 31 + std::hash<const void*>()(key.name);
    }
};

// All that was loaded. Complete before the program's first line runs, except for selectors.
struct Tables {
    std::mutex selectorMutex;
    std::unordered_set<std::string> selectors;
    std::map<std::string, ClassRecord*> classes;
    std::unordered_set<const void*> isas;
    std::map<std::string, ProtocolRecord*> protocols;
    std::unordered_map<MethodKey, Implementation, MethodKeyHash> methods;
};

Tables& tables()
{
    static auto* const instance = new Tables;
    return *instance;
}

void addMethods(const ClassRecord* type, MethodList* list)
{
    if (!list) return;
    for (std::uint32_t i = 0; i < list->count; ++i) {
        auto& method = list->methods[i];
        method.name = uniqueSelector(method.name);
        tables().methods[{type, method.name}] = method.implementation;
    }
}

void addClass(ClassRecord* type)
{
    const auto* data = type->data;
    if (!tables().classes.emplace(data->name, type).second) die("Two classes of one name: ", data->name);
    if (type->superclass && type->superclass->data->instanceSize > data->instanceStart)
        die("Declared smaller than it is: ", type->superclass->data->name);
    tables().isas.insert(type);
    tables().isas.insert(type->isa);
    addMethods(type, data->methods);
    addMethods(type->isa, type->isa->data->methods);
}

__attribute__((constructor(101))) void load()
{
    registerMetadata({{__start_objc_classlist, __stop_objc_classlist},
                      {__start_objc_catlist, __stop_objc_catlist},
                      {__start_objc_protolist, __stop_objc_protolist},
                      {__start_objc_selrefs, __stop_objc_selrefs}});
}

// What the system's other language calls "Module.Name" in a table of protocols.
std::string mangledProtocolName(const std::string& name)
{
    const auto point = name.find('.');
    if (point == std::string::npos) return name;
    const auto module = name.substr(0, point);
    const auto rest = name.substr(point + 1);
    return "_TtP" + std::to_string(module.size()) + module + std::to_string(rest.size()) + rest + "_";
}

const char* typesIn(const MethodList* list, const char* selector)
{
    for (std::uint32_t i = 0; list && i < list->count; ++i)
        if (std::strcmp(list->methods[i].name, selector) == 0) return list->methods[i].types;
    return nullptr;
}

}  // namespace

void registerMetadata(const ImageMetadata& image)
{
    for (auto*& selector : image.selectors)
        selector = uniqueSelector(selector);
    for (auto* const type : image.classes)
        addClass(type);
    for (const auto* const category : image.categories) {
        addMethods(category->type, category->instanceMethods);
        addMethods(category->type->isa, category->classMethods);
    }
    for (auto* const protocol : image.protocols)
        tables().protocols.emplace(protocol->name, protocol);
}

void die(const char* what, const char* first, const char* second)
{
    std::fprintf(stderr, "Objective-C: %s%s%s\n", what, first, second);
    std::abort();
}

const char* uniqueSelector(const char* name)
{
    const std::lock_guard lock(tables().selectorMutex);
    return tables().selectors.insert(name).first->c_str();
}

bool isObjectiveC(const void* object)
{
    return tables().isas.contains(static_cast<const Object*>(object)->isa);
}

ClassRecord* findClass(const char* name)
{
    const auto found = tables().classes.find(name);
    return found == tables().classes.end() ? nullptr : found->second;
}

ProtocolRecord* findProtocol(const char* name)
{
    for (const auto& candidate : {std::string(name), mangledProtocolName(name)}) {
        const auto found = tables().protocols.find(candidate);
        if (found != tables().protocols.end()) return found->second;
    }
    return nullptr;
}

Implementation findOwnImplementation(ClassRecord* type, const char* uniqueName)
{
    const auto found = tables().methods.find({type, uniqueName});
    return found == tables().methods.end() ? nullptr : found->second;
}

Implementation findImplementation(ClassRecord* type, const char* uniqueName)
{
    for (; type; type = type->superclass)
        if (const auto found = findOwnImplementation(type, uniqueName)) return found;
    return nullptr;
}

bool protocolConforms(const ProtocolRecord* protocol, const ProtocolRecord* other)
{
    if (std::strcmp(protocol->name, other->name) == 0) return true;
    const auto* adopted = protocol->adopted;
    for (std::uint64_t i = 0; adopted && i < adopted->count; ++i)
        if (protocolConforms(adopted->protocols[i], other)) return true;
    return false;
}

bool classAdopts(const ClassRecord* type, const ProtocolRecord* protocol)
{
    const auto* list = type->data->protocols;
    for (std::uint64_t i = 0; list && i < list->count; ++i)
        if (protocolConforms(list->protocols[i], protocol)) return true;
    return false;
}

bool classConforms(const ClassRecord* type, const ProtocolRecord* protocol)
{
    for (; type; type = type->superclass)
        if (classAdopts(type, protocol)) return true;
    return false;
}

bool classHasMethod(ClassRecord* type, const char* selector)
{
    return findImplementation(type, uniqueSelector(selector)) != nullptr;
}

const char* methodTypes(const ClassRecord* type, const char* selector)
{
    return typesIn(type->data->methods, selector);
}

bool classImplements(const ClassRecord* type, const char* selector)
{
    return methodTypes(type, selector) != nullptr;
}

const char* extendedTypes(const ProtocolRecord* protocol, const char* selector)
{
    const auto* methods = protocol->instanceMethods;
    for (std::uint32_t i = 0; methods && i < methods->count; ++i)
        if (std::strcmp(methods->methods[i].name, selector) == 0) return protocol->extendedTypes[i];
    const auto* adopted = protocol->adopted;
    for (std::uint64_t i = 0; adopted && i < adopted->count; ++i)
        if (const auto* types = extendedTypes(adopted->protocols[i], selector)) return types;
    return nullptr;
}

void* fieldOf(void* object, const char* name)
{
    const auto* fields = classOf(object)->data->fields;
    for (std::uint32_t i = 0; fields && i < fields->count; ++i)
        if (std::strcmp(fields->fields[i].name, name) == 0)
            return static_cast<char*>(object) + *fields->fields[i].offset;
    die("No such field: ", name);
}

}  // namespace pavo::test::objc

extern "C" {

ClassRecord* objc_getClass(const char* name)
{
    return findClass(name);
}

ProtocolRecord* objc_getProtocol(const char* name)
{
    return findProtocol(name);
}

const char* class_getName(const ClassRecord* type)
{
    return type->data->name;
}

const char* sel_getName(const char* selector)
{
    return selector;
}

const char* sel_registerName(const char* name)
{
    return uniqueSelector(name);
}

const char** objc_copyClassNamesForImage(const char* image, unsigned int* count)
{
    auto** const names = static_cast<const char**>(std::calloc(tables().classes.size() + 1, sizeof(char*)));
    *count = 0;
    for (const auto& [name, type] : tables().classes) {
        Dl_info info{};
        if (dladdr(type, &info) && std::strcmp(info.dli_fname, image) == 0) names[(*count)++] = name.c_str();
    }
    return names;
}

}  // extern "C"
