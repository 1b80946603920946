// The log from the inside: what happens while a record is being written, and what the facility
// holds before and after.
#include "osslog.h"

#include <gmock/gmock.h>

#include <functional>
#include <thread>

#include "harness/importhook.h"
#include "ossprocess.h"
#include "tests/log/osslogfixture.h"

namespace oss {
namespace {

using log_test::kFunction;
using log_test::LogTest;
using log_test::paramFor;
using log_test::probesOf;
using log_test::writeRecord;
using osse_test::Call;
using osse_test::ImportHook;
using testing::ElementsAre;
using testing::IsEmpty;

// What the level hook does; a hook is a plain function.
std::function<void(uint64_t*)> g_onLevel;
void levelHook(uint64_t* level) { g_onLevel(level); }

class LogHookTest : public LogTest {
 protected:
  LogHookTest() { ossLogSetLevelHook(&levelHook); }
  ~LogHookTest() override { g_onLevel = nullptr; }
};

// ---- The level hook ----

TEST_F(LogHookTest, SetsTheLevelOfTheFacilityBeforeTheRecordIsFiltered) {
  g_onLevel = [](uint64_t* level) { *level = OSS_LOG_ERROR; };

  EXPECT_EQ(write(10, OSS_LOG_INFO), ECF_OK);
  EXPECT_EQ(facility_.level, OSS_LOG_ERROR);
  EXPECT_EQ(write(20, OSS_LOG_ERROR), ECF_OK);
  EXPECT_THAT(probes(), ElementsAre(20));
}

TEST_F(LogHookTest, IsAskedForEveryRecordAlsoForOneThatIsFiltered) {
  int asked = 0;
  g_onLevel = [&](uint64_t*) { ++asked; };

  EXPECT_EQ(write(10, 0), ECF_OK);
  EXPECT_EQ(write(20, OSS_LOG_SEVERE), ECF_OK);
  EXPECT_EQ(asked, 2);
}

TEST_F(LogHookTest, FindsTheLevelThatTheFacilityHas) {
  uint64_t found = 0;
  g_onLevel = [&](uint64_t* level) { found = *level; };
  EXPECT_EQ(ossLogFacSetLevel(&facility_, 17), ECF_OK);

  EXPECT_EQ(write(10), ECF_OK);
  EXPECT_EQ(found, 17U);
  EXPECT_EQ(facility_.level, 17U);
}

TEST_F(LogHookTest, ASetLevelStaysWhenTheHookIsRemoved) {
  g_onLevel = [](uint64_t* level) { *level = OSS_LOG_SEVERE; };
  EXPECT_EQ(write(10, OSS_LOG_ERROR), ECF_OK);
  ossLogSetLevelHook(nullptr);

  EXPECT_EQ(write(20, OSS_LOG_ERROR), ECF_OK);
  EXPECT_EQ(write(30, OSS_LOG_SEVERE), ECF_OK);
  EXPECT_THAT(probes(), ElementsAre(30));
}

TEST_F(LogHookTest, IsNotAskedWhenTheFacilityIsClosed) {
  g_onLevel = [](uint64_t*) { ADD_FAILURE() << "asked"; };
  EXPECT_EQ(ossLogFacClose(&facility_), ECF_OK);

  EXPECT_EQ(write(10), ECF_INVALID_PARAMETER);
}

TEST_F(LogHookTest, RunsInsideTheLatchUnderTheWritersName) {
  g_onLevel = [&](uint64_t*) {
    EXPECT_EQ(facility_.latch, 0x80U);
    EXPECT_EQ(facility_.writerThread, ossThreadID());
  };

  EXPECT_EQ(write(10), ECF_OK);
  expectFree();
}

// ---- One record at a time ----

// Deliberate: the inner records are lost without a word.
TEST_F(LogHookTest, ARecordMadeWhileOneIsBeingWrittenIsDroppedWithSuccess) {
  g_onLevel = [&](uint64_t*) {
    EXPECT_EQ(write(20), ECF_OK);
    EXPECT_EQ(ossLogRC(&facility_, kFunction, kFunction, ECF_FAILED, 0, 21, OSS_LOG_SEVERE, 0),
              ECF_OK);
    EXPECT_EQ(ossLogSysRC(&facility_, kFunction, 0x08140069, 6, 0, 22, OSS_LOG_EVENT, 0), ECF_OK);
  };

  EXPECT_EQ(write(10), ECF_OK);
  EXPECT_THAT(probes(), ElementsAre(10));
}

TEST_F(LogHookTest, ARecordForAnotherFacilityIsDroppedAsWell) {
  OSSLogFacility other;
  const std::string otherPath = path_ + "2";
  open(other, paramFor(otherPath));
  g_onLevel = [&](uint64_t*) { EXPECT_EQ(writeRecord(&other, 20), ECF_OK); };

  EXPECT_EQ(write(10), ECF_OK);
  EXPECT_THAT(dir_.names(), ElementsAre("oss.log"));
}

TEST_F(LogHookTest, ARecordForAClosedFacilityIsDroppedAndNotRefused) {
  OSSLogFacility closed;
  g_onLevel = [&](uint64_t*) { EXPECT_EQ(writeRecord(&closed, 20), ECF_OK); };

  EXPECT_EQ(write(10), ECF_OK);
}

// The other thread does not wait for the latch, or this test would not end.
TEST_F(LogHookTest, ARecordOfAnotherThreadIsDroppedAtOnce) {
  g_onLevel = [&](uint64_t*) {
    OSSErr rc = ECF_FAILED;
    std::thread other([&] { rc = write(20); });
    other.join();
    EXPECT_EQ(rc, ECF_OK);
  };

  EXPECT_EQ(write(10), ECF_OK);
  EXPECT_THAT(probes(), ElementsAre(10));
}

TEST_F(LogHookTest, WrongArgumentsAreRefusedEvenWhileARecordIsBeingWritten) {
  g_onLevel = [&](uint64_t*) {
    EXPECT_EQ(ossLog(&facility_, kFunction, 0, 20, OSS_LOG_INFO, -1), ECF_INVALID_PARAMETER);
    EXPECT_EQ(ossLogRC(&facility_, kFunction, kFunction, 0, 0, 20, OSS_LOG_INFO, 1),
              ECF_INVALID_PARAMETER);
    EXPECT_EQ(ossLogSysRC(&facility_, kFunction, 0, 0, 0, 20, OSS_LOG_INFO, 1),
              ECF_INVALID_PARAMETER);
  };

  EXPECT_EQ(write(10), ECF_OK);
}

TEST_F(LogHookTest, TheNextRecordIsWrittenAgain) {
  g_onLevel = [&](uint64_t*) { EXPECT_EQ(write(99), ECF_OK); };
  for (const uint64_t probe : {10U, 20U, 30U}) EXPECT_EQ(write(probe), ECF_OK);

  EXPECT_THAT(probes(), ElementsAre(10, 20, 30));
}

// Were the thread to go on, it would wait for a latch that it holds itself.
TEST_F(LogTest, ARecordOfTheThreadThatHoldsTheLatchIsDropped) {
  facility_.latch = 0x80;
  facility_.writerThread = ossThreadID();

  EXPECT_EQ(write(10), ECF_OK);
  EXPECT_EQ(facility_.latch, 0x80U);
  EXPECT_EQ(text(), "");
}

// A refused record must not silence the log.
TEST_F(LogTest, ARefusedRecordLeavesNothingBehind) {
  OSSLogFacility closed;
  EXPECT_EQ(writeRecord(&closed, 10), ECF_INVALID_PARAMETER);
  EXPECT_EQ(write(20, 0), ECF_OK);
  facility_.destination = 3;
  EXPECT_EQ(write(30), ECF_INVALID_PARAMETER);
  expectFree();

  facility_.destination = OSS_LOG_TO_FILE;
  EXPECT_EQ(write(40), ECF_OK);
  EXPECT_THAT(probes(), ElementsAre(40));
}

TEST_F(LogTest, OneTwoAndFourAreTheOnlyDestinations) {
  for (const uint64_t destination :
       {uint64_t{0}, uint64_t{3}, uint64_t{5}, uint64_t{8}, uint64_t{1} << 32 | OSS_LOG_TO_FILE}) {
    facility_.destination = destination;
    EXPECT_EQ(write(10), ECF_INVALID_PARAMETER) << destination;
    EXPECT_EQ(write(10, 0), ECF_OK) << "filtered before " << destination;
  }
}

// ---- The latch ----

// The conflict wait sleeps; whoever holds the latch lets go meanwhile.
class HeldLatchTest : public LogTest {
 protected:
  HeldLatchTest() { facility_.latch = 0x80; }

  ImportHook sleep_{"Sleep", [this](Call&) { facility_.latch = 0; }};
};

TEST_F(HeldLatchTest, ARecordWaitsForIt) {
  EXPECT_EQ(write(10), ECF_OK);
  EXPECT_THAT(probes(), ElementsAre(10));
  expectFree();
}

TEST_F(HeldLatchTest, AChangeOfLevelWaitsForIt) {
  EXPECT_EQ(ossLogFacSetLevel(&facility_, OSS_LOG_SEVERE), ECF_OK);
  EXPECT_EQ(facility_.level, OSS_LOG_SEVERE);
  expectFree();
}

TEST_F(HeldLatchTest, CloseWaitsForIt) {
  EXPECT_EQ(ossLogFacClose(&facility_), ECF_OK);
  EXPECT_EQ(facility_.open, 0U);
  expectFree();
}

TEST_F(LogTest, OpenMakesTheLatchNewInsteadOfWaitingForIt) {
  facility_.latch = 0x80;
  open(facility_, paramFor(path_));
  expectFree();
}

TEST_F(LogTest, AClosedFacilityRefusesALevelWithoutItsLatch) {
  EXPECT_EQ(ossLogFacClose(&facility_), ECF_OK);
  facility_.latch = 0x80;
  EXPECT_EQ(ossLogFacSetLevel(&facility_, OSS_LOG_SEVERE), ECF_INVALID_PARAMETER);
  EXPECT_EQ(facility_.latch, 0x80U);
}

// ---- The facility ----

TEST_F(LogTest, OpenCopiesEverySetting) {
  OSSLogFacOpenParam param = paramFor("C:\\some\\path", OSS_LOG_WARNING, OSS_LOG_TO_STDERR);
  param.fileMode = 0644;
  OSSLogFacility facility;
  open(facility, param);

  EXPECT_STREQ(facility.path, "C:\\some\\path");
  EXPECT_STREQ(facility.name, "OSSe test");
  EXPECT_EQ(facility.level, OSS_LOG_WARNING);
  EXPECT_EQ(facility.destination, OSS_LOG_TO_STDERR);
  EXPECT_EQ(facility.fileMode, 0644U);
  EXPECT_EQ(facility.open, 1U);
}

TEST_F(LogTest, OpenCutsAPathAt260AndANameAt50Characters) {
  OSSLogFacOpenParam param = paramFor("");
  std::memset(param.path, 'p', sizeof param.path);
  std::memset(param.name, 'n', sizeof param.name);
  OSSLogFacility facility;
  open(facility, param);

  EXPECT_EQ(std::string(facility.path, sizeof facility.path), std::string(260, 'p') + '\0');
  EXPECT_EQ(std::string(facility.name, sizeof facility.name), std::string(50, 'n') + '\0');
}

TEST_F(LogTest, CloseKeepsTheSettings) {
  EXPECT_EQ(ossLogFacClose(&facility_), ECF_OK);
  EXPECT_EQ(facility_.open, 0U);
  EXPECT_EQ(facility_.path, path_);
  EXPECT_EQ(facility_.level, OSS_LOG_INFO);
}

TEST_F(LogTest, SetLevelStoresAnyLevel) {
  for (const uint64_t level : {uint64_t{0}, uint64_t{5}, uint64_t{6}, ~uint64_t{0}}) {
    EXPECT_EQ(ossLogFacSetLevel(&facility_, level), ECF_OK);
    EXPECT_EQ(facility_.level, level);
  }
}

TEST(DefaultLogFacility, IsAllZeroAtFirstAndSoClosed) {
  const OSSLogFacility zero;
  EXPECT_EQ(std::memcmp(&defaultLogFacility(), &zero, sizeof zero), 0);
  EXPECT_EQ(writeRecord(nullptr, 10), ECF_INVALID_PARAMETER);
  EXPECT_EQ(ossLogFacSetLevel(nullptr, OSS_LOG_INFO), ECF_INVALID_PARAMETER);
  EXPECT_EQ(ossLogFacClose(nullptr), ECF_OK);
}

TEST_F(LogTest, ANullFacilityIsTheDefaultOne) {
  const std::string path = path_ + "2";
  const OSSLogFacOpenParam param = paramFor(path, OSS_LOG_ERROR);
  EXPECT_EQ(ossLogFacOpen(&param, nullptr), ECF_OK);
  EXPECT_EQ(defaultLogFacility().path, path);
  EXPECT_EQ(ossLogFacSetLevel(nullptr, OSS_LOG_INFO), ECF_OK);
  EXPECT_EQ(defaultLogFacility().level, OSS_LOG_INFO);

  EXPECT_EQ(writeRecord(nullptr, 10), ECF_OK);
  EXPECT_EQ(writeRecord(&defaultLogFacility(), 20), ECF_OK);
  EXPECT_EQ(ossLogFacClose(nullptr), ECF_OK);
  EXPECT_EQ(writeRecord(nullptr, 30), ECF_INVALID_PARAMETER);
  EXPECT_THAT(probesOf(osse_test::readFile(path)), ElementsAre(10, 20));
  EXPECT_EQ(text(), "");
}

// ---- The record letter ----

TEST_F(LogTest, TheLetterBetweenOffsetAndLengthIsFUnlessSetOtherwise) {
  EXPECT_EQ(logRecordLetter(), 'F');
  EXPECT_EQ(write(10), ECF_OK);
  ossLogSetRecordLetter('X');
  EXPECT_EQ(write(20), ECF_OK);
  ossLogSetRecordLetter('\0');
  EXPECT_EQ(write(30), ECF_OK);

  const std::string log = text();
  const size_t second = log.find("\r\n", log.find("probe:10")) + 2;
  const size_t third = log.find("\r\n", log.find("probe:20")) + 2;
  EXPECT_EQ(log.substr(33, 3), "I2F");
  EXPECT_EQ(log.substr(second + 33, 5), "I" + std::to_string(second + 2) + "X");
  EXPECT_EQ(log.substr(third + 33, 5), "I" + std::to_string(third + 2) + "F");
}

// ---- The clock ----

// A day in local time and in UTC, as the C run-time breaks it down.
tm timeOfDay(int hour, int minute) {
  tm time = {};
  time.tm_hour = hour;
  time.tm_min = minute;
  return time;
}

TEST_F(LogTest, ARecordCarriesTheLocalTimeAndItsOffset) {
  tm local = timeOfDay(1, 30), utc = timeOfDay(20, 0);
  ImportHook clock("GetLocalTime", [](Call& call) {
    *call.argument<SYSTEMTIME*>(0) = {.wYear = 2031,
                                      .wMonth = 12,
                                      .wDayOfWeek = 3,
                                      .wDay = 9,
                                      .wHour = 1,
                                      .wMinute = 30,
                                      .wSecond = 59,
                                      .wMilliseconds = 7};
  });
  ImportHook localTime("_localtime64", [&](Call&) { return &local; });
  ImportHook utcTime("_gmtime64", [&](Call&) { return &utc; });

  EXPECT_EQ(write(10), ECF_OK);
  EXPECT_EQ(text().substr(0, 33), "\r\n2031-12-09-01.30.59.007000+330 ");
}

TEST_F(LogTest, BothTimesOfTheOffsetAreOfOneMoment) {
  std::vector<int64_t> moments;
  tm noon = timeOfDay(12, 0);
  const auto noting = [&](Call& call) {
    moments.push_back(*call.argument<const int64_t*>(0));
    return &noon;
  };
  ImportHook localTime("_localtime64", noting);
  ImportHook utcTime("_gmtime64", noting);

  EXPECT_EQ(write(10), ECF_OK);
  ASSERT_EQ(moments.size(), 2U);
  EXPECT_EQ(moments[0], moments[1]);
}

}  // namespace
}  // namespace oss
