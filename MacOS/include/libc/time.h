#pragma once

#include <sys/cdefs.h>
#include <sys/types.h>

#define TIME_UTC 1
#define CLOCKS_PER_SEC ((clock_t)1000000)
#define CLOCK_REALTIME _CLOCK_REALTIME
#define CLOCK_MONOTONIC _CLOCK_MONOTONIC
#define CLOCK_MONOTONIC_RAW _CLOCK_MONOTONIC_RAW
#define CLOCK_UPTIME_RAW _CLOCK_UPTIME_RAW

__BEGIN_DECLS

typedef enum {
    _CLOCK_REALTIME = 0,
    _CLOCK_MONOTONIC = 6,
    _CLOCK_MONOTONIC_RAW = 4,
    _CLOCK_UPTIME_RAW = 8
} clockid_t;
struct timespec {
    time_t tv_sec;
    long tv_nsec;
};
struct tm {
    int tm_sec;
    int tm_min;
    int tm_hour;
    int tm_mday;
    int tm_mon;
    int tm_year;
    int tm_wday;
    int tm_yday;
    int tm_isdst;
    long tm_gmtoff;
    char* tm_zone;
};
clock_t clock(void);
double difftime(time_t, time_t);
time_t mktime(struct tm*);
time_t time(time_t*);
char* asctime(const struct tm*);
char* ctime(const time_t*);
struct tm* gmtime(const time_t*);
struct tm* localtime(const time_t*);
size_t strftime(char*, size_t, const char*, const struct tm*);
int nanosleep(const struct timespec*, struct timespec*);
int clock_gettime(clockid_t, struct timespec*);
int timespec_get(struct timespec*, int);

__END_DECLS
