// osssysinfofixture.h - what the tests of the information records share: records over a pattern, so
// that every byte an operation writes is seen, the log, and the checks that all operations make.
#pragma once

#include <gmock/gmock.h>
#include <windows.h>

#include <cstring>
#include <string>
#include <vector>

#include "harness/importhook.h"
#include "harness/logcapture.h"
#include "osscatalog.h"
#include "osssysinfo.h"

namespace osse_test {

// Versions at which records change, and their neighbours.
inline constexpr uint64_t kTooOld = OSS_VERSION_OLDEST - 1;
inline constexpr uint64_t kVersions[] = {20040702, 20050400, 20050401,   20050714,
                                         20050715, 20260101, 0x09010006, OSS_VERSION_CURRENT};

// A record whose bytes nobody has written yet: each is 0xA5, but for the version.
template <class Record>
class Patterned {
 public:
  explicit Patterned(uint64_t version) {
    std::memset(bytes_, 0xA5, sizeof bytes_);
    record().version = version;
  }
  Patterned(const Patterned& other) { std::memcpy(bytes_, other.bytes_, sizeof bytes_); }
  Patterned& operator=(const Patterned&) = delete;

  Record& record() { return *reinterpret_cast<Record*>(bytes_); }
  Record* operator->() { return &record(); }
  Record* get() { return &record(); }

  // The bytes that differ, as ranges of offsets: "8-15 20-23 "; empty when none does.
  std::string differenceFrom(const Patterned& other) const {
    std::string ranges;
    for (size_t at = 0; at < sizeof bytes_; ++at) {
      if (bytes_[at] == other.bytes_[at]) continue;
      const size_t first = at;
      while (at + 1 < sizeof bytes_ && bytes_[at + 1] != other.bytes_[at + 1]) ++at;
      ranges += std::to_string(first) + '-' + std::to_string(at) + ' ';
    }
    return ranges;
  }

 private:
  alignas(Record) unsigned char bytes_[sizeof(Record)];
};

// What an operation writes into a text: the characters and their NUL; what lies behind stays.
inline void writeText(char* place, std::string_view text) {
  std::memcpy(place, text.data(), text.size());
  place[text.size()] = '\0';
}

class SysInfoTest : public testing::Test {
 protected:
  // The refusals of a null record and of one that is too old, with nothing written.
  template <class Record, class Call>
  void expectRecordChecks(oss::Func function, Call call) {
    EXPECT_EQ(call(static_cast<Record*>(nullptr)), ECF_INVALID_PARAMETER);
    EXPECT_THAT(log_.newRecords(), testing::ElementsAre(nullRecord(function)));
    for (const uint64_t version : {uint64_t{0}, kTooOld}) {
      Patterned<Record> record(version);
      const Patterned<Record> before = record;
      EXPECT_EQ(call(record.get()), ECF_INVALID_VERSION);
      EXPECT_EQ(record.differenceFrom(before), "");
      EXPECT_THAT(log_.newRecords(), testing::ElementsAre(oldRecord(function, version)));
    }
  }

  static LogEvidence nullRecord(oss::Func function) {
    return FoundRecord(OSS_LOG_ERROR, function, 1111, ECF_INVALID_PARAMETER);
  }
  static LogEvidence oldRecord(oss::Func function, uint64_t version) {
    return FoundRecord(OSS_LOG_ERROR, function, 1112, ECF_INVALID_VERSION, {Uint(version)});
  }

  void TearDown() override { EXPECT_THAT(log_.newRecords(), testing::IsEmpty()); }

  LogCapture log_;
};

}  // namespace osse_test
