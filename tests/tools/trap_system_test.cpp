// `osse trap` on the trap files of processes that fault, and on what the system itself reads of the
// minidumps.
#include <gmock/gmock.h>
#include <windows.h>
// After <windows.h>, whose types it uses.
#include <dbghelp.h>

#include <nlohmann/json.hpp>

#include "commands.h"
#include "harness/childprocess.h"
#include "harness/tempdir.h"
#include "tools/trapparts.h"
#include "trap/minidumplayout.h"
#include "trap/systemrecords.h"

using namespace osse_test;
using namespace oss::tool;
using Json = nlohmann::json;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

// The records that the tool brings along are the system's.
static_assert(sizeof(oss::tool::SystemInfo) == sizeof(SYSTEM_INFO));
static_assert(sizeof(OsVersion) == sizeof(OSVERSIONINFOA));
static_assert(sizeof(MemoryStatusEx) == sizeof(MEMORYSTATUSEX));
static_assert(sizeof(MemoryStatus) == sizeof(MEMORYSTATUS));
static_assert(sizeof(ExceptionRecord) == sizeof(EXCEPTION_RECORD));
static_assert(sizeof(Context) == sizeof(CONTEXT) &&
              offsetof(Context, rip) == offsetof(CONTEXT, Rip));
static_assert(offsetof(Context, xmm) == offsetof(CONTEXT, Xmm0));
static_assert(sizeof(WalkFrame) == sizeof(STACKFRAME64));
static_assert(offsetof(WalkFrame, stack) == offsetof(STACKFRAME64, AddrStack));
static_assert(offsetof(WalkFrame, isVirtual) == offsetof(STACKFRAME64, Virtual));
static_assert(sizeof(ApiVersion) == sizeof(API_VERSION));
static_assert(sizeof(minidump::Header) == sizeof(MINIDUMP_HEADER));
static_assert(sizeof(minidump::Thread) == sizeof(MINIDUMP_THREAD));
static_assert(sizeof(minidump::Module) == sizeof(MINIDUMP_MODULE));
static_assert(sizeof(minidump::SystemInfo) == sizeof(MINIDUMP_SYSTEM_INFO));
static_assert(sizeof(minidump::ExceptionStream) == sizeof(MINIDUMP_EXCEPTION_STREAM));

namespace {

constexpr uint32_t kTrapped = 77;

// The program beside this one that faults (trapfaults.cpp).
Child startFault(const std::string& how, const std::string& path) {
  char program[MAX_PATH];
  ::GetModuleFileNameA(nullptr, program, sizeof program);
  std::string line = program;
  line.replace(line.rfind('\\') + 1, std::string::npos, "trapfaults.exe");
  line = '"' + line + "\" " + how + ' ' + path;
  STARTUPINFOA startup = {};
  startup.cb = sizeof startup;
  PROCESS_INFORMATION created = {};
  EXPECT_TRUE(::CreateProcessA(nullptr, line.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr,
                               &startup, &created));
  ::CloseHandle(created.hThread);
  return {created.hProcess, "trapfaults"};
}

Json shown(const TempDirectory& dir, const std::string& name) {
  const TrapShowCommand show{
      .file = dir.file(name), .output = dir.file(name + ".json"), .json = true, .full = false};
  EXPECT_EQ(show.run(), kDone);
  return Json::parse(readFile(dir.file(name + ".json")));
}

// A minidump as the system's own reader finds its streams.
class Minidump {
 public:
  explicit Minidump(std::string bytes) : bytes_(std::move(bytes)) {}

  template <class Stream>
  const Stream& stream(ULONG type) {
    void* found = nullptr;
    ULONG size = 0;
    EXPECT_TRUE(::MiniDumpReadDumpStream(bytes_.data(), type, nullptr, &found, &size)) << type;
    EXPECT_GE(size, sizeof(Stream));
    return *static_cast<const Stream*>(found);
  }
  template <class Record>
  const Record& at(RVA rva) const {
    return *reinterpret_cast<const Record*>(bytes_.data() + rva);
  }

 private:
  std::string bytes_;
};

Minidump exported(const TempDirectory& dir, const std::string& name) {
  const TrapExportCommand command{.file = dir.file(name), .minidump = dir.file(name + ".dmp")};
  EXPECT_EQ(command.run(), kDone);
  return Minidump(readFile(dir.file(name + ".dmp")));
}

}  // namespace

TEST(TrapSystem, AFaultIsShownAsItHappened) {
  struct Fault {
    const char* kind;
    const char* name;
    const char* instruction;  // its first bytes
  };
  constexpr Fault kFaults[] = {{"write", "access violation", "C7"},
                               {"divide", "integer divide by zero", "F7"},
                               {"illegal", "illegal instruction", "0F0B"}};
  const TempDirectory dir;
  std::vector<Child> children;
  for (const Fault& fault : kFaults)
    children.push_back(startFault(fault.kind, dir.file(fault.kind)));
  for (size_t i = 0; i < std::size(kFaults); ++i) {
    const Fault& fault = kFaults[i];
    SCOPED_TRACE(fault.kind);
    const uint32_t process = children[i].id();
    ASSERT_EQ(children[i].wait(), kTrapped);

    const Json trap = shown(dir, fault.kind);
    EXPECT_EQ(trap["problems"], Json::array());
    EXPECT_EQ(trap["sections"].size(), 9u);
    EXPECT_EQ(trap["header"]["process"], process);
    EXPECT_EQ(trap["exception"]["name"], fault.name);
    EXPECT_THAT(trap["exception"]["place"], StartsWith("trapfaults+0x"));
    EXPECT_EQ(trap["exception"]["address"], trap["registers"]["rip"]);
    EXPECT_EQ(trap["instructions"]["bytes"].get<std::string>().substr(64).find(fault.instruction),
              0u);
    EXPECT_EQ(trap["frames"][0]["pc"], trap["registers"]["rip"]);
    EXPECT_THAT(trap["frames"][1]["place"], StartsWith("trapfaults+0x"));
    EXPECT_EQ(trap["stack"]["address"], trap["registers"]["rsp"]);
    EXPECT_EQ(trap["modules"].size(), trap["header"]["modules"]);
    EXPECT_EQ(trap["modules"], trap["moduleSection"]);
    EXPECT_FALSE(trap["environment"].empty());
  }
  EXPECT_EQ(shown(dir, "write")["exception"]["access"], "write");
  EXPECT_EQ(shown(dir, "write")["exception"]["accessAddress"], "0x0000000000000010");
}

TEST(TrapSystem, TheSystemReadsTheMinidump) {
  const TempDirectory dir;
  ASSERT_EQ(startFault("write", dir.file("trap")).wait(), kTrapped);
  const Json trap = shown(dir, "trap");
  Minidump dump = exported(dir, "trap");

  const auto& system = dump.stream<MINIDUMP_SYSTEM_INFO>(SystemInfoStream);
  EXPECT_EQ(system.ProcessorArchitecture, PROCESSOR_ARCHITECTURE_AMD64);
  EXPECT_EQ(system.PlatformId, DWORD{VER_PLATFORM_WIN32_NT});
  EXPECT_EQ(dump.stream<ULONG32>(MiscInfoStream), sizeof(minidump::MiscInfo));

  const auto& exception = dump.stream<MINIDUMP_EXCEPTION_STREAM>(ExceptionStream);
  EXPECT_EQ(exception.ExceptionRecord.ExceptionCode, STATUS_ACCESS_VIOLATION);
  EXPECT_EQ(exception.ExceptionRecord.ExceptionInformation[1], 16u);
  EXPECT_EQ(exception.ThreadId, trap["header"]["thread"]);
  const auto& context = dump.at<CONTEXT>(exception.ThreadContext.Rva);
  EXPECT_EQ(exception.ThreadContext.DataSize, sizeof context);
  EXPECT_EQ(context.Rip, exception.ExceptionRecord.ExceptionAddress);

  const auto& threads = dump.stream<MINIDUMP_THREAD_LIST>(ThreadListStream);
  ASSERT_EQ(threads.NumberOfThreads, 1u);
  EXPECT_EQ(threads.Threads[0].ThreadId, exception.ThreadId);
  EXPECT_EQ(threads.Threads[0].Stack.StartOfMemoryRange, context.Rsp);
  EXPECT_EQ(threads.Threads[0].Stack.Memory.DataSize, trap["stack"]["words"].get<uint32_t>() * 8);

  const auto& modules = dump.stream<MINIDUMP_MODULE_LIST>(ModuleListStream);
  ASSERT_EQ(modules.NumberOfModules, trap["modules"].size());
  bool isInModule = false;
  for (ULONG32 i = 0; i < modules.NumberOfModules; ++i) {
    const MINIDUMP_MODULE& module = modules.Modules[i];
    if (context.Rip < module.BaseOfImage || context.Rip - module.BaseOfImage >= module.SizeOfImage)
      continue;
    isInModule = true;
    const auto& name = dump.at<MINIDUMP_STRING>(module.ModuleNameRva);
    const std::wstring text(name.Buffer, name.Length / sizeof(wchar_t));
    EXPECT_NE(text.find(L"trapfaults"), std::wstring::npos);
  }
  EXPECT_TRUE(isInModule);
}

TEST(TrapSystem, ATextGoesToTheOutputAndTellsWhatIsDamaged) {
  const TempDirectory dir;
  writeFile(dir.file("trap"), TrapParts().whole().substr(0, 3000));
  const TrapShowCommand show{
      .file = dir.file("trap"), .output = dir.file("text"), .json = false, .full = false};
  EXPECT_EQ(show.run(), kDone);
  EXPECT_THAT(readFile(dir.file("text")), StartsWith("[header]\nprocess              4242\n"));
  EXPECT_THAT(readFile(dir.file("text")),
              EndsWith("\n[problems, 1]\nat 0xA9A: the file is cut off in a module record\n"));
}

TEST(TrapSystem, WhatIsNoTrapFileIsRefusedAndNothingWritten) {
  const TempDirectory dir;
  writeFile(dir.file("text"), "a text");
  const TrapShowCommand show{
      .file = dir.file("text"), .output = dir.file("output"), .json = false, .full = false};
  EXPECT_EQ(show.run(), kFailed);
  EXPECT_EQ((TrapExportCommand{.file = dir.file("text"), .minidump = dir.file("dump")}.run()),
            kFailed);
  EXPECT_EQ((TrapExportCommand{.file = dir.file("none"), .minidump = dir.file("dump")}.run()),
            kFailed);
  EXPECT_THAT(dir.names(), testing::ElementsAre("text"));
}

// As a handler appends them: each fault is whole, and the last one is shown unless another is asked
// for.
TEST(TrapSystem, EachFaultOfAFileIsShown) {
  const TempDirectory dir;
  ASSERT_EQ(startFault("divide", dir.file("trap")).wait(), kTrapped);
  ASSERT_EQ(startFault("write", dir.file("trap")).wait(), kTrapped);
  const auto run = [&](uint64_t dump, int expected, const std::string& complaint) {
    const TrapShowCommand show{.file = dir.file("trap"),
                               .output = dir.file("json"),
                               .json = true,
                               .full = false,
                               .dump = dump};
    testing::internal::CaptureStderr();
    EXPECT_EQ(show.run(), expected);
    const std::string told = testing::internal::GetCapturedStderr();
    EXPECT_EQ(told, complaint.empty() ? "" : "osse: " + dir.file("trap") + complaint + '\n');
    return expected == kDone ? Json::parse(readFile(dir.file("json"))) : Json();
  };
  const Json last = run(0, kDone, ": holds 2 dumps, and this is the last; see --dump");
  EXPECT_EQ(last["dump"], (Json{{"number", 2}, {"of", 2}}));
  EXPECT_EQ(last["exception"]["name"], "access violation");
  EXPECT_EQ(last["problems"], Json::array());
  EXPECT_EQ(last["sections"].size(), 9u);

  const Json first = run(1, kDone, "");
  EXPECT_EQ(first["dump"], (Json{{"number", 1}, {"of", 2}}));
  EXPECT_EQ(first["exception"]["name"], "integer divide by zero");
  EXPECT_EQ(first["problems"], Json::array());
  EXPECT_EQ(run(2, kDone, ""), last);
  run(3, kFailed, ": holds no dump 3, the last is 2");

  const TrapExportCommand exporting{
      .file = dir.file("trap"), .minidump = dir.file("dump"), .dump = 1};
  EXPECT_EQ(exporting.run(), kDone);
  Minidump dump(readFile(dir.file("dump")));
  EXPECT_EQ(dump.stream<MINIDUMP_EXCEPTION_STREAM>(ExceptionStream).ExceptionRecord.ExceptionCode,
            DWORD{STATUS_INTEGER_DIVIDE_BY_ZERO});
}

TEST(TrapSystem, WhatIsWrongIsToldInOneLine) {
  const TempDirectory dir;
  const auto complaintOf = [&](const std::string& bytes) {
    writeFile(dir.file("trap"), bytes);
    const TrapExportCommand command{.file = dir.file("trap"), .minidump = dir.file("dump")};
    testing::internal::CaptureStderr();
    EXPECT_EQ(command.run(), kDone);
    return testing::internal::GetCapturedStderr();
  };
  const std::string start = "osse: " + dir.file("trap") + ": ";
  const std::string whole = TrapParts().whole();
  EXPECT_EQ(complaintOf(whole.substr(0, whole.size() - 1)),
            start + "is damaged or cut off at 0x319A: the file is cut off in a module record\n");
  EXPECT_EQ(complaintOf("text" + whole.substr(0, whole.size() - 1)),
            start +
                "is damaged or cut off, 2 problems; the first is at 0x0: 4 bytes stand in front of "
                "the header\n");
  TrapParts parts;
  parts.system.clear();
  EXPECT_EQ(complaintOf(parts.whole()),
            start + "does not have the system: x64 with no version is assumed\n");
}
