#pragma once

#ifdef __cplusplus
#define CG_EXTERN extern "C"
#else
#define CG_EXTERN extern
#endif
#define CG_INLINE static inline

typedef double CGFloat;
