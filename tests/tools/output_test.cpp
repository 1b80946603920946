// What the commands of osse write never takes the place of what they read.
#include <gtest/gtest.h>
#include <windows.h>

#include <algorithm>

#include "tools/toolrun.h"
#include "tools/trapparts.h"

using namespace osse_test;
using namespace oss::tool;

namespace {

std::string upper(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(), [](char c) {
    return 'a' <= c && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
  });
  return text;
}

// A file and the names that lead to it: its own, another spelling of that, a second link.
class Input {
 public:
  explicit Input(const std::string& bytes) : bytes_(bytes) {
    writeFile(path(), bytes);
    EXPECT_TRUE(::CreateHardLinkA(dir_.file("link").c_str(), path().c_str(), nullptr));
  }

  std::string path() const { return dir_.file("input"); }

  // The command, which is to write to `output`, refuses each of them, and the file stays whole.
  template <class Command>
  void isKeptFrom(Command command, std::string Command::*output) const {
    command.file = path();
    for (const std::string& name : {path(), upper(path()), dir_.file("link")}) {
      command.*output = name;
      testing::internal::CaptureStderr();
      EXPECT_EQ(command.run(), kFailed);
      EXPECT_EQ(testing::internal::GetCapturedStderr(),
                "osse: " + name + ": is the input, and would be emptied before it is read\n");
      EXPECT_TRUE(readFile(path()) == bytes_) << name;
    }
    command.*output = dir_.file("output");
    EXPECT_EQ(command.run(), kDone);
    EXPECT_FALSE(readFile(dir_.file("output")).empty());
  }

 private:
  TempDirectory dir_;
  std::string bytes_;
};

}  // namespace

TEST(ToolOutput, IsNeverTheDumpThatIsRead) {
  const Input dump(DumpBuilder().stamp(10).entry(kOpen).stamp(20).exit(kOpen).instantaneous());
  dump.isKeptFrom(FormatCommand{}, &FormatCommand::output);
  dump.isKeptFrom(StatsCommand{}, &StatsCommand::output);
  dump.isKeptFrom(ExportCommand{}, &ExportCommand::output);
}

TEST(ToolOutput, IsNeverTheTrapFileThatIsRead) {
  const Input trap(TrapParts().whole());
  trap.isKeptFrom(TrapShowCommand{}, &TrapShowCommand::output);
  trap.isKeptFrom(TrapExportCommand{}, &TrapExportCommand::minidump);
}
