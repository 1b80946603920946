// Shared memory: detach and destroy, and what a handle tells of its view.
#include "ipc/ossipcmemoryfixture.h"

using namespace osse_test;
using namespace testing;
using oss::Func;
using oss::SysCall;

namespace {

// Each operation that ends a handle, under its own identifier.
struct Ending {
  OSSErr (OSSHIPCMemory::*run)() noexcept;
  Func loggedAs;
};
constexpr Ending kDetach = {&OSSHIPCMemory::detach, Func::OSSHIPCMemory_detach};
constexpr Ending kDetachAndDestroy = {&OSSHIPCMemory::detachAndDestroy,
                                      Func::OSSHIPCMemory_detachAndDestroy};

class OSSHIPCMemoryDetachTest : public OSSHIPCMemoryTest {
 protected:
  static LogEvidence unmapRecord(Func function, uint32_t error, OSSErr code, const void* address) {
    return SystemRecord(OSS_LOG_INFO, function, 30, SysCall::UnmapViewOfFile, error, code,
                        {{1, Hex(address)}});
  }
};

using OSSHIPCMemoryDestroyTest = OSSHIPCMemoryDetachTest;
using OSSHIPCMemoryInfoTest = OSSHIPCMemoryTest;

// ---- detach, detachAndDestroy ----

TEST_F(OSSHIPCMemoryDetachTest, UnmapsClosesAndFreesTheName) {
  for (const Ending& ending : {kDetach, kDetachAndDestroy}) {
    const size_t handles = openHandles();
    create();
    const MemoryFields held = fieldsOf(memory_);
    EXPECT_EQ((memory_.*ending.run)(), ECF_OK);
    EXPECT_EQ(fieldsOf(memory_), kNoMemory);
    EXPECT_EQ(openHandles(), handles);
    MEMORY_BASIC_INFORMATION region = {};
    EXPECT_NE(::VirtualQuery(held.address, &region, sizeof region), 0u);
    EXPECT_EQ(region.State, static_cast<DWORD>(MEM_FREE));
  }
  EXPECT_THAT(log_.records(), IsEmpty());
}

TEST_F(OSSHIPCMemoryDetachTest, ASectionLivesAsLongAsAHandleToIt) {
  create();
  std::strcpy(textOf(memory_), "outlives its creator");
  {
    const Attached other(resID_);
    EXPECT_EQ(memory_.detach(), ECF_OK);
    EXPECT_STREQ(textOf(other.memory), "outlives its creator");
    EXPECT_EQ(memory_.create(&param_), ECF_MEM_EXISTS);
  }
  create();
  EXPECT_STREQ(textOf(memory_), "");
}

// Deliberate: the second code covers the first.
TEST_F(OSSHIPCMemoryDetachTest, AHandleThatWasNeverAttachedIsRefused) {
  for (const Ending& ending : {kDetach, kDetachAndDestroy}) {
    EXPECT_EQ((memory_.*ending.run)(), ECF_INVALID_PARAMETER);
    EXPECT_EQ(fieldsOf(memory_), kNoMemory);
    EXPECT_THAT(log_.newRecords(), ElementsAre(unmapRecord(ending.loggedAs, ERROR_INVALID_ADDRESS,
                                                           ECF_INVALID_ADDRESS, nullptr)));
  }
}

TEST_F(OSSHIPCMemoryDetachTest, AViewThatStaysKeepsItsAddressAndTheSectionIsClosed) {
  for (const Ending& ending : {kDetach, kDetachAndDestroy}) {
    create();
    const MemoryFields held = fieldsOf(memory_);
    {
      FailingCall fails("UnmapViewOfFile", ERROR_ACCESS_DENIED);
      EXPECT_EQ((memory_.*ending.run)(), ECF_ACCESS_DENIED);
    }
    EXPECT_EQ(fieldsOf(memory_), (MemoryFields{INVALID_HANDLE_VALUE, held.address}));
    EXPECT_TRUE(memory_.isAttached());
    EXPECT_FALSE(isOpen(held.handle));
    EXPECT_THAT(log_.newRecords(), ElementsAre(unmapRecord(ending.loggedAs, ERROR_ACCESS_DENIED,
                                                           ECF_ACCESS_DENIED, held.address)));
    EXPECT_TRUE(::UnmapViewOfFile(held.address));
    setFields(memory_, kNoMemory);
  }
}

// Deliberate: traced, not logged.
TEST_F(OSSHIPCMemoryDetachTest, ASectionThatDoesNotCloseIsForgotten) {
  for (const Ending& ending : {kDetach, kDetachAndDestroy}) {
    create();
    const MemoryFields held = fieldsOf(memory_);
    {
      FailingCall fails("CloseHandle", ERROR_ACCESS_DENIED);
      EXPECT_EQ((memory_.*ending.run)(), ECF_ACCESS_DENIED);
    }
    EXPECT_EQ(fieldsOf(memory_), kNoMemory);
    EXPECT_TRUE(::CloseHandle(held.handle));
    EXPECT_THAT(log_.records(), IsEmpty());
  }
}

TEST_F(OSSHIPCMemoryDetachTest, TheCodeOfTheCloseCoversThatOfTheView) {
  create();
  const MemoryFields held = fieldsOf(memory_);
  ASSERT_TRUE(::CloseHandle(held.handle));
  {
    FailingCall fails("UnmapViewOfFile", ERROR_ACCESS_DENIED);
    EXPECT_EQ(memory_.detach(), ECF_INVALID_PARAMETER);
  }
  EXPECT_EQ(fieldsOf(memory_), (MemoryFields{INVALID_HANDLE_VALUE, held.address}));
  EXPECT_THAT(log_.records(),
              ElementsAre(unmapRecord(Func::OSSHIPCMemory_detach, ERROR_ACCESS_DENIED,
                                      ECF_ACCESS_DENIED, held.address)));
  EXPECT_TRUE(::UnmapViewOfFile(held.address));
  setFields(memory_, kNoMemory);
}

// ---- destroy ----

TEST_F(OSSHIPCMemoryDestroyTest, IsADetach) {
  create();
  EXPECT_EQ(memory_.destroy(), ECF_OK);
  EXPECT_EQ(fieldsOf(memory_), kNoMemory);
  create();
}

// Deliberate: nobody is told, except by the log.
TEST_F(OSSHIPCMemoryDestroyTest, PassesNoFailureOn) {
  EXPECT_EQ(memory_.destroy(), ECF_OK);
  EXPECT_THAT(log_.newRecords(),
              ElementsAre(unmapRecord(Func::OSSHIPCMemory_detach, ERROR_INVALID_ADDRESS,
                                      ECF_INVALID_ADDRESS, nullptr)));

  create();
  const MemoryFields held = fieldsOf(memory_);
  {
    FailingCall fails("UnmapViewOfFile", ERROR_ACCESS_DENIED);
    EXPECT_EQ(memory_.destroy(), ECF_OK);
  }
  EXPECT_EQ(fieldsOf(memory_), (MemoryFields{INVALID_HANDLE_VALUE, held.address}));
  EXPECT_TRUE(::UnmapViewOfFile(held.address));
  setFields(memory_, kNoMemory);
}

TEST_F(OSSHIPCMemoryDestroyTest, NothingIsReleasedByADestructor) {
  MemoryFields held = {};
  {
    OSSHIPCMemory dropped;
    ASSERT_EQ(dropped.create(&param_), ECF_OK);
    held = fieldsOf(dropped);
  }
  EXPECT_TRUE(isOpen(held.handle));
  std::strcpy(static_cast<char*>(held.address), "still mapped");
  setFields(memory_, held);
}

// ---- What a handle tells ----

TEST_F(OSSHIPCMemoryInfoTest, TheAddressIsThatOfTheView) {
  void* address = this;
  EXPECT_EQ(memory_.getAddress(&address), ECF_OK);
  EXPECT_EQ(address, nullptr);
  create();
  EXPECT_EQ(memory_.getAddress(&address), ECF_OK);
  EXPECT_EQ(address, fieldsOf(memory_).address);
  EXPECT_NE(address, nullptr);
}

TEST_F(OSSHIPCMemoryInfoTest, TheSizeIsInWholePages) {
  struct {
    uint64_t asked, told;
  } const kSizes[] = {{1, kPage}, {100, kPage}, {kPage, kPage}, {kPage + 1, 2 * kPage}};
  for (const auto& each : kSizes) {
    param_.size = each.asked;
    create();
    uint64_t size = 0;
    EXPECT_EQ(memory_.getMemorySize(&size), ECF_OK);
    EXPECT_EQ(size, each.told) << each.asked;
    ASSERT_EQ(memory_.detach(), ECF_OK);
  }
}

// The region at address 0 is nobody's.
TEST_F(OSSHIPCMemoryInfoTest, TheSizeOfAHandleThatIsNotAttachedMeansNothing) {
  uint64_t size = 0;
  EXPECT_EQ(memory_.getMemorySize(&size), ECF_OK);
  EXPECT_EQ(size, 65536u);
}

TEST_F(OSSHIPCMemoryInfoTest, ARegionThatIsNotAllDescribedFails) {
  create();
  uint64_t size = 1;
  {
    ImportHook query("VirtualQueryEx", [&](Call& call) {
      EXPECT_EQ(call.argument<HANDLE>(0), ::GetCurrentProcess());
      EXPECT_EQ(call.argument<void*>(1), fieldsOf(memory_).address);
      EXPECT_EQ(call.argument<SIZE_T>(3), 48u);
      std::memcpy(call.argument<void*>(2), "What the system knows of it, but not all of it.", 47);
      ::SetLastError(ERROR_ACCESS_DENIED);
      return 47;
    });
    EXPECT_EQ(memory_.getMemorySize(&size), ECF_FAILED);
  }
  EXPECT_EQ(size, 1u);
  // How many bytes came back stands where the system's error stands else.
  const LogValue region = {"<hexdump>", 48, 0,
                           "57686174  20746865  20737973  74656D20    What the system \r\n"
                           "6B6E6F77  73206F66  2069742C  20627574    knows of it, but\r\n"
                           "206E6F74  20616C6C  206F6620  69742E00     not all of it.."};
  EXPECT_THAT(log_.records(),
              ElementsAre(SystemRecord(OSS_LOG_INFO, Func::OSSHIPCMemory_getMemorySize, 30,
                                       SysCall::VirtualQueryEx, 47, ECF_FAILED,
                                       {{1, region}, {2, Hex(fieldsOf(memory_).address)}})));
}

TEST_F(OSSHIPCMemoryInfoTest, AProcessWithoutAHandleHasNoSize) {
  create();
  uint64_t size = 1;
  {
    ImportHook nobody("GetCurrentProcess", [](Call&) -> HANDLE { return nullptr; });
    EXPECT_EQ(memory_.getMemorySize(&size), ECF_INVALID_HANDLE);
  }
  EXPECT_EQ(size, 1u);
  EXPECT_THAT(log_.records(),
              ElementsAre(FoundRecord(OSS_LOG_INFO, Func::OSSHIPCMemory_getMemorySize, 20,
                                      ECF_INVALID_HANDLE)));
}

TEST_F(OSSHIPCMemoryInfoTest, NullIsRefused) {
  EXPECT_EQ(memory_.getAddress(nullptr), ECF_INVALID_PARAMETER);
  EXPECT_EQ(memory_.getMemorySize(nullptr), ECF_INVALID_PARAMETER);
  EXPECT_THAT(log_.records(), ElementsAre(nullRecord(Func::OSSHIPCMemory_getAddress),
                                          nullRecord(Func::OSSHIPCMemory_getMemorySize)));
}

// ---- authorize ----

TEST_F(OSSHIPCMemoryInfoTest, AuthorizingChangesNothing) {
  create();
  const MemoryFields before = fieldsOf(memory_);
  OSSIPCSecurityParam param;
  EXPECT_EQ(memory_.authorize(&param), ECF_OK);
  param.version = 20040702;
  EXPECT_EQ(memory_.authorize(&param), ECF_OK);
  param.version = 20040701;
  EXPECT_EQ(memory_.authorize(&param), ECF_INVALID_VERSION);
  EXPECT_EQ(memory_.authorize(nullptr), ECF_INVALID_PARAMETER);
  EXPECT_EQ(fieldsOf(memory_), before);
  EXPECT_THAT(log_.records(), ElementsAre(oldRecord(Func::OSSHIPCMemory_authorize),
                                          nullRecord(Func::OSSHIPCMemory_authorize)));
}

}  // namespace
