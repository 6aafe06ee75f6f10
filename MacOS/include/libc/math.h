#pragma once

#include <sys/cdefs.h>

#define HUGE_VAL __builtin_huge_val()
#define HUGE_VALF __builtin_huge_valf()
#define HUGE_VALL __builtin_huge_vall()
#define INFINITY HUGE_VALF
#define NAN __builtin_nanf("0x7fc00000")
#define FP_NAN 1
#define FP_INFINITE 2
#define FP_ZERO 3
#define FP_NORMAL 4
#define FP_SUBNORMAL 5
#define FP_ILOGB0 (-2147483647 - 1)
#define FP_ILOGBNAN (-2147483647 - 1)
#define MATH_ERRNO 1
#define MATH_ERREXCEPT 2
#define math_errhandling 2

typedef float float_t;
typedef double double_t;

__BEGIN_DECLS

// A function of each of the three precisions.
#define PAVO_UNARY(name)                                                                                     \
    double name(double);                                                                                     \
    float name##f(float);                                                                                    \
    long double name##l(long double)
#define PAVO_BINARY(name)                                                                                    \
    double name(double, double);                                                                             \
    float name##f(float, float);                                                                             \
    long double name##l(long double, long double)

PAVO_UNARY(acos);
PAVO_UNARY(asin);
PAVO_UNARY(atan);
PAVO_UNARY(cos);
PAVO_UNARY(sin);
PAVO_UNARY(tan);
PAVO_UNARY(acosh);
PAVO_UNARY(asinh);
PAVO_UNARY(atanh);
PAVO_UNARY(cosh);
PAVO_UNARY(sinh);
PAVO_UNARY(tanh);
PAVO_UNARY(exp);
PAVO_UNARY(exp2);
PAVO_UNARY(expm1);
PAVO_UNARY(log);
PAVO_UNARY(log10);
PAVO_UNARY(log2);
PAVO_UNARY(log1p);
PAVO_UNARY(logb);
PAVO_UNARY(fabs);
PAVO_UNARY(cbrt);
PAVO_UNARY(sqrt);
PAVO_UNARY(erf);
PAVO_UNARY(erfc);
PAVO_UNARY(lgamma);
PAVO_UNARY(tgamma);
PAVO_UNARY(ceil);
PAVO_UNARY(floor);
PAVO_UNARY(nearbyint);
PAVO_UNARY(rint);
PAVO_UNARY(round);
PAVO_UNARY(trunc);

PAVO_BINARY(atan2);
PAVO_BINARY(hypot);
PAVO_BINARY(pow);
PAVO_BINARY(fmod);
PAVO_BINARY(remainder);
PAVO_BINARY(copysign);
PAVO_BINARY(nextafter);
PAVO_BINARY(fdim);
PAVO_BINARY(fmax);
PAVO_BINARY(fmin);

#undef PAVO_UNARY
#undef PAVO_BINARY

double frexp(double, int*);
float frexpf(float, int*);
long double frexpl(long double, int*);
double ldexp(double, int);
float ldexpf(float, int);
long double ldexpl(long double, int);
double modf(double, double*);
float modff(float, float*);
long double modfl(long double, long double*);
int ilogb(double);
int ilogbf(float);
int ilogbl(long double);
double scalbn(double, int);
float scalbnf(float, int);
long double scalbnl(long double, int);
double scalbln(double, long);
float scalblnf(float, long);
long double scalblnl(long double, long);
long lrint(double);
long lrintf(float);
long lrintl(long double);
long long llrint(double);
long long llrintf(float);
long long llrintl(long double);
long lround(double);
long lroundf(float);
long lroundl(long double);
long long llround(double);
long long llroundf(float);
long long llroundl(long double);
double nan(const char*);
float nanf(const char*);
long double nanl(const char*);
double nexttoward(double, long double);
float nexttowardf(float, long double);
long double nexttowardl(long double, long double);
double remquo(double, double, int*);
float remquof(float, float, int*);
long double remquol(long double, long double, int*);
double fma(double, double, double);
float fmaf(float, float, float);
long double fmal(long double, long double, long double);

__END_DECLS

#define isnan(x) __builtin_isnan(x)
#define isinf(x) __builtin_isinf(x)
#define isfinite(x) __builtin_isfinite(x)
#define isnormal(x) __builtin_isnormal(x)
#define signbit(x) __builtin_signbit(x)
#define fpclassify(x) __builtin_fpclassify(FP_NAN, FP_INFINITE, FP_NORMAL, FP_SUBNORMAL, FP_ZERO, x)
#define isgreater(x, y) __builtin_isgreater(x, y)
#define isgreaterequal(x, y) __builtin_isgreaterequal(x, y)
#define isless(x, y) __builtin_isless(x, y)
#define islessequal(x, y) __builtin_islessequal(x, y)
#define islessgreater(x, y) __builtin_islessgreater(x, y)
#define isunordered(x, y) __builtin_isunordered(x, y)
