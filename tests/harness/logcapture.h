// logcapture.h - opens the library's default log facility into a file of its own for the length of
// a scope and reads back what the library wrote.
//
//   LogCapture log;
//   ... an operation that fails ...
//   EXPECT_THAT(log.records(), ElementsAre(FoundRecord(...)));
//
// The facility is the process's: one capture at a time, and a facility that was open before stays
// closed behind it.
#pragma once

#include <string>
#include <vector>

#include "harness/logrecord.h"
#include "harness/tempdir.h"

namespace osse_test {

class LogCapture {
 public:
  // Captures the records up to `level`; by default all but events are of interest, and written.
  explicit LogCapture(uint64_t level = OSS_LOG_INFO);
  ~LogCapture();
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;

  // Everything written so far. A record that is not whole fails the test.
  std::vector<LogRecord> records() const;

  // Those of them that no earlier call has returned.
  std::vector<LogRecord> newRecords();

  // Everything as bytes; empty while nothing is written.
  std::string text() const;

  // The log file, which appears with its first record.
  const std::string& path() const { return path_; }

 private:
  TempDirectory dir_;
  std::string path_;
  size_t seen_ = 0;
};

}  // namespace osse_test
