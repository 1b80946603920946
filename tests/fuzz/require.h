// require.h - what a fuzzer asserts: an input that breaks it is found by the end of the process.
#pragma once

#include <cstdlib>

inline void require(bool holds) {
  if (!holds) std::abort();
}
