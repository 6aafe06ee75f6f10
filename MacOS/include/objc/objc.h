#pragma once

// The base types of Objective-C. Our own declarations of the runtime's documented interface.

typedef struct objc_selector* SEL;
typedef void (*IMP)(void);

#ifndef __OBJC__
typedef struct objc_class* Class;
typedef struct objc_object* id;
#endif

// The compiler knows what the system's binaries of an architecture use, and encodes it in every signature.
#if __OBJC_BOOL_IS_BOOL
typedef bool BOOL;
#else
typedef signed char BOOL;
#endif

#ifdef __OBJC__
#define YES __objc_yes
#define NO __objc_no
#else
#define YES ((BOOL)1)
#define NO ((BOOL)0)
#endif

#define nil nullptr
#define Nil nullptr
