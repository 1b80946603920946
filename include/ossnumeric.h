// ossnumeric.h - numbers, time and the lowest layer of synchronisation, all at once.
//
//   ossint128.h  integers of 128 bits
//   osslatch.h   atomic primitives, latches, the atomic counter
//   ossstring.h  numbers from text, the bounded formatter
//   osstime.h    ticks, wall clock, sleeping
#pragma once

#include "ossint128.h"
#include "osslatch.h"
#include "ossstring.h"
#include "osstime.h"
