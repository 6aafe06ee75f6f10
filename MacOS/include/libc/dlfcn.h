#pragma once

#include <sys/cdefs.h>

#define RTLD_NOW 0x2
#define RTLD_LOCAL 0x4

__BEGIN_DECLS

typedef struct {
    const char* dli_fname;
    void* dli_fbase;
    const char* dli_sname;
    void* dli_saddr;
} Dl_info;

// Which image an address lies in. 0 where it is in none.
int dladdr(const void* address, Dl_info* info);

void* dlopen(const char* path, int mode);
const char* dlerror(void);

__END_DECLS
