// Waitposts, their beginning and their end: what is asked of the system, answered and left behind.
// ossipcwaitpost_messages_system_test.cpp has posts and waits.
#include "harness/handles.h"
#include "ipc/ossipcwaitpostfixture.h"

using namespace osse_test;
using namespace testing;
using oss::Func;
using oss::SysCall;

namespace {

// ---- create ----

TEST_F(OSSHIPCWaitpostTest, AConstructedHandleIsEmpty) {
  EXPECT_EQ(fieldsOf(waitpost_), kEmptyWaitpost);
}

// Deliberate: type 2 is a number, automatic reset is a bit.
TEST_F(OSSHIPCWaitpostTest, CreateMakesTheBlockAWaitpostWhateverItHeld) {
  const struct {
    uint64_t type;
    uint8_t noLatch;
    bool automatic;
  } kRows[] = {{0, 0, false}, {1, 0, true},  {2, 1, false},
               {3, 0, true},  {4, 0, false}, {~uint64_t{0}, 0, true}};
  for (const auto& row : kRows)
    for (const OSSIPCResID* const id : {&id_, static_cast<const OSSIPCResID*>(nullptr)}) {
      memory_.block = kGarbage;
      const OSSIPCWaitpostCreateParam param = createParam(memory_, id, row.type);
      ASSERT_EQ(waitpost_.create(&param), ECF_OK) << row.type;
      EXPECT_EQ(block(), blockBytes(row.noLatch, 0, (row.automatic ? 1U : 0U) | (id ? 2U : 4U)))
          << row.type;
      EXPECT_EQ(fieldsOf(waitpost_),
                (WaitpostFields{&memory_.block, memory_.postArea, 8, event()}));
      EXPECT_TRUE(isOpen(event()));
      EXPECT_EQ(waitpost_.post(nullptr), ECF_OK);
      EXPECT_EQ(waitpost_.wait(&kPoll, nullptr), ECF_OK);
      EXPECT_EQ(waitpost_.wait(&kPoll, nullptr), row.automatic ? ECF_WAITPOST_NOT_POSTED : ECF_OK);
      EXPECT_EQ(waitpost_.destroy(), ECF_OK);
    }
  EXPECT_EQ(area(), kArea);
  EXPECT_EQ(log_.text(), "");
}

// What the library asked the system for.
struct AskedEvent {
  bool hasAttributes = false;
  SECURITY_ATTRIBUTES attributes = {};
  BOOL manualReset = FALSE, initiallySet = TRUE;
  std::string name = "(none)";
};

AskedEvent eventAskedFor(const OSSIPCWaitpostCreateParam& param) {
  AskedEvent asked;
  ImportHook hook("CreateEventA", [&](Call& call) {
    if (const auto* const attributes = call.argument<const SECURITY_ATTRIBUTES*>(0)) {
      asked.hasAttributes = true;
      asked.attributes = *attributes;
    }
    asked.manualReset = call.argument<BOOL>(1);
    asked.initiallySet = call.argument<BOOL>(2);
    if (const auto* const name = call.argument<const char*>(3)) asked.name = name;
    return call.passOn();
  });
  OSSHIPCWaitpost waitpost;
  EXPECT_EQ(waitpost.create(&param), ECF_OK);
  EXPECT_EQ(waitpost.destroy(), ECF_OK);
  return asked;
}

TEST_F(OSSHIPCWaitpostTest, ANamedEventHasTheLibrarysAttributes) {
  const AskedEvent asked = eventAskedFor(createParam(memory_, &id_));
  EXPECT_TRUE(asked.hasAttributes);
  EXPECT_EQ(asked.attributes.nLength, 24u);
  EXPECT_NE(asked.attributes.lpSecurityDescriptor, nullptr);
  EXPECT_EQ(asked.attributes.bInheritHandle, TRUE);
  EXPECT_EQ(asked.manualReset, TRUE);
  EXPECT_EQ(asked.initiallySet, FALSE);
  EXPECT_EQ(asked.name, id_.name);

  SECURITY_ATTRIBUTES chosen = {sizeof chosen, nullptr, FALSE};
  ossSetSecurityAttributesForOSS(&chosen);
  EXPECT_EQ(eventAskedFor(createParam(memory_, &id_)).attributes.bInheritHandle, FALSE);
  ossSetSecurityAttributesForOSS(nullptr);
}

TEST_F(OSSHIPCWaitpostTest, AnUnnamedEventHasNeitherAttributesNorName) {
  const AskedEvent asked = eventAskedFor(createParam(memory_, nullptr, OSS_WAITPOST_AUTOMATIC));
  EXPECT_FALSE(asked.hasAttributes);
  EXPECT_EQ(asked.manualReset, FALSE);
  EXPECT_EQ(asked.initiallySet, FALSE);
  EXPECT_EQ(asked.name, "(none)");
}

// The second creator's type does not count for the event, though it does for its block.
TEST_F(OSSHIPCWaitpostTest, CreatingTwiceUnderOneNameGivesTwoHandlesOnOneEvent) {
  create(OSS_WAITPOST_AUTOMATIC);
  WaitpostMemory second = {};
  const OSSIPCWaitpostCreateParam param = createParam(second, &id_, OSS_WAITPOST_MANUAL);
  EXPECT_EQ(other_.create(&param), ECF_OK);
  EXPECT_EQ(bytesOf(second.block), blockBytes(0, 0, OSS_WAITPOST_IS_NAMED));

  EXPECT_EQ(other_.post(nullptr), ECF_OK);
  EXPECT_EQ(waitpost_.wait(&kPoll, nullptr), ECF_OK);
  EXPECT_EQ(other_.wait(&kPoll, nullptr), ECF_WAITPOST_NOT_POSTED);
}

TEST_F(OSSHIPCWaitpostTest, RecordsThatAreNullOrTooOldAreRefused) {
  create();
  OSSIPCWaitpostCreateParam oldCreate = createParam(memory_, &id_);
  OSSIPCWaitpostOpenParam oldOpen = openParam(memory_, &id_);
  OSSIPCWaitpostWaitParam oldWait = kPoll;
  oldCreate.version = oldOpen.version = oldWait.version = kTooOld;
  const struct {
    Func function;
    std::function<OSSErr()> withNull, withOld;
  } kRows[] = {
      {Func::OSSHIPCWaitpost_create, [&] { return waitpost_.create(nullptr); },
       [&] { return waitpost_.create(&oldCreate); }},
      {Func::OSSHIPCWaitpost_open, [&] { return waitpost_.open(nullptr); },
       [&] { return waitpost_.open(&oldOpen); }},
      {Func::OSSHIPCWaitpost_wait, [&] { return waitpost_.wait(nullptr, memory_.postArea); },
       [&] { return waitpost_.wait(&oldWait, memory_.postArea); }},
  };
  for (const auto& row : kRows) {
    expectRefusal(row.withNull, ECF_INVALID_PARAMETER,
                  {FoundRecord(OSS_LOG_ERROR, row.function, 1111, ECF_INVALID_PARAMETER)});
    expectRefusal(
        row.withOld, ECF_INVALID_VERSION,
        {FoundRecord(OSS_LOG_ERROR, row.function, 1112, ECF_INVALID_VERSION, {Uint(kTooOld)})});
  }
}

TEST_F(OSSHIPCWaitpostTest, TheOldestAcceptedVersionIsAccepted) {
  OSSIPCWaitpostCreateParam forCreate = createParam(memory_, &id_);
  OSSIPCWaitpostOpenParam forOpen = openParam(memory_, &id_);
  OSSIPCWaitpostWaitParam forWait = kPoll;
  forCreate.version = forOpen.version = forWait.version = OSS_VERSION_OLDEST;
  EXPECT_EQ(waitpost_.create(&forCreate), ECF_OK);
  EXPECT_EQ(other_.open(&forOpen), ECF_OK);
  EXPECT_EQ(other_.wait(&forWait, nullptr), ECF_WAITPOST_NOT_POSTED);
}

TEST_F(OSSHIPCWaitpostTest, CreateRefusesANullBlock) {
  OSSIPCWaitpostCreateParam param = createParam(memory_, &id_);
  param.controlBlock = nullptr;
  expectRefusal(
      [&] { return waitpost_.create(&param); }, ECF_INVALID_PARAMETER,
      {FoundRecord(OSS_LOG_ERROR, Func::OSSHIPCWaitpost_create, 1111, ECF_INVALID_PARAMETER)});
}

TEST_F(OSSHIPCWaitpostTest, WithoutSecurityAttributesThereIsNoEvent) {
  CallCounter events("CreateEventA");
  FailingCall fails("InitializeSecurityDescriptor", ERROR_ACCESS_DENIED);
  const OSSIPCWaitpostCreateParam param = createParam(memory_, &id_);
  EXPECT_EQ(waitpost_.create(&param), ECF_ACCESS_DENIED);
  EXPECT_EQ(events.calls(), 0);
  EXPECT_EQ(block(), blockBytes(0, 0, 0));
  const std::vector<LogRecord> records = log_.records();
  ASSERT_EQ(records.size(), 2u);  // the first is the inner operation's
  EXPECT_EQ(static_cast<const LogEvidence&>(records[1]),
            CalledRecord(OSS_LOG_INFO, Func::OSSHIPCWaitpost_create, 120,
                         Func::ossInitSecurityAttributes, ECF_ACCESS_DENIED, ECF_ACCESS_DENIED));
}

TEST_F(OSSHIPCWaitpostTest, AnEventThatIsRefusedLeavesABlockThatIsNoWaitpost) {
  for (const OSSIPCResID* const id : {&id_, static_cast<const OSSIPCResID*>(nullptr)}) {
    const void* attributes = nullptr;
    ImportHook hook("CreateEventA", [&](Call& call) {
      attributes = call.argument<void*>(0);
      ::SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    });
    const OSSIPCWaitpostCreateParam param = createParam(memory_, id, OSS_WAITPOST_NO_LATCH);
    EXPECT_EQ(waitpost_.create(&param), ECF_NO_MEMORY);
    EXPECT_EQ(attributes != nullptr, id != nullptr);
    EXPECT_EQ(block(), blockBytes(1, 0, 0));
    EXPECT_EQ(fieldsOf(waitpost_),
              (WaitpostFields{&memory_.block, nullptr, 0, INVALID_HANDLE_VALUE}));
    EXPECT_THAT(
        log_.newRecords(),
        ElementsAre(SystemRecord(OSS_LOG_ERROR, Func::OSSHIPCWaitpost_create, 130,
                                 SysCall::CreateEventA, ERROR_NOT_ENOUGH_MEMORY, ECF_NO_MEMORY,
                                 {{1, Hex(attributes)}, {4, id ? String(id->name) : Null()}})));
  }
}

TEST_F(OSSHIPCWaitpostTest, ANameOfAnotherKindOfObjectIsRefused) {
  const UniqueHandle mutex(::CreateMutexA(nullptr, FALSE, id_.name));
  ASSERT_NE(mutex, nullptr);
  const OSSIPCWaitpostCreateParam param = createParam(memory_, &id_);
  EXPECT_EQ(waitpost_.create(&param), ECF_INVALID_PARAMETER);
  EXPECT_EQ(log_.records().size(), 1u);
  EXPECT_EQ(log_.records().front().error, ERROR_INVALID_HANDLE);
}

// ---- open ----

TEST_F(OSSHIPCWaitpostTest, OpenJoinsTheEventOfTheName) {
  create();
  const std::string before = block();
  char area[8] = "mine...";
  OSSIPCWaitpostOpenParam param = openParam(memory_, &id_);
  param.postArea = area;
  param.postSize = 5;
  DWORD access = 0;
  BOOL inherit = TRUE;
  std::string name;
  {
    ImportHook hook("OpenEventA", [&](Call& call) {
      access = call.argument<DWORD>(0);
      inherit = call.argument<BOOL>(1);
      name = call.argument<const char*>(2);
      return call.passOn();
    });
    EXPECT_EQ(other_.open(&param), ECF_OK);
  }
  EXPECT_EQ(access, 0x1F0003u);
  EXPECT_EQ(inherit, FALSE);
  EXPECT_EQ(name, id_.name);
  EXPECT_EQ(block(), before);
  const HANDLE opened = fieldsOf(other_).event;
  EXPECT_EQ(fieldsOf(other_), (WaitpostFields{&memory_.block, area, 5, opened}));

  EXPECT_EQ(waitpost_.post(nullptr), ECF_OK);
  EXPECT_EQ(other_.wait(&kPoll, nullptr), ECF_OK);
  EXPECT_EQ(log_.text(), "");
}

TEST_F(OSSHIPCWaitpostTest, OpenRefusesABlockThatIsNoWaitpost) {
  CallCounter opens("OpenEventA");
  memory_.block = {};
  for (const uint64_t flags : {uint64_t{0}, uint64_t{1}, uint64_t{8}, ~uint64_t{6}}) {
    memory_.block.flags = flags;
    const OSSIPCWaitpostOpenParam param = openParam(memory_, &id_);
    EXPECT_EQ(waitpost_.open(&param), ECF_WAITPOST_NOT_INITIALIZED) << flags;
    EXPECT_EQ(fieldsOf(waitpost_),
              (WaitpostFields{&memory_.block, nullptr, 0, INVALID_HANDLE_VALUE}));
    EXPECT_THAT(log_.newRecords(),
                ElementsAre(FoundRecord(OSS_LOG_INFO, Func::OSSHIPCWaitpost_open, 30,
                                        ECF_WAITPOST_NOT_INITIALIZED, {Hex(flags)})));
  }
  OSSIPCWaitpostOpenParam param = openParam(memory_, &id_);
  param.controlBlock = nullptr;
  EXPECT_EQ(waitpost_.open(&param), ECF_WAITPOST_NOT_INITIALIZED);
  EXPECT_EQ(fieldsOf(waitpost_), kEmptyWaitpost);
  EXPECT_THAT(log_.newRecords(),
              ElementsAre(FoundRecord(OSS_LOG_INFO, Func::OSSHIPCWaitpost_open, 30,
                                      ECF_WAITPOST_NOT_INITIALIZED, {Hex(uint64_t{0})})));
  EXPECT_EQ(opens.calls(), 0);
}

// Without a name there is nothing to open, and the system says so.
TEST_F(OSSHIPCWaitpostTest, AnEventThatIsNotThereIsTheSystemsRefusal) {
  memory_.block = {};
  memory_.block.flags = OSS_WAITPOST_IS_NAMED;
  const struct {
    const OSSIPCResID* id;
    DWORD error;
    OSSErr code;
  } kRows[] = {{&id_, ERROR_FILE_NOT_FOUND, ECF_FILE_DOESNT_EXIST},
               {nullptr, ERROR_INVALID_PARAMETER, ECF_INVALID_PARAMETER}};
  for (const auto& row : kRows) {
    const OSSIPCWaitpostOpenParam param = openParam(memory_, row.id);
    EXPECT_EQ(waitpost_.open(&param), row.code);
    EXPECT_EQ(fieldsOf(waitpost_),
              (WaitpostFields{&memory_.block, memory_.postArea, 8, INVALID_HANDLE_VALUE}));
    EXPECT_THAT(log_.newRecords(),
                ElementsAre(SystemRecord(OSS_LOG_INFO, Func::OSSHIPCWaitpost_open, 40,
                                         SysCall::OpenEventA, row.error, row.code,
                                         {{3, row.id ? String(row.id->name) : Null()}})));
  }
}

// ---- Blocks that are not valid ----

TEST_F(OSSHIPCWaitpostTest, EveryOperationRefusesAnEmptyHandleAndABlockThatIsNoWaitpost) {
  char message[9] = "unread..";
  const struct {
    Func function;
    uint64_t probe;
    std::function<OSSErr()> operation;
  } kRows[] = {
      {Func::OSSHIPCWaitpost_wait, 20, [&] { return waitpost_.wait(&kForever, message); }},
      {Func::OSSHIPCWaitpost_post, 10, [&] { return waitpost_.post(message); }},
      {Func::OSSHIPCWaitpost_reset, 10, [&] { return waitpost_.reset(); }},
      {Func::OSSHIPCWaitpost_close, 10, [&] { return waitpost_.close(); }},
      {Func::OSSHIPCWaitpost_destroy, 10, [&] { return waitpost_.destroy(); }},
  };
  const auto expectRefusals = [&](uint64_t flags) {
    for (const auto& row : kRows)
      expectRefusal(row.operation, ECF_WAITPOST_NOT_INITIALIZED,
                    {FoundRecord(OSS_LOG_INFO, row.function, row.probe,
                                 ECF_WAITPOST_NOT_INITIALIZED, {Hex(flags)})});
  };
  expectRefusals(0);
  create();
  for (const uint64_t flags : {uint64_t{0}, uint64_t{1}, ~uint64_t{6}}) {
    memory_.block.flags = flags;
    expectRefusals(flags);
  }
  EXPECT_STREQ(message, "unread..");
}

// ---- close and destroy ----

TEST_F(OSSHIPCWaitpostTest, CloseLeavesTheBlockToTheOthers) {
  create(OSS_WAITPOST_NO_LATCH);
  openOther();
  const std::string before = block();
  const HANDLE closed = event();
  EXPECT_EQ(waitpost_.close(), ECF_OK);
  EXPECT_EQ(fieldsOf(waitpost_), kEmptyWaitpost);
  EXPECT_FALSE(isOpen(closed));
  EXPECT_EQ(block(), before);
  EXPECT_EQ(other_.post(kMessage), ECF_OK);
  EXPECT_EQ(log_.text(), "");
}

TEST_F(OSSHIPCWaitpostTest, ACloseThatTheSystemRefusesChangesNothing) {
  create();
  FailingCall fails("CloseHandle", ERROR_INVALID_HANDLE);
  expectRefusal([&] { return waitpost_.close(); }, ECF_INVALID_PARAMETER,
                {SystemRecord(OSS_LOG_INFO, Func::OSSHIPCWaitpost_close, 20, SysCall::CloseHandle,
                              ERROR_INVALID_HANDLE, ECF_INVALID_PARAMETER, {{1, Hex(event())}})});
}

// Deliberate: the latch stays as it is.
TEST_F(OSSHIPCWaitpostTest, DestroyMakesTheBlockInvalidAndLeavesTheLatch) {
  create(OSS_WAITPOST_NO_LATCH);
  memory_.block.dataLatch = kLatchHeld;
  memory_.block.reserved[3] = 0x77;
  const HANDLE closed = event();
  EXPECT_EQ(waitpost_.destroy(), ECF_OK);
  EXPECT_EQ(fieldsOf(waitpost_), kEmptyWaitpost);
  EXPECT_FALSE(isOpen(closed));
  std::string expected = blockBytes(0, kLatchHeld, 0);
  expected[5] = 0x77;
  EXPECT_EQ(block(), expected);
  EXPECT_EQ(log_.text(), "");
}

TEST_F(OSSHIPCWaitpostTest, ADestroyWhoseCloseTheSystemRefusesDoesTheRest) {
  create();
  const HANDLE left = event();
  FailingCall fails("CloseHandle", ERROR_ACCESS_DENIED);
  EXPECT_EQ(waitpost_.destroy(), ECF_ACCESS_DENIED);
  EXPECT_EQ(fieldsOf(waitpost_), kEmptyWaitpost);
  EXPECT_EQ(block(), blockBytes(0, 0, 0));
  EXPECT_THAT(log_.records(),
              ElementsAre(SystemRecord(OSS_LOG_INFO, Func::OSSHIPCWaitpost_destroy, 40,
                                       SysCall::CloseHandle, ERROR_ACCESS_DENIED, ECF_ACCESS_DENIED,
                                       {{1, Hex(left)}})));
  ::CloseHandle(left);
}

// The caller's duties are not checked.
TEST_F(OSSHIPCWaitpostTest, ReservedFieldsAndHalfAPostAreaAreAccepted) {
  OSSIPCWaitpostCreateParam forCreate = createParam(memory_, &id_);
  forCreate.postSize = 0;
  forCreate.reserved = 1;
  OSSIPCWaitpostOpenParam forOpen = openParam(memory_, &id_);
  forOpen.postSize = 0;
  forOpen.reserved = 1;
  OSSIPCWaitpostWaitParam forWait = kPoll;
  forWait.reserved = 1;
  EXPECT_EQ(waitpost_.create(&forCreate), ECF_OK);
  EXPECT_EQ(other_.open(&forOpen), ECF_OK);
  EXPECT_EQ(other_.wait(&forWait, nullptr), ECF_WAITPOST_NOT_POSTED);
}

TEST_F(OSSHIPCWaitpostTest, AThousandLivesLeaveNoHandleBehind) {
  const size_t before = openHandles();
  for (int i = 0; i < 1000; ++i) {
    create();
    openOther();
    ASSERT_EQ(other_.close(), ECF_OK);
    ASSERT_EQ(waitpost_.destroy(), ECF_OK);
  }
  EXPECT_EQ(openHandles(), before);
}

}  // namespace
