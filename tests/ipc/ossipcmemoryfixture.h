// ossipcmemoryfixture.h - what the tests of shared memory share: a handle and the record that
// creates its section, and addresses to map at.
#pragma once

#include "ipc/ossipcfixture.h"

namespace osse_test {

inline constexpr uint64_t kPage = 4096;

inline char* textOf(const OSSHIPCMemory& memory) {
  return static_cast<char*>(fieldsOf(memory).address);
}

// An address at which 64 KiB are free.
inline void* freeAddress() {
  void* const address = ::VirtualAlloc(nullptr, 0x10000, MEM_RESERVE, PAGE_NOACCESS);
  EXPECT_TRUE(::VirtualFree(address, 0, MEM_RELEASE)) << "error " << ::GetLastError();
  return address;
}

// A second handle of a section, for a scope.
class Attached {
 public:
  explicit Attached(const OSSIPCResID& resID, const void* address = nullptr) {
    EXPECT_EQ(memory.attach(&resID, address), ECF_OK);
  }
  ~Attached() { EXPECT_EQ(memory.detach(), ECF_OK); }
  Attached(const Attached&) = delete;
  Attached& operator=(const Attached&) = delete;

  OSSHIPCMemory memory;
};

class OSSHIPCMemoryTest : public IPCTest {
 protected:
  OSSHIPCMemoryTest() {
    param_.resID = resID_;
    param_.size = 100;
  }

  ~OSSHIPCMemoryTest() override {
    if (memory_.isAttached()) {
      EXPECT_EQ(memory_.detach(), ECF_OK);
    }
  }

  void create() { ASSERT_EQ(memory_.create(&param_), ECF_OK); }

  OSSIPCMemoryCreateParam param_;
  OSSHIPCMemory memory_;
};

}  // namespace osse_test
