// The user of the process and its log-on session.
#include <cstdlib>

#include "harness/handles.h"
#include "sysinfo/osssysinfofixture.h"

using namespace osse_test;
using oss::Func;
using oss::SysCall;
using testing::ElementsAre;

namespace {

constexpr Func kName = Func::ossGetCurrentUserName;
constexpr Func kDisplay = Func::ossGetCurrentUserDisplay;
constexpr size_t kRoom = 300;

struct Answer {
  OSSErr rc;
  std::string buffer;  // all of it, of '#' where nothing is written

  bool operator==(const Answer&) const = default;
  friend void PrintTo(const Answer& answer, std::ostream* out) {
    *out << std::hex << answer.rc << ' ' << testing::PrintToString(answer.buffer);
  }
};

Answer written(const std::string& text, OSSErr rc = ECF_OK) {
  std::string buffer(kRoom, '#');
  buffer.replace(0, text.size() + 1, text.c_str(), text.size() + 1);
  return {rc, buffer};
}
Answer nothing(OSSErr rc) { return {rc, std::string(kRoom, '#')}; }

Answer ask(OSSErr (*operation)(const OSSUserParam*, char*), uint64_t size,
           uint64_t version = OSS_VERSION_CURRENT) {
  OSSUserParam param;
  param.version = version;
  param.size = size;
  param.reserved = kAllOnes;  // not read
  std::string buffer(kRoom, '#');
  const OSSErr rc = operation(&param, buffer.data());
  return {rc, buffer};
}

class User : public SysInfoTest {
 protected:
  void expectChecks(Func function, OSSErr (*operation)(const OSSUserParam*, char*)) {
    char buffer[kRoom];
    expectRecordChecks<OSSUserParam>(
        function, [&](const OSSUserParam* param) { return operation(param, buffer); });
    const OSSUserParam param;
    EXPECT_EQ(operation(&param, nullptr), ECF_INVALID_PARAMETER);
    EXPECT_THAT(log_.newRecords(), ElementsAre(nullRecord(function)));
  }
};

// ---- Name ----

TEST_F(User, TheNameIsThatOfTheEnvironment) {
  expectChecks(kName, ossGetCurrentUserName);
  const char* const name = std::getenv("USERNAME");
  ASSERT_NE(name, nullptr);
  const uint64_t needed = std::strlen(name) + 1;
  for (const uint64_t size : {uint64_t{kRoom}, needed})
    EXPECT_EQ(ask(ossGetCurrentUserName, size), written(name));
  for (const uint64_t version : kVersions)
    EXPECT_EQ(ask(ossGetCurrentUserName, kRoom, version), written(name)) << version;
}

TEST_F(User, ANameThatDoesNotFitIsRefusedWithBothSizes) {
  const auto needed = static_cast<DWORD>(std::strlen(std::getenv("USERNAME")) + 1);
  const uint64_t size = needed - 1;
  EXPECT_EQ(ask(ossGetCurrentUserName, size).rc, ECF_BUFFER_TOO_SMALL);
  EXPECT_THAT(log_.newRecords(),
              ElementsAre(SystemRecord(OSS_LOG_INFO, kName, 40, SysCall::GetUserNameA,
                                       ERROR_INSUFFICIENT_BUFFER, ECF_BUFFER_TOO_SMALL,
                                       {{2, Uint(needed)}, {3, Uint(size)}})));
}

TEST_F(User, ASizeOfMoreThan32BitsIsAllOnes) {
  for (const uint64_t size : {uint64_t{0xFFFFFFFF}, uint64_t{1} << 32, kAllOnes}) {
    ImportHook name("GetUserNameA", [](Call& call) {
      EXPECT_EQ(*call.argument<DWORD*>(1), 0xFFFFFFFFu);
      writeText(call.argument<char*>(0), "user");
      return TRUE;
    });
    EXPECT_EQ(ask(ossGetCurrentUserName, size), written("user"));
  }
}

// ---- Display ----

// Puts the process into a log-on session.
ImportHook inSession(DWORD session) {
  return ImportHook("GetTokenInformation", [session](Call& call) {
    EXPECT_EQ(call.argument<int>(1), 12);
    EXPECT_EQ(call.argument<DWORD>(3), 4u);
    std::memcpy(call.argument<void*>(2), &session, sizeof session);
    return TRUE;
  });
}

TEST_F(User, TheDisplayIsTheSessionOfTheProcess) {
  expectChecks(kDisplay, ossGetCurrentUserDisplay);
  DWORD session = 0;
  ASSERT_TRUE(::ProcessIdToSessionId(::GetCurrentProcessId(), &session));
  const size_t handles = openHandles();
  for (const uint64_t version : kVersions)
    EXPECT_EQ(ask(ossGetCurrentUserDisplay, kRoom, version), written(std::to_string(session)))
        << version;
  EXPECT_EQ(openHandles(), handles);
}

TEST_F(User, TheDisplayIsDecimalAndCutWhereItDoesNotFit) {
  {
    const ImportHook hook = inSession(0);
    EXPECT_EQ(ask(ossGetCurrentUserDisplay, kRoom), written("0"));
    EXPECT_EQ(ask(ossGetCurrentUserDisplay, 2), written("0"));
    EXPECT_EQ(ask(ossGetCurrentUserDisplay, 1), written(""));
    EXPECT_EQ(ask(ossGetCurrentUserDisplay, 0), nothing(ECF_OK));
  }
  {
    const ImportHook hook = inSession(65536);
    EXPECT_EQ(ask(ossGetCurrentUserDisplay, kRoom), written("65536"));
    EXPECT_EQ(ask(ossGetCurrentUserDisplay, kAllOnes), written("65536"));
    EXPECT_EQ(ask(ossGetCurrentUserDisplay, 4).buffer.substr(0, 5), std::string("655\0#", 5));
  }
  const ImportHook hook = inSession(0xFFFFFFFF);
  EXPECT_EQ(ask(ossGetCurrentUserDisplay, kRoom), written("-1"));
}

TEST_F(User, ATokenThatIsRefusedLeavesNothingWritten) {
  {
    ImportHook asks("OpenProcessToken", [](Call& call) {
      EXPECT_EQ(call.argument<HANDLE>(0), ::GetCurrentProcess());
      EXPECT_EQ(call.argument<DWORD>(1), 0x20008u);
      return call.passOn();
    });
    EXPECT_EQ(ask(ossGetCurrentUserDisplay, kRoom).rc, ECF_OK);
  }
  FailingCall fails("OpenProcessToken", ERROR_ACCESS_DENIED);
  EXPECT_EQ(ask(ossGetCurrentUserDisplay, kRoom), nothing(ECF_ACCESS_DENIED));
  EXPECT_THAT(log_.newRecords(),
              ElementsAre(SystemRecord(OSS_LOG_INFO, kDisplay, 30, SysCall::OpenProcessToken,
                                       ERROR_ACCESS_DENIED, ECF_ACCESS_DENIED,
                                       {{2, Hex(DWORD{0x20008})}})));
}

// Remembers the token that is opened.
ImportHook remembering(HANDLE& token) {
  return ImportHook("OpenProcessToken", [&token](Call& call) {
    const Word result = call.passOn();
    token = *call.argument<HANDLE*>(2);
    return result;
  });
}

// Deliberate: the token stays open.
TEST_F(User, ASessionThatIsNotToldLosesTheToken) {
  HANDLE token = nullptr;
  {
    const ImportHook opens = remembering(token);
    FailingCall fails("GetTokenInformation", ERROR_INVALID_HANDLE);
    EXPECT_EQ(ask(ossGetCurrentUserDisplay, kRoom), nothing(ECF_INVALID_PARAMETER));
  }
  EXPECT_TRUE(isOpen(token));
  EXPECT_TRUE(::CloseHandle(token));
  EXPECT_THAT(
      log_.newRecords(),
      ElementsAre(SystemRecord(OSS_LOG_INFO, kDisplay, 40, SysCall::GetTokenInformation,
                               ERROR_INVALID_HANDLE, ECF_INVALID_PARAMETER, {{1, Hex(token)}})));
}

TEST_F(User, ATokenThatDoesNotCloseLeavesTheTextWritten) {
  HANDLE token = nullptr;
  {
    const ImportHook session = inSession(3);
    const ImportHook opens = remembering(token);
    FailingCall fails("CloseHandle", ERROR_INVALID_HANDLE);
    EXPECT_EQ(ask(ossGetCurrentUserDisplay, kRoom), written("3", ECF_INVALID_PARAMETER));
  }
  EXPECT_TRUE(::CloseHandle(token));
  EXPECT_THAT(
      log_.newRecords(),
      ElementsAre(SystemRecord(OSS_LOG_INFO, kDisplay, 50, SysCall::CloseHandle,
                               ERROR_INVALID_HANDLE, ECF_INVALID_PARAMETER, {{1, Hex(token)}})));
}

}  // namespace
