// ossmath.h - helpers of integer arithmetic.
//
// Pure functions: any thread may call them at any time, and none can fail.
#pragma once

#include "osstypes.h"

extern "C" {

/// The greatest common divisor, by Euclid's algorithm. That of a number and 0 is the number.
OSS_API uint64_t ossComputeGCD(uint64_t a, uint64_t b) noexcept;

/// The least common multiple; 0 when both are 0. It is a x b modulo 2^64, divided by the greatest
/// common divisor: it is right as long as the product itself is below 2^64.
OSS_API uint64_t ossComputeLCM(uint64_t a, uint64_t b) noexcept;

/// The number x with d * x = -1 modulo 2^32, as Montgomery reduction needs it. An even d stands for
/// its odd part. 0 has none; it gives 0.
OSS_API uint32_t ossComputeMontgomeryInverse32(uint32_t d) noexcept;

}  // extern "C"
