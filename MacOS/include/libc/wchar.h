#pragma once

#include <stdint.h>
#include <stdio.h>
#include <sys/_types/_mbstate_t.h>
#include <sys/cdefs.h>
#include <time.h>
#include <wctype.h>

#define WEOF ((wint_t) - 1)

__BEGIN_DECLS

size_t wcslen(const wchar_t*);
int wmemcmp(const wchar_t*, const wchar_t*, size_t);
wchar_t* wmemcpy(wchar_t*, const wchar_t*, size_t);
wchar_t* wmemmove(wchar_t*, const wchar_t*, size_t);
wchar_t* wmemset(wchar_t*, wchar_t, size_t);
wchar_t* wmemchr(const wchar_t*, wchar_t, size_t);
wchar_t* wcschr(const wchar_t*, wchar_t);
wchar_t* wcspbrk(const wchar_t*, const wchar_t*);
wchar_t* wcsrchr(const wchar_t*, wchar_t);
wchar_t* wcsstr(const wchar_t*, const wchar_t*);

__END_DECLS
