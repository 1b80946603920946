#include "harness/logcapture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

namespace osse_test {

LogCapture::LogCapture(uint64_t level) : path_(dir_.file("oss.log")) {
  OSSLogFacOpenParam param;
  std::strncpy(param.path, path_.c_str(), sizeof param.path - 1);
  std::strncpy(param.name, "test", sizeof param.name - 1);
  param.level = level;
  param.destination = OSS_LOG_TO_FILE;
  EXPECT_EQ(ossLogFacOpen(&param, nullptr), ECF_OK);
}

LogCapture::~LogCapture() { EXPECT_EQ(ossLogFacClose(nullptr), ECF_OK); }

std::vector<LogRecord> LogCapture::records() const {
  ParsedLog log = parseLog(text());
  EXPECT_EQ(log.error, "");
  return log.records;
}

std::vector<LogRecord> LogCapture::newRecords() {
  std::vector<LogRecord> records = this->records();
  const size_t total = records.size();
  records.erase(records.begin(), records.begin() + static_cast<ptrdiff_t>(std::min(seen_, total)));
  seen_ = total;
  return records;
}

std::string LogCapture::text() const {
  return dir_.names().empty() ? std::string() : readFile(path_);
}

}  // namespace osse_test
