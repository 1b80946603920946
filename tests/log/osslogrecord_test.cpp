// The lines of a record that name its event: header, MESSAGE, CALLED and RETCODE, and the place of
// the record in its file.
#include "log/osslogrecord.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>

#include "osscatalog.h"
#include "tests/log/osslogrecord_text.h"

namespace oss {
namespace {

using record_text::compose;
using record_text::kEvent;
using record_text::kHeader;
using record_text::kStamp;

constexpr uint32_t kMost32 = std::numeric_limits<uint32_t>::max();
constexpr uint64_t kMost64 = std::numeric_limits<uint64_t>::max();

// Line n of a record; line 0 is the empty one that every record starts with.
std::string lineOf(const std::string& text, int number) {
  size_t start = 0;
  for (; number > 0; --number) start = text.find("\r\n", start) + 2;
  return text.substr(start, text.find("\r\n", start) - start);
}

LogEvent systemEvent(uint32_t call, uint64_t error) {
  return {.funcId = 0x081A0002,
          .messageCode = 0,
          .probe = 280,
          .level = OSS_LOG_INFO,
          .called = LogEvent::Called::System,
          .calledFuncId = call,
          .sysError = error};
}

LogEvent functionEvent(uint32_t function, OSSErr rc) {
  return {.funcId = 0x081A0002,
          .messageCode = 0,
          .probe = 280,
          .level = OSS_LOG_INFO,
          .called = LogEvent::Called::Function,
          .calledFuncId = function,
          .calledRC = rc};
}

// ---- Header ----

TEST(LogRecord, OfABareEventIsAnEmptyLineAndThreeLines) { EXPECT_EQ(compose(kEvent), kHeader); }

TEST(LogRecord, KeepsItsColumns) {
  const std::string text = compose(kEvent);
  EXPECT_EQ(text.substr(0, 2), "\r\n");
  EXPECT_EQ(text.substr(2, 26), "2026-03-07-08.05.09.042000");
  EXPECT_EQ(text.substr(28, 4), "+060");
  EXPECT_EQ(text.substr(32, 20), std::string(20, ' '));
  EXPECT_EQ(text.substr(52, 11), "LEVEL: Info");
}

TEST(LogRecord, NamesItsLevel) {
  const char* const names[] = {"Unknown", "Severe", "Error", "Warning", "Info", "Event", "Unknown"};
  for (uint64_t level = 0; level < std::size(names); ++level) {
    LogEvent event = kEvent;
    event.level = level;
    EXPECT_EQ(lineOf(compose(event), 1).substr(50), std::string("LEVEL: ") + names[level]);
  }
  for (const uint64_t level : {uint64_t{1} << 32 | 4, kMost64}) {
    LogEvent event = kEvent;
    event.level = level;
    EXPECT_EQ(lineOf(compose(event), 1).substr(50), "LEVEL: Unknown");
  }
}

TEST(LogRecord, MarksTheLevelOfAFailedSystemCallOnly) {
  EXPECT_EQ(lineOf(compose(systemEvent(0x08140069, 6)), 1).substr(50), "LEVEL: Info (OS)");
  EXPECT_EQ(lineOf(compose(functionEvent(0x081A0003, 0)), 1).substr(50), "LEVEL: Info");
}

TEST(LogRecord, ShowsMillisecondsAsMicrosecondsThatEndInThreeZeros) {
  LogStamp stamp = kStamp;
  stamp.millisecond = 0;
  EXPECT_EQ(compose(kEvent, {}, stamp).substr(2, 26), "2026-03-07-08.05.09.000000");
  stamp.millisecond = 999;
  EXPECT_EQ(compose(kEvent, {}, stamp).substr(2, 26), "2026-03-07-08.05.09.999000");
}

TEST(LogRecord, CutsATimeStampThatIsTooLong) {
  LogStamp stamp = kStamp;
  stamp.year = 65'535;
  stamp.millisecond = 65'535;
  EXPECT_EQ(compose(kEvent, {}, stamp).substr(2, 30), "65535-03-07-08.05.09.65535+060");
}

TEST(LogRecord, ShowsTheZoneInASignAndThreeDigits) {
  struct Row {
    int32_t minutes;
    const char* text;
  };
  constexpr Row kRows[] = {
      {0, "+000"},    {60, "+060"},    {-300, "-300"},  {330, "+330"},
      {-5, "-005"},   {720, "+720"},   {-719, "-719"},  {-675, "-675"},
      {1000, "+100"}, {-1234, "-123"}, {99999, "+999"},
  };
  for (const Row& row : kRows) {
    LogStamp stamp = kStamp;
    stamp.zoneMinutes = row.minutes;
    EXPECT_EQ(compose(kEvent, {}, stamp).substr(28, 24), row.text + std::string(20, ' '));
  }
}

TEST(LogRecord, ShowsProcessAndThreadInFullWidth) {
  LogStamp stamp = kStamp;
  stamp.processId = kMost32;
  stamp.threadId = kMost64;
  EXPECT_EQ(lineOf(compose(kEvent, {}, stamp), 2),
            "PID     : 4294967295           TID : 18446744073709551615");
  stamp.processId = 0;
  stamp.threadId = 0;
  EXPECT_EQ(lineOf(compose(kEvent, {}, stamp), 2), "PID     : 0                    TID : 0");
}

std::string functionLine(uint32_t funcId, uint64_t probe) {
  LogEvent event = kEvent;
  event.funcId = funcId;
  event.probe = probe;
  return lineOf(compose(event), 3);
}

TEST(LogRecord, NamesTheReportingFunctionAndTheProbe) {
  EXPECT_EQ(functionLine(0x081A0003, 20), "FUNCTION: common, OSSe, OSSHFile::close, probe:20");
  EXPECT_EQ(functionLine(0x08140069, 0),
            "FUNCTION: common, operating system, CloseHandle, probe:0");
  EXPECT_EQ(functionLine(0x081A0001, kMost64),
            "FUNCTION: common, OSSe, ossAssertFailed, probe:18446744073709551615");
}

TEST(LogRecord, LeavesNamesEmptyThatTheCatalogDoesNotHave) {
  EXPECT_EQ(functionLine(0, 1), "FUNCTION: , , , probe:1");
  EXPECT_EQ(functionLine(kMost32, 1), "FUNCTION: , , , probe:1");
  EXPECT_EQ(functionLine(0x081A00AE, 1), "FUNCTION: common, OSSe, , probe:1");
  EXPECT_EQ(functionLine(0x081A00AF, 1), "FUNCTION: common, OSSe, , probe:1");
  EXPECT_EQ(functionLine(0x08000001, 1), "FUNCTION: common, , , probe:1");
  EXPECT_EQ(functionLine(0x10080001, 1), "FUNCTION: tools, reserved, , probe:1");
}

TEST(LogRecord, CutsNamesAt40Characters) {
  EXPECT_EQ(functionLine(0x081A00A3, 1),
            "FUNCTION: common, OSSe, OSSHIPCPrivateMemory::remoteInitializati, probe:1");
  EXPECT_EQ(lineOf(compose(functionEvent(0x081A00A3, 0)), 4),
            "CALLED  : common, OSSe, OSSHIPCPrivateMemory::remoteInitializati");
}

// ---- MESSAGE ----

std::string messageLine(OSSErr code) {
  LogEvent event = kEvent;
  event.messageCode = code;
  const std::string text = compose(event);
  return text.starts_with(kHeader) ? text.substr(sizeof kHeader - 1) : text;
}

TEST(LogRecord, DescribesTheMessageCode) {
  EXPECT_EQ(messageLine(0x9000001A), "MESSAGE : ECF=0x9000001A File doesn't exist\r\n");
  EXPECT_EQ(messageLine(0x10000006),
            "MESSAGE : ECF=0x10000006 Only partial information available\r\n");
  EXPECT_EQ(messageLine(0x90000009), "MESSAGE : ECF=0x90000009 Reserved\r\n");
}

TEST(LogRecord, ShowsACodeWithoutADescriptionAlone) {
  EXPECT_EQ(messageLine(0x90000000), "MESSAGE : ECF=0x90000000 \r\n");
  EXPECT_EQ(messageLine(0x9000052B), "MESSAGE : ECF=0x9000052B \r\n");
  EXPECT_EQ(messageLine(0xA0000001), "MESSAGE : ECF=0xA0000001 \r\n");
  EXPECT_EQ(messageLine(1), "MESSAGE : ECF=0x1 \r\n");
}

TEST(LogRecord, HasNoMessageLineWithoutACode) { EXPECT_EQ(messageLine(0), ""); }

TEST(LogRecord, CutsDescriptionsAt128Characters) {
  const std::string cut =
      "The specified object is a mutex object that was not released by the thread that owned the "
      "mutex object before the owning thread ";
  ASSERT_EQ(cut.size(), 128U);
  EXPECT_EQ(messageLine(0x90000080), "MESSAGE : ECF=0x90000080 " + cut + "\r\n");
  EXPECT_EQ(lineOf(compose(functionEvent(0x081A0003, 0x90000080)), 5),
            "RETCODE : ECF=0x90000080 " + cut);
}

// ---- CALLED and OSERR ----

std::string calledLines(const LogEvent& event) {
  const std::string text = compose(event);
  const size_t at = text.find("CALLED");
  return at != std::string::npos ? text.substr(at) : "";
}

TEST(LogRecord, NamesAFailedSystemCallAndItsErrorFromColumn50) {
  EXPECT_EQ(calledLines(systemEvent(0x08140069, 6)),
            "CALLED  : OS, -, CloseHandle                      OSERR: ERROR_INVALID_FLAGS (6)\r\n");
}

TEST(LogRecord, ShowsAnErrorWithoutANameAsTheNumberAlone) {
  EXPECT_EQ(calledLines(systemEvent(0x08140069, 1455)),
            "CALLED  : OS, -, CloseHandle                      OSERR: 1455\r\n");
  EXPECT_EQ(calledLines(systemEvent(0x08140069, 0)),
            "CALLED  : OS, -, CloseHandle                      OSERR: 0\r\n");
}

TEST(LogRecord, NamesErrnoOfTheTwoCallsThatReportIt) {
  EXPECT_EQ(calledLines(systemEvent(0x08140001, 13)),
            "CALLED  : OS, -, access                           OSERR: EACCES (13)\r\n");
  EXPECT_EQ(calledLines(systemEvent(0x0814009D, 2)),
            "CALLED  : OS, -, _stat                            OSERR: ENOENT (2)\r\n");
  EXPECT_EQ(calledLines(systemEvent(0x081400A0, 0)),
            "CALLED  : OS, -, TlsGetValue                      OSERR: NO_ERROR (0)\r\n");
}

TEST(LogRecord, ShowsTheLower32BitsOfAnErrorWithTheirSign) {
  EXPECT_EQ(calledLines(systemEvent(0x08140069, 0xC0000005)),
            "CALLED  : OS, -, CloseHandle                      OSERR: -1073741819\r\n");
  EXPECT_EQ(calledLines(systemEvent(0x08140069, uint64_t{1} << 32 | 6)),
            "CALLED  : OS, -, CloseHandle                      OSERR: 6\r\n");
}

// The CALLED text is 49, 50 and 51 characters long.
TEST(LogRecord, PutsTheErrorOneBlankBehindALongCalledText) {
  EXPECT_EQ(calledLines(systemEvent(0x08140110, 5)),
            "CALLED  : OS, -, GetVolumeNameForVolumeMountPoint OSERR: ERROR_ACCESS_DENIED (5)\r\n");
  EXPECT_EQ(calledLines(systemEvent(0x081A003B, 5)),
            "CALLED  : common, OSSe, OSSHIPCSemaphore::destroy OSERR: ERROR_ACCESS_DENIED (5)\r\n");
  EXPECT_EQ(
      calledLines(systemEvent(0x081A000E, 5)),
      "CALLED  : common, OSSe, OSSDirectoryListing::begin OSERR: ERROR_ACCESS_DENIED (5)\r\n");
  EXPECT_EQ(calledLines(systemEvent(0x081A0040, 86)),
            "CALLED  : common, OSSe, OSSHIPCSemaphore::authorize OSERR: 86\r\n");
}

TEST(LogRecord, AlignsTheErrorForEveryFunction) {
  for (uint32_t number = 0; number <= 175; ++number) {
    const std::string line = lineOf(compose(systemEvent(0x081A0000 + number, 5)), 4);
    const char* const name = ecfGetFunctionName(0x081A0000 + number);
    const size_t length = 24 + std::min<size_t>(40, name != nullptr ? std::strlen(name) : 0);
    EXPECT_EQ(line.find(" OSERR: "), std::max<size_t>(49, length)) << line;
  }
}

TEST(LogRecord, AnySystemCallStandsUnderOsWhateverItsKind) {
  for (uint32_t kind = 0; kind <= 7; ++kind)
    EXPECT_EQ(
        calledLines(systemEvent(0x08100069 | kind << 16, 5)),
        "CALLED  : OS, -, CloseHandle                      OSERR: ERROR_ACCESS_DENIED (5)\r\n");
}

TEST(LogRecord, LeavesNamesOfACalledFunctionEmptyThatTheCatalogDoesNotHave) {
  EXPECT_EQ(calledLines(systemEvent(0x08140162, 5)),
            "CALLED  : OS, -,                                  OSERR: ERROR_ACCESS_DENIED (5)\r\n");
  EXPECT_EQ(calledLines(systemEvent(kMost32, 5)),
            "CALLED  : , ,                                     OSERR: ERROR_ACCESS_DENIED (5)\r\n");
  EXPECT_EQ(calledLines(functionEvent(0x10080001, ECF_FAILED)),
            "CALLED  : tools, reserved, \r\nRETCODE : ECF=0x90000002 Failed\r\n");
}

// ---- CALLED and RETCODE ----

TEST(LogRecord, NamesACalledFunctionAndItsCode) {
  EXPECT_EQ(calledLines(functionEvent(0x081A0003, 0x9000000C)),
            "CALLED  : common, OSSe, OSSHFile::close\r\n"
            "RETCODE : ECF=0x9000000C Invalid parameter\r\n");
  EXPECT_EQ(calledLines(functionEvent(0x08140069, 0)),
            "CALLED  : OS, -, CloseHandle\r\nRETCODE : ECF=0x0 OK\r\n");
  EXPECT_EQ(calledLines(functionEvent(0x081A0003, 0x9000052B)),
            "CALLED  : common, OSSe, OSSHFile::close\r\nRETCODE : ECF=0x9000052B \r\n");
}

TEST(LogRecord, HasNoCalledLinesWithoutACalledFunction) {
  EXPECT_EQ(calledLines(systemEvent(0, 5)), "");
  EXPECT_EQ(calledLines(functionEvent(0, ECF_FAILED)), "");
  EXPECT_EQ(calledLines(kEvent), "");
}

TEST(LogRecord, OfAFailedSystemCallReadsAsAWhole) {
  const uint64_t handle = 0xFFFFFFFFFFFFFFFF;
  LogEvent event = systemEvent(0x08140069, 6);
  event.messageCode = ECF_INVALID_PARAMETER;
  const LogArg items[] = {{1, {&handle, sizeof handle, OSS_LOG_HEX}}};
  EXPECT_EQ(compose(event, items),
            "\r\n2026-03-07-08.05.09.042000+060                    LEVEL: Info (OS)\r\n"
            "PID     : 4711                 TID : 815\r\n"
            "FUNCTION: common, OSSe, OSSHFile::open, probe:280\r\n"
            "MESSAGE : ECF=0x9000000C Invalid parameter\r\n"
            "CALLED  : OS, -, CloseHandle                      OSERR: ERROR_INVALID_FLAGS (6)\r\n"
            "ARG  #1 : Hex, 8 bytes\r\n0xFFFFFFFFFFFFFFFF\r\n");
}

TEST(LogRecord, OfACalledFunctionReadsAsAWhole) {
  const uint32_t size = 7;
  LogEvent event = functionEvent(0x081A0008, ECF_FILE_INCOMPLETE_WRITE);
  event.messageCode = ECF_FAILED;
  event.level = OSS_LOG_SEVERE;
  const LogArg items[] = {{31, {&size, sizeof size, OSS_LOG_UINT}}};
  EXPECT_EQ(compose(event, items),
            "\r\n2026-03-07-08.05.09.042000+060                    LEVEL: Severe\r\n"
            "PID     : 4711                 TID : 815\r\n"
            "FUNCTION: common, OSSe, OSSHFile::open, probe:280\r\n"
            "MESSAGE : ECF=0x90000002 Failed\r\n"
            "CALLED  : common, OSSe, OSSHFile::write\r\n"
            "RETCODE : ECF=0x90000035 Did not write all the requested bytes\r\n"
            "ARG  #31: Uint32, 4 bytes\r\n7\r\n");
}

// ---- Place ----

// Columns 33 to 50 of a record of `length` bytes that will lie at `fileSize`.
std::string placeOf(size_t length, uint64_t fileSize, char letter) {
  char text[kRecordBytes];
  std::memset(text, '#', sizeof text);
  placeLogRecord(text, length, fileSize, letter);
  for (size_t i = 0; i < sizeof text; ++i)
    if ((i < 33 || i > 50) && text[i] != '#') return "wrote outside its columns";
  return std::string(text + 33, 18);
}

TEST(LogPlace, IsOffsetAndLengthOfWhatFollowsTheFirstLineEnd) {
  char text[kRecordBytes];
  const size_t length = composeLogRecord(text, kEvent, kStamp, {});
  placeLogRecord(text, length, 4094, 'F');
  EXPECT_EQ(std::string(text, length),
            "\r\n2026-03-07-08.05.09.042000+060 I4096F156          LEVEL: Info\r\n"
            "PID     : 4711                 TID : 815\r\n"
            "FUNCTION: common, OSSe, OSSHFile::open, probe:280\r\n");
  EXPECT_EQ(length - 2, 156U);
}

TEST(LogPlace, ReplacesOnlyItsOwnEndAndTheLastColumn) {
  EXPECT_EQ(placeOf(158, 0, 'F'), "I2F156 ########## ");
  EXPECT_EQ(placeOf(4095, 98, 'F'), "I100F4093 ####### ");
}

TEST(LogPlace, FillsSeventeenColumnsAndIsCutThere) {
  EXPECT_EQ(placeOf(158, 99'999'999'997, 'F'), "I99999999999F156  ");
  EXPECT_EQ(placeOf(158, 999'999'999'997, 'F'), "I999999999999F156 ");
  EXPECT_EQ(placeOf(158, 9'999'999'999'997, 'F'), "I9999999999999F15 ");
  EXPECT_EQ(placeOf(158, kMost64 - 2, 'F'), "I1844674407370955 ");
}

TEST(LogPlace, CarriesTheRecordLetter) { EXPECT_EQ(placeOf(158, 0, 'X'), "I2X156 ########## "); }

// ---- Time zone ----

TEST(LogZone, IsLocalTimeMinusUtcInMinutes) {
  struct Row {
    int32_t local, utc, minutes;
  };
  constexpr int32_t kHour = 3600;
  constexpr Row kRows[] = {
      {0, 0, 0},
      {13 * kHour, 12 * kHour, 60},
      {7 * kHour, 12 * kHour, -300},
      {17 * kHour + 1800, 12 * kHour, 330},
      {1 * kHour, 23 * kHour, 120},
      {23 * kHour, 1 * kHour, -120},
      {86'399, 0, 0},
      {0, 86'399, 0},
      {12 * kHour - 1, 0, 719},
      {0, 12 * kHour - 1, -719},
  };
  for (const Row& row : kRows)
    EXPECT_EQ(zoneOffsetMinutes(row.local, row.utc), row.minutes) << row.local << " " << row.utc;
}

// Whatever the time of day, a zone east of +12:00 comes out as one in the west.
TEST(LogZone, FoldsIntoHalfADayOfWhichOnlyThePositiveEndStays) {
  struct Row {
    int32_t zone, minutes;
  };
  constexpr Row kRows[] = {{720, 720},  {-720, 720},  {765, -675}, {780, -660},
                           {840, -600}, {-719, -719}, {719, 719},  {330, 330}};
  for (const Row& row : kRows)
    for (int32_t utc = 0; utc < 86'400; utc += 60) {
      const int32_t local = (utc + row.zone * 60 + 86'400) % 86'400;
      ASSERT_EQ(zoneOffsetMinutes(local, utc), row.minutes) << row.zone << " at " << utc;
    }
}

}  // namespace
}  // namespace oss
