#pragma once

#include <dispatch/base.h>
#include <dispatch/object.h>
#include <dispatch/once.h>
#include <dispatch/queue.h>
#include <dispatch/semaphore.h>
#include <dispatch/source.h>
#include <dispatch/time.h>
