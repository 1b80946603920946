// Trap files of real faults, faults while one is written, and a machine without the debugging-help
// library.
#include <atomic>
#include <thread>

#include "fault/fakedebughelp.h"
#include "fault/osstrapfixture.h"
#include "harness/childprocess.h"
#include "harness/startline.h"
#include "ossmemory.h"
#include "osstime.h"

using namespace osse_test;
using namespace testing;

namespace {

// ---- Real faults, under load ----

const char* trapPath = nullptr;

LONG WINAPI writeTrapFile(EXCEPTION_POINTERS* trap) {
  OSSTrapFile file;
  if (file.open(trapPath, OSS_PRIMITIVE_OPEN_ALWAYS) == 0) {
    file.initialize(0, trap->ExceptionRecord, trap->ContextRecord, nullptr);
    file.dump(OSS_TRAP_ALL, 0, trap->ExceptionRecord, trap->ContextRecord);
    file.close();
  }
  return EXCEPTION_EXECUTE_HANDLER;
}

// Allocates and waits, and some of the threads walk their stacks, over and over.
void load(StartLine& line, bool walks) {
  line.pass();
  for (;;) {
    void* block = nullptr;
    ossMemAlloc(&block, nullptr, 100, 0, __FILE__, __LINE__);
    uint64_t addresses[4];
    if (walks) ossWalkStackCollect(0, addresses, 4);
    ossMemFree(&block, nullptr, 0, __FILE__, __LINE__);
    ossSleep(1);  // the test is about what happens at once, not about a machine without time
  }
}

[[gnu::noinline]] void divideByZero() {
  __asm__ volatile("xorl %%ecx, %%ecx\n xorl %%edx, %%edx\n movl $1, %%eax\n idivl %%ecx" ::
                       : "eax", "ecx", "edx");
}
[[gnu::noinline]] void executeNoInstruction() { __asm__ volatile("ud2"); }

struct Fault {
  const char* name;
  void (*function)();
  DWORD code;
};
const Fault kFaults[] = {{"write", writeToNothing, EXCEPTION_ACCESS_VIOLATION},
                         {"divide", divideByZero, EXCEPTION_INT_DIVIDE_BY_ZERO},
                         {"illegal", executeNoInstruction, EXCEPTION_ILLEGAL_INSTRUCTION}};

CHILD_ROLE(faultUnderLoad) {
  trapPath = arguments[1].c_str();
  ::SetUnhandledExceptionFilter(writeTrapFile);
  constexpr int kThreads = 8;
  StartLine line(kThreads + 1);
  for (int i = 0; i < kThreads; ++i) std::thread([&line, i] { load(line, i < 2); }).detach();
  line.pass();
  for (const Fault& fault : kFaults)
    if (arguments[0] == fault.name) fault.function();
  return 0;
}

TEST_F(TrapFileTest, ARealFaultUnderLoadIsTold) {
  const auto program = reinterpret_cast<uint64_t>(::GetModuleHandleA(nullptr));
  for (const Fault& fault : kFaults) {
    SCOPED_TRACE(fault.name);
    const std::string path = newPath();
    EXPECT_EQ(runChild("faultUnderLoad", {fault.name, path}), fault.code);

    TrapBytes file(readFile(path));
    const auto header = file.take<OSSTrapHeader>();
    EXPECT_EQ(header.contents, 0x43Fu);
    EXPECT_EQ(header.instructionBytes, 64u);
    file.take(48 + 148 + 64);
    while (file.left() > 0 && file.take(file.take<uint64_t>()) != "**L*E*R*M**") {
    }
    const auto exception = file.take<EXCEPTION_RECORD>();
    EXPECT_EQ(exception.ExceptionCode, fault.code);
    const auto at = reinterpret_cast<uint64_t>(exception.ExceptionAddress);
    const auto context = file.take<CONTEXT>();
    EXPECT_EQ(context.Rip, at);
    EXPECT_EQ(header.instructions, at - 32);
    const std::vector<OSSTrapModule> modules = takeModules(file, header.modules);
    file.take(8);

    // Where the fault was in the program, and what stood there.
    const auto ofProgram = std::find_if(modules.begin(), modules.end(), [at](const auto& module) {
      return module.base <= at && at < module.end;
    });
    ASSERT_NE(ofProgram, modules.end());
    const uint64_t here = at - ofProgram->base + program;
    EXPECT_GE(here, reinterpret_cast<uint64_t>(fault.function));
    EXPECT_LT(here, reinterpret_cast<uint64_t>(fault.function) + 32);
    EXPECT_EQ(file.take(64), std::string(reinterpret_cast<const char*>(here - 32), 64));

    const std::vector<STACKFRAME64> frames = takeFrames(file);
    ASSERT_GT(frames.size(), 2u);
    EXPECT_EQ(frames[0].AddrPC.Offset, at);
    EXPECT_EQ(frames.back().AddrReturn.Offset, 0u);
    EXPECT_GT(file.take<uint64_t>(), 0u);
  }
}

// ---- Faults while a trap file is written ----

TEST_F(TrapFileTest, AFaultEndsItsSectionOnly) {
  ImportHook system("GetSystemInfo", [](Call&) { return faultNow(); });
  TrapBytes file = dump(OSS_TRAP_HEADER | OSS_TRAP_SYSTEM | OSS_TRAP_EXCEPTION);
  EXPECT_EQ(file.take<OSSTrapHeader>().processId, ::GetCurrentProcessId());
  EXPECT_EQ(file.take(152), bytesOf(exception_));
  EXPECT_EQ(file.left(), 0u);
}

TEST_F(TrapFileTest, AFaultKeepsWhatItsSectionHasWritten) {
  ImportHook version("GetVersionExA", [](Call&) { return faultNow(); });
  TrapBytes file = dump(OSS_TRAP_SYSTEM | OSS_TRAP_EXCEPTION);
  SYSTEM_INFO processor = {};
  ::GetSystemInfo(&processor);
  EXPECT_EQ(file.take(48), bytesOf(processor));
  EXPECT_EQ(file.take(152), bytesOf(exception_));
  EXPECT_EQ(file.left(), 0u);
}

// The fault comes while the enumeration's mutex is held.
TEST_F(TrapFileTest, AFaultUnderAMutexReleasesIt) {
  dump(OSS_TRAP_ALL);  // so every function has been looked up
  int modules = 0;
  ImportHook marker("GetProcAddress",
                    [&modules](Call& call) { return ++modules == 2 ? faultNow() : call.passOn(); });
  TrapBytes file = dump(OSS_TRAP_HEADER | OSS_TRAP_MODULES | OSS_TRAP_LIBRARY_VERSION);
  EXPECT_THAT(heldGuards(), IsEmpty());
  const auto header = file.take<OSSTrapHeader>();
  EXPECT_EQ(header.modules, 1u);
  EXPECT_TRUE(header.contents & OSS_TRAP_HAS_MODULES);
  file.take(304);
  EXPECT_EQ(file.take(8), bytesOf(*ossImagehlpApiVersion()));
  EXPECT_EQ(file.left(), 0u);
}

// Eight threads fault in a section each, all at once.
TEST_F(TrapFileTest, ThreadsThatFaultTogetherEndTheirOwnSections) {
  ImportHook system("GetSystemInfo", [](Call&) { return faultNow(); });
  constexpr int kThreads = 8;
  std::vector<std::string> paths;
  for (int i = 0; i < kThreads; ++i) paths.push_back(newPath());
  StartLine line(kThreads);
  std::vector<std::thread> threads;
  for (const std::string& path : paths)
    threads.emplace_back([this, &line, &path] {
      OpenTrapFile file(path);
      file.initialize(0, nullptr, nullptr, nullptr);
      line.pass();
      for (int i = 0; i < 10; ++i)
        file.dump(OSS_TRAP_SYSTEM | OSS_TRAP_EXCEPTION, 0, &exception_, nullptr);
    });
  for (std::thread& thread : threads) thread.join();
  for (const std::string& path : paths) {
    TrapBytes file(readFile(path));
    for (int i = 0; i < 10; ++i) EXPECT_EQ(file.take(152), bytesOf(exception_));
    EXPECT_EQ(file.left(), 0u);
  }
}

// ---- Broken records ----

// What is handed over may be as broken as the process.
TEST_F(TrapFileTest, UnreadableRecordsEndTheirSections) {
  auto* const page = ::VirtualAlloc(nullptr, 4096, MEM_RESERVE | MEM_COMMIT, PAGE_NOACCESS);
  for (void* const bad : {page, reinterpret_cast<void*>(uintptr_t{0x10})}) {
    const std::string path = newPath();
    OpenTrapFile file(path);
    auto* const exception = static_cast<EXCEPTION_RECORD*>(bad);
    auto* const context = static_cast<CONTEXT*>(bad);
    file.initialize(0, exception, context, nullptr);
    EXPECT_EQ(file.header().contents,
              OSS_TRAP_HAS_EXCEPTION | OSS_TRAP_HAS_CONTEXT | OSS_TRAP_HAS_LIBRARY_VERSION);
    file.dump(OSS_TRAP_EXCEPTION | OSS_TRAP_CONTEXT | OSS_TRAP_STACK | OSS_TRAP_LIBRARY_VERSION, 0,
              exception, context);
    EXPECT_EQ(readFile(path), bytesOf(*ossImagehlpApiVersion()));
  }
  ::VirtualFree(page, 0, MEM_RELEASE);
}

// ---- No debugging-help library ----

CHILD_ROLE(dumpWithoutDebugHelp) {
  ImportHook load("LoadLibraryA", [](Call&) { return Word{0}; });
  std::string told;
  ImportHook debugger("OutputDebugStringA",
                      [&told](Call& call) { told += call.argument<const char*>(0); });
  EXCEPTION_RECORD exception = {};
  CONTEXT context;
  ::RtlCaptureContext(&context);
  {
    OpenTrapFile file(arguments[0]);
    file.initialize(0, &exception, &context, "C:\\symbols");
    file.dump(OSS_TRAP_HEADER | OSS_TRAP_MODULES | OSS_TRAP_LIBRARY_VERSION | OSS_TRAP_STACK |
                  OSS_TRAP_MODULE_SECTION,
              0, &exception, &context);
    EXPECT_EQ(file.header().contents, OSS_TRAP_HAS_EXCEPTION | OSS_TRAP_HAS_CONTEXT |
                                          OSS_TRAP_HAS_CONTROL | OSS_TRAP_HAS_INSTRUCTIONS);
  }
  EXPECT_EQ(told, "ossSymRegisterCallback failed: errcode=126\n");

  TrapBytes file(readFile(arguments[0]));
  EXPECT_EQ(file.take<OSSTrapHeader>().modules, 0u);
  EXPECT_EQ(file.take(64), std::string(reinterpret_cast<const char*>(context.Rip - 32), 64));
  EXPECT_EQ(file.take<uint64_t>(), 0u);
  EXPECT_EQ(file.left(), 0u);
  return 0;
}

TEST_F(TrapFileTest, WithoutTheDebuggingHelpLibraryTheRestIsWritten) {
  EXPECT_EQ(runChild("dumpWithoutDebugHelp", {newPath()}), 0u);
}

}  // namespace
