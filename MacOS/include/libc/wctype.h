#pragma once

#include <stdint.h>

typedef int wint_t;
typedef uint32_t wctype_t;
typedef int wctrans_t;
