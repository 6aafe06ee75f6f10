#pragma once

#include <objc/NSObject.h>
#include <stdint.h>

// The runtime's functions that find things by name and tie objects together.

#ifdef __cplusplus
extern "C" {
#endif

const char* class_getName(Class type);
const char* sel_getName(SEL selector);
SEL sel_registerName(const char* name);

// Null where there is none. A name of the form "Module.Name" also finds what is stored under the name that
// the system's other language makes of it.
Class objc_getClass(const char* name);
Protocol* objc_getProtocol(const char* name);

// Names of the classes that an image defines. The caller frees the array, and nothing else.
const char** objc_copyClassNamesForImage(const char* image, unsigned int* count);

typedef uintptr_t objc_AssociationPolicy;
enum : objc_AssociationPolicy { OBJC_ASSOCIATION_RETAIN = 01401 };

// Ties a value to an object for as long as that lives; null unties it.
void objc_setAssociatedObject(id object, const void* key, id value, objc_AssociationPolicy policy);

#ifdef __cplusplus
}
#endif
