// Reports of failed assertions: their text, where they go, and what a fatal one does.
#include "ossassert.h"

#include <gmock/gmock.h>
#include <windows.h>

#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>
#include <utility>
#include <vector>

#include "harness/childprocess.h"
#include "harness/importhook.h"
#include "harness/tempdir.h"
#include "log/osshexdump_text.h"
#include "osscatalog.h"
#include "osshexdump.h"
#include "osslog.h"

using namespace osse_test;
using namespace testing;

namespace {

constexpr uint8_t kNotFatal = 0;
constexpr uint8_t kFatal = 1;
constexpr uint64_t kMost64 = ~uint64_t{0};

// ---- What a report says ----

// The text of a report of this process and thread; "<time>" stands for the time and its line end.
std::string reportText(const std::string& expression, const std::string& file, uint64_t line,
                       uint8_t fatal = kNotFatal) {
  return (fatal == 0 ? "NON-FATAL ASSERTION FAILED!!!" : "ASSERTION FAILED!!!") +
         ("\r\nTime       = <time>Expr       = " + expression) +
         "\r\nPID        = " + std::to_string(::GetCurrentProcessId()) +
         "\r\nTID        = " + std::to_string(::GetCurrentThreadId()) + "\r\nFile       = " + file +
         "\r\nLine       = " + std::to_string(line) + "\r\n";
}

std::string itemText(size_t number, const void* bytes, size_t size) {
  return "dump data " + std::to_string(number) + ":\n" +
         oss::hexdump_text::expectedDump(static_cast<const uint8_t*>(bytes), size, 4096, "",
                                         OSS_HEXDUMP_ADDRESS);
}

// Puts "<time>" for each local time of the last ten minutes, in the C library's form.
std::string withoutTimes(std::string text) {
  const time_t now = std::time(nullptr);
  for (time_t time = now - 600; time <= now; ++time) {
    const std::string shown = std::asctime(std::localtime(&time));
    for (size_t at; (at = text.find(shown)) != std::string::npos;)
      text.replace(at, shown.size(), "<time>");
  }
  return text;
}

// ---- Where it goes ----

// Gives the default log facility this path, which stays when the facility is closed.
void openDefaultFacility(const std::string& path) {
  OSSLogFacOpenParam param;
  std::strncpy(param.path, path.c_str(), sizeof param.path - 1);
  std::strncpy(param.name, "test", sizeof param.name - 1);
  param.destination = path.empty() ? OSS_LOG_TO_STDERR : OSS_LOG_TO_FILE;
  EXPECT_EQ(ossLogFacOpen(&param, nullptr), ECF_OK);
}
void closeDefaultFacility() { EXPECT_EQ(ossLogFacClose(nullptr), ECF_OK); }

// Names the debug log for the length of a scope.
class DebugLogFile {
 public:
  explicit DebugLogFile(const std::string& path) {
    EXPECT_EQ(::_putenv(("OSS_DEBUG_LOG_FILE=" + path).c_str()), 0);
  }
  ~DebugLogFile() { ::_putenv("OSS_DEBUG_LOG_FILE="); }
  DebugLogFile(const DebugLogFile&) = delete;
  DebugLogFile& operator=(const DebugLogFile&) = delete;
};

// Makes the library believe that standard output is a terminal, or is none.
class Terminal {
 public:
  explicit Terminal(bool isOne)
      : hook_("_isatty", [isOne](Call& call) {
          EXPECT_EQ(call.argument<int>(0), ::_fileno(stdout));
          return isOne ? 64 : 0;
        }) {}

 private:
  ImportHook hook_;
};

// Takes the debugger's part: notes what it is told, and lets the process go on.
class Debugger {
 public:
  std::vector<std::string> events;

 private:
  ImportHook output_{"OutputDebugStringA",
                     [this](Call& call) { events.push_back(call.argument<const char*>(0)); }};
  ImportHook stop_{"DebugBreak", [this](Call&) { events.push_back("<stop>"); }};
};

// No default log facility, and a directory for the reports.
class AssertTest : public Test {
 protected:
  AssertTest() {
    openDefaultFacility("");
    closeDefaultFacility();
  }

  const char* path() const { return dir_.path().c_str(); }
  std::string file() const {
    return dir_.file("p" + std::to_string(::GetCurrentProcessId()) + "t" +
                     std::to_string(::GetCurrentThreadId()) + ".mem");
  }

  // The reports that had dir_ as their dump path.
  std::string reports() const { return withoutTimes(readFile(file())); }

  TempDirectory dir_;
};

// ---- The text ----

TEST_F(AssertTest, AReportNamesTimeExpressionProcessThreadFileAndLine) {
  ossAssertFailureAction("slot != nullptr", "trace/rambo.cpp", 120, path(), kNotFatal, nullptr);
  EXPECT_EQ(reports(), reportText("slot != nullptr", "trace/rambo.cpp", 120));
}

TEST_F(AssertTest, AFatalReportIsNotMarked) {
  const Debugger debugger;
  ossAssertFailureAction("fatal", "file", 1, path(), kFatal, nullptr);
  EXPECT_TRUE(reports().starts_with("ASSERTION FAILED!!!\r\n"));
  EXPECT_EQ(reports(), reportText("fatal", "file", 1, kFatal));
}

CHILD_ROLE(assertFarFromGreenwich) {
  const time_t now = std::time(nullptr);
  const int utcHour = std::gmtime(&now)->tm_hour;
  EXPECT_NE(std::localtime(&now)->tm_hour, utcHour);

  ossAssertFailed("x", "file", 1);
  EXPECT_EQ(withoutTimes(readFile(arguments[0])), reportText("x", "file", 1));
  return 0;
}

TEST_F(AssertTest, TheTimeIsLocal) {
  const std::string debug = dir_.file("debug");
  EXPECT_EQ(runChild("assertFarFromGreenwich", {debug},
                     {.environment = {{"TZ", "STD-5"}, {"OSS_DEBUG_LOG_FILE", debug}}}),
            0u);
}

TEST_F(AssertTest, NullTextsAreEmpty) {
  ossAssertFailureAction(nullptr, nullptr, 0, path(), kNotFatal, nullptr);
  EXPECT_EQ(reports(), reportText("", "", 0));
}

TEST_F(AssertTest, TheLineHas64Bits) {
  ossAssertFailureAction("x", "file", kMost64, path(), kNotFatal, nullptr);
  EXPECT_EQ(reports(), reportText("x", "file", 18446744073709551615u));
}

// The time and its line end have 25 characters, "<time>" has 6.
TEST_F(AssertTest, ATextIsCutAfter255Characters) {
  constexpr size_t kMostCharacters = 255 - 25 + 6;
  const size_t empty = reportText("", "file", 1).size();
  const int data = 0;
  for (const size_t more : {size_t{0}, size_t{1}, size_t{2}, size_t{300}}) {
    ::DeleteFileA(file().c_str());
    const std::string expression(kMostCharacters - empty + more, 'x');
    ossAssertFailureAction(expression.c_str(), "file", 1, path(), kNotFatal, &data,
                           uint64_t{sizeof data}, nullptr);
    EXPECT_EQ(reports(), reportText(expression, "file", 1).substr(0, kMostCharacters) +
                             itemText(0, &data, sizeof data))
        << more;
  }
}

// ---- The items ----

TEST_F(AssertTest, EachItemIsDumpedWithItsAddresses) {
  const char first[] = "The quick brown fox jumps over the lazy";
  const uint64_t second = 0x0123456789ABCDEF;
  const char third = 'c';
  ossAssertFailureAction("x", "file", 1, path(), kNotFatal, first, uint64_t{sizeof first}, &second,
                         uint64_t{8}, &third, uint64_t{1}, nullptr);
  EXPECT_EQ(reports(), reportText("x", "file", 1) + itemText(0, first, sizeof first) +
                           itemText(1, &second, 8) + itemText(2, &third, 1));
}

TEST_F(AssertTest, TheItemsEndAtANullPointerOrASizeOfZero) {
  const int a = 1, b = 2;
  const uint64_t size = sizeof a;
  ossAssertFailureAction("null", "file", 1, path(), kNotFatal, nullptr, size, &b, size, nullptr);
  ossAssertFailureAction("zero", "file", 1, path(), kNotFatal, &a, uint64_t{0}, &b, size, nullptr);
  ossAssertFailureAction("later", "file", 1, path(), kNotFatal, &a, size, &b, uint64_t{0}, &a, size,
                         nullptr);
  EXPECT_EQ(reports(), reportText("null", "file", 1) + reportText("zero", "file", 1) +
                           reportText("later", "file", 1) + itemText(0, &a, sizeof a));
}

TEST_F(AssertTest, AnItemShowsTheWholeLinesThatAPageHolds) {
  const std::vector<uint8_t> bytes(1000, uint8_t{'x'});
  const int next = 0;
  ossAssertFailureAction("x", "file", 1, path(), kNotFatal, bytes.data(), uint64_t{bytes.size()},
                         &next, uint64_t{sizeof next}, nullptr);
  EXPECT_EQ(reports(), reportText("x", "file", 1) + itemText(0, bytes.data(), 49 * 16) +
                           itemText(1, &next, sizeof next));
}

// ---- With a dump path ----

TEST_F(AssertTest, ADumpPathIsTheOnlyPlace) {
  DebugLogFile variable(dir_.file("debug"));
  openDefaultFacility(dir_.file("facility"));
  CallCounter looksForATerminal("_isatty");
  ossAssertFailureAction("x", "file", 1, path(), kNotFatal, nullptr);
  EXPECT_EQ(looksForATerminal.calls(), 0);
  EXPECT_THAT(dir_.names().size(), 1u);
  EXPECT_EQ(reports(), reportText("x", "file", 1));
  closeDefaultFacility();
}

TEST_F(AssertTest, ReportsAreAppended) {
  writeFile(file(), "old\n");
  ossAssertFailureAction("one", "file", 1, path(), kNotFatal, nullptr);
  ossAssertFailureAction("two", "file", 2, path(), kNotFatal, nullptr);
  EXPECT_EQ(reports(), "old\n" + reportText("one", "file", 1) + reportText("two", "file", 2));
}

TEST_F(AssertTest, ADumpPathThatIsNotThereIsSkipped) {
  DebugLogFile variable(dir_.file("debug"));
  CallCounter looksForATerminal("_isatty");
  ossAssertFailureAction("x", "file", 1, dir_.file("missing").c_str(), kNotFatal, nullptr);
  EXPECT_EQ(looksForATerminal.calls(), 0);
  EXPECT_THAT(dir_.names(), IsEmpty());
}

// ---- Without one ----

TEST_F(AssertTest, TheVariableNamesTheFile) {
  const Terminal none(false);
  DebugLogFile variable(dir_.file("debug"));
  const int data = 5;
  writeFile(dir_.file("debug"), "old\n");
  ossAssertFailureAction("one", "file", 1, nullptr, kNotFatal, &data, uint64_t{sizeof data},
                         nullptr);
  ossAssertFailureAction("two", "file", 2, "", kNotFatal, nullptr);
  ossAssertFailed("three", "file", 3);
  EXPECT_EQ(withoutTimes(readFile(dir_.file("debug"))),
            "old\n" + reportText("one", "file", 1) + itemText(0, &data, sizeof data) +
                reportText("two", "file", 2) + reportText("three", "file", 3));
  EXPECT_THAT(dir_.names(), ElementsAre("debug"));
}

TEST_F(AssertTest, WithoutTheVariableItIsTheDefaultFacilitysFileOpenOrClosed) {
  const Terminal none(false);
  openDefaultFacility(dir_.file("facility"));
  ossAssertFailed("open", "file", 1);
  closeDefaultFacility();
  ossAssertFailed("closed", "file", 2);
  EXPECT_EQ(withoutTimes(readFile(dir_.file("facility"))),
            reportText("open", "file", 1) + reportText("closed", "file", 2));
}

TEST_F(AssertTest, TheVariableComesBeforeTheDefaultFacility) {
  const Terminal none(false);
  openDefaultFacility(dir_.file("facility"));
  DebugLogFile variable(dir_.file("debug"));
  ossAssertFailed("x", "file", 1);
  EXPECT_THAT(dir_.names(), ElementsAre("debug"));
  closeDefaultFacility();
}

TEST_F(AssertTest, AFileThatCannotBeOpenedIsSkippedAndNotReplaced) {
  const Terminal none(false);
  openDefaultFacility(dir_.file("facility"));
  DebugLogFile variable(dir_.file("missing\\debug"));
  ossAssertFailed("x", "file", 1);
  EXPECT_THAT(dir_.names(), IsEmpty());
  closeDefaultFacility();
}

// ---- Standard output ----

// Reports a failure with two items, and tells arguments[0] what it should say.
void reportWithItems(const ChildArguments& arguments, uint8_t fatal) {
  static const char kFirst[] = "some bytes of text";
  static const int kSecond = 7;
  writeFile(arguments[0], reportText("x > 0", "some/file.cpp", 42, fatal) +
                              itemText(0, kFirst, sizeof kFirst) +
                              itemText(1, &kSecond, sizeof kSecond));
  ossAssertFailureAction("x > 0", "some/file.cpp", 42, nullptr, fatal, kFirst,
                         uint64_t{sizeof kFirst}, &kSecond, uint64_t{sizeof kSecond}, nullptr);
}

CHILD_ROLE(assertOnATerminal) {
  const Terminal terminal(true);
  reportWithItems(arguments, kNotFatal);
  return 0;
}
CHILD_ROLE(assertOnNoTerminal) {
  const Terminal none(false);
  reportWithItems(arguments, kNotFatal);
  return 0;
}
CHILD_ROLE(assertFatallyOnATerminal) {
  const Terminal terminal(true);
  reportWithItems(arguments, kFatal);
  return 0;
}

// What was printed to make this of it: standard output puts a CR in front of each line end.
std::string asPrinted(const std::string& output) {
  std::string text;
  for (const char c : output) {
    if (c == '\n') {
      EXPECT_TRUE(text.ends_with('\r')) << output;
      text.pop_back();
    }
    text += c;
  }
  return text;
}

// Plays the role in a directory of its own.
struct AssertingChild {
  AssertingChild(const std::string& role, ChildOptions options) {
    options.outputFile = dir.file("output");
    exitCode = runChild(role, {dir.file("expected")}, options);
    printed = withoutTimes(asPrinted(readFile(options.outputFile)));
    expected = readFile(dir.file("expected"));
  }

  TempDirectory dir;
  uint32_t exitCode;
  std::string printed, expected;
};

TEST(AssertOutput, ATerminalShowsTheReportAndItsItems) {
  const AssertingChild child("assertOnATerminal", {});
  EXPECT_EQ(child.exitCode, 0u);
  EXPECT_EQ(child.printed, child.expected);
  EXPECT_THAT(child.dir.names(), ElementsAre("expected", "output"));
}

TEST(AssertOutput, ATerminalDoesNotReplaceTheFile) {
  TempDirectory dir;
  const AssertingChild child("assertOnATerminal",
                             {.environment = {{"OSS_DEBUG_LOG_FILE", dir.file("debug")}}});
  EXPECT_EQ(child.printed, child.expected);
  EXPECT_EQ(withoutTimes(readFile(dir.file("debug"))), child.expected);
}

TEST(AssertOutput, OtherOutputsStayEmpty) {
  TempDirectory dir;
  const AssertingChild child("assertOnNoTerminal",
                             {.environment = {{"OSS_DEBUG_LOG_FILE", dir.file("debug")}}});
  EXPECT_EQ(child.printed, "");
  EXPECT_EQ(withoutTimes(readFile(dir.file("debug"))), child.expected);
}

TEST(AssertOutput, WithNeitherTerminalNorFileNothingIsToBeSeen) {
  TempDirectory current;
  const AssertingChild child("assertOnNoTerminal", {.directory = current.path()});
  EXPECT_EQ(child.exitCode, 0u);
  EXPECT_EQ(child.printed, "");
  EXPECT_THAT(current.names(), IsEmpty());
  EXPECT_THAT(child.dir.names(), ElementsAre("expected", "output"));
}

// ---- Fatal assertions ----

constexpr DWORD kBreakpoint = 0x80000003;

CHILD_ROLE(assertFatally) {
  ossAssertFailureAction("fatal", "file", 1, arguments[0].c_str(), kFatal, nullptr);
  return 0;
}

TEST(AssertFatal, StopsTheProcessAtABreakpoint) {
  TempDirectory dir;
  EXPECT_EQ(runChild("assertFatally", {dir.path()}), kBreakpoint);
  EXPECT_EQ(dir.names().size(), 1u);
}

TEST(AssertFatal, IsOnTheTerminalBeforeTheProcessStops) {
  const AssertingChild child("assertFatallyOnATerminal", {});
  EXPECT_EQ(child.exitCode, kBreakpoint);
  EXPECT_EQ(child.printed, child.expected);
}

TEST_F(AssertTest, AFatalReportIsWrittenThenToldToTheDebuggerThenTheProcessStops) {
  std::string writtenBefore;
  const int data = 0;
  Debugger debugger;
  ImportHook output("OutputDebugStringA", [&](Call& call) {
    writtenBefore = reports();
    return call.passOn();
  });
  ossAssertFailureAction("x", "file", 1, path(), 0x80, &data, uint64_t{sizeof data}, nullptr);
  const std::string text = reportText("x", "file", 1, kFatal);
  EXPECT_EQ(writtenBefore, text + itemText(0, &data, sizeof data));
  ASSERT_EQ(debugger.events.size(), 2u);
  EXPECT_EQ(withoutTimes(debugger.events[0]), text);
  EXPECT_EQ(debugger.events[1], "<stop>");
}

TEST_F(AssertTest, AReportThatIsNotFatalDoesNotReachTheDebugger) {
  CallCounter outputs("OutputDebugStringA");
  CallCounter stops("DebugBreak");
  ossAssertFailureAction("x", "file", 1, path(), kNotFatal, nullptr);
  EXPECT_EQ(outputs.calls() + stops.calls(), 0);
}

// ---- The callback ----

struct Handed {
  const char* expression;
  const char* file;
  uint64_t line;
  const char* dumpPath;
  uint8_t fatal;
  std::vector<std::pair<const void*, uint64_t>> items;

  bool operator==(const Handed&) const = default;
};
std::vector<Handed> g_handed;

void takeReport(const char* expression, const char* file, uint64_t line, const char* dumpPath,
                uint8_t fatal, va_list items) {
  Handed handed = {expression, file, line, dumpPath, fatal, {}};
  while (const void* const address = va_arg(items, const void*))
    handed.items.emplace_back(address, va_arg(items, uint64_t));
  g_handed.push_back(handed);
}

class AssertCallbackTest : public AssertTest {
 protected:
  AssertCallbackTest() {
    g_handed.clear();
    ossSetAssertionCallback(takeReport);
  }
  ~AssertCallbackTest() override { ossSetAssertionCallback(nullptr); }

  static constexpr char kExpression[] = "expression";
  static constexpr char kFile[] = "file";
};

TEST_F(AssertCallbackTest, TheCallbackIsHandedWhatTheCallerPassed) {
  const int a = 1, b = 2;
  ossAssertFailureAction(kExpression, kFile, kMost64, path(), 0x80, &a, uint64_t{4}, &b, kMost64,
                         nullptr);
  ossAssertFailureAction(nullptr, nullptr, 0, nullptr, kNotFatal, nullptr);
  ossAssertFailed(kExpression, kFile, 7);
  EXPECT_THAT(
      g_handed,
      ElementsAre(Handed{kExpression, kFile, kMost64, path(), 0x80, {{&a, 4}, {&b, kMost64}}},
                  Handed{nullptr, nullptr, 0, nullptr, 0, {}},
                  Handed{kExpression, kFile, 7, nullptr, 0, {}}));
}

TEST_F(AssertCallbackTest, TheCallbackReplacesEverythingAlsoOfAFatalAssertion) {
  DebugLogFile variable(dir_.file("debug"));
  CallCounter looksForATerminal("_isatty"), outputs("OutputDebugStringA"), stops("DebugBreak");
  ossAssertFailureAction("x", "file", 1, path(), kFatal, nullptr);
  ossAssertFailureAction("x", "file", 1, nullptr, kFatal, nullptr);
  EXPECT_EQ(g_handed.size(), 2u);
  EXPECT_EQ(looksForATerminal.calls() + outputs.calls() + stops.calls(), 0);
  EXPECT_THAT(dir_.names(), IsEmpty());
}

TEST_F(AssertCallbackTest, NullRemovesTheCallback) {
  ossSetAssertionCallback(nullptr);
  ossAssertFailureAction("x", "file", 1, path(), kNotFatal, nullptr);
  EXPECT_THAT(g_handed, IsEmpty());
  EXPECT_EQ(reports(), reportText("x", "file", 1));
}

}  // namespace
