// ossipcitem.h - what the records of the IPC operations show beside plain values.
#pragma once

#include <cstring>

#include "core/ossoperation.h"
#include "ossipcresource.h"

namespace oss {

// The name of an object, whoever wrote it.
inline LogItem nameOf(const OSSIPCResID& resID) noexcept {
  return string(resID.name, ::strnlen(resID.name, sizeof resID.name));
}

}  // namespace oss
