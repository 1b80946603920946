// ossipcmemoryexfixture.h - what the tests of extended shared memory share: a handle, the records
// that create and attach, and the handle's fields.
#pragma once

#include <new>

#include "harness/fields.h"
#include "ipc/ossipcmemoryfixture.h"

namespace osse_test {

struct MemoryExFields {
  void* handle;
  char name[261];
  void* address;
  uint64_t size;
};

inline MemoryExFields fieldsOf(const OSSHIPCMemoryEx& memory) {
  return copyOf<MemoryExFields>(memory);
}

inline char* textOf(const OSSHIPCMemoryEx& memory) {
  return static_cast<char*>(fieldsOf(memory).address);
}

// As constructed.
inline bool isReset(const MemoryExFields& fields) {
  return fields.handle == INVALID_HANDLE_VALUE && fields.address == nullptr && fields.size == 0 &&
         std::string(fields.name, 261) == std::string(261, '\0');
}
inline bool isReset(const OSSHIPCMemoryEx& memory) { return isReset(fieldsOf(memory)); }

class OSSHIPCMemoryExTest : public IPCTest {
 protected:
  OSSHIPCMemoryExTest() {
    createParam_.name = attachParam_.name = path_.c_str();
    createParam_.size = 100;
    createParam_.flags = attachParam_.flags = OSS_MEMORY_READ_WRITE;
  }
  ~OSSHIPCMemoryExTest() override {
    for (OSSHIPCMemoryEx* const memory : {&memory_, &other_})
      if (memory->isAttached()) {
        EXPECT_EQ(memory->detach(), ECF_OK);
      }
  }

  void create() { ASSERT_EQ(memory_.create(&createParam_, &info_), ECF_OK); }
  OSSErr attachOther(uint64_t flags = OSS_MEMORY_READ_WRITE) {
    attachParam_.flags = flags;
    return other_.attach(&attachParam_, &info_);
  }

  static DWORD protectionOf(const OSSHIPCMemoryEx& memory) {
    MEMORY_BASIC_INFORMATION region = {};
    EXPECT_NE(::VirtualQuery(fieldsOf(memory).address, &region, sizeof region), 0u);
    return region.Protect;
  }

  const std::string kernelName_ = "OSSEIPC120" + path_;
  OSSIPCMemoryExCreateParam createParam_;
  OSSIPCMemoryExAttachParam attachParam_;
  OSSIPCMemoryExInfo info_;
  OSSHIPCMemoryEx memory_;
  OSSHIPCMemoryEx other_;
};

}  // namespace osse_test
