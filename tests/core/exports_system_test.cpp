// What the DLL shows of itself: its exported names, its imports, its version.
#include <gmock/gmock.h>
#include <windows.h>
#include <winver.h>

#include <algorithm>

#include "harness/peimage.h"
#include "ossassert.h"
#include "osscatalog.h"
#include "ossdirectory.h"
#include "ossfault.h"
#include "ossfile.h"
#include "osshexdump.h"
#include "ossipc.h"
#include "osslog.h"
#include "ossmemory.h"
#include "ossnumeric.h"
#include "ossprocess.h"
#include "osssysinfo.h"
#include "osstrace.h"
#include "osstracedump.h"
#include "osstracepoint.h"

using namespace osse_test;
using namespace testing;

namespace {

// A plain name, and where the linker found what the header declares under it.
struct Row {
  const char* name;
  const void* address;
};

template <class Function>
Row rowOf(const char* name, Function* function) {
  return {name, reinterpret_cast<const void*>(function)};
}

std::vector<Row> reviewedNames() {
  return {
#define OSSE_FUNCTION(name) rowOf(#name, &name),
#define OSSE_DATA(name) {#name, &name},
#include "core/exported_names.def"
#undef OSSE_FUNCTION
#undef OSSE_DATA
  };
}

const void* addressOf(const char* name) {
  return reinterpret_cast<const void*>(::GetProcAddress(libraryModule(), name));
}

TEST(Exports, EveryReviewedNameIsFoundAsTheHeaderDeclaresIt) {
  for (const Row& row : reviewedNames()) EXPECT_EQ(addressOf(row.name), row.address) << row.name;
}

TEST(Exports, EveryPlainNameIsReviewed) {
  std::vector<std::string> reviewed;
  for (const Row& row : reviewedNames()) reviewed.emplace_back(row.name);
  std::sort(reviewed.begin(), reviewed.end());

  std::vector<std::string> plain = exportsOf(libraryModule());
  std::erase_if(plain, [](const std::string& name) { return name.starts_with("_Z"); });
  EXPECT_THAT(plain, ContainerEq(reviewed));
}

TEST(Exports, TheClassesAreExported) {
  const std::vector<std::string> names = exportsOf(libraryModule());
  const auto isExported = [&](const std::string& className) {
    const std::string part = std::to_string(className.size()) + className;
    return std::any_of(names.begin(), names.end(), [&](const std::string& name) {
      return name.starts_with("_ZN" + part) || name.starts_with("_ZNK" + part);
    });
  };
  for (const char* const name :
       {"OSSHFile", "OSSHIPCMemory", "OSSHIPCMemoryEx", "OSSHIPCPrivateMemory", "OSSHIPCQueue",
        "OSSHIPCSemaphore", "OSSMountListing", "OSSDecfloat", "OSSLatch", "OSSVAtomicSigned32",
        "Uint128", "Sint128", "OSSTick", "OSSTickDelta", "OSSTickConversionFactor"})
    EXPECT_TRUE(isExported(name)) << name;
}

TEST(Exports, AFunctionFoundByNameCanBeCalled) {
  using MapSystem = OSSErr(uint32_t, uint64_t, uint64_t, uint64_t, uint64_t*);
  auto* const mapSystem = reinterpret_cast<MapSystem*>(
      reinterpret_cast<void*>(::GetProcAddress(libraryModule(), "ossErrorMapSystem")));
  ASSERT_NE(mapSystem, nullptr);
  uint64_t level = 0;
  EXPECT_EQ(mapSystem(0x081A0002, 280, 0x0814006D, ERROR_SHARING_VIOLATION, &level),
            ECF_FILE_SHARE);
  EXPECT_EQ(level, OSS_LOG_ERROR);
}

TEST(Exports, DataFoundByNameIsWhatTheLibraryUses) {
  const auto* const onNt = static_cast<const int32_t*>(addressOf("g_bIsPlatformID_Win32OnNT"));
  ASSERT_NE(onNt, nullptr);
  EXPECT_EQ(*onNt, 1);
}

TEST(Imports, OnlySystemLibrariesAreImported) {
  for (const Import& import : importsOf(libraryModule()))
    EXPECT_THAT(import.library, AnyOf("KERNEL32.dll", "msvcrt.dll", "ADVAPI32.dll"))
        << import.function;
}

// 0x09010007 is version 9.1.0.7.
TEST(Version, TheFileStatesTheVersionThatRecordsCarry) {
  char path[MAX_PATH + 1] = {};
  ::GetModuleFileNameA(libraryModule(), path, MAX_PATH);
  const DWORD size = ::GetFileVersionInfoSizeA(path, nullptr);
  ASSERT_NE(size, 0u);
  std::vector<char> resource(size);
  ASSERT_TRUE(::GetFileVersionInfoA(path, 0, size, resource.data()));
  void* found = nullptr;
  UINT length = 0;
  ASSERT_TRUE(::VerQueryValueA(resource.data(), "\\", &found, &length));
  ASSERT_EQ(length, sizeof(VS_FIXEDFILEINFO));

  const auto& version = *static_cast<const VS_FIXEDFILEINFO*>(found);
  EXPECT_EQ(version.dwFileVersionMS, 0x00090001u);
  EXPECT_EQ(version.dwFileVersionLS, 0x00000007u);
  EXPECT_EQ(version.dwProductVersionMS, 0x00090001u);
  EXPECT_EQ(version.dwProductVersionLS, 0x00000007u);
  EXPECT_EQ(version.dwFileType, DWORD{VFT_DLL});
  EXPECT_EQ(OSS_VERSION_CURRENT, 0x09010007u);
}

}  // namespace
