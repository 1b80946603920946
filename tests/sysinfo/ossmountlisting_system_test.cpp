// The drives one after the other, of this machine and of others.
#include <algorithm>
#include <optional>

#include "harness/fields.h"
#include "sysinfo/osssysinfofixture.h"

using namespace osse_test;
using oss::Func;
using oss::SysCall;
using testing::ElementsAre;

namespace {

constexpr Func kBegin = Func::OSSMountListing_begin;
constexpr Func kGetNext = Func::OSSMountListing_getNext;
constexpr Func kEnd = Func::OSSMountListing_end;
constexpr uint64_t kMebibyte = 1'048'576;

// A drive by its root, and the errors with which it refuses what it is asked; 0 for none.
struct Drive {
  std::string root;
  DWORD volumeError = 0;
  DWORD spaceError = 0;
  uint64_t totalBytes = 0, freeBytes = 0;
  std::string volume = {};
};

// The fields of a listing, which it keeps to itself.
struct Fields {
  char roots[1024];
  char* cursor;
  bool active;
};

class MountListing : public SysInfoTest {
 protected:
  // Puts these drives into the machine for the length of an action.
  template <class Action>
  void with(const std::vector<Drive>& drives, Action action) {
    ImportHook strings("GetLogicalDriveStringsA", [&](Call& call) {
      EXPECT_EQ(call.argument<DWORD>(0), 1024u);
      std::string text;
      for (const Drive& drive : drives) text += drive.root + '\0';
      std::memcpy(call.argument<char*>(1), text.c_str(), text.size() + 1);
      return text.size();
    });
    const auto find = [&](Call& call) {
      const std::string root = call.argument<const char*>(0);
      for (const Drive& drive : drives)
        if (drive.root == root) return drive;
      ADD_FAILURE() << root << " is no drive";
      return Drive{};
    };
    ImportHook volume("GetVolumeInformationA", [&](Call& call) {
      const Drive drive = find(call);
      EXPECT_EQ(::GetLastError(), DWORD{ERROR_SUCCESS});
      // A call that succeeds may leave any error behind.
      ::SetLastError(drive.volumeError != 0 ? drive.volumeError : ERROR_NOT_READY);
      if (drive.volumeError != 0) return FALSE;
      EXPECT_EQ(call.argument<DWORD>(2), 1024u);
      EXPECT_EQ(call.argument<DWORD>(7), 100u);
      writeText(call.argument<char*>(1), drive.volume);
      writeText(call.argument<char*>(6), "NTFS");
      return TRUE;
    });
    // Where no volume answers, nobody asks for space.
    const bool isAsked =
        std::any_of(drives.begin(), drives.end(), [](const Drive& d) { return !d.volumeError; });
    std::optional<ImportHook> space;
    if (isAsked)
      space.emplace("GetDiskFreeSpaceExA", [&](Call& call) {
        const Drive drive = find(call);
        ::SetLastError(drive.spaceError);
        if (drive.spaceError != 0) return FALSE;
        call.argument<ULARGE_INTEGER*>(2)->QuadPart = drive.totalBytes;
        call.argument<ULARGE_INTEGER*>(3)->QuadPart = drive.freeBytes;
        return TRUE;
      });
    ASSERT_EQ(listing_.begin(), ECF_OK);
    action();
    EXPECT_EQ(listing_.end(), ECF_OK);
  }

  // A call that must leave this record and this code.
  void expectNext(OSSErr rc, void (*fill)(OSSMountInfo&)) {
    Patterned<OSSMountInfo> info(0);  // whose version does not count
    Patterned<OSSMountInfo> expected = info;
    fill(expected.record());
    EXPECT_EQ(next(info.record()), rc);
    EXPECT_EQ(info.differenceFrom(expected), "");
  }
  // Roots of drives that were passed over may have stood in the mount point; nothing else is
  // written.
  void expectEnd() {
    Patterned<OSSMountInfo> info(0);
    Patterned<OSSMountInfo> expected = info;
    EXPECT_EQ(next(info.record()), ECF_FILE_EOF);
    EXPECT_STREQ(info->mountPoint, "");
    std::memcpy(expected->mountPoint, info->mountPoint, sizeof info->mountPoint);
    EXPECT_EQ(info.differenceFrom(expected), "");
  }

  OSSErr next(OSSMountInfo& info) { return listing_.getNext(&param_, info); }

  Fields fields() const { return copyOf<Fields>(listing_); }

  OSSMountListing listing_;
  OSSMountListingGetParam param_;
};

// ---- Drives ----

TEST_F(MountListing, TellsEachDriveOnceAndThenItsEnd) {
  with({{.root = "C:\\", .totalBytes = 1, .freeBytes = 0, .volume = "System"},
        {.root = "D:\\", .totalBytes = 5 * kMebibyte, .freeBytes = kMebibyte + 1}},
       [&] {
         expectNext(ECF_OK, [](OSSMountInfo& info) {
           writeText(info.mountPoint, "C:\\");
           info.totalSize = 1;
           info.freeSize = 0;
           writeText(info.fileSystem, "NTFS");
           writeText(info.volume, "System");
           info.status = 0;
         });
         expectNext(ECF_OK, [](OSSMountInfo& info) {
           writeText(info.mountPoint, "D:\\");
           info.totalSize = 5;
           info.freeSize = 2;
           writeText(info.fileSystem, "NTFS");
           writeText(info.volume, "");
           info.status = 0;
         });
         for (int again = 0; again < 3; ++again) expectEnd();
       });
}

TEST_F(MountListing, DrivesWithoutAMediumArePassedOver) {
  with({{.root = "A:\\", .volumeError = ERROR_NOT_READY},
        {.root = "B:\\", .volumeError = ERROR_NOT_READY},
        {.root = "C:\\", .totalBytes = kMebibyte},
        {.root = "D:\\", .volumeError = ERROR_NOT_READY}},
       [&] {
         OSSMountInfo info;
         EXPECT_EQ(next(info), ECF_OK);
         EXPECT_STREQ(info.mountPoint, "C:\\");
         EXPECT_EQ(info.totalSize, 1u);
         expectEnd();
         expectEnd();
       });
}

TEST_F(MountListing, OfAMachineWithoutAMediumNothingIsTold) {
  with({{.root = "A:\\", .volumeError = ERROR_NOT_READY}}, [&] { expectEnd(); });
}

TEST_F(MountListing, AVolumeThatRefusesIsLoggedAndTheNextDriveFollows) {
  with({{.root = "C:\\", .volumeError = ERROR_ACCESS_DENIED}, {.root = "D:\\"}}, [&] {
    expectNext(ECF_ACCESS_DENIED, [](OSSMountInfo& info) { writeText(info.mountPoint, "C:\\"); });
    OSSMountInfo info;
    EXPECT_EQ(next(info), ECF_OK);
    EXPECT_STREQ(info.mountPoint, "D:\\");
  });
  EXPECT_THAT(
      log_.newRecords(),
      ElementsAre(SystemRecord(OSS_LOG_INFO, kGetNext, 40, SysCall::GetVolumeInformationA,
                               ERROR_ACCESS_DENIED, ECF_ACCESS_DENIED, {{1, String("C:\\")}})));
}

// Deliberate: it is the error that decides.
TEST_F(MountListing, AVolumeThatRefusesWithoutAnErrorIsToldWithoutItsNames) {
  with({{.root = "C:\\", .totalBytes = 3 * kMebibyte, .freeBytes = kMebibyte}, {.root = "D:\\"}},
       [&] {
         {
           const ImportHook refuses("GetVolumeInformationA", [](Call&) { return FALSE; });
           expectNext(ECF_OK, [](OSSMountInfo& info) {
             writeText(info.mountPoint, "C:\\");
             info.totalSize = 3;
             info.freeSize = 1;
             info.status = 0;
           });
         }
         OSSMountInfo info;
         EXPECT_EQ(next(info), ECF_OK);
         EXPECT_STREQ(info.mountPoint, "D:\\");
       });
}

TEST_F(MountListing, SpaceThatIsRefusedLeavesTheEntryIncomplete) {
  with({{.root = "C:\\", .spaceError = ERROR_PATH_NOT_FOUND, .volume = "System"}}, [&] {
    expectNext(ECF_FILE_PATH_DOESNT_EXIST, [](OSSMountInfo& info) {
      writeText(info.mountPoint, "C:\\");
      writeText(info.fileSystem, "NTFS");
      writeText(info.volume, "System");
    });
    expectEnd();
  });
  EXPECT_THAT(log_.newRecords(),
              ElementsAre(SystemRecord(OSS_LOG_INFO, kGetNext, 50, SysCall::GetDiskFreeSpaceExA,
                                       ERROR_PATH_NOT_FOUND, ECF_FILE_PATH_DOESNT_EXIST,
                                       {{1, String("C:\\")}})));
}

// ---- Order of calls ----

TEST_F(MountListing, IsRefusedBeforeItsBeginAndAfterItsEnd) {
  OSSMountInfo info;
  EXPECT_EQ(next(info), ECF_INVALID_INVOCATION_SEQUENCE);
  EXPECT_EQ(listing_.end(), ECF_INVALID_INVOCATION_SEQUENCE);
  ASSERT_EQ(listing_.begin(), ECF_OK);
  EXPECT_EQ(listing_.end(), ECF_OK);
  EXPECT_EQ(next(info), ECF_INVALID_INVOCATION_SEQUENCE);
  EXPECT_EQ(listing_.end(), ECF_INVALID_INVOCATION_SEQUENCE);
  const LogEvidence refusedNext =
      FoundRecord(OSS_LOG_INFO, kGetNext, 20, ECF_INVALID_INVOCATION_SEQUENCE, {Hex(uint64_t{0})});
  const LogEvidence refusedEnd =
      FoundRecord(OSS_LOG_INFO, kEnd, 10, ECF_INVALID_INVOCATION_SEQUENCE);
  EXPECT_THAT(log_.newRecords(), ElementsAre(refusedNext, refusedEnd, refusedNext, refusedEnd));
}

TEST_F(MountListing, IsNotBegunTwice) {
  ASSERT_EQ(listing_.begin(), ECF_OK);
  OSSMountInfo first, info;
  ASSERT_EQ(next(first), ECF_OK);
  const Fields before = fields();
  EXPECT_EQ(listing_.begin(), ECF_INVALID_INVOCATION_SEQUENCE);
  EXPECT_EQ(std::memcmp(&before, &listing_, sizeof before), 0);
  EXPECT_THAT(log_.newRecords(),
              ElementsAre(FoundRecord(OSS_LOG_INFO, kBegin, 10, ECF_INVALID_INVOCATION_SEQUENCE)));

  // An end and a begin start again from the first drive.
  EXPECT_EQ(listing_.end(), ECF_OK);
  ASSERT_EQ(listing_.begin(), ECF_OK);
  ASSERT_EQ(next(info), ECF_OK);
  EXPECT_STREQ(info.mountPoint, first.mountPoint);
}

// Deliberate: out of sequence, not out of range.
TEST_F(MountListing, IsRefusedWithAReservedWordOrWithoutAWholeRecord) {
  ASSERT_EQ(listing_.begin(), ECF_OK);
  OSSMountInfo info;
  expectRecordChecks<OSSMountListingGetParam>(
      kGetNext, [&](const auto* param) { return listing_.getNext(param, info); });
  for (const uint64_t reserved : {uint64_t{1}, kAllOnes}) {
    param_.reserved = reserved;
    EXPECT_EQ(next(info), ECF_INVALID_INVOCATION_SEQUENCE);
    EXPECT_THAT(log_.newRecords(),
                ElementsAre(FoundRecord(OSS_LOG_INFO, kGetNext, 20, ECF_INVALID_INVOCATION_SEQUENCE,
                                        {Hex(reserved)})));
  }
  param_ = {.version = OSS_VERSION_OLDEST};
  EXPECT_EQ(next(info), ECF_OK);
}

TEST_F(MountListing, ABeginThatIsRefusedLeavesItInactive) {
  FailingCall fails("GetLogicalDriveStringsA", ERROR_ACCESS_DENIED);
  EXPECT_EQ(listing_.begin(), ECF_ACCESS_DENIED);
  EXPECT_FALSE(fields().active);
  EXPECT_EQ(fields().cursor, nullptr);
  EXPECT_THAT(
      log_.newRecords(),
      ElementsAre(SystemRecord(OSS_LOG_INFO, kBegin, 80, SysCall::GetLogicalDriveStringsA,
                               ERROR_ACCESS_DENIED, ECF_ACCESS_DENIED, {{1, Uint(DWORD{1024})}})));
}

TEST_F(MountListing, KeepsTheRootsItsCursorAndItsState) {
  EXPECT_FALSE(fields().active);
  with({{.root = "C:\\"}, {.root = "D:\\"}}, [&] {
    EXPECT_TRUE(fields().active);
    EXPECT_EQ(std::string(fields().roots, 9), std::string("C:\\\0D:\\\0\0", 9));
    auto* const roots = reinterpret_cast<char*>(&listing_);
    EXPECT_EQ(fields().cursor, roots);
    OSSMountInfo info;
    EXPECT_EQ(next(info), ECF_OK);
    EXPECT_EQ(fields().cursor, roots + 4);
    EXPECT_EQ(next(info), ECF_OK);
    EXPECT_EQ(fields().cursor, roots + 8);
    expectEnd();
    EXPECT_EQ(fields().cursor, roots + 8);
  });
  EXPECT_FALSE(fields().active);
}

// ---- This machine ----

// The letters, as bits, of all drives but those without a medium.
DWORD readyDrives() {
  DWORD drives = ::GetLogicalDrives();
  for (int i = 0; i < 26; ++i) {
    const char root[] = {static_cast<char>('A' + i), ':', '\\', '\0'};
    const bool isEmpty =
        !::GetVolumeInformationA(root, nullptr, 0, nullptr, nullptr, nullptr, nullptr, 0) &&
        ::GetLastError() == ERROR_NOT_READY;
    if (isEmpty) drives &= ~(DWORD{1} << i);
  }
  return drives;
}

TEST_F(MountListing, AgreesWithWhatTheSystemTellsElsewhere) {
  DWORD drives = readyDrives();
  ASSERT_EQ(listing_.begin(), ECF_OK);
  OSSMountInfo info;
  while (next(info) == ECF_OK) {
    ASSERT_EQ(std::strlen(info.mountPoint), 3u);
    const int letter = info.mountPoint[0] - 'A';
    EXPECT_TRUE(drives >> letter & 1) << info.mountPoint;
    drives &= ~(DWORD{1} << letter);

    DWORD sectors = 0, bytes = 0, freeClusters = 0, clusters = 0;
    ASSERT_TRUE(::GetDiskFreeSpaceA(info.mountPoint, &sectors, &bytes, &freeClusters, &clusters));
    const uint64_t total = uint64_t{sectors} * bytes * clusters;
    // The older call stops at 2 GiB where it has to fit into 16-bit programs, which it tells by
    // fewer bytes, never by more.
    EXPECT_GE(info.totalSize, (total + kMebibyte - 1) / kMebibyte) << info.mountPoint;
    EXPECT_LE(info.freeSize, info.totalSize) << info.mountPoint;
    EXPECT_STRNE(info.fileSystem, "");
  }
  EXPECT_EQ(drives, 0u);
}

}  // namespace
