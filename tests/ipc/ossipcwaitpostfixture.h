// ossipcwaitpostfixture.h - what the tests of waitposts share: the parties' common memory, their
// records, the fields of a handle, and a waitpost within one process.
#pragma once

#include <gmock/gmock.h>
#include <windows.h>

#include <cstring>
#include <functional>
#include <ostream>
#include <string>
#include <tuple>
#include <vector>

#include "harness/fields.h"
#include "harness/importhook.h"
#include "harness/logcapture.h"
#include "harness/sharedobjects.h"
#include "osscatalog.h"
#include "ossipcwaitpost.h"
#include "osslatch.h"

namespace osse_test {

inline constexpr uint8_t kLatchHeld = 0x80;

// What the parties share. The text of a message fills the post area.
struct WaitpostMemory {
  OSSIPCWaitpostControlBlock block;
  char postArea[8];
};

inline std::string bytesOf(const OSSIPCWaitpostControlBlock& block) {
  return {reinterpret_cast<const char*>(&block), sizeof block};
}
inline std::string textOf(const char (&area)[8]) { return {area, sizeof area}; }

// The bytes of a block, with those that have no name zero.
inline std::string blockBytes(uint8_t noLatch, uint8_t dataLatch, uint64_t flags) {
  std::string bytes(16, '\0');
  bytes[0] = static_cast<char>(noLatch);
  bytes[1] = static_cast<char>(dataLatch);
  std::memcpy(&bytes[8], &flags, sizeof flags);
  return bytes;
}

inline OSSIPCResID resID(const std::string& name) {
  OSSIPCResID id;
  std::strncpy(id.name, name.c_str(), sizeof id.name - 1);
  return id;
}

// For memory that holds a `block` and a `postArea`.
template <class Memory>
OSSIPCWaitpostCreateParam createParam(Memory& memory, const OSSIPCResID* id = nullptr,
                                      uint64_t type = OSS_WAITPOST_MANUAL) {
  OSSIPCWaitpostCreateParam param;
  param.controlBlock = &memory.block;
  param.postArea = &memory.postArea;
  param.postSize = sizeof memory.postArea;
  param.resID = id;
  param.type = type;
  return param;
}

template <class Memory>
OSSIPCWaitpostOpenParam openParam(Memory& memory, const OSSIPCResID* id) {
  OSSIPCWaitpostOpenParam param;
  param.controlBlock = &memory.block;
  param.postArea = &memory.postArea;
  param.postSize = sizeof memory.postArea;
  param.resID = id;
  return param;
}

inline OSSIPCWaitpostWaitParam waitParam(int64_t timeout) {
  OSSIPCWaitpostWaitParam param;
  param.timeout = timeout;
  return param;
}

// A wait that only asks, and one whose length a test need not limit: the harness kills what hangs.
inline const OSSIPCWaitpostWaitParam kPoll = waitParam(0);
inline const OSSIPCWaitpostWaitParam kForever = waitParam(OSS_WAITPOST_FOREVER);

// The fields of a handle, which it keeps to itself.
struct WaitpostFields {
  const OSSIPCWaitpostControlBlock* controlBlock;
  const void* postArea;
  uint64_t postSize;
  void* event;

  bool operator==(const WaitpostFields&) const = default;
};

inline WaitpostFields fieldsOf(const OSSHIPCWaitpost& waitpost) {
  return copyOf<WaitpostFields>(waitpost);
}

inline void PrintTo(const WaitpostFields& fields, std::ostream* out) {
  *out << "{block " << fields.controlBlock << ", area " << fields.postArea << ", size "
       << fields.postSize << ", event " << fields.event << '}';
}

inline const WaitpostFields kEmptyWaitpost = {nullptr, nullptr, 0, INVALID_HANDLE_VALUE};

inline constexpr uint64_t kTooOld = OSS_VERSION_OLDEST - 1;
// What a block may hold before it is created.
inline constexpr OSSIPCWaitpostControlBlock kGarbage = {
    0xFF, 0xFF, {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}, ~uint64_t{0}};
inline constexpr char kArea[] = "AREA....";
inline constexpr char kMessage[] = "message!";

class OSSHIPCWaitpostTest : public testing::Test {
 protected:
  OSSHIPCWaitpostTest() {
    memory_.block = kGarbage;
    std::memcpy(memory_.postArea, kArea, sizeof memory_.postArea);
  }
  ~OSSHIPCWaitpostTest() override {
    for (OSSHIPCWaitpost* const each : {&other_, &waitpost_}) {
      const HANDLE event = fieldsOf(*each).event;
      if (event != INVALID_HANDLE_VALUE) ::CloseHandle(event);
    }
  }

  void create(uint64_t type = OSS_WAITPOST_MANUAL) {
    const OSSIPCWaitpostCreateParam param = createParam(memory_, &id_, type);
    ASSERT_EQ(waitpost_.create(&param), ECF_OK);
  }
  void openOther() {
    const OSSIPCWaitpostOpenParam param = openParam(memory_, &id_);
    ASSERT_EQ(other_.open(&param), ECF_OK);
  }

  HANDLE event() const { return fieldsOf(waitpost_).event; }
  std::string block() const { return bytesOf(memory_.block); }
  std::string area() const { return textOf(memory_.postArea); }

  // Runs an operation that must be refused with this code and these log records, and must change
  // neither handle nor memory.
  void expectRefusal(const std::function<OSSErr()>& operation, OSSErr code,
                     const std::vector<LogEvidence>& records) {
    const auto state = [this] { return std::tuple(fieldsOf(waitpost_), block(), area()); };
    const auto before = state();
    EXPECT_EQ(operation(), code);
    EXPECT_EQ(state(), before);
    EXPECT_THAT(log_.newRecords(), testing::ElementsAreArray(records));
  }

  LogCapture log_;
  SharedBlock<WaitpostMemory> shared_;
  WaitpostMemory& memory_ = *shared_;
  const OSSIPCResID id_ = resID(shared_.name() + "-post");
  OSSHIPCWaitpost waitpost_, other_;
};

}  // namespace osse_test
