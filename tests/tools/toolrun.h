// toolrun.h - a command of osse, run on a dump that a test has built.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "commands.h"
#include "harness/tempdir.h"
#include "osscatalog.h"
#include "tools/dumpbuilder.h"

namespace osse_test {

inline constexpr auto kOpen = static_cast<uint32_t>(oss::Func::OSSHFile_open);    // OSSHFile::open
inline constexpr auto kRead = static_cast<uint32_t>(oss::Func::OSSHFile_read);    // OSSHFile::read
inline constexpr auto kClose = static_cast<uint32_t>(oss::Func::OSSHFile_close);  // OSSHFile::close

// Runs the command on a dump of these bytes; it must succeed. \return what it wrote
template <class Command>
std::string run(Command command, const std::string& dump) {
  TempDirectory dir;
  writeFile(dir.file("dump"), dump);
  command.file = dir.file("dump");
  command.output = dir.file("output");
  EXPECT_EQ(command.run(), oss::tool::kDone);
  return readFile(dir.file("output"));
}

inline std::string format(const std::string& dump, bool flow = false) {
  return run(oss::tool::FormatCommand{.file = {}, .output = {}, .flow = flow}, dump);
}

inline std::string stats(const std::string& dump) { return run(oss::tool::StatsCommand{}, dump); }

inline std::string exportAs(oss::tool::ExportCommand::Form form, const std::string& dump) {
  return run(oss::tool::ExportCommand{.file = {}, .output = {}, .form = form}, dump);
}

}  // namespace osse_test
