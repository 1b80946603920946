// ossipcfixture.h - what the tests of shared objects have in common: names that nobody else uses,
// the log, and the fields of handles, which those keep to themselves.
#pragma once

#include <gmock/gmock.h>
#include <windows.h>

#include <cstring>
#include <ostream>
#include <string>
#include <type_traits>

#include "harness/fields.h"
#include "harness/handles.h"
#include "harness/importhook.h"
#include "harness/logcapture.h"
#include "osscatalog.h"
#include "ossipc.h"

namespace osse_test {

inline constexpr uint64_t kTooOld = OSS_VERSION_OLDEST - 1;

inline OSSIPCResID resIDOf(const std::string& path, int32_t projectID = 0) {
  OSSIPCGetResIDParam in;
  in.path = path.c_str();
  in.projectID = projectID;
  OSSIPCResID resID;
  EXPECT_EQ(ossIPCGetResID(&in, &resID), ECF_OK);
  return resID;
}

// The two fields of a memory handle.
struct MemoryFields {
  void* handle;
  void* address;

  bool operator==(const MemoryFields&) const = default;
};

inline MemoryFields fieldsOf(const OSSHIPCMemory& memory) { return copyOf<MemoryFields>(memory); }
inline void setFields(OSSHIPCMemory& memory, const MemoryFields& fields) {
  std::memcpy(static_cast<void*>(&memory), &fields, sizeof fields);
}

inline void PrintTo(const MemoryFields& fields, std::ostream* out) {
  *out << "{handle " << fields.handle << ", address " << fields.address << '}';
}

inline const MemoryFields kNoMemory = {INVALID_HANDLE_VALUE, nullptr};

// The one field of a semaphore handle.
inline HANDLE handleOf(const OSSHIPCSemaphore& semaphore) {
  HANDLE handle;
  static_assert(sizeof handle == sizeof semaphore);
  std::memcpy(&handle, &semaphore, sizeof handle);
  return handle;
}

// The records of a null and of an old parameter record.
inline LogEvidence nullRecord(oss::Func function) {
  return FoundRecord(OSS_LOG_ERROR, function, 1111, ECF_INVALID_PARAMETER);
}
inline LogEvidence oldRecord(oss::Func function) {
  return FoundRecord(OSS_LOG_ERROR, function, 1112, ECF_INVALID_VERSION, {Uint(kTooOld)});
}

class IPCTest : public testing::Test {
 protected:
  // The system keeps a handle to the directory of names from the first name on; it shall not count
  // as one that a test leaves behind.
  IPCTest() { ::CloseHandle(::CreateEventA(nullptr, FALSE, FALSE, path_.c_str())); }

  // Differs between the tests of a process and between processes.
  static std::string freshPath() {
    static int tests = 0;
    return "test " + std::to_string(::GetCurrentProcessId()) + '.' + std::to_string(++tests);
  }

  const std::string path_ = freshPath();
  const OSSIPCResID resID_ = resIDOf(path_);
  LogCapture log_;
};

}  // namespace osse_test
