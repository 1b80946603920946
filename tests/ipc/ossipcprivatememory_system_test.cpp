// Private shared memory: within one process, and handed to another.
#include "harness/childprocess.h"
#include "harness/sharedobjects.h"
#include "harness/tempdir.h"
#include "ipc/ossipcmemoryfixture.h"

using namespace osse_test;
using namespace testing;
using oss::Func;

namespace {

struct PrivateFields {
  MemoryFields memory;
  OSSIPCResID resID;
};
static_assert(sizeof(PrivateFields) == sizeof(OSSHIPCPrivateMemory));

PrivateFields fieldsOfPrivate(const OSSHIPCPrivateMemory& memory) {
  PrivateFields fields;
  std::memcpy(static_cast<void*>(&fields), &memory, sizeof fields);
  return fields;
}
std::string nameIn(const OSSHIPCPrivateMemory& memory) {
  return fieldsOfPrivate(memory).resID.name;
}

// The name of the calling thread's section with that number.
std::string privateName(int number) {
  return "OSSEIPC" + std::to_string(number) + "PRIVMEMPID" +
         std::to_string(::GetCurrentProcessId()) + "TID" + std::to_string(::GetCurrentThreadId());
}

// arguments: file with the bytes of the creator's handle.
CHILD_ROLE(attachPrivateMemory) {
  const std::string bytes = readFile(arguments[0]);
  OSSHIPCPrivateMemory memory;
  EXPECT_EQ(bytes.size(), sizeof memory);
  std::memcpy(static_cast<void*>(&memory), bytes.data(), sizeof memory);
  EXPECT_EQ(memory.remoteInitialization(), ECF_OK);
  EXPECT_FALSE(memory.isAttached());
  EXPECT_EQ(memory.attach(nullptr), ECF_OK);
  EXPECT_STREQ(textOf(memory), "from the creator");
  std::strcpy(textOf(memory), "from the other");
  EXPECT_EQ(memory.destroy(), ECF_OK);
  return 0;
}

class OSSHIPCPrivateMemoryTest : public IPCTest {
 protected:
  OSSHIPCPrivateMemoryTest() { param_.size = 100; }
  ~OSSHIPCPrivateMemoryTest() override {
    if (memory_.isAttached()) {
      EXPECT_EQ(memory_.detach(), ECF_OK);
    }
  }

  void create() { ASSERT_EQ(memory_.create(&param_), ECF_OK); }

  OSSIPCMemoryCreateParam param_;
  OSSHIPCPrivateMemory memory_;
};

TEST_F(OSSHIPCPrivateMemoryTest, AHandleIsConstructedDetachedAndNameless) {
  const PrivateFields fields = fieldsOfPrivate(memory_);
  EXPECT_EQ(fields.memory, kNoMemory);
  EXPECT_EQ(fields.resID.version, 0x09010007u);
  EXPECT_EQ(std::string(fields.resID.name, 264), std::string(264, '\0'));
}

// ---- create ----

TEST_F(OSSHIPCPrivateMemoryTest, TakesTheFirstNumberThatIsFree) {
  OSSHIPCPrivateMemory second;
  create();
  EXPECT_EQ(nameIn(memory_), privateName(0));
  EXPECT_EQ(param_.resID.name, privateName(0));  // the caller's record is changed
  EXPECT_EQ(second.create(&param_), ECF_OK);
  EXPECT_EQ(nameIn(second), privateName(1));
  EXPECT_EQ(param_.resID.name, privateName(1));
  std::strcpy(textOf(memory_), "first");
  EXPECT_STREQ(textOf(second), "");

  EXPECT_EQ(memory_.detach(), ECF_OK);
  create();
  EXPECT_EQ(nameIn(memory_), privateName(0));
  EXPECT_EQ(second.detach(), ECF_OK);
  EXPECT_THAT(log_.records(), IsEmpty());
}

// A name that cannot be opened, or that an object of another kind has, is taken.
TEST_F(OSSHIPCPrivateMemoryTest, ANameThatIsNotItsOwnIsTaken) {
  OSSIPCSemaphoreCreateParam other;
  std::strcpy(other.resID.name, privateName(0).c_str());
  OSSHIPCSemaphore semaphore;
  ASSERT_EQ(semaphore.create(&other), ECF_OK);
  FailingCall denied("OpenFileMappingA", ERROR_ACCESS_DENIED, {.onCall = 2});
  create();
  EXPECT_EQ(nameIn(memory_), privateName(2));
  EXPECT_EQ(semaphore.detach(), ECF_OK);
}

TEST_F(OSSHIPCPrivateMemoryTest, AnyOtherRefusalCountsAsFreeAndTheCreateTells) {
  FailingCall unknown("OpenFileMappingA", ERROR_NOT_ENOUGH_MEMORY);
  create();
  EXPECT_EQ(nameIn(memory_), privateName(0));
}

TEST_F(OSSHIPCPrivateMemoryTest, AfterAHundredNamesThereIsNone) {
  std::vector<std::string> tried;
  const size_t handles = openHandles();
  {
    ImportHook opens("OpenFileMappingA", [&](Call& call) {
      EXPECT_EQ(call.argument<DWORD>(0), static_cast<DWORD>(FILE_MAP_READ | FILE_MAP_WRITE));
      EXPECT_EQ(call.argument<BOOL>(1), FALSE);
      tried.emplace_back(call.argument<const char*>(2));
      return ::CreateEventA(nullptr, FALSE, FALSE, nullptr);
    });
    EXPECT_EQ(memory_.create(&param_), ECF_NO_RESOURCE);
  }
  ASSERT_EQ(tried.size(), 100u);
  EXPECT_EQ(tried.front(), privateName(0));
  EXPECT_EQ(tried.back(), privateName(99));
  EXPECT_EQ(openHandles(), handles);
  EXPECT_FALSE(memory_.isAttached());
  EXPECT_EQ(nameIn(memory_), "");
  EXPECT_THAT(log_.records(),
              ElementsAre(FoundRecord(OSS_LOG_INFO, Func::OSSHIPCPrivateMemory_create, 100,
                                      ECF_NO_RESOURCE, {String(privateName(0).substr(8))})));
}

TEST_F(OSSHIPCPrivateMemoryTest, ARefusalOfTheSectionIsPassedOn) {
  param_.size = 0;
  EXPECT_EQ(memory_.create(&param_), ECF_INVALID_PARAMETER);
  EXPECT_FALSE(memory_.isAttached());
  const std::vector<LogRecord> records = log_.records();
  ASSERT_EQ(records.size(), 2u);
  EXPECT_EQ(records[0].function, "OSSHIPCMemory::create");
  EXPECT_EQ(records[0].probe, 80u);
}

TEST_F(OSSHIPCPrivateMemoryTest, NullAndRecordsThatAreTooOldAreRefused) {
  EXPECT_EQ(memory_.create(nullptr), ECF_INVALID_PARAMETER);
  param_.version = 20040701;
  EXPECT_EQ(memory_.create(&param_), ECF_INVALID_VERSION);
  param_.version = 20040702;
  param_.resID.version = 20040701;
  EXPECT_EQ(memory_.create(&param_), ECF_INVALID_VERSION);
  EXPECT_FALSE(memory_.isAttached());
  EXPECT_THAT(log_.records(), ElementsAre(nullRecord(Func::OSSHIPCPrivateMemory_create),
                                          oldRecord(Func::OSSHIPCPrivateMemory_create),
                                          oldRecord(Func::ossIPCGetResID)));
  param_.resID.version = 20040702;
  create();
}

// ---- Handing it over ----

TEST_F(OSSHIPCPrivateMemoryTest, ItsBytesAreAHandleInAnotherProcess) {
  create();
  std::strcpy(textOf(memory_), "from the creator");
  const TempDirectory dir;
  writeFile(dir.file("handle"), {reinterpret_cast<const char*>(&memory_), sizeof memory_});
  EXPECT_EQ(runChild("attachPrivateMemory", {dir.file("handle")}), 0u);
  EXPECT_STREQ(textOf(memory_), "from the other");
}

TEST_F(OSSHIPCPrivateMemoryTest, RemoteInitializationKeepsTheNameOnly) {
  create();
  OSSHIPCPrivateMemory copy = memory_;
  EXPECT_EQ(copy.remoteInitialization(), ECF_OK);
  EXPECT_EQ(fieldsOfPrivate(copy).memory, kNoMemory);
  EXPECT_EQ(nameIn(copy), nameIn(memory_));

  void* const address = freeAddress();
  EXPECT_EQ(copy.attach(address), ECF_OK);
  void* told = nullptr;
  EXPECT_EQ(copy.getAddress(&told), ECF_OK);
  EXPECT_EQ(told, address);
  uint64_t size = 0;
  EXPECT_EQ(copy.getMemorySize(&size), ECF_OK);
  EXPECT_EQ(size, kPage);
  EXPECT_EQ(copy.detachAndDestroy(), ECF_OK);
}

TEST_F(OSSHIPCPrivateMemoryTest, RemoteInitializationEndsAnOverlongName) {
  PrivateFields fields = {kNoMemory, {}};
  std::memset(fields.resID.name, 'n', sizeof fields.resID.name);
  OSSHIPCPrivateMemory copy;
  std::memcpy(static_cast<void*>(&copy), &fields, sizeof copy);
  EXPECT_EQ(copy.remoteInitialization(), ECF_OK);
  EXPECT_EQ(nameIn(copy), std::string(263, 'n'));
}

TEST_F(OSSHIPCPrivateMemoryTest, AHandleThatWasNeverCreatedHasNothingToAttach) {
  EXPECT_EQ(memory_.remoteInitialization(), ECF_MEM_DOESNT_EXIST);
  EXPECT_EQ(memory_.attach(nullptr), ECF_MEM_DOESNT_EXIST);
  EXPECT_EQ(memory_.destroy(), ECF_OK);
  const std::vector<LogRecord> records = log_.records();
  ASSERT_EQ(records.size(), 3u);
  EXPECT_EQ(static_cast<const LogEvidence&>(records[0]),
            FoundRecord(OSS_LOG_INFO, Func::OSSHIPCPrivateMemory_remoteInitialization, 100,
                        ECF_MEM_DOESNT_EXIST));
  EXPECT_EQ(records[1].function, "OSSHIPCMemory::attach");
  EXPECT_EQ(records[2].function, "OSSHIPCMemory::detach");
}

}  // namespace
