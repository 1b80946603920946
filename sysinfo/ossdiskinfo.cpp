// Facts about the disk that holds a path.
#include <windows.h>

#include "core/ossmodule.h"
#include "core/ossoperation.h"
#include "file/osspathinternal.h"
#include "ossdisk.h"
#include "sysinfo/ossdiskroot.h"
#include "sysinfo/ossrecord.h"

using namespace oss;

namespace {

// Record members that this platform never fills in.
constexpr OSSSysInfoStr OSSDiskInfo::*kForeignTexts[] = {&OSSDiskInfo::deviceName,
                                                         &OSSDiskInfo::vendor, &OSSDiskInfo::model};
constexpr OSSSysInfoUint OSSDiskInfo::*kForeignNumbers[] = {
    &OSSDiskInfo::blockSize,  &OSSDiskInfo::fragmentSize,   &OSSDiskInfo::totalNodes,
    &OSSDiskInfo::freeNodes,  &OSSDiskInfo::availableNodes, &OSSDiskInfo::maxNameLength,
    &OSSDiskInfo::mountFlags, &OSSDiskInfo::sectorSize,     &OSSDiskInfo::stripeSize,
    &OSSDiskInfo::raidLevel,  &OSSDiskInfo::transferRate,   &OSSDiskInfo::seekTime};

void markForeign(OSSDiskInfo& info, OSSErr why) noexcept {
  for (const auto text : kForeignTexts) mark(info.*text, why);
  for (const auto number : kForeignNumbers) mark(info.*number, why);
}

void markSpace(OSSDiskInfo& info, OSSErr why) noexcept {
  mark(info.totalBytes, why);
  mark(info.freeBytes, why);
}

void markVolume(OSSDiskInfo& info, OSSErr why) noexcept {
  mark(info.serialNumber, why);
  mark(info.fileSystem, why);
}

void markAll(OSSDiskInfo& info, OSSErr why) noexcept {
  markForeign(info, why);
  markSpace(info, why);
  markVolume(info, why);
  mark(info.driveType, why);
}

bool isSelected(const OSSDiskInfoParam& param, uint64_t bits) noexcept {
  return (param.selection & (OSS_DISK_EVERYTHING | bits)) != 0;
}

// A module that was found and not loaded. Deliberate: it is freed all the same.
class FoundModule {
 public:
  explicit FoundModule(HMODULE module) noexcept : module_(module) {}
  ~FoundModule() { ::FreeLibrary(module_); }
  FoundModule(const FoundModule&) = delete;
  FoundModule& operator=(const FoundModule&) = delete;

 private:
  HMODULE module_;
};

// Replaces the path of a directory by the name of the volume that is mounted there.
OSSErr findMountedVolume(Operation& op, char (&root)[kDiskRootBytes]) noexcept {
  constexpr char kKernel[] = "KERNEL32";
  const HMODULE kernel = ::GetModuleHandleA(kKernel);
  if (kernel == nullptr)
    return op.failSystem(10, SysCall::GetModuleHandleA, {{1, string(kKernel)}});
  const FoundModule freed(kernel);

  using NameOfVolume = BOOL(WINAPI*)(const char*, char*, DWORD);
  constexpr char kFunction[] = "GetVolumeNameForVolumeMountPointA";
  const auto nameOfVolume = functionOf<NameOfVolume>(kernel, kFunction);
  if (nameOfVolume == nullptr)
    return op.failSystem(10, SysCall::GetProcAddress, {{1, hex(kernel)}, {2, string(kFunction)}});

  char volume[kDiskRootBytes];
  if (!nameOfVolume(root, volume, sizeof volume))
    return op.failSystem(20, SysCall::GetVolumeNameForVolumeMountPointA, {{1, string(root)}});
  copyAsDirectory(volume, root);
  return ECF_OK;
}

bool isMountPoint(DWORD attributes) noexcept {
  constexpr DWORD kBoth = FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_REPARSE_POINT;
  return (attributes & kBoth) == kBoth;
}

// Attributes that cannot be read: a device has none.
OSSErr failAttributes(Operation& op, const char* path, OSSDiskInfo& info) noexcept {
  const DWORD error = ::GetLastError();
  if (ossIsNTVolume(path)) return op.exit(ECF_PARTIAL_INFO);
  markAll(info, ECF_FAILED);
  ::SetLastError(error);
  return op.failSystem(25, SysCall::GetFileAttributesA, {{1, string(path)}});
}

void tellSpace(const char* root, OSSDiskInfo& info) noexcept {
  ULARGE_INTEGER total;
  ULARGE_INTEGER free;
  if (!::GetDiskFreeSpaceExA(root, nullptr, &total, &free)) return markSpace(info, ECF_FAILED);
  fill(info.totalBytes, total.QuadPart);
  fill(info.freeBytes, free.QuadPart);
}

void tellVolume(const char* root, OSSDiskInfo& info) noexcept {
  constexpr DWORD kNameBytes = sizeof info.fileSystem.value - 1;
  DWORD serial = 0;
  if (!::GetVolumeInformationA(root, nullptr, 0, &serial, nullptr, nullptr, info.fileSystem.value,
                               kNameBytes))
    return markVolume(info, ECF_FAILED);
  fill(info.serialNumber, serial);
  info.fileSystem.status = ECF_OK;
}

void tellDriveType(const char* root, OSSDiskInfo& info) noexcept {
  const uint64_t type = driveTypeOf(::GetDriveTypeA(root));
  if (type == 0) return mark(info.driveType, ECF_FAILED);
  fill(info.driveType, type);
}

// Deliberate: never 0, for some members are never filled in.
OSSErr answerOf(const OSSDiskInfo& info) noexcept {
  const bool isAnyTold = info.totalBytes.status == ECF_OK || info.driveType.status == ECF_OK ||
                         info.fileSystem.status == ECF_OK;
  return isAnyTold || info.serialNumber.status == ECF_OK ? ECF_PARTIAL_INFO : ECF_FAILED;
}

}  // namespace

OSSErr ossGetDiskInfo(const OSSDiskInfoParam* param, OSSDiskInfo* info) noexcept {
  Operation op(Func::ossGetDiskInfo);
  if (const OSSErr rc = op.check(param)) return rc;
  if (const OSSErr rc = op.checkNotNull(info)) return rc;
  if (param->version >= kVersionWithDevice && param->device != OSS_DISK_OF_PATH) {
    markAll(*info, ECF_NOT_SUPPORTED);
    return op.exit(ECF_NOT_SUPPORTED);
  }
  if (const OSSErr rc = op.checkNotNull(param->path)) return rc;
  markForeign(*info, ECF_NOT_SUPPORTED);

  char root[kDiskRootBytes];
  copyAsDirectory(param->path, root);
  const DWORD attributes = ::GetFileAttributesA(param->path);
  if (attributes == INVALID_FILE_ATTRIBUTES) return failAttributes(op, param->path, *info);
  if (isMountPoint(attributes))
    if (const OSSErr rc = findMountedVolume(op, root)) return rc;

  if (isSelected(*param, OSS_DISK_TOTAL_BYTES | OSS_DISK_FREE_BYTES)) tellSpace(root, *info);
  cutToDriveRoot(root);
  if (isSelected(*param, OSS_DISK_SERIAL_NUMBER | OSS_DISK_FILE_SYSTEM)) tellVolume(root, *info);
  if (isSelected(*param, OSS_DISK_DRIVE_TYPE)) tellDriveType(root, *info);
  return op.exit(answerOf(*info));
}
