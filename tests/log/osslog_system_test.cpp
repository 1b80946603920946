// The log through the library's exported functions: arguments, levels, items, and the bytes of the
// records in the file.
#include "osslog.h"

#include <gmock/gmock.h>

#include <array>
#include <cstring>
#include <limits>
#include <tuple>
#include <utility>

#include "harness/importhook.h"
#include "harness/logcapture.h"
#include "harness/logrecord.h"
#include "osscatalog.h"
#include "ossprocess.h"

using namespace osse_test;
using namespace testing;
using oss::Func;
using oss::SysCall;

namespace {

constexpr uint32_t kOpen = static_cast<uint32_t>(Func::OSSHFile_open);
constexpr uint32_t kClose = static_cast<uint32_t>(Func::OSSHFile_close);
constexpr uint32_t kCloseHandle = static_cast<uint32_t>(SysCall::CloseHandle);

// Opening succeeds with it: the event log, which needs no file.
OSSLogFacOpenParam validParam() {
  OSSLogFacOpenParam param;
  std::strncpy(param.name, "OSSe test", sizeof param.name - 1);
  param.level = OSS_LOG_INFO;
  param.destination = OSS_LOG_TO_EVENT_LOG;
  return param;
}

OSSErr opened(const OSSLogFacOpenParam& param) {
  OSSLogFacility facility;
  return ossLogFacOpen(&param, &facility);
}

// ---- Opening ----

TEST(LogFacility, OpenRefusesANullRecord) {
  OSSLogFacility facility;
  EXPECT_EQ(ossLogFacOpen(nullptr, &facility), ECF_INVALID_PARAMETER);
  EXPECT_EQ(ossLogFacOpen(nullptr, nullptr), ECF_INVALID_PARAMETER);
}

// Deliberate: an old version is an invalid parameter here, not ECF_INVALID_VERSION.
TEST(LogFacility, OpenRefusesVersionsBefore20040702AsInvalidParameters) {
  OSSLogFacOpenParam param = validParam();
  for (const uint64_t version : {uint64_t{0}, uint64_t{20040701}}) {
    param.version = version;
    EXPECT_EQ(opened(param), ECF_INVALID_PARAMETER) << version;
  }
  for (const uint64_t version : {uint64_t{20040702}, uint64_t{1} << 32, ~uint64_t{0}}) {
    param.version = version;
    EXPECT_EQ(opened(param), ECF_OK) << version;
  }
}

TEST(LogFacility, OpenKnowsTheDestinationsOneTwoAndFour) {
  OSSLogFacOpenParam param = validParam();
  std::strncpy(param.path, "unused.log", sizeof param.path - 1);
  for (const uint64_t destination : {1U, 2U, 4U}) {
    param.destination = destination;
    EXPECT_EQ(opened(param), ECF_OK) << destination;
  }
  for (const uint64_t destination :
       {uint64_t{0}, uint64_t{3}, uint64_t{5}, uint64_t{8}, uint64_t{1} << 32 | 1, ~uint64_t{0}}) {
    param.destination = destination;
    EXPECT_EQ(opened(param), ECF_INVALID_PARAMETER) << destination;
  }
}

TEST(LogFacility, OpenKnowsTheLevelsZeroToFive) {
  OSSLogFacOpenParam param = validParam();
  for (param.level = 0; param.level <= 5; ++param.level)
    EXPECT_EQ(opened(param), ECF_OK) << param.level;
  for (const uint64_t level : {uint64_t{6}, uint64_t{1} << 32, ~uint64_t{0}}) {
    param.level = level;
    EXPECT_EQ(opened(param), ECF_INVALID_PARAMETER) << level;
  }
}

TEST(LogFacility, OpenNeedsAPathForTheFileOnly) {
  OSSLogFacOpenParam param = validParam();
  for (const uint64_t destination : {OSS_LOG_TO_FILE, OSS_LOG_TO_EVENT_LOG, OSS_LOG_TO_STDERR}) {
    param.destination = destination;
    EXPECT_EQ(opened(param), destination == OSS_LOG_TO_FILE ? ECF_INVALID_PARAMETER : ECF_OK)
        << destination;
  }
}

TEST(LogFacility, OpenNeedsANameForEveryDestination) {
  OSSLogFacOpenParam param = validParam();
  std::strncpy(param.path, "unused.log", sizeof param.path - 1);
  param.name[0] = '\0';
  for (const uint64_t destination : {OSS_LOG_TO_FILE, OSS_LOG_TO_EVENT_LOG, OSS_LOG_TO_STDERR}) {
    param.destination = destination;
    EXPECT_EQ(opened(param), ECF_INVALID_PARAMETER) << destination;
  }
}

TEST(LogFacility, ARefusedOpenLeavesTheFacilityAsItWas) {
  OSSLogFacOpenParam param = validParam();
  OSSLogFacility facility;
  ASSERT_EQ(ossLogFacOpen(&param, &facility), ECF_OK);
  const OSSLogFacility before = facility;
  param.level = 6;
  EXPECT_EQ(ossLogFacOpen(&param, &facility), ECF_INVALID_PARAMETER);
  EXPECT_EQ(std::memcmp(&facility, &before, sizeof facility), 0);
}

TEST(LogFacility, AClosedOneRefusesEveryRecordAndEveryLevel) {
  OSSLogFacility closed;
  for (OSSLogFacility* const facility : {&closed, static_cast<OSSLogFacility*>(nullptr)}) {
    EXPECT_EQ(ossLog(facility, kOpen, 0, 10, OSS_LOG_EVENT, 0), ECF_INVALID_PARAMETER);
    EXPECT_EQ(ossLog(facility, kOpen, 0, 10, 0, 0), ECF_INVALID_PARAMETER);
    EXPECT_EQ(ossLogRC(facility, kOpen, kClose, 0, 0, 10, OSS_LOG_SEVERE, 0),
              ECF_INVALID_PARAMETER);
    EXPECT_EQ(ossLogSysRC(facility, kOpen, kCloseHandle, 6, 0, 10, OSS_LOG_SEVERE, 0),
              ECF_INVALID_PARAMETER);
    EXPECT_EQ(ossLogFacSetLevel(facility, OSS_LOG_INFO), ECF_INVALID_PARAMETER);
  }
}

TEST(LogFacility, CloseSucceedsOnAClosedOne) {
  OSSLogFacility facility;
  EXPECT_EQ(ossLogFacClose(&facility), ECF_OK);
  EXPECT_EQ(ossLogFacClose(nullptr), ECF_OK);
  const OSSLogFacOpenParam param = validParam();
  ASSERT_EQ(ossLogFacOpen(&param, &facility), ECF_OK);
  EXPECT_EQ(ossLogFacClose(&facility), ECF_OK);
  EXPECT_EQ(ossLogFacClose(&facility), ECF_OK);
}

TEST(LogFacility, OpenReplacesTheSettingsOfAnOpenOne) {
  const TempDirectory dir;
  OSSLogFacOpenParam param = validParam();
  param.destination = OSS_LOG_TO_FILE;
  OSSLogFacility facility;
  for (const char* const name : {"first.log", "second.log"}) {
    std::strncpy(param.path, dir.file(name).c_str(), sizeof param.path - 1);
    ASSERT_EQ(ossLogFacOpen(&param, &facility), ECF_OK);
    EXPECT_EQ(ossLog(&facility, kOpen, 0, 10, OSS_LOG_INFO, 0), ECF_OK);
  }
  EXPECT_EQ(parseLog(readFile(dir.file("first.log"))).records.size(), 1U);
  EXPECT_EQ(parseLog(readFile(dir.file("second.log"))).records.size(), 1U);
}

// ---- Levels ----

TEST(LogLevel, AFacilityAdmitsEventsAndWhatIsAsGraveAsItsLevel) {
  for (uint64_t facilityLevel = 0; facilityLevel <= 7; ++facilityLevel) {
    LogCapture log;
    ASSERT_EQ(ossLogFacSetLevel(nullptr, facilityLevel), ECF_OK);
    for (uint64_t level = 0; level <= 8; ++level)
      EXPECT_EQ(ossLog(nullptr, kOpen, 0, level, level, 0), ECF_OK);

    std::vector<uint64_t> admitted, expected;
    for (const LogRecord& record : log.records()) admitted.push_back(record.probe);
    for (uint64_t level = 1; level <= 8; ++level)
      if (level == 5 || (facilityLevel != 5 && level <= facilityLevel)) expected.push_back(level);
    EXPECT_EQ(admitted, expected) << facilityLevel;
  }
}

TEST(LogLevel, RowsOfThatMatrixByHand) {
  const auto admitted = [](uint64_t facilityLevel) {
    LogCapture log;
    EXPECT_EQ(ossLogFacSetLevel(nullptr, facilityLevel), ECF_OK);
    for (uint64_t level = 0; level <= 6; ++level)
      EXPECT_EQ(ossLog(nullptr, kOpen, 0, 10, level, 0), ECF_OK);
    std::string levels;
    for (const LogRecord& record : log.records()) levels += record.level + ' ';
    return levels;
  };
  EXPECT_EQ(admitted(0), "Event ");
  EXPECT_EQ(admitted(1), "Severe Event ");
  EXPECT_EQ(admitted(4), "Severe Error Warning Info Event ");
  EXPECT_EQ(admitted(5), "Event ");
  EXPECT_EQ(admitted(6), "Severe Error Warning Info Event Unknown ");
  EXPECT_EQ(admitted(~uint64_t{0}), "Severe Error Warning Info Event Unknown ");
}

TEST(LogLevel, AFilteredRecordSucceedsAndTouchesNoFile) {
  LogCapture log(OSS_LOG_ERROR);
  const CallCounter opens("CreateFileA");
  EXPECT_EQ(ossLog(nullptr, kOpen, 0, 10, OSS_LOG_WARNING, 0), ECF_OK);
  EXPECT_EQ(ossLogSysRC(nullptr, kOpen, kCloseHandle, 6, 0, 10, OSS_LOG_INFO, 0), ECF_OK);
  EXPECT_EQ(opens.calls(), 0);
  EXPECT_EQ(log.text(), "");
}

// ---- Counts and masks ----

TEST(LogItems, ANegativeCountIsRefused) {
  LogCapture log;
  for (const int32_t count : {-1, std::numeric_limits<int32_t>::min()})
    EXPECT_EQ(ossLog(nullptr, kOpen, 0, 10, OSS_LOG_INFO, count), ECF_INVALID_PARAMETER);
  EXPECT_EQ(log.text(), "");
}

TEST(LogItems, APositiveMaskIsRefused) {
  LogCapture log;
  for (const int32_t mask : {1, 5, std::numeric_limits<int32_t>::max()}) {
    EXPECT_EQ(ossLogRC(nullptr, kOpen, kClose, 0, 0, 10, OSS_LOG_INFO, mask),
              ECF_INVALID_PARAMETER);
    EXPECT_EQ(ossLogSysRC(nullptr, kOpen, kCloseHandle, 6, 0, 10, OSS_LOG_INFO, mask),
              ECF_INVALID_PARAMETER);
  }
  EXPECT_EQ(log.text(), "");
}

// Wrong arguments are refused whether anybody listens or not.
TEST(LogItems, ArgumentsAreExaminedAlsoWhenTheRecordWouldBeFiltered) {
  LogCapture log(OSS_LOG_SEVERE);
  EXPECT_EQ(ossLog(nullptr, kOpen, 0, 10, OSS_LOG_INFO, -1), ECF_INVALID_PARAMETER);
  EXPECT_EQ(ossLogRC(nullptr, kOpen, kClose, 0, 0, 10, OSS_LOG_INFO, 5), ECF_INVALID_PARAMETER);
}

constexpr int32_t mask(uint32_t bits) { return static_cast<int32_t>(bits); }

// One item as three arguments of a call.
const uint32_t kValue = 7;
#define VALUE_ITEM static_cast<const void*>(&kValue), uint64_t{sizeof kValue}, OSS_LOG_UINT

std::vector<uint32_t> numbersOf(const LogRecord& record) {
  std::vector<uint32_t> numbers;
  for (const LogItem& item : record.items) {
    EXPECT_EQ(item.value, Uint(kValue));
    numbers.push_back(item.number);
  }
  return numbers;
}

TEST(LogItems, AMaskNamesTheArgumentsThatFollow) {
  LogCapture log;
  const auto numbersBy = [&](auto write) {
    EXPECT_EQ(write(), ECF_OK);
    const std::vector<LogRecord> records = log.newRecords();
    return records.size() == 1 ? numbersOf(records[0]) : std::vector<uint32_t>{0};
  };
  const auto with = [&](uint32_t bits, auto... items) {
    return numbersBy([=] {
      return ossLogSysRC(nullptr, kOpen, kCloseHandle, 6, 0, 10, OSS_LOG_INFO, mask(bits),
                         items...);
    });
  };
  EXPECT_THAT(with(0), IsEmpty());
  EXPECT_THAT(with(0x80000000), IsEmpty());
  EXPECT_THAT(with(0x80000001, VALUE_ITEM), ElementsAre(1));
  EXPECT_THAT(with(0xC0000000, VALUE_ITEM), ElementsAre(31));
  EXPECT_THAT(with(0x80000033, VALUE_ITEM, VALUE_ITEM, VALUE_ITEM, VALUE_ITEM),
              ElementsAre(1, 2, 5, 6));
  EXPECT_THAT(numbersBy([] {
                return ossLogRC(nullptr, kOpen, kClose, 0, 0, 10, OSS_LOG_INFO, mask(0x80000005),
                                VALUE_ITEM, VALUE_ITEM);
              }),
              ElementsAre(1, 3));
}

// Calls a log function with as many items as the sequence is long.
template <size_t... I>
OSSErr logMasked(std::index_sequence<I...>) {
  static const std::array<uint8_t, 31> values = {static_cast<uint8_t>(I)...};
  return std::apply(
      [](auto... items) {
        return ossLogRC(nullptr, kOpen, kClose, 0, 0, 10, OSS_LOG_INFO, mask(0xFFFFFFFF), items...);
      },
      std::tuple_cat(
          std::make_tuple(static_cast<const void*>(&values[I]), uint64_t{1}, OSS_LOG_UINT)...));
}

TEST(LogItems, AFullMaskTakes31Items) {
  LogCapture log;
  ASSERT_EQ(logMasked(std::make_index_sequence<31>()), ECF_OK);
  const std::vector<LogRecord> records = log.records();
  ASSERT_EQ(records.size(), 1U);
  ASSERT_EQ(records[0].items.size(), 31U);
  for (uint32_t i = 0; i < 31; ++i) {
    EXPECT_EQ(records[0].items[i].number, i + 1);
    EXPECT_EQ(records[0].items[i].value, Uint(static_cast<uint8_t>(i)));
  }
}

template <size_t... I>
OSSErr logNulls(std::index_sequence<I...>) {
  return std::apply(
      [](auto... items) {
        return ossLog(nullptr, kOpen, 0, 10, OSS_LOG_INFO, static_cast<int32_t>(sizeof...(I)),
                      items...);
      },
      std::tuple_cat(
          std::make_tuple(static_cast<const void*>(nullptr), uint64_t{I}, OSS_LOG_HEX)...));
}

TEST(LogItems, ACountMayPass31) {
  LogCapture log;
  ASSERT_EQ(logNulls(std::make_index_sequence<40>()), ECF_OK);
  const std::vector<LogRecord> records = log.records();
  ASSERT_EQ(records.size(), 1U);
  ASSERT_EQ(records[0].items.size(), 40U);
  EXPECT_EQ(records[0].items[39].number, 40U);
  EXPECT_EQ(records[0].itemKind, "DATA");
}

#define NULL_ITEM static_cast<const void*>(nullptr), uint64_t{0}, OSS_LOG_HEX
#define FIVE(...) __VA_ARGS__, __VA_ARGS__, __VA_ARGS__, __VA_ARGS__, __VA_ARGS__

// Far more items than a record holds: it is full, and cut in the middle of one.
TEST(LogItems, ACountMayPassWhatARecordHolds) {
  LogCapture log;
  ASSERT_EQ(ossLog(nullptr, kOpen, 0, 10, OSS_LOG_INFO, 625, FIVE(FIVE(FIVE(FIVE(NULL_ITEM))))),
            ECF_OK);
  const std::string record = log.text();
  EXPECT_EQ(record.size(), 4095U);
  EXPECT_THAT(record, HasSubstr("DATA #99: \r\nNULL\r\nDATA #100: \r\nNULL\r\n"));
  EXPECT_THAT(record, HasSubstr("\r\nDATA #200: "));
}

// ---- Bytes ----

// A record with the moment blotted out: what was read from a clock differs from run to run.
std::string withoutMoment(std::string record) { return record.replace(2, 30, 30, '?'); }

// The line that names the writer.
std::string writerLine() {
  std::string process = std::to_string(ossProcessID());
  process.resize(21, ' ');
  return "PID     : " + process + "TID : " + std::to_string(ossThreadID()) + "\r\n";
}

// The columns that tell where a record lies.
std::string placeColumns(uint64_t offset, size_t length) {
  std::string place = "I" + std::to_string(offset) + "F" + std::to_string(length);
  place.resize(19, ' ');
  return place;
}

// A whole record of these lines behind the first as it stands at `start` in its file.
std::string recordText(size_t start, const std::string& level, const std::string& lines) {
  const std::string rest = "LEVEL: " + level + "\r\n" + writerLine() + lines;
  return "\r\n" + std::string(30, '?') + " " + placeColumns(start + 2, 50 + rest.size()) + rest;
}

TEST(LogBytes, OfARecordAboutTheFunctionItself) {
  LogCapture log;
  const uint64_t version = 20040701;
  ASSERT_EQ(ossLog(nullptr, kClose, ECF_INVALID_VERSION, 1112, OSS_LOG_ERROR, 1,
                   static_cast<const void*>(&version), uint64_t{8}, OSS_LOG_UINT),
            ECF_OK);
  EXPECT_EQ(withoutMoment(log.text()),
            recordText(0, "Error",
                       "FUNCTION: common, OSSe, OSSHFile::close, probe:1112\r\n"
                       "MESSAGE : ECF=0x90000004 Invalid version\r\n"
                       "DATA #1 : Uint64, 8 bytes\r\n20040701\r\n"));
}

TEST(LogBytes, OfARecordAboutACalledFunction) {
  LogCapture log;
  ASSERT_EQ(
      ossLogRC(nullptr, kClose, kOpen, ECF_FILE_EXISTS, ECF_FAILED, ~uint64_t{0}, OSS_LOG_WARNING,
               mask(0x80000002), static_cast<const void*>("path"), uint64_t{5}, OSS_LOG_STRING),
      ECF_OK);
  EXPECT_EQ(withoutMoment(log.text()),
            recordText(0, "Warning",
                       "FUNCTION: common, OSSe, OSSHFile::close, probe:18446744073709551615\r\n"
                       "MESSAGE : ECF=0x90000002 Failed\r\n"
                       "CALLED  : common, OSSe, OSSHFile::open\r\n"
                       "RETCODE : ECF=0x9000001B File already exists\r\n"
                       "ARG  #2 : String, 5 bytes\r\npath\r\n"));
}

TEST(LogBytes, OfARecordAboutASystemCall) {
  LogCapture log;
  const uint64_t handle = 0x2A;
  ASSERT_EQ(
      ossLogSysRC(nullptr, kClose, kCloseHandle, 6, ECF_INVALID_PARAMETER, 20, OSS_LOG_INFO,
                  mask(0x80000001), static_cast<const void*>(&handle), uint64_t{8}, OSS_LOG_HEX),
      ECF_OK);
  EXPECT_EQ(withoutMoment(log.text()),
            recordText(0, "Info (OS)",
                       "FUNCTION: common, OSSe, OSSHFile::close, probe:20\r\n"
                       "MESSAGE : ECF=0x9000000C Invalid parameter\r\n"
                       "CALLED  : OS, -, CloseHandle                      "
                       "OSERR: ERROR_INVALID_FLAGS (6)\r\n"
                       "ARG  #1 : Hex, 8 bytes\r\n0x2A\r\n"));
}

TEST(LogBytes, EachRecordKnowsWhereItLies) {
  LogCapture log;
  const std::string line = "FUNCTION: common, OSSe, OSSHFile::open, probe:10\r\n";
  std::string expected;
  std::vector<size_t> starts;
  while (expected.size() < 20'000) {
    ASSERT_EQ(ossLog(nullptr, kOpen, 0, 10, OSS_LOG_INFO, 0), ECF_OK);
    starts.push_back(expected.size());
    expected += recordText(expected.size(), "Info", line);
  }

  std::string text = log.text();
  ASSERT_EQ(text.size(), expected.size());
  for (const size_t start : starts) text.replace(start + 2, 30, 30, '?');
  EXPECT_EQ(text, expected);
}

}  // namespace
