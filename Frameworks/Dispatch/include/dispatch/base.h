#pragma once

#include <stdint.h>

#ifdef __cplusplus
#define DISPATCH_EXPORT extern "C"
#define DISPATCH_NORETURN [[noreturn]]
#else
#define DISPATCH_EXPORT extern
#define DISPATCH_NORETURN _Noreturn
#endif

// The system library exports some functions under a versioned symbol.
#ifdef __APPLE__
#define DISPATCH_ALIAS_V2(name) __asm("_" #name "$V2")
#else
#define DISPATCH_ALIAS_V2(name)
#endif

typedef void (*dispatch_function_t)(void* context);

// Handles. Every kind of object converts to dispatch_object_t: by inheritance in C++, through a transparent
// union in C. Nobody sees the content.
#ifdef __cplusplus
struct dispatch_object_s {
    dispatch_object_s() = delete;
};
struct dispatch_queue_s : dispatch_object_s {};
struct dispatch_queue_attr_s : dispatch_object_s {};
struct dispatch_source_s : dispatch_object_s {};
struct dispatch_semaphore_s : dispatch_object_s {};
typedef dispatch_object_s* dispatch_object_t;
#else
typedef union {
    struct dispatch_object_s* _object;
    struct dispatch_queue_s* _queue;
    struct dispatch_queue_attr_s* _attribute;
    struct dispatch_source_s* _source;
    struct dispatch_semaphore_s* _semaphore;
} dispatch_object_t __attribute__((transparent_union));
#endif
typedef struct dispatch_queue_s* dispatch_queue_t;
typedef struct dispatch_queue_attr_s* dispatch_queue_attr_t;
typedef struct dispatch_source_s* dispatch_source_t;
typedef struct dispatch_semaphore_s* dispatch_semaphore_t;
