// Extended shared memory within one process: create and attach. What ends it is in
// ossipcmemoryexdetach_system_test.cpp.
#include "ipc/ossipcmemoryexfixture.h"

using namespace osse_test;
using namespace testing;
using oss::Func;
using oss::SysCall;

namespace {

class OSSHIPCMemoryExCreateTest : public OSSHIPCMemoryExTest {
 protected:
  // What every record of a create shows: all that it was given and what it had.
  std::vector<osse_test::LogItem> items(HANDLE handle, const std::string& formed) const {
    return {{1, Uint(createParam_.version)}, {2, String(createParam_.name)},
            {3, Uint(createParam_.size)},    {4, Hex(createParam_.flags)},
            {5, Hex(createParam_.address)},  {6, Hex(createParam_.permissions)},
            {7, Hex(createParam_.options)},  {8, Hex(handle)},
            {9, String(formed, 264)}};
  }
  LogEvidence record(uint64_t probe, SysCall call, uint32_t error, OSSErr code,
                     HANDLE handle) const {
    LogEvidence evidence = SystemRecord(code == ECF_NO_MEMORY ? OSS_LOG_ERROR : OSS_LOG_INFO,
                                        Func::OSSHIPCMemoryEx_create, probe, call, error, code);
    evidence.itemKind = "ARG";
    evidence.items = items(handle, kernelName_);
    return evidence;
  }

  // Runs a create that must fail with this code and leave nothing behind.
  void expectFailure(OSSErr code) {
    const size_t handles = openHandles();
    info_.address = this;
    EXPECT_EQ(memory_.create(&createParam_, &info_), code);
    EXPECT_TRUE(isReset(memory_));
    EXPECT_EQ(info_.address, this);
    EXPECT_EQ(openHandles(), handles);
  }

  void expectBrokenRule() {
    expectFailure(ECF_INVALID_PARAMETER);
    const char* const name = createParam_.name;
    EXPECT_THAT(log_.newRecords(),
                ElementsAre(FoundRecord(
                    OSS_LOG_INFO, Func::OSSHIPCMemoryEx_create, 30, ECF_INVALID_PARAMETER,
                    {name != nullptr ? String(name) : Null(), Uint(createParam_.size),
                     Hex(createParam_.flags), Hex(createParam_.permissions)})));
  }
};

class OSSHIPCMemoryExAttachTest : public OSSHIPCMemoryExTest {
 protected:
  LogEvidence record(uint64_t probe, SysCall call, uint32_t error, OSSErr code,
                     HANDLE handle) const {
    return SystemRecord(OSS_LOG_INFO, Func::OSSHIPCMemoryEx_attach, probe, call, error, code,
                        {{1, Uint(attachParam_.version)},
                         {2, String(attachParam_.name)},
                         {3, Hex(attachParam_.flags)},
                         {4, Hex(attachParam_.address)},
                         {5, Hex(handle)},
                         {6, String(kernelName_, 264)}});
  }
};

// ---- The records and the handle ----

TEST_F(OSSHIPCMemoryExTest, ParametersAreConstructedCurrentAndEmptyButForThePermissions) {
  OSSIPCMemoryExCreateParam create;
  std::memset(static_cast<void*>(&create), 0, sizeof create);
  create.version = 0x09010007;
  create.permissions = 1;
  const OSSIPCMemoryExCreateParam freshCreate;
  EXPECT_EQ(std::memcmp(&freshCreate, &create, sizeof create), 0);

  OSSIPCMemoryExAttachParam attach;
  std::memset(static_cast<void*>(&attach), 0, sizeof attach);
  attach.version = 0x09010007;
  const OSSIPCMemoryExAttachParam freshAttach;
  EXPECT_EQ(std::memcmp(&freshAttach, &attach, sizeof attach), 0);

  const OSSIPCMemoryExInfo info;
  EXPECT_EQ(info.version, 0x09010007u);
  EXPECT_EQ(info.address, nullptr);
}

TEST_F(OSSHIPCMemoryExTest, AHandleIsConstructedDetached) {
  EXPECT_TRUE(isReset(memory_));
  EXPECT_FALSE(memory_.isAttached());
}

TEST_F(OSSHIPCMemoryExTest, TheDestructorForgetsAndReleasesNothing) {
  alignas(OSSHIPCMemoryEx) char memory[sizeof(OSSHIPCMemoryEx)];
  auto* const dropped = new (memory) OSSHIPCMemoryEx;
  ASSERT_EQ(dropped->create(&createParam_, &info_), ECF_OK);
  const MemoryExFields held = fieldsOf(*dropped);
  dropped->~OSSHIPCMemoryEx();

  MemoryExFields after;
  std::memcpy(&after, memory, sizeof after);
  EXPECT_TRUE(isReset(after));
  EXPECT_TRUE(isOpen(held.handle));
  std::strcpy(static_cast<char*>(held.address), "still mapped");
  EXPECT_TRUE(::UnmapViewOfFile(held.address));
  EXPECT_TRUE(::CloseHandle(held.handle));
}

// ---- create ----

TEST_F(OSSHIPCMemoryExCreateTest, MakesASectionUnderItsNumberedName) {
  create();
  const MemoryExFields held = fieldsOf(memory_);
  EXPECT_TRUE(memory_.isAttached());
  EXPECT_STREQ(held.name, kernelName_.c_str());
  EXPECT_EQ(held.size, 100u);
  EXPECT_EQ(info_.address, held.address);
  EXPECT_EQ(protectionOf(memory_), static_cast<DWORD>(PAGE_READWRITE));
  std::strcpy(textOf(memory_), "shared");

  const OSSIPCResID resID = resIDOf(path_, 120);
  const Attached same(resID);
  EXPECT_STREQ(textOf(same.memory), "shared");
  EXPECT_THAT(log_.records(), IsEmpty());
}

TEST_F(OSSHIPCMemoryExCreateTest, AColonInTheNameIsDropped) {
  const std::string name = "a:" + path_ + ':';
  createParam_.name = name.c_str();
  create();
  EXPECT_STREQ(fieldsOf(memory_).name, ("OSSEIPC120a" + path_).c_str());
}

TEST_F(OSSHIPCMemoryExCreateTest, AsksForTheSizeTheAccessAndTheAddress) {
  struct {
    uint64_t flags;
    DWORD access;
  } const kAccesses[] = {{4, FILE_MAP_READ},
                         {8, FILE_MAP_READ | FILE_MAP_WRITE},
                         {12, FILE_MAP_READ},
                         {5, FILE_MAP_READ},
                         {0xF0 | 8, FILE_MAP_READ | FILE_MAP_WRITE}};
  for (const auto& each : kAccesses) {
    createParam_.flags = each.flags;
    createParam_.address = freeAddress();
    ImportHook creates("CreateFileMappingA", [&](Call& call) {
      EXPECT_EQ(call.argument<HANDLE>(0), INVALID_HANDLE_VALUE);
      EXPECT_EQ(call.argument<DWORD>(2), static_cast<DWORD>(PAGE_READWRITE));
      EXPECT_EQ(call.argument<DWORD>(3), 0u);
      EXPECT_EQ(call.argument<DWORD>(4), 100u);
      EXPECT_EQ(::GetLastError(), 0u);
      return call.passOn();
    });
    ImportHook maps("MapViewOfFileEx", [&](Call& call) {
      EXPECT_EQ(call.argument<DWORD>(1), each.access);
      EXPECT_EQ(call.argument<SIZE_T>(4), 0u);
      EXPECT_EQ(call.argument<void*>(5), createParam_.address);
      return call.passOn();
    });
    ::SetLastError(ERROR_ALREADY_EXISTS);  // of an earlier call: not this one's
    create();
    EXPECT_EQ(info_.address, createParam_.address);
    ASSERT_EQ(memory_.detach(), ECF_OK);
  }
}

TEST_F(OSSHIPCMemoryExCreateTest, WithoutTheFlagASectionThatExistsIsUsed) {
  create();
  std::strcpy(textOf(memory_), "was there");
  createParam_.flags = OSS_MEMORY_READ_ONLY;
  createParam_.size = 5;
  ASSERT_EQ(other_.create(&createParam_, &info_), ECF_OK);
  EXPECT_STREQ(textOf(other_), "was there");
  EXPECT_EQ(protectionOf(other_), static_cast<DWORD>(PAGE_READONLY));
  EXPECT_EQ(fieldsOf(other_).size, 5u);  // what was asked for
  EXPECT_THAT(log_.records(), IsEmpty());
}

TEST_F(OSSHIPCMemoryExCreateTest, ExclusivelyASectionThatExistsIsRefused) {
  ASSERT_EQ(other_.create(&createParam_, &info_), ECF_OK);
  std::strcpy(textOf(other_), "intact");
  createParam_.flags = OSS_MEMORY_EXCLUSIVE | OSS_MEMORY_READ_ONLY;
  HANDLE opened = nullptr;
  {
    ImportHook creates("CreateFileMappingA", [&](Call& call) {
      const Word handle = call.passOn();
      opened = reinterpret_cast<HANDLE>(handle);
      return handle;
    });
    expectFailure(ECF_EXISTS);
  }
  EXPECT_FALSE(isOpen(opened));
  EXPECT_STREQ(textOf(other_), "intact");
  EXPECT_THAT(log_.records(), ElementsAre(record(150, SysCall::CreateFileMappingA,
                                                 ERROR_ALREADY_EXISTS, ECF_EXISTS, opened)));
}

TEST_F(OSSHIPCMemoryExCreateTest, ASectionThatIsRefusedIsExplained) {
  createParam_.size = 0x3'0000'0001;
  createParam_.options = 0x77;
  createParam_.permissions = 0x1A4;
  ImportHook creates("CreateFileMappingA", [&](Call& call) -> HANDLE {
    EXPECT_EQ(call.argument<DWORD>(3), 3u);
    EXPECT_EQ(call.argument<DWORD>(4), 1u);
    ::SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    return nullptr;
  });
  CallCounter closes("CloseHandle");
  expectFailure(ECF_NO_MEMORY);
  EXPECT_THAT(log_.records(), ElementsAre(record(140, SysCall::CreateFileMappingA,
                                                 ERROR_NOT_ENOUGH_MEMORY, ECF_NO_MEMORY, nullptr)));
}

TEST_F(OSSHIPCMemoryExCreateTest, ARefusedViewClosesTheSection) {
  createParam_.address = reinterpret_cast<void*>(uintptr_t{1});
  HANDLE section = nullptr;
  {
    ImportHook maps("MapViewOfFileEx", [&](Call& call) {
      section = call.argument<HANDLE>(0);
      return call.passOn();
    });
    expectFailure(ECF_INVALID_ADDRESS);
  }
  EXPECT_THAT(log_.records(), ElementsAre(record(160, SysCall::MapViewOfFileEx, 1132,
                                                 ECF_INVALID_ADDRESS, section)));
}

// Some systems would map what nobody can read.
TEST_F(OSSHIPCMemoryExCreateTest, AViewWithoutAnAccessIsRefused) {
  CallCounter maps("MapViewOfFileEx");
  for (const uint64_t flags : {1u, 2u, 0x10u}) {
    createParam_.flags = flags;
    expectFailure(ECF_ACCESS_DENIED);
  }
  EXPECT_EQ(maps.calls(), 0);
}

// Told as the close of another kind; the code is that of the view.
TEST_F(OSSHIPCMemoryExCreateTest, ACloseThatFailsAsWellIsLoggedToo) {
  HANDLE section = nullptr;
  {
    ImportHook maps("MapViewOfFileEx", [&](Call& call) -> void* {
      section = call.argument<HANDLE>(0);
      ::SetLastError(ERROR_NOT_ENOUGH_MEMORY);
      return nullptr;
    });
    ImportHook closes("CloseHandle", [&](Call& call) {
      if (call.argument<HANDLE>(0) != section) return call.passOn();
      ::SetLastError(ERROR_ACCESS_DENIED);
      return Word{0};
    });
    EXPECT_EQ(memory_.create(&createParam_, &info_), ECF_NO_MEMORY);
  }
  EXPECT_TRUE(isReset(memory_));
  EXPECT_THAT(log_.records(), ElementsAre(record(160, SysCall::MapViewOfFileEx,
                                                 ERROR_NOT_ENOUGH_MEMORY, ECF_NO_MEMORY, section),
                                          SystemRecord(OSS_LOG_INFO, Func::OSSHIPCMemoryEx_create,
                                                       200, SysCall::Close, ERROR_ACCESS_DENIED,
                                                       ECF_ACCESS_DENIED, {{1, Hex(section)}})));
  EXPECT_TRUE(::CloseHandle(section));
}

TEST_F(OSSHIPCMemoryExCreateTest, RefusedAttributesEndItBeforeTheNameIsFormed) {
  CallCounter creates("CreateFileMappingA");
  FailingCall fails("InitializeSecurityDescriptor", ERROR_ACCESS_DENIED);
  expectFailure(ECF_ACCESS_DENIED);
  EXPECT_EQ(creates.calls(), 0);
  LogEvidence expected =
      CalledRecord(OSS_LOG_INFO, Func::OSSHIPCMemoryEx_create, 110, Func::ossInitSecurityAttributes,
                   ECF_ACCESS_DENIED, ECF_ACCESS_DENIED);
  expected.itemKind = "ARG";
  expected.items = items(INVALID_HANDLE_VALUE, "");
  const std::vector<LogRecord> records = log_.records();
  ASSERT_EQ(records.size(), 2u);  // the first is the builder's own
  EXPECT_EQ(static_cast<const LogEvidence&>(records[1]), expected);
}

TEST_F(OSSHIPCMemoryExCreateTest, AnAttachedHandleIsRefusedAndStaysAttached) {
  create();
  const MemoryExFields before = fieldsOf(memory_);
  EXPECT_EQ(memory_.create(&createParam_, &info_), ECF_INVALID_INVOCATION_SEQUENCE);
  EXPECT_EQ(memory_.attach(&attachParam_, &info_), ECF_INVALID_INVOCATION_SEQUENCE);
  const MemoryExFields after = fieldsOf(memory_);
  EXPECT_EQ(std::memcmp(&after, &before, sizeof before), 0);
  EXPECT_THAT(log_.records(),
              ElementsAre(FoundRecord(OSS_LOG_INFO, Func::OSSHIPCMemoryEx_create, 20,
                                      ECF_INVALID_INVOCATION_SEQUENCE, {Hex(before.address)}),
                          FoundRecord(OSS_LOG_INFO, Func::OSSHIPCMemoryEx_attach, 20,
                                      ECF_INVALID_INVOCATION_SEQUENCE, {Hex(before.address)})));
}

TEST_F(OSSHIPCMemoryExCreateTest, ARecordThatBreaksItsRulesIsRefused) {
  const OSSIPCMemoryExCreateParam valid = createParam_;
  const std::string tooLong(254, 'n');
  for (const char* const name :
       {static_cast<const char*>(nullptr), "", "a\\b", "\\", tooLong.c_str()}) {
    createParam_.name = name;
    expectBrokenRule();
  }
  createParam_ = valid;
  createParam_.size = 0;
  expectBrokenRule();
  createParam_ = valid;
  createParam_.flags = 0;
  expectBrokenRule();
  createParam_ = valid;
  createParam_.permissions = 0;
  expectBrokenRule();
}

// The system's own limit is lower than the cut.
TEST_F(OSSHIPCMemoryExCreateTest, TheLongestNamesAreTakenAndRefusedByTheSystem) {
  const std::string longest = path_ + std::string(249 - path_.size(), 'n');
  createParam_.name = longest.c_str();
  create();
  EXPECT_EQ(fieldsOf(memory_).name, "OSSEIPC120" + longest);
  ASSERT_EQ(memory_.detach(), ECF_OK);

  const std::string refused = longest + "nnnn";
  const std::string cut = ("OSSEIPC120" + refused).substr(0, 261);
  createParam_.name = refused.c_str();
  {
    ImportHook creates("CreateFileMappingA", [&](Call& call) {
      EXPECT_EQ(call.argument<const char*>(5), cut);
      return call.passOn();
    });
    expectFailure(ECF_FILE_NAME_TOO_LONG);
  }
  const std::vector<LogRecord> records = log_.records();
  ASSERT_EQ(records.size(), 1u);
  EXPECT_EQ(records[0].probe, 140u);
  ASSERT_EQ(records[0].items.size(), 9u);
  EXPECT_EQ(records[0].items[8].value, String(cut, 264));
}

TEST_F(OSSHIPCMemoryExCreateTest, NullAndARecordThatIsTooOldAreRefused) {
  EXPECT_EQ(memory_.create(nullptr, &info_), ECF_INVALID_PARAMETER);
  EXPECT_EQ(memory_.create(&createParam_, nullptr), ECF_INVALID_PARAMETER);
  createParam_.version = 20040701;
  EXPECT_EQ(memory_.create(&createParam_, nullptr), ECF_INVALID_VERSION);
  EXPECT_TRUE(isReset(memory_));
  const LogEvidence null = nullRecord(Func::OSSHIPCMemoryEx_create);
  EXPECT_THAT(log_.records(), ElementsAre(null, null, oldRecord(Func::OSSHIPCMemoryEx_create)));

  createParam_.version = 20040702;
  info_.version = 0;  // not examined
  create();
}

// ---- attach ----

TEST_F(OSSHIPCMemoryExAttachTest, MapsASectionThatExistsWithItsAccess) {
  create();
  std::strcpy(textOf(memory_), "from the creator");
  attachParam_.address = freeAddress();
  ASSERT_EQ(attachOther(), ECF_OK);
  EXPECT_EQ(info_.address, attachParam_.address);
  EXPECT_EQ(fieldsOf(other_).address, attachParam_.address);
  EXPECT_STREQ(fieldsOf(other_).name, kernelName_.c_str());
  EXPECT_EQ(fieldsOf(other_).size, 0u);
  std::strcpy(textOf(other_), "from the other");
  EXPECT_STREQ(textOf(memory_), "from the other");
  ASSERT_EQ(other_.detach(), ECF_OK);

  attachParam_.address = nullptr;
  ImportHook opens("OpenFileMappingA", [&](Call& call) {
    EXPECT_EQ(call.argument<DWORD>(0), static_cast<DWORD>(FILE_MAP_READ));
    EXPECT_EQ(call.argument<BOOL>(1), FALSE);
    EXPECT_STREQ(call.argument<const char*>(2), kernelName_.c_str());
    return call.passOn();
  });
  ASSERT_EQ(attachOther(OSS_MEMORY_READ_ONLY), ECF_OK);
  EXPECT_EQ(protectionOf(other_), static_cast<DWORD>(PAGE_READONLY));
  EXPECT_STREQ(textOf(other_), "from the other");
}

// Deliberate: unlike OSSHIPCMemory, mapped.
TEST_F(OSSHIPCMemoryExAttachTest, AMissingSectionIsAMissingFile) {
  info_.address = this;
  EXPECT_EQ(attachOther(), ECF_FILE_DOESNT_EXIST);
  EXPECT_TRUE(isReset(other_));
  EXPECT_EQ(info_.address, this);
  EXPECT_THAT(log_.records(),
              ElementsAre(record(100, SysCall::OpenFileMappingA, ERROR_FILE_NOT_FOUND,
                                 ECF_FILE_DOESNT_EXIST, nullptr)));
}

TEST_F(OSSHIPCMemoryExAttachTest, ARefusedViewClosesTheSection) {
  create();
  attachParam_.address = reinterpret_cast<void*>(uintptr_t{1});
  HANDLE section = nullptr;
  const size_t handles = openHandles();
  {
    ImportHook maps("MapViewOfFileEx", [&](Call& call) {
      section = call.argument<HANDLE>(0);
      return call.passOn();
    });
    EXPECT_EQ(attachOther(), ECF_INVALID_ADDRESS);
  }
  EXPECT_TRUE(isReset(other_));
  EXPECT_EQ(openHandles(), handles);
  EXPECT_THAT(log_.records(), ElementsAre(record(120, SysCall::MapViewOfFileEx, 1132,
                                                 ECF_INVALID_ADDRESS, section)));
}

TEST_F(OSSHIPCMemoryExAttachTest, AViewWithoutAnAccessIsRefused) {
  create();
  const size_t handles = openHandles();
  for (const uint64_t flags : {0u, 1u, 2u}) EXPECT_EQ(attachOther(flags), ECF_ACCESS_DENIED);
  EXPECT_TRUE(isReset(other_));
  EXPECT_EQ(openHandles(), handles);
}

TEST_F(OSSHIPCMemoryExAttachTest, ACloseThatFailsAsWellIsLoggedToo) {
  create();
  HANDLE section = nullptr;
  {
    ImportHook maps("MapViewOfFileEx", [&](Call& call) -> void* {
      section = call.argument<HANDLE>(0);
      ::SetLastError(ERROR_ACCESS_DENIED);
      return nullptr;
    });
    ImportHook closes("CloseHandle", [&](Call& call) {
      if (call.argument<HANDLE>(0) != section) return call.passOn();
      ::SetLastError(ERROR_INVALID_HANDLE);
      return Word{0};
    });
    EXPECT_EQ(attachOther(), ECF_ACCESS_DENIED);
  }
  EXPECT_THAT(
      log_.records(),
      ElementsAre(
          record(120, SysCall::MapViewOfFileEx, ERROR_ACCESS_DENIED, ECF_ACCESS_DENIED, section),
          SystemRecord(OSS_LOG_INFO, Func::OSSHIPCMemoryEx_attach, 200, SysCall::Close,
                       ERROR_INVALID_HANDLE, ECF_INVALID_PARAMETER, {{1, Hex(section)}})));
  EXPECT_TRUE(::CloseHandle(section));
}

TEST_F(OSSHIPCMemoryExAttachTest, BrokenRulesNullAndOldRecordsAreRefused) {
  create();
  const std::string tooLong(254, 'n');
  for (const char* const name : {static_cast<const char*>(nullptr), "", "a\\b", tooLong.c_str()}) {
    attachParam_.name = name;
    EXPECT_EQ(attachOther(), ECF_INVALID_PARAMETER);
    EXPECT_THAT(
        log_.newRecords(),
        ElementsAre(FoundRecord(OSS_LOG_INFO, Func::OSSHIPCMemoryEx_attach, 30,
                                ECF_INVALID_PARAMETER, {name != nullptr ? String(name) : Null()})));
  }
  attachParam_.name = path_.c_str();
  EXPECT_EQ(other_.attach(nullptr, &info_), ECF_INVALID_PARAMETER);
  EXPECT_EQ(other_.attach(&attachParam_, nullptr), ECF_INVALID_PARAMETER);
  attachParam_.version = 20040701;
  EXPECT_EQ(attachOther(), ECF_INVALID_VERSION);
  const LogEvidence null = nullRecord(Func::OSSHIPCMemoryEx_attach);
  EXPECT_THAT(log_.newRecords(), ElementsAre(null, null, oldRecord(Func::OSSHIPCMemoryEx_attach)));
  attachParam_.version = 20040702;
  EXPECT_EQ(attachOther(), ECF_OK);
}

}  // namespace
