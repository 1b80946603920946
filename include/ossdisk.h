// ossdisk.h - the drives of the machine one after the other, and the disk that holds a path.
//
//   OSSMountListing listing;
//   const OSSMountListingGetParam param;
//   OSSMountInfo info;
//   if (const OSSErr rc = listing.begin()) return rc;
//   while (listing.getNext(&param, info) == ECF_OK) ...
//   return listing.end();
//
// Checks, codes and records: see osssysinfo.h. What an operation finds itself is logged at level
// Info; what the system refuses gives the mapped code (ossErrorMapSystem) and its level.
#pragma once

#include "osssysvalue.h"

// ---- Drives ----

struct OSSMountListingGetParam {
  uint64_t version = OSS_VERSION_CURRENT;
  uint64_t reserved = 0;  ///< must be 0
};
OSS_LAYOUT(OSSMountListingGetParam, 16);
OSS_FIELD(OSSMountListingGetParam, version, 0, 8);
OSS_FIELD(OSSMountListingGetParam, reserved, 8, 8);

/// A drive with a medium in it. Texts are NUL-terminated, in the ANSI code page.
struct OSSMountInfo {
  uint64_t version = OSS_VERSION_CURRENT;  ///< not looked at
  char mountPoint[1024] = {};              ///< the root of the drive: "C:\"
  uint64_t totalSize = 0;                  ///< mebibytes, rounded up
  uint64_t freeSize = 0;                   ///< mebibytes, rounded up
  char fileSystem[100] = {};
  char volume[1024] = {};  ///< the name that somebody gave it, or nothing
  uint32_t status = 0;     ///< set to 0 with a complete entry, else untouched
};
OSS_LAYOUT(OSSMountInfo, 2176);
OSS_FIELD(OSSMountInfo, version, 0, 8);
OSS_FIELD(OSSMountInfo, mountPoint, 8, 1024);
OSS_FIELD(OSSMountInfo, totalSize, 1032, 8);
OSS_FIELD(OSSMountInfo, freeSize, 1040, 8);
OSS_FIELD(OSSMountInfo, fileSystem, 1048, 100);
OSS_FIELD(OSSMountInfo, volume, 1148, 1024);
OSS_FIELD(OSSMountInfo, status, 2172, 4);

/// A listing is inactive until a successful begin() and active until end(). It holds nothing of the
/// system. One thread uses it at a time.
class OSS_API OSSMountListing {
 public:
  /// Constructs an inactive listing.
  OSSMountListing() noexcept = default;
  /// Ends a listing that is active.
  ~OSSMountListing();

  OSSMountListing(const OSSMountListing&) = delete;
  OSSMountListing& operator=(const OSSMountListing&) = delete;

  /// Asks the system for its drives; the listing starts at the first.
  /// \retval 0                                the listing is active
  /// \retval ECF_INVALID_INVOCATION_SEQUENCE  it is active already (probe 10); nothing changes
  /// \return otherwise the system's refusal, mapped (80)
  OSSErr begin() noexcept;

  /// Tells the next drive. One without a medium is passed over. Of one that refuses its names and
  /// gives no error for it, the space is told and the names stay as they are.
  /// \retval 0                                info is complete
  /// \retval ECF_FILE_EOF                     there is none left (30); traced, not logged. Of info
  ///                                          only the mount point counts, and is empty
  /// \retval ECF_INVALID_INVOCATION_SEQUENCE  the listing is not active, or the reserved word is
  ///                                          not 0 (20)
  /// \return otherwise the system's refusal, mapped: of the volume (40) or of its space (50). Of
  ///         info only the mount point counts, that drive's; the next call goes on behind it
  OSSErr getNext(const OSSMountListingGetParam* param, OSSMountInfo& info) noexcept;

  /// Ends the listing.
  /// \retval 0                                it is inactive
  /// \retval ECF_INVALID_INVOCATION_SEQUENCE  it was so already (probe 10)
  OSSErr end() noexcept;

 private:
  struct Layout;

  char roots_[1024] = {};   // each with its NUL, an empty one behind the last
  char* cursor_ = nullptr;  // the next root
  bool active_ = false;
};
OSS_LAYOUT(OSSMountListing, 1040);

// ---- The disk of a path ----

/// Bits of OSSDiskInfoParam::selection. Of a pair, either bit asks for both.
inline constexpr uint64_t OSS_DISK_EVERYTHING = 0x1;
inline constexpr uint64_t OSS_DISK_TOTAL_BYTES = 0x4;  ///< with OSS_DISK_FREE_BYTES
inline constexpr uint64_t OSS_DISK_FREE_BYTES = 0x8;
inline constexpr uint64_t OSS_DISK_SERIAL_NUMBER = 0x80;  ///< with OSS_DISK_FILE_SYSTEM
inline constexpr uint64_t OSS_DISK_FILE_SYSTEM = 0x100;
inline constexpr uint64_t OSS_DISK_DRIVE_TYPE = 0x400;

/// A value of OSSDiskInfoParam::device: the disk that holds the path, whichever it is.
inline constexpr uint64_t OSS_DISK_OF_PATH = ~uint64_t{0};

struct OSSDiskInfoParam {
  uint64_t version = OSS_VERSION_CURRENT;
  const char* path = nullptr;                ///< a file, a directory, or a device
  uint64_t selection = OSS_DISK_EVERYTHING;  ///< OSS_DISK_...
  uint64_t device = OSS_DISK_OF_PATH;        ///< from version 0x09010007
};
OSS_LAYOUT(OSSDiskInfoParam, 32);
OSS_FIELD(OSSDiskInfoParam, version, 0, 8);
OSS_FIELD(OSSDiskInfoParam, path, 8, 8);
OSS_FIELD(OSSDiskInfoParam, selection, 16, 8);
OSS_FIELD(OSSDiskInfoParam, device, 24, 8);

/// Values of OSSDiskInfo::driveType.
inline constexpr uint64_t OSS_DRIVE_STATIONARY = 1;  ///< fixed, remote, optical or in memory
inline constexpr uint64_t OSS_DRIVE_REMOVABLE = 5;

/// Members without a comment are not supported on this platform.
struct OSSDiskInfo {
  uint64_t version = OSS_VERSION_CURRENT;  ///< not looked at
  OSSSysInfoStr deviceName;
  OSSSysInfoStr fileSystem;     ///< "NTFS"
  OSSSysInfoUint totalBytes;    ///< bytes, not mebibytes
  OSSSysInfoUint freeBytes;     ///< bytes
  OSSSysInfoUint serialNumber;  ///< of the volume
  OSSSysInfoUint driveType;     ///< OSS_DRIVE_...
  OSSSysInfoStr vendor;
  OSSSysInfoStr model;
  OSSSysInfoUint blockSize;
  OSSSysInfoUint fragmentSize;
  OSSSysInfoUint totalNodes;
  OSSSysInfoUint freeNodes;
  OSSSysInfoUint availableNodes;
  OSSSysInfoUint maxNameLength;
  OSSSysInfoUint mountFlags;
  OSSSysInfoUint sectorSize;
  OSSSysInfoUint stripeSize;
  OSSSysInfoUint raidLevel;
  OSSSysInfoUint transferRate;
  OSSSysInfoUint seekTime;
};
OSS_LAYOUT(OSSDiskInfo, 1304);
OSS_FIELD(OSSDiskInfo, version, 0, 8);
OSS_FIELD(OSSDiskInfo, deviceName, 8, 260);
OSS_FIELD(OSSDiskInfo, fileSystem, 268, 260);
OSS_FIELD(OSSDiskInfo, totalBytes, 528, 16);
OSS_FIELD(OSSDiskInfo, freeBytes, 544, 16);
OSS_FIELD(OSSDiskInfo, serialNumber, 560, 16);
OSS_FIELD(OSSDiskInfo, driveType, 576, 16);
OSS_FIELD(OSSDiskInfo, vendor, 592, 260);
OSS_FIELD(OSSDiskInfo, model, 852, 260);
OSS_FIELD(OSSDiskInfo, blockSize, 1112, 16);
OSS_FIELD(OSSDiskInfo, fragmentSize, 1128, 16);
OSS_FIELD(OSSDiskInfo, totalNodes, 1144, 16);
OSS_FIELD(OSSDiskInfo, freeNodes, 1160, 16);
OSS_FIELD(OSSDiskInfo, availableNodes, 1176, 16);
OSS_FIELD(OSSDiskInfo, maxNameLength, 1192, 16);
OSS_FIELD(OSSDiskInfo, mountFlags, 1208, 16);
OSS_FIELD(OSSDiskInfo, sectorSize, 1224, 16);
OSS_FIELD(OSSDiskInfo, stripeSize, 1240, 16);
OSS_FIELD(OSSDiskInfo, raidLevel, 1256, 16);
OSS_FIELD(OSSDiskInfo, transferRate, 1272, 16);
OSS_FIELD(OSSDiskInfo, seekTime, 1288, 16);

extern "C" {

/// Tells selected facts about the disk that holds a path; a directory on which a volume is mounted
/// stands for that volume. The space is that of a directory: of a file it is not told. Of a path,
/// 262 bytes count. What is not selected stays as it is.
/// \param info  its version is not looked at
/// \retval ECF_PARTIAL_INFO   every fact was asked for; each status tells whether it is there. Also
///                            for a device whose attributes cannot be read, with the facts and
///                            their statuses as they were
/// \retval ECF_NOT_SUPPORTED  a particular device is asked for; every status is ECF_NOT_SUPPORTED
/// \retval ECF_FAILED         the statuses of space, volume and drive type are all other than 0, in
///                            what is not selected as they were; not logged
/// \return otherwise the system's refusal, mapped and logged: of the attributes (25; every status
///         is ECF_FAILED), of the functions for mounted volumes (10) or of the volume's name (20),
///         which leave the facts and their statuses as they were. Never 0
OSS_API OSSErr ossGetDiskInfo(const OSSDiskInfoParam* param, OSSDiskInfo* info) noexcept;

}  // extern "C"
