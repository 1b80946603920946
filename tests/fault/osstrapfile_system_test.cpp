// The trap file section by section, byte by byte.
#include "fault/osstrapfixture.h"

using namespace osse_test;
using namespace testing;
using namespace std::string_literals;

namespace {

SYSTEMTIME localTime() {
  SYSTEMTIME now;
  ::GetLocalTime(&now);
  return now;
}

uint64_t ticksOf(const void* time) {
  FILETIME ticks;
  EXPECT_TRUE(::SystemTimeToFileTime(static_cast<const SYSTEMTIME*>(time), &ticks));
  return uint64_t{ticks.dwHighDateTime} << 32 | ticks.dwLowDateTime;
}

// ---- The layout ----

TEST(TrapFileLayout, OfTheObject) {
  struct Fields : OSSTrapFile {
    static size_t headerAt() {
      const Fields file;
      return static_cast<size_t>(reinterpret_cast<const char*>(&file.header_) -
                                 reinterpret_cast<const char*>(&file));
    }
  };
  EXPECT_EQ(Fields::headerAt(), 8u);
  const OSSTrapFile file;
  HANDLE process;
  std::memcpy(&process, reinterpret_cast<const char*>(&file) + 672, sizeof process);
  EXPECT_EQ(process, ::GetCurrentProcess());
}

TEST(TrapFileLayout, OfTheSystemsRecords) {
  EXPECT_EQ(sizeof(SYSTEM_INFO), 48u);
  EXPECT_EQ(sizeof(OSVERSIONINFOA), 148u);
  EXPECT_EQ(sizeof(MEMORYSTATUSEX), 64u);
  EXPECT_EQ(sizeof(MEMORYSTATUS), 56u);
  EXPECT_EQ(sizeof(EXCEPTION_RECORD), 152u);
  EXPECT_EQ(sizeof(CONTEXT), 1232u);
  EXPECT_EQ(sizeof(STACKFRAME64), 264u);
  EXPECT_EQ(sizeof(API_VERSION), 8u);
}

// ---- When anything is written ----

TEST_F(TrapFileTest, NothingIsDumpedBeforeInitialize) {
  const std::string path = newPath();
  OpenTrapFile file(path);
  file.dump(OSS_TRAP_ALL, 0, &exception_, &context_);
  EXPECT_EQ(readFile(path), "");
}

TEST_F(TrapFileTest, NothingIsDumpedWithoutAFile) {
  OSSTrapFile file;
  file.initialize(0, &exception_, &context_, nullptr);
  file.dump(OSS_TRAP_ALL, 0, &exception_, &context_);
  EXPECT_FALSE(file.isValid());
}

TEST_F(TrapFileTest, NoSectionIsNoByte) {
  EXPECT_EQ(dump(0).left(), 0u);
  EXPECT_EQ(dump(~OSS_TRAP_ALL).left(), 0u);
}

// ---- The header ----

TEST_F(TrapFileTest, TheHeaderTellsWhoAndWhen) {
  const SYSTEMTIME before = localTime();
  TrapBytes file = dump(OSS_TRAP_HEADER);
  const SYSTEMTIME after = localTime();
  const auto header = file.take<OSSTrapHeader>();
  EXPECT_EQ(file.left(), 0u);

  EXPECT_EQ(std::string(header.eyeCatcher, 8), "*TPHDE64");
  EXPECT_EQ(header.processId, ::GetCurrentProcessId());
  EXPECT_EQ(header.threadId, ::GetCurrentThreadId());
  EXPECT_EQ(header.instructions, context_.Rip - 32);
  EXPECT_LE(ticksOf(&before), ticksOf(&header.time));
  EXPECT_LE(ticksOf(&header.time), ticksOf(&after));
  EXPECT_EQ(header.contents, OSS_TRAP_HAS_EXCEPTION | OSS_TRAP_HAS_CONTEXT | OSS_TRAP_HAS_CONTROL |
                                 OSS_TRAP_HAS_INSTRUCTIONS | OSS_TRAP_HAS_LIBRARY_VERSION);
  EXPECT_EQ(header.reserved, 0);
  EXPECT_EQ(header.modules, 0);
  char executable[260] = {};
  ::GetModuleFileNameA(nullptr, executable, sizeof executable);
  EXPECT_EQ(bytesOf(header.executable), bytesOf(executable));
  EXPECT_EQ(bytesOf(header.reserved2), std::string(80, '\0'));
  EXPECT_EQ(header.instructionBytes, 64u);
}

TEST_F(TrapFileTest, WhoMayBeSetBefore) {
  OpenTrapFile file(newPath());
  file.header().processId = 11;
  file.header().threadId = 22;
  file.initialize(0, nullptr, nullptr, nullptr);
  EXPECT_EQ(file.header().processId, 11u);
  EXPECT_EQ(file.header().threadId, 22u);

  file.header().processId = 0;
  file.header().threadId = 0;
  file.initialize(0, nullptr, nullptr, nullptr);
  EXPECT_EQ(file.header().processId, ::GetCurrentProcessId());
  EXPECT_EQ(file.header().threadId, ::GetCurrentThreadId());
}

TEST_F(TrapFileTest, TheContentsFollowWhatIsGiven) {
  OpenTrapFile file(newPath());
  const auto contents = [&](EXCEPTION_RECORD* exception, CONTEXT* context) {
    file.initialize(~0u, exception, context, nullptr);
    EXPECT_TRUE(file.header().contents & OSS_TRAP_HAS_LIBRARY_VERSION);
    return file.header().contents & ~OSS_TRAP_HAS_LIBRARY_VERSION;
  };
  EXPECT_EQ(contents(nullptr, nullptr), 0u);
  EXPECT_EQ(contents(&exception_, nullptr), OSS_TRAP_HAS_EXCEPTION);
  EXPECT_EQ(contents(nullptr, &context_),
            OSS_TRAP_HAS_CONTEXT | OSS_TRAP_HAS_CONTROL | OSS_TRAP_HAS_INSTRUCTIONS);
  for (const DWORD flags : {0x100000u, 0x1u, 0x10000Eu}) {
    context_.ContextFlags = flags;
    EXPECT_EQ(contents(nullptr, &context_), OSS_TRAP_HAS_CONTEXT) << flags;
    EXPECT_EQ(file.header().instructionBytes, 0u);
  }
  context_.ContextFlags = 0x100001;
  context_.Rip = 0;
  EXPECT_EQ(contents(nullptr, &context_), OSS_TRAP_HAS_CONTEXT | OSS_TRAP_HAS_CONTROL);
  EXPECT_EQ(file.header().instructions, 1u);
  EXPECT_EQ(file.header().instructionBytes, 0u);
}

// What the file holds already is told all the same.
TEST_F(TrapFileTest, TheContentsThatInitializeDoesNotDecideStay) {
  OpenTrapFile file(newPath());
  const uint32_t others = ~0x3Bu;
  file.header().contents = ~0u;
  file.initialize(0, nullptr, nullptr, nullptr);
  EXPECT_EQ(file.header().contents, others | OSS_TRAP_HAS_LIBRARY_VERSION);
  file.header().contents = others & ~OSS_TRAP_HAS_MODULES;
  file.initialize(0, &exception_, &context_, nullptr);
  EXPECT_EQ(file.header().contents, ~OSS_TRAP_HAS_MODULES);
}

TEST_F(TrapFileTest, NoMoreThan64InstructionBytesAreCounted) {
  const std::string path = newPath();
  OpenTrapFile file(path);
  file.initialize(0, nullptr, &context_, nullptr);
  file.header().instructionBytes = 65;
  file.dump(OSS_TRAP_HEADER | OSS_TRAP_STACK, 0, nullptr, nullptr);
  TrapBytes bytes(readFile(path));
  EXPECT_EQ(bytes.take<OSSTrapHeader>().instructionBytes, 64u);
  EXPECT_EQ(bytes.take(bytes.left()),
            std::string(reinterpret_cast<const char*>(context_.Rip - 32), 64));
}

// Pages as the system maps them: what can be read lies between two that cannot.
TEST_F(TrapFileTest, InstructionsAtPageBordersAreCapturedAsFarAsTheyGo) {
  constexpr size_t kPage = 4096;
  auto* const pages = static_cast<char*>(
      ::VirtualAlloc(nullptr, 3 * kPage, MEM_RESERVE | MEM_COMMIT, PAGE_NOACCESS));
  char* const page = pages + kPage;
  DWORD old = 0;
  ASSERT_TRUE(::VirtualProtect(page, kPage, PAGE_READWRITE, &old));
  for (size_t i = 0; i < kPage; ++i) page[i] = static_cast<char>(i * 7);
  const auto captured = [this](const char* instruction) {
    context_.Rip = reinterpret_cast<DWORD64>(instruction);
    TrapBytes file = dump(OSS_TRAP_HEADER);
    return file.take<OSSTrapHeader>().instructionBytes;
  };

  EXPECT_EQ(captured(page + 3), 0u);  // 3 bytes behind a page that cannot be read
  EXPECT_EQ(captured(page + 31), 0u);
  EXPECT_EQ(captured(page + 32), 64u);
  EXPECT_EQ(captured(page + kPage - 39), 64u);
  EXPECT_EQ(captured(page + kPage - 38), 63u);
  EXPECT_EQ(captured(page + kPage - 8), 33u);
  EXPECT_EQ(captured(page + kPage), 25u);
  EXPECT_EQ(captured(page + kPage + 24), 1u);
  EXPECT_EQ(captured(page + kPage + 25), 0u);

  context_.Rip = reinterpret_cast<DWORD64>(page + kPage - 8);
  TrapBytes file = dump(OSS_TRAP_STACK);
  EXPECT_EQ(file.take(33), std::string(page + kPage - 40, 33));
  ::VirtualFree(pages, 0, MEM_RELEASE);
}

// ---- System ----

BOOL WINAPI extendedStatus(MEMORYSTATUSEX* status) {
  EXPECT_EQ(status->dwLength, sizeof *status);
  std::memset(status, 'E', sizeof *status);
  return TRUE;
}
void WINAPI plainStatus(MEMORYSTATUS* status) {
  EXPECT_EQ(status->dwLength, sizeof *status);
  std::memset(status, 'P', sizeof *status);
}

TEST_F(TrapFileTest, TheSystemIsThreeRecords) {
  SYSTEM_INFO processor = {};
  ::GetSystemInfo(&processor);
  OSVERSIONINFOA version = {};
  version.dwOSVersionInfoSize = sizeof version;
  ASSERT_TRUE(::GetVersionExA(&version));

  struct Case {
    bool hasExtended, hasPlain;
    std::string status;
    uint32_t contents;
  };
  for (const Case& known :
       {Case{true, true, std::string(64, 'E'), OSS_TRAP_HAS_EXTENDED_MEMORY},
        Case{false, true, std::string(56, 'P'), OSS_TRAP_HAS_MEMORY}, Case{false, false, "", 0}}) {
    ImportHook find("GetProcAddress", [&known](Call& call) {
      const std::string_view name = call.argument<const char*>(1);
      if (name == "GlobalMemoryStatusEx")
        return known.hasExtended ? reinterpret_cast<Word>(&extendedStatus) : 0;
      if (name == "GlobalMemoryStatus")
        return known.hasPlain ? reinterpret_cast<Word>(&plainStatus) : 0;
      return call.passOn();
    });
    TrapBytes file = dump(OSS_TRAP_SYSTEM);
    EXPECT_EQ(file.take(48), bytesOf(processor));
    EXPECT_EQ(file.take(148), bytesOf(version));
    EXPECT_EQ(file.take(file.left()), known.status);
    EXPECT_EQ(header_.contents & (OSS_TRAP_HAS_EXTENDED_MEMORY | OSS_TRAP_HAS_MEMORY),
              known.contents);
  }
}

// ---- Environment ----

TEST_F(TrapFileTest, TheEnvironmentIsEachStringAndTheMarker) {
  ASSERT_TRUE(::SetEnvironmentVariableA("OSSE_TRAP_TEST", "a value"));
  std::string expected;
  const auto add = [&expected](std::string_view text) {
    expected += bytesOf(uint64_t{text.size()});
    expected += text;
  };
  char* const strings = ::GetEnvironmentStringsA();
  for (const char* at = strings; *at != '\0'; at += std::strlen(at) + 1) add(at);
  ::FreeEnvironmentStringsA(strings);
  add("**L*E*R*M**");

  TrapBytes file = dump(OSS_TRAP_ENVIRONMENT);
  const std::string found = file.take(file.left());
  EXPECT_EQ(found, expected);
  EXPECT_THAT(found, HasSubstr("\x16\0\0\0\0\0\0\0OSSE_TRAP_TEST=a value"s));
}

// ---- Exception and context ----

TEST_F(TrapFileTest, TheExceptionAndTheContextAreRaw) {
  EXPECT_EQ(dump(OSS_TRAP_EXCEPTION).take(152), bytesOf(exception_));
  EXPECT_EQ(dump(OSS_TRAP_CONTEXT).take(1232), bytesOf(context_));
  TrapBytes both = dump(OSS_TRAP_CONTEXT | OSS_TRAP_EXCEPTION);
  EXPECT_EQ(both.take(152), bytesOf(exception_));
  EXPECT_EQ(both.take(1232), bytesOf(context_));
  EXPECT_EQ(both.left(), 0u);
}

TEST_F(TrapFileTest, WhatIsNotGivenIsLeftOut) {
  const std::string path = newPath();
  OpenTrapFile file(path);
  file.initialize(0, &exception_, &context_, nullptr);
  file.dump(OSS_TRAP_EXCEPTION | OSS_TRAP_CONTEXT, 0, nullptr, nullptr);
  EXPECT_EQ(readFile(path), "");
  file.dump(OSS_TRAP_STACK, 0, nullptr, nullptr);
  EXPECT_EQ(readFile(path), std::string(reinterpret_cast<const char*>(context_.Rip - 32), 64));
}

// ---- Version of the debugging-help library ----

TEST_F(TrapFileTest, TheLibraryVersionIsRaw) {
  const API_VERSION version = *ossImagehlpApiVersion();
  TrapBytes file = dump(OSS_TRAP_LIBRARY_VERSION);
  EXPECT_EQ(file.take(8), bytesOf(version));
  EXPECT_EQ(file.left(), 0u);
}

// ---- All together ----

TEST_F(TrapFileTest, TheSectionsFollowInTheirOrder) {
  TrapBytes file = dump(OSS_TRAP_ALL);
  const auto header = file.take<OSSTrapHeader>();
  EXPECT_EQ(header.contents, 0x43Fu);
  SYSTEM_INFO processor = {};
  ::GetSystemInfo(&processor);
  EXPECT_EQ(file.take(48), bytesOf(processor));
  file.take(148);
  EXPECT_EQ(file.take<MEMORYSTATUSEX>().dwLength, 64u);
  std::string string;
  do {
    string = file.take(file.take<uint64_t>());
  } while (string != "**L*E*R*M**" && file.left() > 0);
  EXPECT_EQ(file.take(152), bytesOf(exception_));
  EXPECT_EQ(file.take(1232), bytesOf(context_));
  const std::vector<OSSTrapModule> modules = takeModules(file, header.modules);
  EXPECT_EQ(file.take(8), bytesOf(*ossImagehlpApiVersion()));
  EXPECT_EQ(file.take(64), std::string(reinterpret_cast<const char*>(context_.Rip - 32), 64));
  takeFrames(file);
  file.take(file.take<uint64_t>() * 8);
  EXPECT_EQ(file.take<uint64_t>(), modules.size());
  for (const OSSTrapModule& module : modules) EXPECT_EQ(file.take(304), bytesOf(module));
  EXPECT_EQ(file.left(), 0u);
}

// ---- The symbol search path ----

std::string searchPath() {
  char text[1000] = {};
  EXPECT_TRUE(ossSymGetSearchPath(::GetCurrentProcess(), text, sizeof text));
  return text;
}

TEST_F(TrapFileTest, TheSearchPathIsInstalledForTheObjectsLife) {
  { OSSTrapFile().initialize(0, nullptr, nullptr, nullptr); }
  ASSERT_TRUE(ossSymSetSearchPath(::GetCurrentProcess(), "C:\\before"));
  {
    OSSTrapFile file;
    file.initialize(0, nullptr, nullptr, nullptr);
    EXPECT_EQ(searchPath(), "C:\\before");
    file.initialize(0, nullptr, nullptr, "C:\\symbols");
    EXPECT_EQ(searchPath(), "C:\\symbols");
    file.initialize(0, nullptr, nullptr, "C:\\other");
    EXPECT_EQ(searchPath(), "C:\\other");
  }
  EXPECT_EQ(searchPath(), "C:\\before");
  { OSSTrapFile untouched; }
  EXPECT_EQ(searchPath(), "C:\\before");
}

// Deliberate: what it found is put back whoever has installed another since.
TEST_F(TrapFileTest, AnObjectThatInstallsNoSearchPathPutsBackWhatItFound) {
  { OSSTrapFile().initialize(0, nullptr, nullptr, nullptr); }
  ASSERT_TRUE(ossSymSetSearchPath(::GetCurrentProcess(), "C:\\before"));
  {
    OSSTrapFile file;
    file.initialize(0, nullptr, nullptr, nullptr);
    ASSERT_TRUE(ossSymSetSearchPath(::GetCurrentProcess(), "C:\\since"));
  }
  EXPECT_EQ(searchPath(), "C:\\before");
}

TEST_F(TrapFileTest, ALongSearchPathIsPutBackAsFarAs260Characters) {
  { OSSTrapFile().initialize(0, nullptr, nullptr, nullptr); }
  for (const size_t length : {260u, 261u, 700u}) {
    const std::string before = "C:\\" + std::string(length - 3, 'p');
    ASSERT_TRUE(ossSymSetSearchPath(::GetCurrentProcess(), before.c_str()));
    {
      OSSTrapFile file;
      file.initialize(0, nullptr, nullptr, "C:\\symbols");
      EXPECT_EQ(searchPath(), "C:\\symbols");
    }
    EXPECT_EQ(searchPath(), before.substr(0, 260));
  }
}

}  // namespace
