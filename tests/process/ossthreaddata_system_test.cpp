// Thread-specific data: a pointer for each thread, and the records of what the system refuses.
#include <iterator>
#include <vector>

#include "process/ossthreadfixture.h"

using namespace osse_test;
using namespace testing;
using oss::Func;
using oss::SysCall;

namespace {

// The only field, which a slot keeps to itself.
uint32_t indexOf(const OSSHThreadSpecificData& slot) {
  uint32_t index;
  static_assert(sizeof index == sizeof slot);
  std::memcpy(&index, &slot, sizeof index);
  return index;
}

// What the slot holds for the calling thread, asked of the system.
void* held(const OSSHThreadSpecificData& slot) { return ::TlsGetValue(indexOf(slot)); }

class ThreadDataTest : public Test {
 protected:
  ThreadDataTest() { EXPECT_EQ(slot_.create(), ECF_OK); }
  ~ThreadDataTest() override { EXPECT_EQ(slot_.destroy(), ECF_OK); }

  // Expects one record, of a failed call that has the index as its first argument.
  void expectRecord(uint64_t level, Func function, uint64_t probe, SysCall call, uint32_t error,
                    OSSErr code) {
    EXPECT_THAT(log_.newRecords(), ElementsAre(SystemRecord(level, function, probe, call, error,
                                                            code, {{1, Uint(indexOf(slot_))}})));
  }

  LogCapture log_;
  OSSHThreadSpecificData slot_;
  int data_ = 0;
  void* value_ = &data_;  // where get writes; never null before it
};

// ---- set and get ----

TEST_F(ThreadDataTest, GetFetchesWhatWasSet) {
  int other;
  for (void* const pointer : {static_cast<void*>(&data_), static_cast<void*>(&other)}) {
    EXPECT_EQ(slot_.set(pointer), ECF_OK);
    EXPECT_EQ(held(slot_), pointer);
    EXPECT_EQ(slot_.get(&value_), ECF_OK);
    EXPECT_EQ(value_, pointer);
  }
  EXPECT_EQ(log_.text(), "");
}

TEST_F(ThreadDataTest, ASlotThatWasNeverSetIsNullAndOutOfSequence) {
  ::SetLastError(ERROR_ACCESS_DENIED);  // which the system clears
  EXPECT_EQ(slot_.get(&value_), OSSErr{0x90000003});
  EXPECT_EQ(value_, nullptr);
  expectRecord(OSS_LOG_INFO, Func::OSSHThreadSpecificDataInternal_get, 10, SysCall::TlsGetValue, 0,
               ECF_INVALID_INVOCATION_SEQUENCE);
}

TEST_F(ThreadDataTest, TheRecordOfANullSlotNamesTheInnerOperationAndTheErrorThatIsNone) {
  EXPECT_NE(slot_.get(&value_), ECF_OK);
  EXPECT_THAT(log_.text(),
              AllOf(HasSubstr("FUNCTION: common, OSSe, OSSHThreadSpecificDataInternal::get, "
                              "probe:10\r\n"),
                    HasSubstr("MESSAGE : ECF=0x90000003 Functions/methods called out of sequence"
                              "\r\n"),
                    HasSubstr("TlsGetValue"), HasSubstr("OSERR: NO_ERROR (0)\r\n")));
}

TEST_F(ThreadDataTest, ASlotThatWasSetToNullCountsAsNeverSet) {
  EXPECT_EQ(slot_.set(&data_), ECF_OK);
  EXPECT_EQ(slot_.set(nullptr), ECF_OK);
  EXPECT_EQ(slot_.get(&value_), ECF_INVALID_INVOCATION_SEQUENCE);
  EXPECT_EQ(value_, nullptr);
  expectRecord(OSS_LOG_INFO, Func::OSSHThreadSpecificDataInternal_get, 10, SysCall::TlsGetValue, 0,
               ECF_INVALID_INVOCATION_SEQUENCE);
}

TEST_F(ThreadDataTest, GetWithoutAPlaceForThePointerIsRefused) {
  CallCounter gets("TlsGetValue");
  EXPECT_EQ(slot_.get(nullptr), ECF_INVALID_PARAMETER);
  EXPECT_THAT(log_.records(),
              ElementsAre(FoundRecord(OSS_LOG_ERROR, Func::OSSHThreadSpecificData_get, 1111,
                                      ECF_INVALID_PARAMETER)));
  EXPECT_EQ(gets.calls(), 0);
}

TEST_F(ThreadDataTest, CopiesNameTheSameSlot) {
  OSSHThreadSpecificData copy = slot_;
  EXPECT_EQ(copy.set(&data_), ECF_OK);
  value_ = nullptr;
  EXPECT_EQ(slot_.get(&value_), ECF_OK);
  EXPECT_EQ(value_, &data_);
}

TEST_F(ThreadDataTest, SlotsAreIndependent) {
  OSSHThreadSpecificData other;
  int otherData;
  ASSERT_EQ(other.create(), ECF_OK);
  EXPECT_EQ(slot_.set(&data_), ECF_OK);
  EXPECT_EQ(other.set(&otherData), ECF_OK);
  EXPECT_EQ(held(slot_), &data_);
  EXPECT_EQ(held(other), &otherData);
  EXPECT_EQ(other.destroy(), ECF_OK);
}

// ---- Threads ----

// Sets the slot to its own address, and looks again when all threads have done so.
struct Visitor {
  static void run(void* visitor) {
    auto* const self = static_cast<Visitor*>(visitor);
    self->before = self->slot->get(&self->first);
    EXPECT_EQ(self->slot->set(self), ECF_OK);
    self->hasSet.set();
    EXPECT_TRUE(self->mayLook.wait());
    self->after = self->slot->get(&self->second);
  }

  OSSHThreadSpecificData* slot = nullptr;
  Event hasSet, mayLook;
  OSSErr before = 0, after = 0;
  void* first = this;
  void* second = nullptr;
};

TEST_F(ThreadDataTest, EachOfEightThreadsSeesItsOwnPointer) {
  Visitor visitors[8];
  OSSHThread threads[8];
  EXPECT_EQ(slot_.set(&data_), ECF_OK);
  for (size_t i = 0; i < std::size(threads); ++i) {
    visitors[i].slot = &slot_;
    ASSERT_EQ(threads[i].create(Visitor::run, &visitors[i], &kJoinable, nullptr), ECF_OK);
  }
  for (Visitor& visitor : visitors) ASSERT_TRUE(visitor.hasSet.wait());
  for (Visitor& visitor : visitors) visitor.mayLook.set();
  for (OSSHThread& thread : threads) EXPECT_EQ(thread.wait(), ECF_OK);

  for (const Visitor& visitor : visitors) {
    EXPECT_EQ(visitor.before, ECF_INVALID_INVOCATION_SEQUENCE);
    EXPECT_EQ(visitor.first, nullptr);
    EXPECT_EQ(visitor.after, ECF_OK);
    EXPECT_EQ(visitor.second, &visitor);
  }
  EXPECT_EQ(slot_.get(&value_), ECF_OK);
  EXPECT_EQ(value_, &data_);
}

// ---- create and destroy ----

TEST_F(ThreadDataTest, ASlotThatIsGivenBackCanBeTakenAgain) {
  constexpr int kMoreThanThereAre = 2000;
  OSSHThreadSpecificData other;
  for (int i = 0; i < kMoreThanThereAre; ++i) {
    ASSERT_EQ(other.create(), ECF_OK) << i;
    ASSERT_EQ(held(other), nullptr) << i;  // also when the same index held a pointer before
    ASSERT_EQ(other.set(&data_), ECF_OK) << i;
    ASSERT_EQ(other.destroy(), ECF_OK) << i;
  }
  EXPECT_EQ(log_.text(), "");
}

TEST_F(ThreadDataTest, WhenAllSlotsAreTakenCreateIsTheSystemsRefusal) {
  std::vector<OSSHThreadSpecificData> slots;
  OSSErr rc;
  do {
    rc = slots.emplace_back().create();
  } while (rc == ECF_OK && slots.size() < 10'000);
  EXPECT_EQ(indexOf(slots.back()), TLS_OUT_OF_INDEXES);
  slots.pop_back();

  EXPECT_EQ(::TlsAlloc(), TLS_OUT_OF_INDEXES);
  const DWORD error = ::GetLastError();
  for (OSSHThreadSpecificData& slot : slots) EXPECT_EQ(slot.destroy(), ECF_OK);

  uint64_t level = 0;
  const auto call = static_cast<uint32_t>(SysCall::TlsAlloc);
  EXPECT_EQ(rc, ossErrorMapSystem(0, 0, call, error, &level));
  EXPECT_THAT(log_.records(),
              ElementsAre(SystemRecord(level, Func::OSSHThreadSpecificDataInternal_create, 20,
                                       SysCall::TlsAlloc, error, rc)));
}

TEST_F(ThreadDataTest, ARefusedCreateIsMappedAndLoggedUnderTheInnerOperation) {
  FailingCall fails("TlsAlloc", ERROR_NOT_ENOUGH_MEMORY, {.result = TLS_OUT_OF_INDEXES});
  OSSHThreadSpecificData other;
  EXPECT_EQ(other.create(), ECF_NO_MEMORY);
  EXPECT_THAT(log_.records(), ElementsAre(SystemRecord(
                                  OSS_LOG_ERROR, Func::OSSHThreadSpecificDataInternal_create, 20,
                                  SysCall::TlsAlloc, ERROR_NOT_ENOUGH_MEMORY, ECF_NO_MEMORY)));
}

TEST_F(ThreadDataTest, ARefusedDestroyIsMappedAndLoggedUnderTheInnerOperation) {
  FailingCall fails("TlsFree", ERROR_ACCESS_DENIED);
  EXPECT_EQ(slot_.destroy(), ECF_ACCESS_DENIED);
  expectRecord(OSS_LOG_INFO, Func::OSSHThreadSpecificDataInternal_destroy, 20, SysCall::TlsFree,
               ERROR_ACCESS_DENIED, ECF_ACCESS_DENIED);
}

TEST_F(ThreadDataTest, ASlotCanBeGivenBackOnce) {
  EXPECT_EQ(slot_.destroy(), ECF_OK);
  EXPECT_EQ(slot_.destroy(), ECF_INVALID_PARAMETER);
  expectRecord(OSS_LOG_INFO, Func::OSSHThreadSpecificDataInternal_destroy, 20, SysCall::TlsFree,
               ERROR_INVALID_PARAMETER, ECF_INVALID_PARAMETER);
  EXPECT_EQ(slot_.create(), ECF_OK);
}

// ---- Refusals of set and get ----

TEST_F(ThreadDataTest, ARefusedSetIsLoggedButNotReturned) {
  EXPECT_EQ(slot_.set(&data_), ECF_OK);
  const struct {
    DWORD error;
    OSSErr code;
    uint64_t level;
  } kRows[] = {{ERROR_NOT_ENOUGH_MEMORY, ECF_NO_MEMORY, OSS_LOG_ERROR},
               {ERROR_INVALID_PARAMETER, ECF_INVALID_PARAMETER, OSS_LOG_INFO}};
  for (const auto& row : kRows) {
    FailingCall fails("TlsSetValue", row.error);
    EXPECT_EQ(slot_.set(this), ECF_OK);
    expectRecord(row.level, Func::OSSHThreadSpecificDataInternal_set, 20, SysCall::TlsSetValue,
                 row.error, row.code);
  }
  EXPECT_EQ(held(slot_), &data_);
}

TEST_F(ThreadDataTest, ARefusedGetIsMappedAndLoggedAndGivesNull) {
  EXPECT_EQ(slot_.set(&data_), ECF_OK);
  FailingCall fails("TlsGetValue", ERROR_INVALID_PARAMETER);
  EXPECT_EQ(slot_.get(&value_), ECF_INVALID_PARAMETER);
  EXPECT_EQ(value_, nullptr);
  expectRecord(OSS_LOG_INFO, Func::OSSHThreadSpecificDataInternal_get, 10, SysCall::TlsGetValue,
               ERROR_INVALID_PARAMETER, ECF_INVALID_PARAMETER);
}

}  // namespace
