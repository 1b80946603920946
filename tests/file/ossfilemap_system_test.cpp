// The file handle: map and unmap, and a handle's whole life.
#include <algorithm>

#include "file/ossfilefixture.h"
#include "harness/sharedobjects.h"

using namespace osse_test;
using namespace testing;
using oss::Func;
using oss::SysCall;

namespace {

OSSFileMapParam mapParam(uint64_t protection, uint64_t length = 0) {
  OSSFileMapParam param;
  param.protection = protection;
  param.length = length;
  return param;
}

class OSSHFileMapTest : public OSSHFileTest {
 protected:
  OSSHFileMapTest() { openFile(); }

  char* map(uint64_t protection, uint64_t length = 0) {
    void* view = nullptr;
    const OSSFileMapParam param = mapParam(protection, length);
    EXPECT_EQ(file_.map(&param, &view), ECF_OK);
    return static_cast<char*>(view);
  }

  // Maps and expects a refusal that leaves the address alone as well.
  void expectRefusedMap(OSSFileMapParam param, OSSErr code, const LogEvidence& record) {
    void* const preferred = reinterpret_cast<void*>(uintptr_t{0x12340000});
    void* address = preferred;
    expectRefusal([&] { return file_.map(&param, &address); }, code, record);
    EXPECT_EQ(address, preferred);
  }

  LogEvidence refusedMapping(uint64_t level, uint64_t probe, DWORD error, OSSErr code) {
    return SystemRecord(level, Func::OSSHFile_map, probe, SysCall::CreateFileMappingA, error, code,
                        {{1, Hex(handle())}});
  }

  HandleFields opened() const { return {handle(), INVALID_HANDLE_VALUE, nullptr}; }
};

using OSSHFileUnmapTest = OSSHFileMapTest;

// ---- map ----

TEST_F(OSSHFileMapTest, AViewShowsTheFileAndBelongsToTheHandle) {
  const char* const view = map(OSS_FILE_MAP_READ_ONLY);
  ASSERT_NE(view, nullptr);
  EXPECT_EQ(std::string(view, 10), kContent);
  const HandleFields fields = fieldsOf(file_);
  EXPECT_EQ(fields.file, handle());
  EXPECT_NE(fields.mapping, INVALID_HANDLE_VALUE);
  EXPECT_NE(fields.mapping, nullptr);
  EXPECT_EQ(fields.view, view);
  EXPECT_EQ(file_.unmap(fields.view), ECF_OK);
  EXPECT_THAT(log_.records(), IsEmpty());
}

TEST_F(OSSHFileMapTest, EachProtectionAsksForItsPageAndItsView) {
  const struct {
    uint64_t protection;
    DWORD page, access;
  } kRows[] = {{OSS_FILE_MAP_READ_ONLY, PAGE_READONLY, FILE_MAP_READ},
               {OSS_FILE_MAP_COPY_ON_WRITE, PAGE_WRITECOPY, FILE_MAP_COPY},
               {OSS_FILE_MAP_READ_WRITE, PAGE_READWRITE, FILE_MAP_WRITE}};
  for (const auto& row : kRows) {
    std::vector<Word> mapping;
    ImportHook mappings("CreateFileMappingA", [&](Call& call) {
      mapping = {call.argument<Word>(0),  call.argument<Word>(1),  call.argument<DWORD>(2),
                 call.argument<DWORD>(3), call.argument<DWORD>(4), call.argument<Word>(5)};
      return call.passOn();
    });
    std::vector<Word> view;
    ImportHook views("MapViewOfFileEx", [&](Call& call) {
      view = {call.argument<DWORD>(1), call.argument<DWORD>(2), call.argument<DWORD>(3),
              call.argument<Word>(4), call.argument<Word>(5)};
      return call.passOn();
    });
    EXPECT_EQ(file_.unmap(map(row.protection, 4)), ECF_OK);
    EXPECT_THAT(mapping, ElementsAre(reinterpret_cast<Word>(handle()), 0u, row.page, 0u, 0u, 0u));
    EXPECT_THAT(view, ElementsAre(row.access, 0u, 0u, 4u, 0u));
  }
}

TEST_F(OSSHFileMapTest, AReadWriteViewChangesTheFile) {
  char* const view = map(OSS_FILE_MAP_READ_WRITE);
  ASSERT_NE(view, nullptr);
  std::copy_n("abc", 3, view);
  EXPECT_EQ(file_.unmap(view), ECF_OK);
  EXPECT_EQ(readFile(path_), "abc3456789");
}

TEST_F(OSSHFileMapTest, ACopyOnWriteViewLeavesTheFile) {
  char* const view = map(OSS_FILE_MAP_COPY_ON_WRITE);
  ASSERT_NE(view, nullptr);
  std::copy_n("abc", 3, view);
  EXPECT_EQ(std::string(view, 10), "abc3456789");
  EXPECT_EQ(file_.unmap(view), ECF_OK);
  EXPECT_EQ(readFile(path_), kContent);
}

TEST_F(OSSHFileMapTest, LengthZeroMapsTheWholeFileAndAnotherLengthItsPages) {
  writeFile(path_, std::string(3 * 4096, 'x'));
  const auto mappedBytes = [](const void* view) {
    MEMORY_BASIC_INFORMATION region = {};
    EXPECT_EQ(::VirtualQuery(view, &region, sizeof region), sizeof region);
    return region.RegionSize;
  };
  char* view = map(OSS_FILE_MAP_READ_ONLY, 0);
  EXPECT_EQ(mappedBytes(view), 3u * 4096);
  EXPECT_EQ(file_.unmap(view), ECF_OK);
  view = map(OSS_FILE_MAP_READ_ONLY, 4097);
  EXPECT_EQ(mappedBytes(view), 2u * 4096);
  EXPECT_EQ(file_.unmap(view), ECF_OK);
}

TEST_F(OSSHFileMapTest, APreferredAddressIsUsed) {
  void* const freeAddress = ::VirtualAlloc(nullptr, 65536, MEM_RESERVE, PAGE_NOACCESS);
  ASSERT_NE(freeAddress, nullptr);
  ASSERT_TRUE(::VirtualFree(freeAddress, 0, MEM_RELEASE));
  void* address = freeAddress;
  const OSSFileMapParam param = mapParam(OSS_FILE_MAP_READ_ONLY);
  EXPECT_EQ(file_.map(&param, &address), ECF_OK);
  EXPECT_EQ(address, freeAddress);
  EXPECT_EQ(file_.unmap(address), ECF_OK);
}

TEST_F(OSSHFileMapTest, APreferredAddressThatIsTakenIsRefusedByTheSystem) {
  void* address = ::VirtualAlloc(nullptr, 65536, MEM_RESERVE, PAGE_NOACCESS);
  ASSERT_NE(address, nullptr);
  const OSSFileMapParam param = mapParam(OSS_FILE_MAP_READ_ONLY);
  expectRefusal([&] { return file_.map(&param, &address); }, ECF_INVALID_ADDRESS,
                refusedMapping(OSS_LOG_INFO, 80, ERROR_INVALID_ADDRESS, ECF_INVALID_ADDRESS));
  EXPECT_TRUE(::VirtualFree(address, 0, MEM_RELEASE));
}

TEST_F(OSSHFileMapTest, APreferredAddressThatIsNotAlignedIsRefusedByTheSystem) {
  void* address = reinterpret_cast<void*>(uintptr_t{0x12345678});
  const OSSFileMapParam param = mapParam(OSS_FILE_MAP_READ_ONLY);
  expectRefusal([&] { return file_.map(&param, &address); }, ECF_INVALID_ADDRESS,
                refusedMapping(OSS_LOG_INFO, 80, ERROR_MAPPED_ALIGNMENT, ECF_INVALID_ADDRESS));
  EXPECT_EQ(address, reinterpret_cast<void*>(uintptr_t{0x12345678}));
}

TEST_F(OSSHFileMapTest, TheReservedWordIsIgnoredAndTheOldestVersionAccepted) {
  OSSFileMapParam param = mapParam(OSS_FILE_MAP_READ_ONLY);
  param.version = OSS_VERSION_OLDEST;
  param.reserved = ~uint64_t{0};
  void* view = nullptr;
  EXPECT_EQ(file_.map(&param, &view), ECF_OK);
  EXPECT_EQ(file_.unmap(view), ECF_OK);
}

TEST_F(OSSHFileMapTest, ANullRecordIsRefused) {
  void* address = nullptr;
  expectRefusal([&] { return file_.map(nullptr, &address); }, ECF_INVALID_PARAMETER,
                FoundRecord(OSS_LOG_ERROR, Func::OSSHFile_map, 1111, ECF_INVALID_PARAMETER));
}

TEST_F(OSSHFileMapTest, ARecordThatIsTooOldIsRefused) {
  OSSFileMapParam param = mapParam(OSS_FILE_MAP_READ_ONLY);
  param.version = kTooOld;
  expectRefusedMap(
      param, ECF_INVALID_VERSION,
      FoundRecord(OSS_LOG_ERROR, Func::OSSHFile_map, 1112, ECF_INVALID_VERSION, {Uint(kTooOld)}));
}

TEST_F(OSSHFileMapTest, ANullAddressIsRefused) {
  const OSSFileMapParam param = mapParam(OSS_FILE_MAP_READ_ONLY);
  expectRefusal([&] { return file_.map(&param, nullptr); }, ECF_INVALID_PARAMETER,
                FoundRecord(OSS_LOG_ERROR, Func::OSSHFile_map, 1111, ECF_INVALID_PARAMETER));
}

TEST_F(OSSHFileMapTest, AnUnknownProtectionIsRefused) {
  for (const uint64_t protection : kNoEnumerator)
    expectRefusedMap(mapParam(protection), ECF_INVALID_PARAMETER,
                     FoundRecord(OSS_LOG_INFO, Func::OSSHFile_map, 60, ECF_INVALID_PARAMETER,
                                 {Hex(protection)}));
}

TEST_F(OSSHFileMapTest, AMappingThatTheSystemRefusesIsReported) {
  FailingCall fails("CreateFileMappingA", ERROR_NOT_ENOUGH_MEMORY);
  expectRefusedMap(mapParam(OSS_FILE_MAP_READ_ONLY), ECF_NO_MEMORY,
                   refusedMapping(OSS_LOG_ERROR, 70, ERROR_NOT_ENOUGH_MEMORY, ECF_NO_MEMORY));
}

// Deliberate: mapped as a failure of the view, for which error 183 is an existing file and not an
// existing mapping, and logged as one of the mapping.
TEST_F(OSSHFileMapTest, AViewThatTheSystemRefusesIsLoggedAsTheMapping) {
  FailingCall fails("MapViewOfFileEx", ERROR_ALREADY_EXISTS);
  expectRefusedMap(mapParam(OSS_FILE_MAP_READ_ONLY), ECF_FILE_EXISTS,
                   refusedMapping(OSS_LOG_INFO, 80, ERROR_ALREADY_EXISTS, ECF_FILE_EXISTS));
}

TEST_F(OSSHFileMapTest, AnEmptyFileIsRefusedByTheSystem) {
  writeFile(path_, "");
  expectRefusedMap(mapParam(OSS_FILE_MAP_READ_ONLY), ECF_UNKNOWN,
                   refusedMapping(OSS_LOG_ERROR, 70, ERROR_FILE_INVALID, ECF_UNKNOWN));
}

TEST_F(OSSHFileMapTest, AViewLongerThanTheFileIsRefusedByTheSystem) {
  expectRefusedMap(mapParam(OSS_FILE_MAP_READ_ONLY, 65536), ECF_ACCESS_DENIED,
                   refusedMapping(OSS_LOG_INFO, 80, ERROR_ACCESS_DENIED, ECF_ACCESS_DENIED));
}

TEST_F(OSSHFileMapTest, AReadOnlyHandleIsNotMappedForWriting) {
  ASSERT_EQ(file_.close(), ECF_OK);
  openFile(OSS_FILE_READ);
  expectRefusedMap(mapParam(OSS_FILE_MAP_READ_WRITE), ECF_ACCESS_DENIED,
                   refusedMapping(OSS_LOG_INFO, 70, ERROR_ACCESS_DENIED, ECF_ACCESS_DENIED));
}

// The system would make a mapping of its paging file, were it not for the size 0.
TEST_F(OSSHFileMapTest, AClosedHandleIsRefusedByTheSystem) {
  ASSERT_EQ(file_.close(), ECF_OK);
  expectRefusedMap(
      mapParam(OSS_FILE_MAP_READ_WRITE), ECF_INVALID_PARAMETER,
      refusedMapping(OSS_LOG_INFO, 70, ERROR_INVALID_PARAMETER, ECF_INVALID_PARAMETER));
}

// ---- unmap ----

TEST_F(OSSHFileUnmapTest, ReleasesTheViewAndItsMapping) {
  const size_t before = openHandles();
  void* const view = map(OSS_FILE_MAP_READ_ONLY);
  EXPECT_EQ(openHandles(), before + 1);
  EXPECT_EQ(file_.unmap(view), ECF_OK);
  EXPECT_EQ(openHandles(), before);
  EXPECT_EQ(fieldsOf(file_), opened());
  MEMORY_BASIC_INFORMATION region = {};
  ASSERT_EQ(::VirtualQuery(view, &region, sizeof region), sizeof region);
  EXPECT_EQ(region.State, DWORD{MEM_FREE});
  EXPECT_THAT(log_.records(), IsEmpty());
}

TEST_F(OSSHFileUnmapTest, AnAddressThatIsNoViewIsRefusedByTheSystem) {
  void* const view = map(OSS_FILE_MAP_READ_ONLY);
  expectRefusal([&] { return file_.unmap(nullptr); }, ECF_INVALID_ADDRESS,
                SystemRecord(OSS_LOG_INFO, Func::OSSHFile_unmap, 30, SysCall::UnmapViewOfFile,
                             ERROR_INVALID_ADDRESS, ECF_INVALID_ADDRESS, {{1, Hex(handle())}}));
  EXPECT_EQ(file_.unmap(view), ECF_OK);
}

TEST_F(OSSHFileUnmapTest, AViewThatTheSystemKeepsStaysMapped) {
  char* const view = map(OSS_FILE_MAP_READ_ONLY);
  {
    FailingCall fails("UnmapViewOfFile", ERROR_CRC);
    expectRefusal([&] { return file_.unmap(view); }, ECF_UNKNOWN,
                  SystemRecord(OSS_LOG_ERROR, Func::OSSHFile_unmap, 30, SysCall::UnmapViewOfFile,
                               ERROR_CRC, ECF_UNKNOWN, {{1, Hex(handle())}}));
  }
  EXPECT_EQ(std::string(view, 10), kContent);
  EXPECT_EQ(file_.unmap(view), ECF_OK);
}

TEST_F(OSSHFileUnmapTest, AMappingThatTheSystemKeepsIsReportedAndKept) {
  void* const view = map(OSS_FILE_MAP_READ_ONLY);
  const UniqueHandle mapping(fieldsOf(file_).mapping);
  FailingCall fails("CloseHandle", ERROR_CRC);
  EXPECT_EQ(file_.unmap(view), ECF_UNKNOWN);
  EXPECT_THAT(log_.records(), ElementsAre(SystemRecord(OSS_LOG_ERROR, Func::OSSHFile_unmap, 40,
                                                       SysCall::CloseHandle, ERROR_CRC, ECF_UNKNOWN,
                                                       {{1, Hex(mapping.get())}})));
  EXPECT_EQ(fieldsOf(file_), (HandleFields{handle(), mapping.get(), nullptr}));
}

TEST_F(OSSHFileUnmapTest, AnotherViewThanItsOwnIsUnmappedAllTheSame) {
  void* const own = map(OSS_FILE_MAP_READ_ONLY);
  void* const other = ::MapViewOfFile(fieldsOf(file_).mapping, FILE_MAP_READ, 0, 0, 0);
  ASSERT_NE(other, nullptr);
  EXPECT_EQ(file_.unmap(other), ECF_OK);
  EXPECT_EQ(fieldsOf(file_), opened());
  EXPECT_TRUE(::UnmapViewOfFile(own));
}

TEST_F(OSSHFileUnmapTest, AHandleThatMapsNothingHasNoMappingToClose) {
  const UniqueHandle mapping(::CreateFileMappingA(handle(), nullptr, PAGE_READONLY, 0, 0, nullptr));
  void* const view = ::MapViewOfFile(mapping.get(), FILE_MAP_READ, 0, 0, 0);
  ASSERT_NE(view, nullptr);
  expectRefusal(
      [&] { return file_.unmap(view); }, ECF_INVALID_PARAMETER,
      SystemRecord(OSS_LOG_INFO, Func::OSSHFile_unmap, 40, SysCall::CloseHandle,
                   ERROR_INVALID_HANDLE, ECF_INVALID_PARAMETER, {{1, Hex(INVALID_HANDLE_VALUE)}}));
}

// ---- A whole life ----

TEST_F(OSSHFileMapTest, AViewOutlivesTheFileThatIsClosedUnderIt) {
  const char* const view = map(OSS_FILE_MAP_READ_ONLY);
  const UniqueHandle mapping(fieldsOf(file_).mapping);
  EXPECT_EQ(file_.close(), ECF_OK);
  EXPECT_EQ(fieldsOf(file_), kClosed);
  EXPECT_EQ(std::string(view, 10), kContent);
  EXPECT_TRUE(::UnmapViewOfFile(view));
}

TEST_F(OSSHFileMapTest, AHandleCanBeOpenedMappedUnmappedAndClosedAgainAndAgain) {
  const size_t before = openHandles();
  for (int round = 0; round < 100; ++round) {
    EXPECT_EQ(file_.unmap(map(OSS_FILE_MAP_READ_WRITE)), ECF_OK);
    EXPECT_EQ(file_.close(), ECF_OK);
    openFile();
  }
  EXPECT_EQ(openHandles(), before);
  EXPECT_THAT(log_.records(), IsEmpty());
}

// ---- The system is not asked ----

// The log stays closed here: it would make system calls of its own.
TEST(OSSHFile, ArgumentsOutOfTheirRangeMakeNoSystemCall) {
  TempDirectory dir;
  const std::string path = dir.file("file");
  OSSHFile file;
  void* view = nullptr;
  uint64_t count = 0;
  CallCounter calls[] = {CallCounter("CreateFileA"),
                         CallCounter("GetFileAttributesA"),
                         CallCounter("SetFilePointer"),
                         CallCounter("GetFileSize"),
                         CallCounter("SetEndOfFile"),
                         CallCounter("ReadFile"),
                         CallCounter("WriteFile"),
                         CallCounter("LockFileEx"),
                         CallCounter("CreateFileMappingA"),
                         CallCounter("MapViewOfFileEx"),
                         CallCounter("Sleep"),
                         CallCounter("CloseHandle")};

  OSSFileOpenParam open = openParam(path, 3, OSS_FILE_READ);
  EXPECT_EQ(file.open(&open), ECF_INVALID_PARAMETER);
  open = openParam(path, OSS_FILE_OPEN_ALWAYS, 3);
  EXPECT_EQ(file.open(&open), ECF_INVALID_PARAMETER);
  open = openParam(path, OSS_FILE_TRUNCATE, OSS_FILE_READ);
  EXPECT_EQ(file.open(&open), ECF_INVALID_PARAMETER);
  open.path = nullptr;
  EXPECT_EQ(file.open(&open), ECF_INVALID_PARAMETER);
  OSSFileSeekParam seek;
  seek.origin = 3;
  EXPECT_EQ(file.seek(&seek, nullptr), ECF_INVALID_PARAMETER);
  EXPECT_EQ(file.getSize(nullptr), ECF_INVALID_PARAMETER);
  OSSFileSetSizeParam setSize;
  setSize.reserved = 1;
  EXPECT_EQ(file.setSize(&setSize), ECF_INVALID_PARAMETER);
  OSSFileReadParam read;
  EXPECT_EQ(file.read(&read, nullptr, nullptr), ECF_INVALID_PARAMETER);
  EXPECT_EQ(file.read(nullptr, nullptr, &count), ECF_INVALID_PARAMETER);
  OSSFileWriteParam write;
  write.version = kTooOld;
  EXPECT_EQ(file.write(&write, &count), ECF_INVALID_VERSION);
  const OSSFileLockParam badMode(3, OSS_FILE_LOCK_WAIT);
  EXPECT_EQ(file.lock(&badMode), ECF_INVALID_PARAMETER);
  const OSSFileLockParam badWait(OSS_FILE_LOCK_SHARED, 3);
  EXPECT_EQ(file.lock(&badWait), ECF_INVALID_PARAMETER);
  const OSSFileMapParam map = mapParam(3);
  EXPECT_EQ(file.map(&map, &view), ECF_INVALID_PARAMETER);
  EXPECT_EQ(file.map(&map, nullptr), ECF_INVALID_PARAMETER);
  EXPECT_EQ(file.close(), ECF_INVALID_PARAMETER);

  for (const CallCounter& counter : calls) EXPECT_EQ(counter.calls(), 0);
}

TEST(OSSHFile, WhatTheAttributesAnswerOpensNothing) {
  TempDirectory dir;
  const std::string present = dir.file("present");
  const std::string missing = dir.file("missing");
  writeFile(present, "");
  CallCounter attributes("GetFileAttributesA");
  CallCounter opens("CreateFileA");
  OSSHFile file;

  const OSSFileOpenParam anew = openParam(present, OSS_FILE_CREATE_NEW, OSS_FILE_WRITE);
  EXPECT_EQ(file.open(&anew), ECF_FILE_EXISTS);
  const OSSFileOpenParam existing = openParam(missing, OSS_FILE_OPEN_EXISTING, OSS_FILE_READ);
  EXPECT_EQ(file.open(&existing), ECF_FILE_DOESNT_EXIST);
  EXPECT_EQ(attributes.calls(), 2);
  EXPECT_EQ(opens.calls(), 0);
}

}  // namespace
