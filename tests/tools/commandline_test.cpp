// The command line of osse, as a shell gives it: exit codes, and the words that are refused.
#include <gtest/gtest.h>
#include <windows.h>

#include "commands.h"
#include "harness/childprocess.h"
#include "harness/tempdir.h"

using namespace osse_test;
using namespace oss::tool;

namespace {

struct Ended {
  uint32_t code;
  std::string told;  // standard output and standard error, the first line
};

// Runs the program beside this one.
Ended osse(const std::string& arguments) {
  char program[MAX_PATH];
  ::GetModuleFileNameA(nullptr, program, sizeof program);
  std::string line = program;
  line.replace(line.rfind('\\') + 1, std::string::npos, "osse.exe");
  line = '"' + line + "\" " + arguments;

  const TempDirectory dir;
  SECURITY_ATTRIBUTES inheritable = {sizeof inheritable, nullptr, TRUE};
  const HANDLE told = ::CreateFileA(dir.file("told").c_str(), GENERIC_WRITE, FILE_SHARE_READ,
                                    &inheritable, CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr);
  STARTUPINFOA startup = {};
  startup.cb = sizeof startup;
  startup.dwFlags = STARTF_USESTDHANDLES;
  startup.hStdInput = INVALID_HANDLE_VALUE;
  startup.hStdOutput = startup.hStdError = told;
  PROCESS_INFORMATION created = {};
  EXPECT_TRUE(::CreateProcessA(nullptr, line.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr,
                               &startup, &created));
  ::CloseHandle(created.hThread);
  ::CloseHandle(told);
  const uint32_t code = Child(created.hProcess, "osse").wait();
  const std::string text = readFile(dir.file("told"));
  return {code, text.substr(0, text.find_first_of("\r\n"))};
}

// The command line is refused with these words.
void isRefused(const std::string& arguments, const std::string& told) {
  const Ended ended = osse(arguments);
  EXPECT_EQ(ended.code, uint32_t{kBadUsage}) << arguments;
  EXPECT_EQ(ended.told, told) << arguments;
}

TEST(CommandLine, AWordThatIsNotKnownIsTold) {
  isRefused("bogus", "The following argument was not expected: bogus");
  isRefused("trace formt dump", "The following argument was not expected: formt");
  isRefused("trap export trap --minidmp dump",
            "The following argument was not expected: --minidmp");
  isRefused("trace", "A subcommand is required");
}

TEST(CommandLine, TheVersionIsThatOfTheLibrary) {
  const Ended ended = osse("--version");
  EXPECT_EQ(ended.code, uint32_t{kDone});
  EXPECT_EQ(ended.told, "osse 9.1.0.7");
}

TEST(CommandLine, ANumberIsAboveZeroAndNothingElse) {
  for (const std::string text : {"0", "1M", "-5"})
    isRefused("trace dump --section s f --follow --ring=" + text,
              "--ring: " + text + " is not a whole number above 0");
  isRefused("trap show trap --dump 0", "--dump: 0 is not a whole number above 0");
}

TEST(CommandLine, AnEmptyNameIsRefused) {
  isRefused("trace format \"\"", "FILE: is empty");
  isRefused("trace format dump -o \"\"", "--output: is empty");
  isRefused("trace dump --section \"\" dump", "--section: is empty");
  isRefused("trap export trap --minidump \"\"", "--minidump: is empty");
  isRefused("ipc \"\" 7", "PATH: is empty");
}

}  // namespace
