// Facts about the disk that holds a path, here and on machines with other disks.
#include <optional>

#include "harness/tempdir.h"
#include "sysinfo/osssysinfofixture.h"

using namespace osse_test;
using oss::Func;
using oss::SysCall;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr Func kSelf = Func::ossGetDiskInfo;
constexpr DWORD kDirectory = FILE_ATTRIBUTE_DIRECTORY;
constexpr DWORD kMountPoint = FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_REPARSE_POINT;
constexpr char kVolume[] = R"(\\?\Volume{01234567-89ab-cdef-0123-456789abcdef}\)";

using Record = Patterned<OSSDiskInfo>;

// ---- What is expected of a record ----

void markForeign(OSSDiskInfo& info, uint32_t status) {
  for (auto* const text : {&info.deviceName, &info.vendor, &info.model}) text->status = status;
  for (auto* number = &info.blockSize; number <= &info.seekTime; ++number) number->status = status;
}
void markFacts(OSSDiskInfo& info, uint32_t status) {
  info.fileSystem.status = status;
  for (auto* number = &info.totalBytes; number <= &info.driveType; ++number)
    number->status = status;
}

void expectSpace(OSSDiskInfo& info) {
  info.totalBytes.value = 1'000'000'007;
  info.totalBytes.status = 0;
  info.freeBytes.value = 5;
  info.freeBytes.status = 0;
}
void expectVolume(OSSDiskInfo& info) {
  info.serialNumber.value = 0x89ABCDEF;
  info.serialNumber.status = 0;
  writeText(info.fileSystem.value, "NTFS");
  info.fileSystem.status = 0;
}
void expectType(OSSDiskInfo& info, uint64_t type = OSS_DRIVE_STATIONARY) {
  info.driveType.value = type;
  info.driveType.status = 0;
}

// ---- A machine ----

// What a machine answers, and what it was asked.
struct Machine {
  DWORD attributes = kDirectory;
  bool tellsSpace = true, tellsVolume = true;
  UINT driveType = DRIVE_FIXED;

  std::string attributesOf = {}, spaceOf = {}, volumeOf = {}, typeOf = {};
};

OSSErr on(Machine& machine, const OSSDiskInfoParam& param, OSSDiskInfo* info) {
  // A hook that nobody calls fails its test: only what is selected is hooked.
  ImportHook attributes("GetFileAttributesA", [&](Call& call) {
    machine.attributesOf = call.argument<const char*>(0);
    ::SetLastError(ERROR_FILE_NOT_FOUND);
    return machine.attributes;
  });
  std::optional<ImportHook> space, volume, type;
  if (param.selection & (1 | 4 | 8))
    space.emplace("GetDiskFreeSpaceExA", [&](Call& call) {
      machine.spaceOf = call.argument<const char*>(0);
      if (!machine.tellsSpace) return FALSE;
      call.argument<ULARGE_INTEGER*>(2)->QuadPart = 1'000'000'007;
      call.argument<ULARGE_INTEGER*>(3)->QuadPart = 5;
      return TRUE;
    });
  if (param.selection & (1 | 0x80 | 0x100))
    volume.emplace("GetVolumeInformationA", [&](Call& call) {
      machine.volumeOf = call.argument<const char*>(0);
      EXPECT_EQ(call.argument<DWORD>(7), 255u);
      if (!machine.tellsVolume) return FALSE;
      *call.argument<DWORD*>(3) = 0x89ABCDEF;
      writeText(call.argument<char*>(6), "NTFS");
      return TRUE;
    });
  if (param.selection & (1 | 0x400))
    type.emplace("GetDriveTypeA", [&](Call& call) {
      machine.typeOf = call.argument<const char*>(0);
      return machine.driveType;
    });
  return ossGetDiskInfo(&param, info);
}

OSSDiskInfoParam paramOf(const char* path, uint64_t selection = OSS_DISK_EVERYTHING) {
  OSSDiskInfoParam param;
  param.path = path;
  param.selection = selection;
  return param;
}

class DiskInfo : public SysInfoTest {
 protected:
  // Asks a machine and compares the record.
  template <class Fill>
  void expectInfo(Machine machine, const OSSDiskInfoParam& param, OSSErr rc, Fill fill) {
    Record info(0);  // whose version does not count
    Record expected = info;
    markForeign(expected.record(), ECF_NOT_SUPPORTED);
    fill(expected.record());
    EXPECT_EQ(on(machine, param, info.get()), rc);
    EXPECT_EQ(info.differenceFrom(expected), "");
  }
};

constexpr uint64_t kSelections[] = {0x0,   0x1,   0x4,   0x8,   0xC,   0x80,
                                    0x100, 0x400, 0x484, 0x508, 0x581, 0xFA72};

// The code judges all statuses, those of facts that are not selected as they were: here not 0.
TEST_F(DiskInfo, TellsTheSelectedFactsAndLeavesTheOthers) {
  for (uint64_t version : kVersions)
    for (const uint64_t selection : kSelections) {
      SCOPED_TRACE(testing::Message() << version << ' ' << selection);
      OSSDiskInfoParam param = paramOf("C:\\dir", selection);
      param.version = version;
      // Read from version 0x09010007 on.
      if (version < 0x09010007) param.device = 0;
      const OSSErr rc = selection & 0x58D ? ECF_PARTIAL_INFO : ECF_FAILED;
      expectInfo(Machine{}, param, rc, [&](OSSDiskInfo& info) {
        if (selection & 0xD) expectSpace(info);
        if (selection & 0x181) expectVolume(info);
        if (selection & 0x401) expectType(info);
      });
    }
}

TEST_F(DiskInfo, AParticularDeviceIsNotSupported) {
  for (const uint64_t device : {uint64_t{0}, uint64_t{1}, kAllOnes - 1}) {
    OSSDiskInfoParam param = paramOf("C:\\");
    param.device = device;
    Record info(0);
    Record expected = info;
    markForeign(expected.record(), ECF_NOT_SUPPORTED);
    markFacts(expected.record(), ECF_NOT_SUPPORTED);
    CallCounter attributes("GetFileAttributesA");
    EXPECT_EQ(ossGetDiskInfo(&param, info.get()), ECF_NOT_SUPPORTED);
    EXPECT_EQ(info.differenceFrom(expected), "");
    EXPECT_EQ(attributes.calls(), 0);
  }
}

TEST_F(DiskInfo, ADirectoryIsAskedForItselfAndItsDriveForTheRest) {
  const struct {
    std::string path, directory, root;
  } cases[] = {{"C:\\dir", "C:\\dir\\", "C:\\"},
               {"C:\\dir\\", "C:\\dir\\", "C:\\"},
               {"C:", "C:\\", "C:\\"},
               {"dir", "dir\\", "dir\\"},
               {"\\\\server\\share", "\\\\server\\share\\", "\\\\server\\share\\"},
               {std::string(300, 'd'), std::string(262, 'd') + '\\', std::string(262, 'd') + '\\'}};
  for (const auto& each : cases) {
    Machine machine;
    OSSDiskInfo info;
    EXPECT_EQ(on(machine, paramOf(each.path.c_str()), &info), ECF_PARTIAL_INFO);
    EXPECT_EQ(machine.attributesOf, each.path);
    EXPECT_EQ(machine.spaceOf, each.directory);
    EXPECT_EQ(machine.volumeOf, each.root);
    EXPECT_EQ(machine.typeOf, each.root);
  }
}

TEST_F(DiskInfo, DriveTypesBecomeTwo) {
  const struct {
    UINT type;
    uint64_t told;  // 0: nothing
  } cases[] = {{0, 0}, {1, 0}, {2, 5}, {3, 1}, {4, 1}, {5, 1}, {6, 1}};
  for (const auto& each : cases)
    expectInfo(Machine{.driveType = each.type}, paramOf("C:\\"), ECF_PARTIAL_INFO,
               [&](OSSDiskInfo& info) {
                 expectSpace(info);
                 expectVolume(info);
                 if (each.told != 0)
                   expectType(info, each.told);
                 else
                   info.driveType.status = ECF_FAILED;
               });
}

// Nothing of it is logged.
TEST_F(DiskInfo, FailsOnlyWhereNoFactIsTold) {
  for (const bool space : {false, true})
    for (const bool volume : {false, true})
      for (const bool type : {false, true})
        expectInfo(Machine{.tellsSpace = space, .tellsVolume = volume, .driveType = type ? 3u : 0u},
                   paramOf("C:\\"), space || volume || type ? ECF_PARTIAL_INFO : ECF_FAILED,
                   [&](OSSDiskInfo& info) {
                     markFacts(info, ECF_FAILED);
                     if (space) expectSpace(info);
                     if (volume) expectVolume(info);
                     if (type) expectType(info);
                   });
}

// ---- Paths ----

TEST_F(DiskInfo, AttributesThatCannotBeReadFailEveryMember) {
  OSSDiskInfoParam param = paramOf("C:\\missing", 0);
  Record info(0);
  Record expected = info;
  markForeign(expected.record(), ECF_FAILED);
  markFacts(expected.record(), ECF_FAILED);
  Machine machine = {.attributes = INVALID_FILE_ATTRIBUTES};
  EXPECT_EQ(on(machine, param, info.get()), ECF_FILE_DOESNT_EXIST);
  EXPECT_EQ(info.differenceFrom(expected), "");
  EXPECT_THAT(log_.newRecords(),
              ElementsAre(SystemRecord(OSS_LOG_INFO, kSelf, 25, SysCall::GetFileAttributesA,
                                       ERROR_FILE_NOT_FOUND, ECF_FILE_DOESNT_EXIST,
                                       {{1, String("C:\\missing")}})));
}

TEST_F(DiskInfo, OfADeviceWithoutAttributesNothingIsToldAndNothingLogged) {
  for (const char* const path : {R"(\\.\C:)", R"(\\.\PhysicalDrive0)", kVolume})
    expectInfo(Machine{.attributes = INVALID_FILE_ATTRIBUTES}, paramOf(path, 0), ECF_PARTIAL_INFO,
               [](OSSDiskInfo&) {});
}

TEST_F(DiskInfo, OfAFileTheDriveIsTold) {
  const TempDirectory dir;
  const std::string path = dir.file("file");
  writeFile(path, "x");
  const OSSDiskInfoParam param = paramOf(path.c_str());
  OSSDiskInfo info;
  EXPECT_EQ(ossGetDiskInfo(&param, &info), ECF_PARTIAL_INFO);
  EXPECT_EQ(info.driveType.status, ECF_OK);
  EXPECT_EQ(info.driveType.value, OSS_DRIVE_STATIONARY);
  EXPECT_EQ(info.fileSystem.status, ECF_OK);
  EXPECT_THAT(log_.newRecords(), IsEmpty());
}

// ---- Mounted volumes ----

struct Mounted {
  static BOOL WINAPI nameOf(const char* path, char* name, DWORD size) {
    asked = path;
    EXPECT_GE(size, 50u);
    if (fails) return ::SetLastError(ERROR_NOT_READY), FALSE;
    writeText(name, kVolume);
    return TRUE;
  }

  static inline std::string asked;
  static inline bool fails;
};

TEST_F(DiskInfo, AMountPointStandsForItsVolume) {
  const HMODULE kernel = ::GetModuleHandleA("KERNEL32");
  Mounted::fails = false;
  ImportHook lookUp("GetProcAddress", [&](Call& call) {
    EXPECT_EQ(call.argument<HMODULE>(0), kernel);
    EXPECT_STREQ(call.argument<const char*>(1), "GetVolumeNameForVolumeMountPointA");
    return reinterpret_cast<void*>(&Mounted::nameOf);
  });
  // Deliberate: freed, although it was not loaded.
  ImportHook frees("FreeLibrary", [&](Call& call) {
    EXPECT_EQ(call.argument<HMODULE>(0), kernel);
    return TRUE;
  });
  Machine machine = {.attributes = kMountPoint};
  OSSDiskInfo info;
  EXPECT_EQ(on(machine, paramOf("C:\\mount"), &info), ECF_PARTIAL_INFO);
  EXPECT_EQ(Mounted::asked, "C:\\mount\\");
  EXPECT_EQ(machine.spaceOf, kVolume);
  EXPECT_EQ(machine.volumeOf, kVolume);
  EXPECT_EQ(machine.typeOf, kVolume);
  EXPECT_EQ(frees.calls(), 1);
}

// A link to a file is none, nor is a directory without a link.
TEST_F(DiskInfo, OnlyADirectoryThatIsALinkIsAMountPoint) {
  for (const DWORD attributes : {DWORD{FILE_ATTRIBUTE_REPARSE_POINT}, kDirectory}) {
    CallCounter lookUps("GetProcAddress"), frees("FreeLibrary");
    Machine machine = {.attributes = attributes};
    OSSDiskInfo info;
    EXPECT_EQ(on(machine, paramOf("C:\\mount"), &info), ECF_PARTIAL_INFO);
    EXPECT_EQ(lookUps.calls(), 0);
    EXPECT_EQ(frees.calls(), 0);
  }
}

TEST_F(DiskInfo, AMountPointWhoseVolumeIsNotToldIsRefused) {
  const HMODULE kernel = ::GetModuleHandleA("KERNEL32");
  const auto expectRefused = [&](OSSErr rc) {
    Record info(0);
    Record expected = info;
    markForeign(expected.record(), ECF_NOT_SUPPORTED);
    Machine machine = {.attributes = kMountPoint};
    EXPECT_EQ(on(machine, paramOf("C:\\mount", 0), info.get()), rc);
    EXPECT_EQ(info.differenceFrom(expected), "");
  };
  {
    FailingCall fails("GetModuleHandleA", ERROR_MOD_NOT_FOUND);
    CallCounter frees("FreeLibrary");
    expectRefused(ECF_FILE_DOESNT_EXIST);
    EXPECT_EQ(frees.calls(), 0);
  }
  {
    FailingCall fails("GetProcAddress", ERROR_PROC_NOT_FOUND);
    CallCounter frees("FreeLibrary");
    expectRefused(ECF_LIB_FUNC_NOT_FOUND);
    EXPECT_EQ(frees.calls(), 1);
  }
  {
    Mounted::fails = true;
    ImportHook lookUp("GetProcAddress",
                      [](Call&) { return reinterpret_cast<void*>(&Mounted::nameOf); });
    CallCounter frees("FreeLibrary");
    expectRefused(ECF_FILE_DEVICE_UNAVAILABLE);
    EXPECT_EQ(frees.calls(), 1);
  }
  EXPECT_THAT(
      log_.newRecords(),
      ElementsAre(
          SystemRecord(OSS_LOG_INFO, kSelf, 10, SysCall::GetModuleHandleA, ERROR_MOD_NOT_FOUND,
                       ECF_FILE_DOESNT_EXIST, {{1, String("KERNEL32")}}),
          SystemRecord(OSS_LOG_INFO, kSelf, 10, SysCall::GetProcAddress, ERROR_PROC_NOT_FOUND,
                       ECF_LIB_FUNC_NOT_FOUND,
                       {{1, Hex(kernel)}, {2, String("GetVolumeNameForVolumeMountPointA")}}),
          SystemRecord(OSS_LOG_ERROR, kSelf, 20, SysCall::GetVolumeNameForVolumeMountPointA,
                       ERROR_NOT_READY, ECF_FILE_DEVICE_UNAVAILABLE,
                       {{1, String("C:\\mount\\")}})));
}

// ---- Refusals ----

TEST_F(DiskInfo, IsRefusedWithoutRecordsOrPath) {
  OSSDiskInfo info;
  expectRecordChecks<OSSDiskInfoParam>(
      kSelf, [&](const OSSDiskInfoParam* param) { return ossGetDiskInfo(param, &info); });
  const OSSDiskInfoParam noPath, param = paramOf("C:\\");
  EXPECT_EQ(ossGetDiskInfo(&param, nullptr), ECF_INVALID_PARAMETER);
  EXPECT_EQ(ossGetDiskInfo(&noPath, &info), ECF_INVALID_PARAMETER);
  EXPECT_THAT(log_.newRecords(), ElementsAre(nullRecord(kSelf), nullRecord(kSelf)));
}

// ---- This machine ----

TEST_F(DiskInfo, AgreesWithWhatTheSystemTellsElsewhere) {
  const TempDirectory dir;
  const OSSDiskInfoParam param = paramOf(dir.path().c_str());
  OSSDiskInfo info;
  EXPECT_EQ(ossGetDiskInfo(&param, &info), ECF_PARTIAL_INFO);
  const HANDLE handle = ::CreateFileA(dir.path().c_str(), 0, FILE_SHARE_READ, nullptr,
                                      OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr);
  ASSERT_NE(handle, INVALID_HANDLE_VALUE);
  BY_HANDLE_FILE_INFORMATION byHandle;
  EXPECT_TRUE(::GetFileInformationByHandle(handle, &byHandle));
  ::CloseHandle(handle);

  EXPECT_EQ(info.totalBytes.status, 0u);
  EXPECT_LE(info.freeBytes.value, info.totalBytes.value);
  EXPECT_EQ(info.serialNumber.value, byHandle.dwVolumeSerialNumber);
  char fileSystem[MAX_PATH] = {};
  EXPECT_TRUE(::GetVolumeInformationA(dir.path().substr(0, 3).c_str(), nullptr, 0, nullptr, nullptr,
                                      nullptr, fileSystem, sizeof fileSystem));
  EXPECT_STREQ(info.fileSystem.value, fileSystem);
  EXPECT_EQ(info.driveType.value, OSS_DRIVE_STATIONARY);
}

}  // namespace
