// ossrecord.h - how members of information records are filled, and from which version of its record
// a later one exists.
#pragma once

#include "osscatalog.h"
#include "ossstring.h"
#include "osssysvalue.h"

namespace oss {

// A record stamped with an older version may end before these members: nothing writes there.
inline constexpr uint64_t kVersionWithTotalMemory = 20050401;  // of OSSKernelIPCInfo
inline constexpr uint64_t kVersionWithCores = 20050715;        // of OSSCPUInfo
inline constexpr uint64_t kVersionWithBuild = 20050715;        // of OSSOSInfo
inline constexpr uint64_t kVersionWithDevice = 0x09010007;     // of OSSDiskInfoParam

template <class Value, class T>
void fill(Value& member, T value) noexcept {
  member.value = value;
  member.status = ECF_OK;
}

// Cuts a text that is too long.
inline void fillText(OSSSysInfoStr& member, const char* text) noexcept {
  ossSnprintf(member.value, sizeof member.value, "%s", text);
  member.status = ECF_OK;
}

// Leaves the value as it is and tells why it does not count.
template <class Value>
void mark(Value& member, OSSErr why) noexcept {
  member.status = why;
}

}  // namespace oss
