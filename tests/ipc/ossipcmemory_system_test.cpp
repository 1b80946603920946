// Shared memory: create and attach. What ends it is in ossipcmemorydetach_system_test.cpp, two
// processes in ossipcmemory_processes_system_test.cpp.
#include "ipc/ossipcmemoryfixture.h"

using namespace osse_test;
using namespace testing;
using oss::Func;
using oss::SysCall;

namespace {

class OSSHIPCMemoryCreateTest : public OSSHIPCMemoryTest {
 protected:
  static LogEvidence systemRecord(uint64_t probe, SysCall call, uint32_t error, OSSErr code,
                                  std::initializer_list<LogItem> items) {
    const uint64_t level = code == ECF_NO_MEMORY ? OSS_LOG_ERROR : OSS_LOG_INFO;
    return SystemRecord(level, Func::OSSHIPCMemory_create, probe, call, error, code, items);
  }

  // The second record of a failed create.
  LogEvidence fieldsRecord(uint64_t probe, OSSErr code, const void* handle) const {
    const uint64_t level = code == ECF_NO_MEMORY ? OSS_LOG_ERROR : OSS_LOG_INFO;
    return FoundRecord(level, Func::OSSHIPCMemory_create, probe, code,
                       {Uint(param_.size), Hex(param_.address), Hex(param_.options),
                        Hex(param_.reserved), Hex(handle)});
  }

  LogItem name() const { return {1, String(param_.resID.name)}; }

  // Runs a create that must fail with this code and leave nothing behind.
  void expectFailure(OSSErr code) {
    const size_t handles = openHandles();
    EXPECT_EQ(memory_.create(&param_), code);
    EXPECT_EQ(fieldsOf(memory_), kNoMemory);
    EXPECT_FALSE(memory_.isAttached());
    EXPECT_EQ(openHandles(), handles);
  }
};

class OSSHIPCMemoryAttachTest : public OSSHIPCMemoryTest {
 protected:
  static LogEvidence missing(const OSSIPCResID& resID, uint32_t error, const void* address) {
    const HANDLE null = nullptr;
    return SystemRecord(OSS_LOG_INFO, Func::OSSHIPCMemory_attach, 50, SysCall::OpenFileMappingA,
                        error, ECF_MEM_DOESNT_EXIST,
                        {{1, String(resID.name)}, {2, Hex(address)}, {3, Hex(null)}});
  }
};

// ---- The record and the handle ----

TEST_F(OSSHIPCMemoryTest, AHandleIsConstructedDetached) {
  EXPECT_EQ(fieldsOf(memory_), kNoMemory);
  EXPECT_FALSE(memory_.isAttached());
}

TEST_F(OSSHIPCMemoryTest, AParameterIsConstructedEmptyAndCurrent) {
  OSSIPCMemoryCreateParam expected;
  std::memset(static_cast<void*>(&expected), 0, sizeof expected);
  expected.version = 0x09010007;
  expected.resID.version = 0x09010007;
  const OSSIPCMemoryCreateParam param;
  EXPECT_EQ(std::memcmp(&param, &expected, sizeof param), 0);
}

// ---- create ----

TEST_F(OSSHIPCMemoryCreateTest, MakesASectionOfZerosThatIsShared) {
  create();
  EXPECT_TRUE(memory_.isAttached());
  EXPECT_THAT(std::string(textOf(memory_), kPage), Each('\0'));

  Attached other(resID_);
  EXPECT_NE(textOf(other.memory), textOf(memory_));
  std::strcpy(textOf(memory_), "shared");
  EXPECT_STREQ(textOf(other.memory), "shared");
  std::strcpy(textOf(other.memory), "both ways");
  EXPECT_STREQ(textOf(memory_), "both ways");
  EXPECT_THAT(log_.records(), IsEmpty());
}

TEST_F(OSSHIPCMemoryCreateTest, AsksForThePagingFileAndTheWholeSection) {
  param_.address = freeAddress();
  ImportHook creates("CreateFileMappingA", [&](Call& call) {
    EXPECT_EQ(call.argument<HANDLE>(0), INVALID_HANDLE_VALUE);
    EXPECT_EQ(call.argument<DWORD>(2), static_cast<DWORD>(PAGE_READWRITE));
    EXPECT_EQ(call.argument<DWORD>(3), 0u);
    EXPECT_EQ(call.argument<DWORD>(4), 100u);
    EXPECT_STREQ(call.argument<const char*>(5), resID_.name);
    EXPECT_EQ(::GetLastError(), 0u);
    return call.passOn();
  });
  ImportHook maps("MapViewOfFileEx", [&](Call& call) {
    EXPECT_EQ(call.argument<DWORD>(1), static_cast<DWORD>(FILE_MAP_READ | FILE_MAP_WRITE));
    EXPECT_EQ(call.argument<DWORD>(2), 0u);
    EXPECT_EQ(call.argument<DWORD>(3), 0u);
    EXPECT_EQ(call.argument<SIZE_T>(4), 0u);
    EXPECT_EQ(call.argument<void*>(5), param_.address);
    return call.passOn();
  });
  ::SetLastError(ERROR_ALREADY_EXISTS);  // of an earlier call: not this one's
  create();
  EXPECT_EQ(fieldsOf(memory_).address, param_.address);
}

TEST_F(OSSHIPCMemoryCreateTest, TheSizeIsToldInTwoHalvesWhichARefusalShows) {
  param_.size = 0x1'8000'0002;
  param_.options = 0x33;
  param_.reserved = 0x44;
  FailingCall fails("CreateFileMappingA", ERROR_NOT_ENOUGH_MEMORY);
  expectFailure(ECF_NO_MEMORY);
  const HANDLE null = nullptr;
  EXPECT_THAT(log_.records(),
              ElementsAre(systemRecord(80, SysCall::CreateFileMappingA, ERROR_NOT_ENOUGH_MEMORY,
                                       ECF_NO_MEMORY,
                                       {name(), {2, Hex(uint32_t{1})}, {3, Hex(0x80000002u)}}),
                          fieldsRecord(81, ECF_NO_MEMORY, null)));
}

// Deliberate: what was not made is closed as well.
TEST_F(OSSHIPCMemoryCreateTest, TheNullHandleOfARefusedSectionIsClosed) {
  int closed = 0;
  ImportHook closes("CloseHandle", [&](Call& call) {
    closed += call.argument<HANDLE>(0) == nullptr;
    return call.passOn();
  });
  FailingCall fails("CreateFileMappingA", ERROR_ACCESS_DENIED);
  EXPECT_EQ(memory_.create(&param_), ECF_ACCESS_DENIED);
  EXPECT_EQ(closed, 1);
}

TEST_F(OSSHIPCMemoryCreateTest, ASizeOfNothingIsRefused) {
  param_.size = 0;
  expectFailure(ECF_INVALID_PARAMETER);
  const HANDLE null = nullptr;
  EXPECT_THAT(log_.records(),
              ElementsAre(systemRecord(80, SysCall::CreateFileMappingA, ERROR_INVALID_PARAMETER,
                                       ECF_INVALID_PARAMETER,
                                       {name(), {2, Hex(uint32_t{0})}, {3, Hex(uint32_t{0})}}),
                          fieldsRecord(81, ECF_INVALID_PARAMETER, null)));
}

TEST_F(OSSHIPCMemoryCreateTest, ANameThatIsTakenIsRefusedAndItsSectionStaysIntact) {
  create();
  std::strcpy(textOf(memory_), "intact");

  OSSHIPCMemory second;
  HANDLE opened = nullptr;
  {
    ImportHook creates("CreateFileMappingA", [&](Call& call) {
      const Word handle = call.passOn();
      opened = reinterpret_cast<HANDLE>(handle);
      return handle;
    });
    EXPECT_EQ(second.create(&param_), ECF_MEM_EXISTS);
  }
  EXPECT_EQ(fieldsOf(second), kNoMemory);
  EXPECT_FALSE(isOpen(opened));
  EXPECT_THAT(log_.records(),
              ElementsAre(systemRecord(90, SysCall::CreateFileMappingA, ERROR_ALREADY_EXISTS,
                                       ECF_MEM_EXISTS, {name()}),
                          fieldsRecord(91, ECF_MEM_EXISTS, opened)));
  const Attached other(resID_);
  EXPECT_STREQ(textOf(other.memory), "intact");
}

// The kinds of objects share their names.
TEST_F(OSSHIPCMemoryCreateTest, ANameOfAnotherKindIsInvalid) {
  OSSIPCSemaphoreCreateParam other;
  other.resID = resID_;
  OSSHIPCSemaphore semaphore;
  ASSERT_EQ(semaphore.create(&other), ECF_OK);
  expectFailure(ECF_INVALID_PARAMETER);
  EXPECT_EQ(memory_.attach(&resID_, nullptr), ECF_MEM_DOESNT_EXIST);
  EXPECT_EQ(semaphore.detach(), ECF_OK);
}

TEST_F(OSSHIPCMemoryCreateTest, ARefusedViewClosesTheSection) {
  param_.address = reinterpret_cast<void*>(uintptr_t{1});  // not a multiple of 64 KiB
  HANDLE section = nullptr;
  {
    ImportHook maps("MapViewOfFileEx", [&](Call& call) {
      section = call.argument<HANDLE>(0);
      return call.passOn();
    });
    expectFailure(ECF_INVALID_ADDRESS);
  }
  EXPECT_THAT(log_.records(), ElementsAre(systemRecord(100, SysCall::MapViewOfFileEx, 1132,
                                                       ECF_INVALID_ADDRESS, {name()}),
                                          fieldsRecord(101, ECF_INVALID_ADDRESS, section)));
  param_.address = nullptr;
  create();  // the name is free
}

TEST_F(OSSHIPCMemoryCreateTest, RefusedAttributesEndItBeforeAnythingIsMade) {
  CallCounter creates("CreateFileMappingA");
  FailingCall fails("SetSecurityDescriptorDacl", ERROR_ACCESS_DENIED);
  expectFailure(ECF_ACCESS_DENIED);
  EXPECT_EQ(creates.calls(), 0);
  const std::vector<LogRecord> records = log_.records();
  ASSERT_EQ(records.size(), 3u);  // the first is the builder's own
  EXPECT_EQ(
      static_cast<const LogEvidence&>(records[1]),
      CalledRecord(OSS_LOG_INFO, Func::OSSHIPCMemory_create, 60, Func::ossInitSecurityAttributes,
                   ECF_ACCESS_DENIED, ECF_ACCESS_DENIED, {name()}));
  EXPECT_EQ(static_cast<const LogEvidence&>(records[2]),
            fieldsRecord(61, ECF_ACCESS_DENIED, INVALID_HANDLE_VALUE));
}

// The system's own limit is lower than the cut.
TEST_F(OSSHIPCMemoryCreateTest, ANameThatWasCutIsTooLongForTheSystem) {
  const std::string path = path_ + std::string(251 - path_.size(), 'p');
  param_.resID = resIDOf(path);
  ASSERT_EQ(std::string(param_.resID.name).size(), 259u);
  create();
  ASSERT_EQ(memory_.detach(), ECF_OK);
  param_.resID = resIDOf(path + "ppp");
  expectFailure(ECF_FILE_NAME_TOO_LONG);
}

TEST_F(OSSHIPCMemoryCreateTest, TheEmptyNameMakesASectionOfItsOwn) {
  param_.resID = {};
  OSSHIPCMemory second;
  create();
  EXPECT_EQ(second.create(&param_), ECF_OK);
  std::strcpy(textOf(memory_), "one");
  EXPECT_STREQ(textOf(second), "");
  EXPECT_EQ(second.detach(), ECF_OK);
}

TEST_F(OSSHIPCMemoryCreateTest, NullAndARecordThatIsTooOldAreRefused) {
  create();
  const MemoryFields before = fieldsOf(memory_);
  EXPECT_EQ(memory_.create(nullptr), ECF_INVALID_PARAMETER);
  param_.version = 20040701;
  EXPECT_EQ(memory_.create(&param_), ECF_INVALID_VERSION);
  EXPECT_EQ(fieldsOf(memory_), before);
  EXPECT_THAT(log_.records(), ElementsAre(nullRecord(Func::OSSHIPCMemory_create),
                                          oldRecord(Func::OSSHIPCMemory_create)));
}

TEST_F(OSSHIPCMemoryCreateTest, TheOldestRecordIsTaken) {
  param_.version = 20040702;
  create();
}

// No state is checked: the first section stays open and mapped, and nobody owns it any more.
TEST_F(OSSHIPCMemoryCreateTest, OnAnAttachedHandleLosesWhatItHeld) {
  create();
  const MemoryFields lost = fieldsOf(memory_);
  param_.resID = resIDOf(path_, 1);
  create();
  std::strcpy(static_cast<char*>(lost.address), "still there");
  EXPECT_STREQ(textOf(memory_), "");
  EXPECT_TRUE(isOpen(lost.handle));
  EXPECT_TRUE(::UnmapViewOfFile(lost.address));
  EXPECT_TRUE(::CloseHandle(lost.handle));

  const MemoryFields second = fieldsOf(memory_);
  FailingCall fails("CreateFileMappingA", ERROR_ACCESS_DENIED);
  EXPECT_EQ(memory_.create(&param_), ECF_ACCESS_DENIED);
  EXPECT_EQ(fieldsOf(memory_), kNoMemory);
  EXPECT_TRUE(isOpen(second.handle));
  setFields(memory_, second);
}

// ---- attach ----

TEST_F(OSSHIPCMemoryAttachTest, AsksForAViewToReadAndWrite) {
  create();
  void* const address = freeAddress();
  ImportHook opens("OpenFileMappingA", [&](Call& call) {
    EXPECT_EQ(call.argument<DWORD>(0), static_cast<DWORD>(FILE_MAP_READ | FILE_MAP_WRITE));
    EXPECT_EQ(call.argument<BOOL>(1), FALSE);
    EXPECT_STREQ(call.argument<const char*>(2), resID_.name);
    return call.passOn();
  });
  ImportHook maps("MapViewOfFileEx", [&](Call& call) {
    EXPECT_EQ(call.argument<DWORD>(1), static_cast<DWORD>(FILE_MAP_READ | FILE_MAP_WRITE));
    EXPECT_EQ(call.argument<DWORD>(2), 0u);
    EXPECT_EQ(call.argument<DWORD>(3), 0u);
    EXPECT_EQ(call.argument<SIZE_T>(4), 0u);
    EXPECT_EQ(call.argument<void*>(5), address);
    return call.passOn();
  });
  const Attached other(resID_, address);
  EXPECT_EQ(fieldsOf(other.memory).address, address);
  std::strcpy(textOf(other.memory), "at an address");
  EXPECT_STREQ(textOf(memory_), "at an address");
}

TEST_F(OSSHIPCMemoryAttachTest, ANameThatNobodyCreatedDoesNotExist) {
  void* const address = freeAddress();
  const size_t handles = openHandles();
  EXPECT_EQ(memory_.attach(&resID_, address), ECF_MEM_DOESNT_EXIST);
  EXPECT_EQ(fieldsOf(memory_), kNoMemory);
  EXPECT_EQ(openHandles(), handles);
  EXPECT_THAT(log_.records(), ElementsAre(missing(resID_, ERROR_FILE_NOT_FOUND, address)));
}

// Deliberate: whatever the system's reason is.
TEST_F(OSSHIPCMemoryAttachTest, EveryRefusalToOpenHasTheSameCode) {
  create();
  OSSHIPCMemory other;
  for (const DWORD error : {5u, 8u, 87u}) {
    FailingCall fails("OpenFileMappingA", error);
    EXPECT_EQ(other.attach(&resID_, nullptr), ECF_MEM_DOESNT_EXIST);
    EXPECT_THAT(log_.newRecords(), ElementsAre(missing(resID_, error, nullptr)));
  }
  const OSSIPCResID none;
  EXPECT_EQ(other.attach(&none, nullptr), ECF_MEM_DOESNT_EXIST);
  EXPECT_THAT(log_.newRecords(), ElementsAre(missing(none, ERROR_INVALID_HANDLE, nullptr)));
}

TEST_F(OSSHIPCMemoryAttachTest, ARefusedViewClosesTheSection) {
  create();
  OSSHIPCMemory other;
  HANDLE section = nullptr;
  const auto* const odd = reinterpret_cast<const void*>(uintptr_t{1});
  const size_t handles = openHandles();
  {
    ImportHook maps("MapViewOfFileEx", [&](Call& call) {
      section = call.argument<HANDLE>(0);
      return call.passOn();
    });
    EXPECT_EQ(other.attach(&resID_, odd), ECF_INVALID_ADDRESS);
  }
  EXPECT_EQ(fieldsOf(other), kNoMemory);
  EXPECT_EQ(openHandles(), handles);
  EXPECT_THAT(log_.records(), ElementsAre(SystemRecord(
                                  OSS_LOG_INFO, Func::OSSHIPCMemory_attach, 70,
                                  SysCall::MapViewOfFileEx, 1132, ECF_INVALID_ADDRESS,
                                  {{1, String(resID_.name)}, {2, Hex(odd)}, {3, Hex(section)}})));
}

TEST_F(OSSHIPCMemoryAttachTest, TheIdentifiersVersionIsNotExamined) {
  create();
  OSSIPCResID resID = resID_;
  resID.version = 0;
  const Attached other(resID);
  EXPECT_TRUE(other.memory.isAttached());
}

TEST_F(OSSHIPCMemoryAttachTest, NullIsRefused) {
  create();
  const MemoryFields before = fieldsOf(memory_);
  EXPECT_EQ(memory_.attach(nullptr, nullptr), ECF_INVALID_PARAMETER);
  EXPECT_EQ(fieldsOf(memory_), before);
  EXPECT_THAT(log_.records(), ElementsAre(nullRecord(Func::OSSHIPCMemory_attach)));
}

}  // namespace
