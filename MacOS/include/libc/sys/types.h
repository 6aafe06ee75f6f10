#pragma once

#include <stddef.h>
#include <stdint.h>

// Widths and underlying types are the platform's: they are part of names of C++ functions.
typedef int pid_t;
typedef uint32_t uid_t;
typedef uint32_t gid_t;
typedef uint16_t mode_t;
typedef int64_t off_t;
typedef long ssize_t;
typedef long time_t;
typedef unsigned long clock_t;
typedef int suseconds_t;
