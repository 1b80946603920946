// The module records: written as they are found, kept for a later file, in a section of their own.
#include <cctype>

#include "fault/osstrapfixture.h"
#include "harness/childprocess.h"
#include "harness/sharedobjects.h"
#include "osscatalog.h"

using namespace osse_test;
using namespace testing;

namespace {

// What the enumeration names, with what the system tells about it.
std::vector<OSSTrapModule> expectedModules() {
  std::vector<OSSTrapModule> modules;
  const auto note = [](const char* name, uint64_t base, unsigned long size, void* list) {
    OSSTrapModule module;
    std::snprintf(module.name, 261, "%s", name);
    auto* const image = reinterpret_cast<HMODULE>(base);
    module.marker = reinterpret_cast<uint64_t>(::GetProcAddress(image, "sqlzThisIsAKT5Library"));
    module.base = base;
    module.end = base + size;
    module.timeStamp = ossGetTimestampForLoadedLibrary(image);
    static_cast<std::vector<OSSTrapModule>*>(list)->push_back(module);
    return 1;
  };
  EXPECT_TRUE(ossEnumerateLoadedModules(::GetCurrentProcess(), note, &modules));
  return modules;
}

std::string bytesOfAll(const std::vector<OSSTrapModule>& modules) {
  std::string bytes;
  for (const OSSTrapModule& module : modules) bytes += bytesOf(module);
  return bytes;
}

TEST_F(TrapFileTest, TheModulesAreWrittenAndTheHeaderAgain) {
  ossSymInitialize(::GetCurrentProcess(), nullptr,
                   FALSE);  // so the debugging-help library is there
  const std::vector<OSSTrapModule> expected = expectedModules();
  TrapBytes file = dump(OSS_TRAP_HEADER | OSS_TRAP_MODULES | OSS_TRAP_LIBRARY_VERSION);
  const auto header = file.take<OSSTrapHeader>();
  EXPECT_EQ(header.modules, expected.size());
  EXPECT_TRUE(header.contents & OSS_TRAP_HAS_MODULES);
  EXPECT_FALSE(header.contents & OSS_TRAP_HAS_KEPT_MODULES);
  EXPECT_EQ(file.take(expected.size() * 304), bytesOfAll(expected));
  // What follows is behind the modules, not behind the header.
  EXPECT_EQ(file.take(8), bytesOf(*ossImagehlpApiVersion()));
  EXPECT_EQ(file.left(), 0u);

  size_t ours = 0;
  for (const OSSTrapModule& module : expected) {
    if (module.marker == 0) continue;
    ++ours;
    EXPECT_EQ(module.marker, reinterpret_cast<uint64_t>(&sqlzThisIsAKT5Library));
    std::string name = module.name;
    for (char& c : name) c = static_cast<char>(std::toupper(c));
    EXPECT_THAT(name, HasSubstr("KT5OSSE_INSTALL64"));
  }
  EXPECT_EQ(ours, 1u);
}

TEST_F(TrapFileTest, TheHeaderIsWrittenAgainWhereItWas) {
  const std::string path = newPath();
  OpenTrapFile file(path);
  file.write("in front", 0);
  file.initialize(0, nullptr, nullptr, nullptr);
  file.dump(OSS_TRAP_HEADER, 0, nullptr, nullptr);
  const std::string early = readFile(path);
  file.dump(OSS_TRAP_ENVIRONMENT, 0, nullptr, nullptr);
  const std::string middle = readFile(path);
  file.dump(OSS_TRAP_MODULES, 0, nullptr, nullptr);

  const std::string late = readFile(path);
  EXPECT_EQ(late.substr(0, 8), "in front");
  EXPECT_EQ(late.substr(8, 392), bytesOf(file.header()));
  EXPECT_NE(late.substr(8, 392), early.substr(8));
  EXPECT_EQ(late.substr(400, middle.size() - 400), middle.substr(400));
  EXPECT_EQ(late.size(), middle.size() + file.header().modules * 304u);
}

// The system takes a part of a record only, as a full disk does, and then has room again.
TEST_F(TrapFileTest, AModuleRecordThatIsCutIsNotCounted) {
  dump(OSS_TRAP_HEADER);  // so the debugging-help library is there
  std::vector<OSSTrapModule> expected = expectedModules();
  const size_t all = expected.size();
  expected.erase(expected.begin() + 1);
  size_t records = 0;
  ImportHook full("WriteFile", [&records, all](Call& call) -> Word {
    const bool isRecord = call.argument<DWORD>(2) == sizeof(OSSTrapModule);
    if (isRecord) ++records;
    if (!isRecord || (records != 2 && records != all + 2)) return call.passOn();
    return static_cast<Word>(::WriteFile(call.argument<HANDLE>(0), call.argument<const void*>(1),
                                         100, call.argument<DWORD*>(3), nullptr));
  });
  TrapBytes file = dump(OSS_TRAP_HEADER | OSS_TRAP_MODULES | OSS_TRAP_MODULE_SECTION);
  EXPECT_EQ(file.take<OSSTrapHeader>().modules, all - 1);
  EXPECT_EQ(file.take(expected.size() * 304), bytesOfAll(expected));
  EXPECT_EQ(file.take<uint64_t>(), all - 1);
  EXPECT_EQ(file.take(file.left()), bytesOfAll(expected));
}

// Without the section of modules the file keeps the header as it was.
TEST_F(TrapFileTest, TheEarlyHeaderStaysWithoutTheModules) {
  TrapBytes file = dump(OSS_TRAP_HEADER | OSS_TRAP_SYSTEM);
  EXPECT_FALSE(file.take<OSSTrapHeader>().contents & OSS_TRAP_HAS_EXTENDED_MEMORY);
  EXPECT_TRUE(header_.contents & OSS_TRAP_HAS_EXTENDED_MEMORY);
}

// ---- Kept modules ----

TEST_F(TrapFileTest, ModulesFoundWithoutAFileAreKeptForTheNextOne) {
  const HANDLE process = ::GetCurrentProcess();
  OSSTrapFile closed;
  EXPECT_TRUE(ossEnumerateLoadedModules(process, nullptr, &closed));  // forgotten by the next
  EXPECT_TRUE(ossEnumerateLoadedModules(process, nullptr, nullptr));
  const std::vector<OSSTrapModule> expected = expectedModules();

  TrapBytes file = dump(OSS_TRAP_HEADER | OSS_TRAP_MODULES);
  const auto header = file.take<OSSTrapHeader>();
  EXPECT_EQ(header.modules, expected.size());
  EXPECT_TRUE(header.contents & OSS_TRAP_HAS_KEPT_MODULES);
  EXPECT_FALSE(header.contents & OSS_TRAP_HAS_MODULES);
  EXPECT_EQ(file.take(file.left()), bytesOfAll(expected));

  dump(OSS_TRAP_MODULES);
  EXPECT_TRUE(header_.contents & OSS_TRAP_HAS_MODULES);
  EXPECT_FALSE(header_.contents & OSS_TRAP_HAS_KEPT_MODULES);
}

TEST_F(TrapFileTest, AnEnumerationMayWriteIntoAFile) {
  const std::string path = newPath();
  OpenTrapFile file(path);
  EXPECT_TRUE(ossEnumerateLoadedModules(::GetCurrentProcess(), nullptr, &file));
  EXPECT_EQ(readFile(path), bytesOfAll(expectedModules()));
  EXPECT_EQ(file.header().contents, OSS_TRAP_HAS_MODULES);
}

// ---- The module section ----

TEST_F(TrapFileTest, TheModuleSectionCountsItself) {
  TrapBytes file = dump(OSS_TRAP_MODULE_SECTION | OSS_TRAP_LIBRARY_VERSION);
  const std::vector<OSSTrapModule> expected = expectedModules();
  EXPECT_EQ(file.take(8), bytesOf(*ossImagehlpApiVersion()));
  EXPECT_EQ(file.take<uint64_t>(), expected.size());
  EXPECT_EQ(file.take(file.left()), bytesOfAll(expected));
  EXPECT_EQ(header_.modules, 0u);
}

// ---- Modules that only a fake has ----

// Names a module of each kind: a long name, and no image at all.
BOOL enumerateStrange(HANDLE, PENUMLOADED_MODULES_CALLBACK64 callback, void* context) {
  const std::string name(300, 'n');
  return callback(name.c_str(), 0x1000, 0x2000, context);
}
BOOL enumerateMany(HANDLE, PENUMLOADED_MODULES_CALLBACK64 callback, void* context) {
  for (uint64_t i = 0; i < 65537; ++i) callback("m", 0x1000, 0x2000, context);
  return TRUE;
}

CHILD_ROLE(dumpStrangeModules) {
  const auto enumerate = arguments[0] == "many" ? &enumerateMany : &enumerateStrange;
  ImportHook find("GetProcAddress", [enumerate](Call& call) {
    const std::string_view name = call.argument<const char*>(1);
    if (name == "sqlzThisIsAKT5Library") return Word{0};
    return name == "EnumerateLoadedModules64" ? reinterpret_cast<Word>(enumerate) : call.passOn();
  });
  const std::string path = arguments[1];
  OpenTrapFile file(path);
  file.initialize(0, nullptr, nullptr, nullptr);
  file.dump(OSS_TRAP_HEADER | OSS_TRAP_MODULES, 0, nullptr, nullptr);
  return 0;
}

TEST_F(TrapFileTest, ALongModuleNameIsCut) {
  const std::string path = newPath();
  ASSERT_EQ(runChild("dumpStrangeModules", {"one", path}), 0u);
  TrapBytes file(readFile(path));
  EXPECT_EQ(file.take<OSSTrapHeader>().modules, 1u);
  OSSTrapModule expected;
  std::memset(expected.name, 'n', 260);
  expected.base = 0x1000;
  expected.end = 0x3000;
  EXPECT_EQ(file.take(file.left()), bytesOf(expected));
}

TEST_F(TrapFileTest, TheCountOfModulesStopsAt65535) {
  const std::string path = newPath();
  ASSERT_EQ(runChild("dumpStrangeModules", {"many", path}), 0u);
  TrapBytes file(readFile(path));
  EXPECT_EQ(file.take<OSSTrapHeader>().modules, 65535u);
  EXPECT_EQ(file.left(), 65537u * 304);
}

// ---- Another process ----

// Far from where the system maps anything by itself.
void* const kOnlyHere = reinterpret_cast<void*>(0x1A5A00000000);
constexpr DWORD kLinked = 0x12345678;

// Names, for whatever process, this one's library and an image that no other process has.
BOOL enumerateHere(HANDLE, PENUMLOADED_MODULES_CALLBACK64 callback, void* context) {
  return callback("library", reinterpret_cast<DWORD64>(libraryModule()), 0x2000, context) &&
         callback("image", reinterpret_cast<DWORD64>(kOnlyHere), 0x1000, context);
}

CHILD_ROLE(recordModulesOf) {
  constexpr size_t kPage = 4096;
  EXPECT_EQ(::VirtualAlloc(kOnlyHere, kPage, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE), kOnlyHere);
  std::memcpy(kOnlyHere, libraryModule(), kPage);
  const auto* const dos = static_cast<const IMAGE_DOS_HEADER*>(kOnlyHere);
  auto* const headers =
      reinterpret_cast<IMAGE_NT_HEADERS64*>(static_cast<char*>(kOnlyHere) + dos->e_lfanew);
  headers->FileHeader.TimeDateStamp = kLinked;
  ImportHook find("GetProcAddress", [](Call& call) {
    const std::string_view name = call.argument<const char*>(1);
    return name == "EnumerateLoadedModules64" ? reinterpret_cast<Word>(&enumerateHere)
                                              : call.passOn();
  });
  const UniqueHandle process(::OpenProcess(PROCESS_QUERY_INFORMATION | PROCESS_VM_READ, FALSE,
                                           static_cast<DWORD>(std::stoul(arguments[0]))));
  OpenTrapFile file(arguments[1]);
  file.initialize(0, nullptr, nullptr, nullptr);
  file.dump(OSS_TRAP_HEADER, 0, nullptr, nullptr);
  EXPECT_TRUE(ossEnumerateLoadedModules(::GetCurrentProcess(), nullptr, &file));
  EXPECT_TRUE(ossEnumerateLoadedModules(process.get(), nullptr, &file));
  EXPECT_TRUE(ossEnumerateLoadedModules(process.get(), nullptr, nullptr));
  file.dump(OSS_TRAP_MODULES, 0, nullptr, nullptr);
  return 0;
}

// What is told of another process's modules is read there, whether it is written or kept.
TEST_F(TrapFileTest, ModulesOfAnotherProcessAreReadThere) {
  const std::string path = newPath();
  ASSERT_EQ(runChild("recordModulesOf", {std::to_string(::GetCurrentProcessId()), path}), 0u);
  TrapBytes file(readFile(path));
  file.take<OSSTrapHeader>();
  const std::vector<OSSTrapModule> own = takeModules(file, 2);
  EXPECT_NE(own[0].marker, 0u);
  EXPECT_EQ(own[1].timeStamp, kLinked);

  for (const OSSTrapModule& module : takeModules(file, 4)) {
    EXPECT_EQ(module.marker, 0u) << module.name;
    if (module.base == own[1].base) {
      EXPECT_EQ(module.timeStamp, 0u);
    }
  }
  EXPECT_EQ(file.left(), 0u);
}

}  // namespace
