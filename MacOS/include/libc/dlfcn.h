#pragma once

#ifdef __cplusplus
extern "C" {
#endif

typedef struct {
    const char* dli_fname;
    void* dli_fbase;
    const char* dli_sname;
    void* dli_saddr;
} Dl_info;

// Which image an address lies in. 0 where it is in none.
int dladdr(const void* address, Dl_info* info);

#ifdef __cplusplus
}
#endif
