// ossnumeric.h - numbers, time and the lowest layer of synchronisation, all at once.
//
//   ossdecfloat.h  decimal floating point
//   ossint128.h    integers of 128 bits
//   osslatch.h     atomic primitives, latches, the atomic counter
//   ossmath.h      helpers of integer arithmetic
//   ossstring.h    numbers from text, the bounded formatter
//   osstime.h      ticks, wall clock, sleeping
#pragma once

#include "ossdecfloat.h"
#include "ossint128.h"
#include "osslatch.h"
#include "ossmath.h"
#include "ossstring.h"
#include "osstime.h"
