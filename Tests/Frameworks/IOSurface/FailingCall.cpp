#include "Tests/Frameworks/IOSurface/FailingCall.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdarg>

namespace {

std::string_view failingFunction;

}  // namespace

namespace pavo::test {

FailingCall::FailingCall(std::string_view function)
{
    failingFunction = function;
}

FailingCall::~FailingCall()
{
    failingFunction = {};
}

}  // namespace pavo::test

extern "C" {

int __real_memfd_create(const char* name, unsigned flags);
int __wrap_memfd_create(const char* name, unsigned flags)
{
    return failingFunction == "memfd_create" ? -1 : __real_memfd_create(name, flags);
}

int __real_ftruncate(int file, off_t size);
int __wrap_ftruncate(int file, off_t size)
{
    return failingFunction == "ftruncate" ? -1 : __real_ftruncate(file, size);
}

ssize_t __real_pread(int file, void* bytes, size_t size, off_t offset);
ssize_t __wrap_pread(int file, void* bytes, size_t size, off_t offset)
{
    return failingFunction == "pread" ? 0 : __real_pread(file, bytes, size, offset);
}

// All commands that are used here take one number, or nothing.
int __real_fcntl(int file, int command, ...);
int __wrap_fcntl(int file, int command, ...)
{
    va_list arguments;
    va_start(arguments, command);
    const int argument = va_arg(arguments, int);
    va_end(arguments);
    if (failingFunction == "fcntl" && command == F_DUPFD_CLOEXEC) return -1;
    return __real_fcntl(file, command, argument);
}
}
