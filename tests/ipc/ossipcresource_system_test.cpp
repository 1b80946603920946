// Identifiers of shared objects. What a name is made of is tested in ossipcname_test.cpp.
#include <limits>

#include "harness/twopages.h"
#include "ipc/ossipcfixture.h"

using namespace osse_test;
using namespace testing;
using oss::Func;

namespace {

constexpr uint64_t kOldest = 20040702;
constexpr uint64_t kBeforeLocal = 0x09010002;
constexpr uint64_t kWithLocal = 0x09010003;
constexpr uint64_t kCurrent = 0x09010007;

// Terminal services in their single-session mode, which the machine may not have, for a scope.
class RemoteAdminMode {
 public:
  RemoteAdminMode() : was_(g_bRunningTerminalServiceRemoteAdminMode) {
    g_bRunningTerminalServiceRemoteAdminMode = 1;
  }
  ~RemoteAdminMode() { g_bRunningTerminalServiceRemoteAdminMode = was_; }
  RemoteAdminMode(const RemoteAdminMode&) = delete;
  RemoteAdminMode& operator=(const RemoteAdminMode&) = delete;

 private:
  const int32_t was_;
};

class IPCResourceTest : public Test {
 protected:
  IPCResourceTest() {
    in_.path = "C:\\data";
    in_.projectID = 7;
    std::memset(out_.name, kStale, sizeof out_.name);
  }

  std::string nameWith(uint64_t version, bool local) {
    in_.local = local;
    out_.version = version;
    EXPECT_EQ(ossIPCGetResID(&in_, &out_), ECF_OK);
    EXPECT_EQ(out_.version, version);
    return out_.name;
  }

  static constexpr char kStale = '\x5A';
  LogCapture log_;
  OSSIPCGetResIDParam in_;
  OSSIPCResID out_;
  OSSIPCQueResID queue_;
};

using IPCQueueResourceTest = IPCResourceTest;

// ---- Records ----

TEST_F(IPCResourceTest, RecordsAreConstructedCurrentAndEmpty) {
  const auto isZeroBehindVersion = [](const auto& record) {
    const char* const bytes = reinterpret_cast<const char*>(&record);
    return record.version == kCurrent &&
           std::string(bytes + 8, sizeof record - 8) == std::string(sizeof record - 8, '\0');
  };
  EXPECT_TRUE(isZeroBehindVersion(OSSIPCGetResIDParam()));
  EXPECT_TRUE(isZeroBehindVersion(OSSIPCResID()));
  EXPECT_TRUE(isZeroBehindVersion(OSSIPCSecurityParam()));
  EXPECT_EQ(queue_.version, kCurrent);
  EXPECT_TRUE(isZeroBehindVersion(queue_.memory));
  EXPECT_TRUE(isZeroBehindVersion(queue_.dataSemaphore));
  EXPECT_TRUE(isZeroBehindVersion(queue_.spaceSemaphore));
}

// ---- One name ----

TEST_F(IPCResourceTest, FormsTheNameAndNothingBehindIt) {
  EXPECT_EQ(ossIPCGetResID(&in_, &out_), ECF_OK);
  const std::string expected = std::string("OSSEIPC7Cdata\0", 14) + std::string(250, kStale);
  EXPECT_EQ(std::string(out_.name, sizeof out_.name), expected);
  EXPECT_THAT(log_.records(), IsEmpty());
}

TEST_F(IPCResourceTest, ANullPathGivesTheEmptyName) {
  in_.path = nullptr;
  EXPECT_EQ(ossIPCGetResID(&in_, &out_), ECF_OK);
  const std::string expected = std::string(1, '\0') + std::string(263, kStale);
  EXPECT_EQ(std::string(out_.name, sizeof out_.name), expected);
}

TEST_F(IPCResourceTest, ANameIsCutWithoutAWord) {
  const std::string path(300, 'p');
  in_.path = path.c_str();
  EXPECT_EQ(ossIPCGetResID(&in_, &out_), ECF_OK);
  EXPECT_EQ(std::string(out_.name), "OSSEIPC7" + std::string(253, 'p'));
  EXPECT_THAT(log_.records(), IsEmpty());
}

TEST_F(IPCResourceTest, TheSpareIsNotPartOfTheName) {
  in_.spare = 0x12345678;
  EXPECT_EQ(ossIPCGetResID(&in_, &out_), ECF_OK);
  EXPECT_STREQ(out_.name, "OSSEIPC7Cdata");
}

TEST_F(IPCResourceTest, LocalChangesNothingWithoutTerminalServices) {
  ASSERT_EQ(g_bRunningTerminalServiceRemoteAdminMode, 0);
  for (const bool local : {false, true}) EXPECT_EQ(nameWith(kCurrent, local), "OSSEIPC7Cdata");
}

// Deliberate: an identifier that is older than the flag does not know of it.
TEST_F(IPCResourceTest, LocalCountsFromTheVersionOfTheIdentifierThatKnowsIt) {
  const RemoteAdminMode mode;
  for (const uint64_t version : {kOldest, kBeforeLocal, kWithLocal, kCurrent})
    EXPECT_EQ(nameWith(version, false), "Global\\OSSEIPC7Cdata") << version;
  for (const uint64_t version : {kOldest, kBeforeLocal})
    EXPECT_EQ(nameWith(version, true), "Global\\OSSEIPC7Cdata") << version;
  for (const uint64_t version : {kWithLocal, kCurrent, ~uint64_t{0}})
    EXPECT_EQ(nameWith(version, true), "OSSEIPC7Cdata") << version;
}

// A caller from before the flag has records that end in front of it.
TEST_F(IPCResourceTest, AnOldRecordIsNotReadBeyondItsEnd) {
  constexpr size_t kOldBytes = offsetof(OSSIPCGetResIDParam, local);
  const TwoPages pages(PAGE_NOACCESS);
  void* const old = pages.second() - kOldBytes;
  std::memcpy(old, &in_, kOldBytes);
  out_.version = kBeforeLocal;
  EXPECT_EQ(ossIPCGetResID(static_cast<OSSIPCGetResIDParam*>(old), &out_), ECF_OK);
  EXPECT_STREQ(out_.name, "OSSEIPC7Cdata");
}

// Deliberate: that of the identifier is.
TEST_F(IPCResourceTest, TheVersionOfTheParameterIsNotExamined) {
  const RemoteAdminMode mode;
  for (const uint64_t version : {uint64_t{0}, kTooOld, kBeforeLocal}) {
    in_.version = version;
    EXPECT_EQ(nameWith(kCurrent, true), "OSSEIPC7Cdata");
  }
}

TEST_F(IPCResourceTest, NullIsRefused) {
  EXPECT_EQ(ossIPCGetResID(&in_, nullptr), ECF_INVALID_PARAMETER);
  EXPECT_EQ(ossIPCGetResID(nullptr, &out_), ECF_INVALID_PARAMETER);
  EXPECT_EQ(ossIPCGetResID(nullptr, nullptr), ECF_INVALID_PARAMETER);
  const LogEvidence refusal = nullRecord(Func::ossIPCGetResID);
  EXPECT_THAT(log_.records(), ElementsAre(refusal, refusal, refusal));
  EXPECT_EQ(std::string(out_.name, sizeof out_.name), std::string(264, kStale));
}

TEST_F(IPCResourceTest, AnIdentifierThatIsTooOldIsRefused) {
  out_.version = kTooOld;
  EXPECT_EQ(ossIPCGetResID(&in_, &out_), ECF_INVALID_VERSION);
  EXPECT_EQ(ossIPCGetResID(nullptr, &out_), ECF_INVALID_VERSION);
  const LogEvidence refusal = oldRecord(Func::ossIPCGetResID);
  EXPECT_THAT(log_.records(), ElementsAre(refusal, refusal));
  EXPECT_EQ(std::string(out_.name, sizeof out_.name), std::string(264, kStale));
}

// ---- A queue's names ----

TEST_F(IPCQueueResourceTest, HaveThreeNumbersInARow) {
  EXPECT_EQ(ossIPCGetQueResID(&in_, &queue_), ECF_OK);
  EXPECT_STREQ(queue_.memory.name, "OSSEIPC7Cdata");
  EXPECT_STREQ(queue_.dataSemaphore.name, "OSSEIPC8Cdata");
  EXPECT_STREQ(queue_.spaceSemaphore.name, "OSSEIPC9Cdata");
  EXPECT_THAT(log_.records(), IsEmpty());
}

TEST_F(IPCQueueResourceTest, CrossZeroAndWrapBehindTheGreatestNumber) {
  in_.projectID = -2;
  EXPECT_EQ(ossIPCGetQueResID(&in_, &queue_), ECF_OK);
  EXPECT_STREQ(queue_.memory.name, "OSSEIPC-2Cdata");
  EXPECT_STREQ(queue_.spaceSemaphore.name, "OSSEIPC0Cdata");

  in_.projectID = std::numeric_limits<int32_t>::max();
  EXPECT_EQ(ossIPCGetQueResID(&in_, &queue_), ECF_OK);
  EXPECT_STREQ(queue_.memory.name, "OSSEIPC2147483647Cdata");
  EXPECT_STREQ(queue_.dataSemaphore.name, "OSSEIPC-2147483648Cdata");
  EXPECT_STREQ(queue_.spaceSemaphore.name, "OSSEIPC-2147483647Cdata");
}

// Deliberate: the second and the third follow the platform.
TEST_F(IPCQueueResourceTest, AreLocalInTheFirstOnly) {
  const RemoteAdminMode mode;
  in_.local = true;
  EXPECT_EQ(ossIPCGetQueResID(&in_, &queue_), ECF_OK);
  EXPECT_STREQ(queue_.memory.name, "OSSEIPC7Cdata");
  EXPECT_STREQ(queue_.dataSemaphore.name, "Global\\OSSEIPC8Cdata");
  EXPECT_STREQ(queue_.spaceSemaphore.name, "Global\\OSSEIPC9Cdata");
}

TEST_F(IPCQueueResourceTest, AreEmptyWithoutAPath) {
  in_.path = nullptr;
  queue_.memory.name[0] = queue_.dataSemaphore.name[0] = queue_.spaceSemaphore.name[0] = kStale;
  EXPECT_EQ(ossIPCGetQueResID(&in_, &queue_), ECF_OK);
  EXPECT_STREQ(queue_.memory.name, "");
  EXPECT_STREQ(queue_.dataSemaphore.name, "");
  EXPECT_STREQ(queue_.spaceSemaphore.name, "");
}

TEST_F(IPCQueueResourceTest, NullAndARecordThatIsTooOldAreRefused) {
  EXPECT_EQ(ossIPCGetQueResID(&in_, nullptr), ECF_INVALID_PARAMETER);
  EXPECT_EQ(ossIPCGetQueResID(nullptr, &queue_), ECF_INVALID_PARAMETER);
  queue_.version = kTooOld;
  EXPECT_EQ(ossIPCGetQueResID(&in_, &queue_), ECF_INVALID_VERSION);
  const LogEvidence null = nullRecord(Func::ossIPCGetQueResID);
  const LogEvidence old = oldRecord(Func::ossIPCGetQueResID);
  EXPECT_THAT(log_.records(), ElementsAre(null, null, old));
  EXPECT_STREQ(queue_.memory.name, "");

  queue_.version = kOldest;
  EXPECT_EQ(ossIPCGetQueResID(&in_, &queue_), ECF_OK);
}

// The identifier's own operation logs it; traces show the queue's probe.
TEST_F(IPCQueueResourceTest, AFailureLeavesTheNamesBeforeItFormed) {
  const LogEvidence old = oldRecord(Func::ossIPCGetResID);
  queue_.spaceSemaphore.version = kTooOld;
  EXPECT_EQ(ossIPCGetQueResID(&in_, &queue_), ECF_INVALID_VERSION);
  EXPECT_STREQ(queue_.memory.name, "OSSEIPC7Cdata");
  EXPECT_STREQ(queue_.dataSemaphore.name, "OSSEIPC8Cdata");
  EXPECT_STREQ(queue_.spaceSemaphore.name, "");

  queue_ = {};
  queue_.dataSemaphore.version = kTooOld;
  EXPECT_EQ(ossIPCGetQueResID(&in_, &queue_), ECF_INVALID_VERSION);
  EXPECT_STREQ(queue_.memory.name, "OSSEIPC7Cdata");
  EXPECT_STREQ(queue_.dataSemaphore.name, "");
  EXPECT_STREQ(queue_.spaceSemaphore.name, "");

  queue_ = {};
  queue_.memory.version = kTooOld;
  EXPECT_EQ(ossIPCGetQueResID(&in_, &queue_), ECF_INVALID_VERSION);
  EXPECT_STREQ(queue_.memory.name, "");
  EXPECT_STREQ(queue_.dataSemaphore.name, "");
  EXPECT_THAT(log_.records(), ElementsAre(old, old, old));
}

// ---- The seed ----

TEST_F(IPCResourceTest, ASeedIsNotSupported) {
  EXPECT_EQ(ossIPCGenerateSeed(), ECF_NOT_SUPPORTED);
  EXPECT_EQ(ossIPCGenerateSeed("path", 1), ECF_NOT_SUPPORTED);
  EXPECT_THAT(log_.records(), IsEmpty());
}

}  // namespace
