#pragma once

#ifdef __cplusplus
#define __BEGIN_DECLS extern "C" {
#define __END_DECLS }
#define __NORETURN [[noreturn]]
#else
#define __BEGIN_DECLS
#define __END_DECLS
#define __NORETURN _Noreturn
#endif
