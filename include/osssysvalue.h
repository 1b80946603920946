// osssysvalue.h - the values of information records: each carries its own status, so that a record
// can be filled in part.
//
// A status of 0 means that the value is there. Otherwise it is the code that tells why it is not:
//   ECF_NOT_SUPPORTED  the platform has no such item
//   ECF_FAILED         the call of the system that supplies it failed
// An operation that fills a record in part returns ECF_PARTIAL_INFO, a warning: bit 31 is clear.
#pragma once

#include <cstring>

#include "osstypes.h"

struct OSSSysInfoUint {
  uint64_t value = 0;
  uint32_t status = 0;
  uint32_t unused = 0;
};
OSS_LAYOUT(OSSSysInfoUint, 16);
OSS_FIELD(OSSSysInfoUint, value, 0, 8);
OSS_FIELD(OSSSysInfoUint, status, 8, 4);

struct OSSSysInfoSint {
  int64_t value = 0;
  uint32_t status = 0;
  uint32_t unused = 0;
};
OSS_LAYOUT(OSSSysInfoSint, 16);
OSS_FIELD(OSSSysInfoSint, value, 0, 8);
OSS_FIELD(OSSSysInfoSint, status, 8, 4);

struct OSSSysInfoSint64 {
  int64_t value = 0;
  uint32_t status = 0;
  uint32_t unused = 0;
};
OSS_LAYOUT(OSSSysInfoSint64, 16);
OSS_FIELD(OSSSysInfoSint64, value, 0, 8);
OSS_FIELD(OSSSysInfoSint64, status, 8, 4);

struct OSSSysInfoDouble {
  double value = 0;
  uint32_t status = 0;
  uint32_t unused = 0;
};
OSS_LAYOUT(OSSSysInfoDouble, 16);
OSS_FIELD(OSSSysInfoDouble, value, 0, 8);
OSS_FIELD(OSSSysInfoDouble, status, 8, 4);

struct OSSSysInfoStr {
  // Deliberate: the last byte keeps what it held; every fill ends its text there or before.
  OSSSysInfoStr() noexcept { std::memset(value, 0, sizeof value - 1); }

  char value[256];  ///< NUL-terminated, in the ANSI code page
  uint32_t status = 0;
};
OSS_LAYOUT(OSSSysInfoStr, 260);
OSS_FIELD(OSSSysInfoStr, value, 0, 256);
OSS_FIELD(OSSSysInfoStr, status, 256, 4);
