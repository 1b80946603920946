// Questions about paths.
#include <algorithm>

#include "file/osspathfixture.h"
#include "ossdirectory.h"

using namespace osse_test;
using namespace testing;
using oss::Func;
using oss::SysCall;

namespace {

// ---- ossIsFile, ossIsDirectory ----

using OSSPathKindTest = PathTest;

TEST_F(OSSPathKindTest, AFileIsAFileAndADirectoryADirectory) {
  const std::string file = dir_.file("file");
  writeFile(file, "");
  EXPECT_TRUE(ossIsFile(file.c_str()));
  EXPECT_FALSE(ossIsDirectory(file.c_str()));
  EXPECT_FALSE(ossIsFile(dir_.path().c_str()));
  EXPECT_TRUE(ossIsDirectory(dir_.path().c_str()));
}

TEST_F(OSSPathKindTest, WhatIsNotThereIsNeither) {
  for (const char* const path : {missing_.c_str(), "", " ", "<", "C", "\xFF\xFE", R"(\\.\C:)",
                                 static_cast<const char*>(nullptr)}) {
    EXPECT_FALSE(ossIsFile(path));
    EXPECT_FALSE(ossIsDirectory(path));
  }
}

TEST_F(OSSPathKindTest, OneBackslashAtTheEndOfADirectoryIsLeftAway) {
  std::vector<std::string> asked;
  ImportHook hook("_stat64", [&](Call& call) {
    asked.emplace_back(call.argument<const char*>(0));
    return call.passOn();
  });
  EXPECT_TRUE(ossIsDirectory((dir_.path() + '\\').c_str()));
  EXPECT_TRUE(ossIsDirectory(R"(C:\)"));
  ossIsDirectory((dir_.path() + '/').c_str());
  ossIsFile((dir_.path() + '\\').c_str());
  EXPECT_THAT(asked, ElementsAre(dir_.path(), R"(C:\)", dir_.path() + '/', dir_.path() + '\\'));
}

TEST_F(OSSPathKindTest, TheLongestPathMayEndInABackslash) {
  for (const size_t length : {259u, 260u}) {
    const std::string path = pathOfLength(length);
    makeDirectory(path);
    EXPECT_TRUE(ossIsDirectory(path.c_str())) << length;
    EXPECT_TRUE(ossIsDirectory((path + '\\').c_str())) << length;
  }
  const std::string tooLong = pathOfLength(261);
  EXPECT_FALSE(ossIsDirectory(tooLong.c_str()));
  EXPECT_FALSE(ossIsDirectory((tooLong + '\\').c_str()));
  // The first 260 bytes are a directory's, and say nothing about the rest.
  EXPECT_FALSE(ossIsDirectory((pathOfLength(260) + "n\\").c_str()));
}

// ---- ossPathTest, ossPathExists ----

using OSSPathTestTest = PathTest;

OSSErr test(const std::string& path, uint64_t flags = OSS_PATH_EXISTS) {
  OSSPathTestParam param;
  param.path = path.c_str();
  param.flags = flags;
  return ossPathTest(&param);
}

TEST_F(OSSPathTestTest, FindsFilesAndDirectories) {
  const std::string file = dir_.file("file");
  writeFile(file, "");
  for (const std::string& path : {file, dir_.path(), dir_.path() + '\\', std::string(R"(C:\)")}) {
    EXPECT_EQ(test(path), ECF_OK) << path;
    EXPECT_TRUE(ossPathExists(path.c_str())) << path;
  }
}

TEST_F(OSSPathTestTest, EachFlagBecomesItsAccessMode) {
  std::vector<int> modes;
  ImportHook hook("_access", [&](Call& call) {
    modes.push_back(call.argument<int>(1));
    return 0;
  });
  for (const uint64_t flags : {0u, 1u, 2u, 3u, 4u, 5u, 6u, 7u, 8u}) test("path", flags);
  EXPECT_THAT(modes, ElementsAre(0, 0, 4, 4, 2, 2, 6, 6, 0));
}

TEST_F(OSSPathTestTest, WhatIsMissingIsToldAndNotLogged) {
  for (const std::string& path : {missing_, dir_.file("no\\where"), std::string("")}) {
    EXPECT_EQ(test(path), ECF_FILE_DOESNT_EXIST) << path;
    EXPECT_FALSE(ossPathExists(path.c_str())) << path;
  }
}

TEST_F(OSSPathTestTest, WhatIsDeniedIsToldAndNotLogged) {
  const std::string file = dir_.file("file");
  writeFile(file, "");
  ASSERT_TRUE(::SetFileAttributesA(file.c_str(), FILE_ATTRIBUTE_READONLY));
  EXPECT_EQ(test(file), ECF_OK);
  EXPECT_EQ(test(file, OSS_PATH_READABLE), ECF_OK);
  ::SetLastError(ERROR_FILE_NOT_FOUND);  // of some earlier call
  EXPECT_EQ(test(file, OSS_PATH_WRITABLE), ECF_ACCESS_DENIED);
  ASSERT_TRUE(::SetFileAttributesA(file.c_str(), FILE_ATTRIBUTE_NORMAL));
  EXPECT_EQ(test(file, OSS_PATH_WRITABLE), ECF_OK);
}

TEST_F(OSSPathTestTest, AnyOtherRefusalHasTwoRecords) {
  const struct {
    int error;
    OSSErr code;
    uint64_t level;
  } kRows[] = {
      {EINVAL, ECF_INVALID_PARAMETER, OSS_LOG_INFO},
      {3, ECF_FILE_DOESNT_EXIST, OSS_LOG_INFO},
      {ENOENT, ECF_UNKNOWN, OSS_LOG_ERROR},
  };
  for (const auto& row : kRows) {
    const FailingRuntimeCall fails("_access", row.error, ERROR_INVALID_NAME);
    OSSPathTestParam param;
    param.path = "some path";
    param.flags = OSS_PATH_EXISTS | OSS_PATH_WRITABLE;
    param.reserved = 0xABCD;
    expectRefusal(
        [&] { return ossPathTest(&param); }, row.code,
        SystemRecord(row.level, Func::ossPathTest, 40, SysCall::Access,
                     static_cast<uint32_t>(row.error), row.code, {{1, String("some path")}}),
        FoundRecord(row.level, Func::ossPathTest, 40, row.code,
                    {Hex(uint64_t{5}), Hex(uint64_t{0xABCD})}));
    EXPECT_FALSE(ossPathExists("some path"));  // and no record
  }
}

TEST_F(OSSPathTestTest, ANameThatCannotBeIsAnInvalidParameter) {
  const std::string path = dir_.file("<a|b>");
  expectRefusal([&] { return test(path); }, ECF_INVALID_PARAMETER,
                SystemRecord(OSS_LOG_INFO, Func::ossPathTest, 40, SysCall::Access, EINVAL,
                             ECF_INVALID_PARAMETER, {{1, String(path)}}),
                FoundRecord(OSS_LOG_INFO, Func::ossPathTest, 40, ECF_INVALID_PARAMETER,
                            {Hex(uint64_t{1}), Hex(uint64_t{0})}));
  EXPECT_FALSE(ossPathExists(path.c_str()));
}

TEST_F(OSSPathTestTest, NullAndOldRecordsAreRefused) {
  expectRecordChecks<OSSPathTestParam>(Func::ossPathTest, ossPathTest);
  EXPECT_FALSE(ossPathExists(nullptr));
}

TEST_F(OSSPathTestTest, TheOldestAcceptedVersionAndAnyLaterOneAreAccepted) {
  for (const uint64_t version : {OSS_VERSION_OLDEST, ~uint64_t{0}}) {
    OSSPathTestParam param;
    param.version = version;
    param.path = dir_.path().c_str();
    EXPECT_EQ(ossPathTest(&param), ECF_OK);
  }
}

TEST_F(OSSPathTestTest, AConstructedRecordAsksForExistence) {
  const OSSPathTestParam param;
  EXPECT_EQ(param.version, 0x09010007u);
  EXPECT_EQ(param.path, nullptr);
  EXPECT_EQ(param.flags, 1u);
  EXPECT_EQ(param.reserved, 0u);
}

TEST(PathRecords, AreConstructedWithTheCurrentVersionAndNothingElse) {
  const OSSDirectoryCreateParam create;
  EXPECT_EQ(create.version, 0x09010007u);
  EXPECT_EQ(create.path, nullptr);
  EXPECT_EQ(create.permissions, 0u);
  EXPECT_EQ(create.mode, 0u);
  const OSSDirectoryDeleteParam remove;
  EXPECT_EQ(remove.version, 0x09010007u);
  EXPECT_EQ(remove.path, nullptr);
  EXPECT_EQ(remove.flags, 0u);
  const OSSFileInfoParam info;
  EXPECT_EQ(info.version, 0x09010007u);
  EXPECT_EQ(info.path, nullptr);
  const OSSDirectoryListingParam listing;
  EXPECT_EQ(listing.version, 0x09010007u);
  EXPECT_EQ(listing.path, nullptr);
  EXPECT_EQ(listing.typeMask, 0u);
  EXPECT_EQ(listing.reserved, 0u);
}

// ---- ossFileGetInfo ----

using OSSFileGetInfoTest = PathTest;

OSSFileInfoParam infoParam(const std::string& path) {
  OSSFileInfoParam param;
  param.path = path.c_str();
  return param;
}

OSSFileInfo filled() {
  OSSFileInfo info;
  auto* const bytes = reinterpret_cast<unsigned char*>(&info);
  std::fill(bytes, bytes + sizeof info, 0xA5);
  return info;
}

// The bytes of the fields that filled() left in them.
constexpr uint64_t kUntouched = 0xA5A5A5A5A5A5A5A5;

TEST_F(OSSFileGetInfoTest, TellsOfAFile) {
  const std::string file = dir_.file("file");
  writeFile(file, "12345");
  const HANDLE handle =
      ::CreateFileA(file.c_str(), GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr);
  ASSERT_NE(handle, INVALID_HANDLE_VALUE);
  // The hundreds of nanoseconds since 1601 at 1,000,000,000 s after the start of 1970.
  constexpr uint64_t kTime = (11'644'473'600 + 1'000'000'000) * uint64_t{10'000'000};
  const FILETIME time = {static_cast<DWORD>(kTime), static_cast<DWORD>(kTime >> 32)};
  ASSERT_TRUE(::SetFileTime(handle, nullptr, nullptr, &time));
  ::CloseHandle(handle);

  for (auto* const operation : {ossFileGetInfoV9, ossFileGetInfo}) {
    const OSSFileInfoParam param = infoParam(file);
    OSSFileInfo info = filled();
    EXPECT_EQ(operation(&param, &info), ECF_OK);
    EXPECT_EQ(info.size, 5u);
    EXPECT_EQ(info.reserved[0], kUntouched);
    EXPECT_EQ(info.reserved[1], kUntouched);
    EXPECT_EQ(info.type, OSS_FILE_TYPE_REGULAR);
    EXPECT_EQ(info.permissions, 0666u);
    EXPECT_EQ(info.owner, 0u);
    EXPECT_EQ(info.group, 0u);
    EXPECT_EQ(info.modified, 1'000'000'000u);
  }
}

TEST_F(OSSFileGetInfoTest, TellsOfADirectory) {
  const OSSFileInfoParam param = infoParam(dir_.path());
  OSSFileInfo info = filled();
  EXPECT_EQ(ossFileGetInfoV9(&param, &info), ECF_OK);
  EXPECT_EQ(info.type, OSS_FILE_TYPE_DIRECTORY);
  EXPECT_EQ(info.permissions, 0777u);
}

// Answers the system's question with a mode of the test's.
struct StatusWithMode {
  unsigned short mode;
  Word operator()(Call& call) const {
    auto* const status = call.argument<struct _stat64*>(1);
    std::memset(status, 0, sizeof *status);
    status->st_mode = mode;
    status->st_uid = 7;
    status->st_gid = 8;
    status->st_size = int64_t{5} << 30;
    status->st_mtime = int64_t{1} << 33;
    return 0;
  }
};

TEST_F(OSSFileGetInfoTest, HasAllTwelvePermissionBitsAndFullWidths) {
  ImportHook hook("_stat64", StatusWithMode{0x8FFF});
  const OSSFileInfoParam param = infoParam("path");
  OSSFileInfo info = filled();
  EXPECT_EQ(ossFileGetInfoV9(&param, &info), ECF_OK);
  EXPECT_EQ(info.size, uint64_t{5} << 30);
  EXPECT_EQ(info.type, 0x8000u);
  EXPECT_EQ(info.permissions, 0xFFFu);
  EXPECT_EQ(info.owner, 7u);
  EXPECT_EQ(info.group, 8u);
  EXPECT_EQ(info.modified, uint64_t{1} << 33);
}

TEST_F(OSSFileGetInfoTest, AnUnknownTypeIsAllThatIsWritten) {
  for (const unsigned short mode :
       std::initializer_list<unsigned short>{0x2123, 0x6FFF, 0xC000, 0}) {
    ImportHook hook("_stat64", StatusWithMode{mode});
    const OSSFileInfoParam param = infoParam("path");
    OSSFileInfo info = filled();
    expectRefusal([&] { return ossFileGetInfoV9(&param, &info); }, ECF_FILE_UNKNOWN_FILE_TYPE,
                  FoundRecord(OSS_LOG_INFO, Func::ossGetFileInfo, 60, ECF_FILE_UNKNOWN_FILE_TYPE,
                              {Hex(uint16_t{mode})}));
    OSSFileInfo expected = filled();
    expected.type = 0;
    EXPECT_EQ(std::memcmp(&info, &expected, sizeof info), 0);
  }
}

TEST_F(OSSFileGetInfoTest, ARefusalIsToldByErrno) {
  OSSFileInfo info = filled();
  const OSSFileInfoParam absent = infoParam(missing_);
  expectRefusal([&] { return ossFileGetInfoV9(&absent, &info); }, ECF_FILE_DOESNT_EXIST,
                SystemRecord(OSS_LOG_INFO, Func::ossGetFileInfo, 30, SysCall::Stat, ENOENT,
                             ECF_FILE_DOESNT_EXIST, {{1, String(missing_)}}));
  const FailingRuntimeCall fails("_stat64", EACCES, ERROR_FILE_NOT_FOUND);
  const OSSFileInfoParam param = infoParam("path");
  expectRefusal([&] { return ossFileGetInfoV9(&param, &info); }, ECF_UNKNOWN,
                SystemRecord(OSS_LOG_ERROR, Func::ossGetFileInfo, 30, SysCall::Stat, EACCES,
                             ECF_UNKNOWN, {{1, String("path")}}));
  const OSSFileInfo expected = filled();
  EXPECT_EQ(std::memcmp(&info, &expected, sizeof info), 0);
}

TEST_F(OSSFileGetInfoTest, NullAndOldRecordsAreRefused) {
  OSSFileInfo info;
  expectRecordChecks<OSSFileInfoParam>(Func::ossGetFileInfo, [&](const OSSFileInfoParam* param) {
    return ossFileGetInfoV9(param, &info);
  });
  const OSSFileInfoParam param = infoParam("path");
  expectRefusal([&] { return ossFileGetInfoV9(&param, nullptr); }, ECF_INVALID_PARAMETER,
                nullRecord(Func::ossGetFileInfo));
}

// ---- ossComparePaths ----

using OSSComparePathsTest = PathTest;

bool same(const std::string& a, const std::string& b) {
  return ossComparePaths(a.c_str(), b.c_str());
}

TEST_F(OSSComparePathsTest, IgnoresCaseAlsoOfWhatIsNotThere) {
  EXPECT_TRUE(same(R"(C:\TEMP\x)", R"(c:\temp\X)"));
  EXPECT_TRUE(same("", ""));
  EXPECT_FALSE(same(R"(C:\TEMP\x)", R"(C:\TEMP\y)"));
  EXPECT_FALSE(same("a", ""));
  EXPECT_FALSE(same("\xE4", "\xC4"));
}

TEST_F(OSSComparePathsTest, ALongNameEqualsItsShortForm) {
  const std::string longName = dir_.file("A rather long name.text");
  writeFile(longName, "");
  char shortName[MAX_PATH];
  ASSERT_GT(::GetShortPathNameA(longName.c_str(), shortName, sizeof shortName), 0u);
  ASSERT_STRNE(shortName, longName.c_str());
  EXPECT_TRUE(same(longName, shortName));
  EXPECT_TRUE(same(shortName, longName));
  EXPECT_FALSE(same(longName, dir_.file("A rather long other.text")));
}

TEST_F(OSSComparePathsTest, NullIsNoPath) {
  EXPECT_FALSE(ossComparePaths(nullptr, nullptr));
  EXPECT_FALSE(ossComparePaths("a", nullptr));
  EXPECT_FALSE(ossComparePaths(nullptr, "a"));
}

TEST_F(OSSComparePathsTest, AShortFormThatDoesNotFitIsNotUsed) {
  for (const size_t length : {259u, 260u, 261u}) {
    const std::string path = pathOfLength(length);
    const std::string other = path.substr(0, path.size() - 1) + 'x';
    EXPECT_TRUE(same(path, path)) << length;
    EXPECT_FALSE(same(path, other)) << length;
  }
  ImportHook hook("GetShortPathNameA", [](Call& call) {
    EXPECT_EQ(call.argument<DWORD>(2), 260u);
    return 261;
  });
  EXPECT_TRUE(same("path", "PATH"));
  EXPECT_EQ(hook.calls(), 2);
}

// ---- ossGetLogicalDriveMap ----

using OSSDriveMapTest = PathTest;

TEST_F(OSSDriveMapTest, IsTheSystems) {
  uint32_t map = 0;
  EXPECT_EQ(ossGetLogicalDriveMap(&map), ECF_OK);
  EXPECT_EQ(map, ::GetLogicalDrives());
  EXPECT_NE(map & (1u << ('C' - 'A')), 0u);
}

TEST_F(OSSDriveMapTest, WithoutDrivesIsAFailure) {
  uint32_t map = 7;
  ImportHook hook("GetLogicalDrives", [](Call&) { return 0; });
  expectRefusal([&] { return ossGetLogicalDriveMap(&map); }, ECF_FILE_CANNOT_RETRIEVE_DRIVE_MAP,
                FoundRecord(OSS_LOG_ERROR, Func::ossGetLogicalDriveMap, 10,
                            ECF_FILE_CANNOT_RETRIEVE_DRIVE_MAP));
  EXPECT_EQ(map, 0u);
}

TEST_F(OSSDriveMapTest, NeedsSomewhereToPutIt) {
  expectRefusal([] { return ossGetLogicalDriveMap(nullptr); }, ECF_INVALID_PARAMETER,
                nullRecord(Func::ossGetLogicalDriveMap));
}

}  // namespace
