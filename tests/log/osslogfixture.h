// osslogfixture.h - a facility of its own that writes into a fresh file, and what the file holds.
//
// A record is told from others by its probe. Behind each test the level hook and the record letter
// are as at load, and the default facility is closed.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "harness/tempdir.h"
#include "log/osslogfacility.h"
#include "osscatalog.h"

namespace oss::log_test {

inline constexpr uint32_t kFunction = static_cast<uint32_t>(Func::OSSHFile_open);

// Opens into the file `path`; other destinations ignore it.
inline OSSLogFacOpenParam paramFor(const std::string& path, uint64_t level = OSS_LOG_INFO,
                                   uint64_t destination = OSS_LOG_TO_FILE) {
  OSSLogFacOpenParam param;
  std::strncpy(param.path, path.c_str(), sizeof param.path - 1);
  std::strncpy(param.name, "OSSe test", sizeof param.name - 1);
  param.level = level;
  param.destination = destination;
  return param;
}

inline OSSErr writeRecord(OSSLogFacility* facility, uint64_t probe, uint64_t level = OSS_LOG_INFO) {
  return ossLog(facility, kFunction, 0, probe, level, 0);
}

// The probes of the records in a log, in their order.
inline std::vector<uint64_t> probesOf(const std::string& text) {
  constexpr std::string_view kLabel = ", probe:";
  std::vector<uint64_t> probes;
  for (size_t at = text.find(kLabel); at != std::string::npos; at = text.find(kLabel, at + 1))
    probes.push_back(std::stoull(text.substr(at + kLabel.size())));
  return probes;
}

class LogTest : public testing::Test {
 protected:
  LogTest() { open(facility_, paramFor(path_)); }
  ~LogTest() override {
    ossLogSetLevelHook(nullptr);
    ossLogSetRecordLetter('\0');
    defaultLogFacility() = OSSLogFacility();
  }

  static void open(OSSLogFacility& facility, const OSSLogFacOpenParam& param) {
    EXPECT_EQ(ossLogFacOpen(&param, &facility), ECF_OK);
  }

  OSSErr write(uint64_t probe, uint64_t level = OSS_LOG_INFO) {
    return writeRecord(&facility_, probe, level);
  }

  // What the file holds; empty while there is none.
  std::string text() const {
    const std::vector<std::string> names = dir_.names();
    const bool exists = std::find(names.begin(), names.end(), "oss.log") != names.end();
    return exists ? osse_test::readFile(path_) : "";
  }
  std::vector<uint64_t> probes() const { return probesOf(text()); }

  // Nothing of a record is left behind: the next one can be written.
  void expectFree() const {
    EXPECT_EQ(facility_.latch, 0U);
    EXPECT_EQ(facility_.writerThread, 0U);
  }

  osse_test::TempDirectory dir_;
  const std::string path_ = dir_.file("oss.log");
  OSSLogFacility facility_;
};

}  // namespace oss::log_test
