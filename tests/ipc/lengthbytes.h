// lengthbytes.h - the bytes of a length, as a message in a queue's ring begins.
#pragma once

#include <cstdint>
#include <string>

namespace osse_test {

inline std::string lengthBytes(uint64_t length) {
  return {reinterpret_cast<const char*>(&length), sizeof length};
}

}  // namespace osse_test
