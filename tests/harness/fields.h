// fields.h - the fields of an object, which it keeps to itself, as a test's own record of them.
#pragma once

#include <cstring>
#include <type_traits>

namespace osse_test {

// A copy of the object's bytes. The record restates its fields in their order.
template <class Fields, class Object>
Fields copyOf(const Object& object) {
  static_assert(sizeof(Fields) == sizeof(Object) && std::is_trivially_copyable_v<Fields>);
  Fields fields;
  std::memcpy(&fields, static_cast<const void*>(&object), sizeof fields);
  return fields;
}

}  // namespace osse_test
