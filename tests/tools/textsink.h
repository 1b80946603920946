// textsink.h - the string that stands behind an output in a test.
#pragma once

#include <cstddef>
#include <string>

namespace osse_test {

// A sink that takes everything: appends to the string that the output was given as its target.
inline bool keep(void* text, const char* data, size_t size) {
  static_cast<std::string*>(text)->append(data, size);
  return true;
}

}  // namespace osse_test
