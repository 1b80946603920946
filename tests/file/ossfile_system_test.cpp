// The file handle: open, close, lock, flush.
#include "file/ossfilefixture.h"
#include "harness/childprocess.h"
#include "harness/sharedobjects.h"

using namespace osse_test;
using namespace testing;
using oss::Func;
using oss::SysCall;

namespace {

constexpr DWORD kReadAndWrite = GENERIC_READ | GENERIC_WRITE;

// ---- open: what is asked of the system ----

// What CreateFileA was asked for, of one call.
struct CreateFileCall {
  std::string path;
  DWORD access, share;
  const void* security;
  DWORD disposition, attributes;
  HANDLE templateFile;

  bool operator==(const CreateFileCall&) const = default;
};

// Opens with `param` and tells what CreateFileA was asked for. The log stays closed meanwhile.
std::vector<CreateFileCall> callsOfOpen(OSSFileOpenParam param) {
  std::vector<CreateFileCall> calls;
  ImportHook hook("CreateFileA", [&](Call& call) {
    calls.push_back({call.argument<const char*>(0), call.argument<DWORD>(1),
                     call.argument<DWORD>(2), call.argument<const void*>(3),
                     call.argument<DWORD>(4), call.argument<DWORD>(5), call.argument<HANDLE>(6)});
    ::SetLastError(ERROR_GEN_FAILURE);
    return INVALID_HANDLE_VALUE;
  });
  OSSHFile file;
  EXPECT_EQ(file.open(&param), ECF_UNKNOWN);
  return calls;
}

CreateFileCall expectedCall(const std::string& path, DWORD access, DWORD disposition,
                            DWORD attributes) {
  return {path,       access, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, disposition,
          attributes, nullptr};
}

TEST(OSSHFileOpen, EachCreationBecomesItsDisposition) {
  TempDirectory dir;
  const std::string present = dir.file("present");
  const std::string missing = dir.file("missing");
  writeFile(present, "");
  const auto asked = [](const std::string& path, uint64_t creation) {
    return callsOfOpen(openParam(path, creation, OSS_FILE_WRITE));
  };
  const auto disposition = [](const std::string& path, DWORD value) {
    return ElementsAre(expectedCall(path, GENERIC_WRITE, value, FILE_ATTRIBUTE_NORMAL));
  };

  EXPECT_THAT(asked(present, 1), disposition(present, OPEN_EXISTING));
  EXPECT_THAT(asked(present, 2), disposition(present, OPEN_ALWAYS));
  EXPECT_THAT(asked(missing, 2), disposition(missing, OPEN_ALWAYS));
  EXPECT_THAT(asked(present, 4), disposition(present, TRUNCATE_EXISTING));
  EXPECT_THAT(asked(missing, 4), disposition(missing, TRUNCATE_EXISTING));
  EXPECT_THAT(asked(missing, 8), disposition(missing, CREATE_NEW));
  EXPECT_THAT(asked(present, 16), disposition(present, CREATE_ALWAYS));
  EXPECT_THAT(asked(missing, 16), disposition(missing, CREATE_ALWAYS));
}

TEST(OSSHFileOpen, EachAccessBecomesItsGenericRights) {
  TempDirectory dir;
  const std::string path = dir.file("file");
  const auto asked = [&](uint64_t access) {
    return callsOfOpen(openParam(path, OSS_FILE_OPEN_ALWAYS, access));
  };
  const auto rights = [&](DWORD value) {
    return ElementsAre(expectedCall(path, value, OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL));
  };

  EXPECT_THAT(asked(1), rights(GENERIC_READ));
  EXPECT_THAT(asked(2), rights(GENERIC_WRITE));
  EXPECT_THAT(asked(4), rights(kReadAndWrite));
}

TEST(OSSHFileOpen, TwoFlagsBecomeAttributesAndOtherBitsAreIgnored) {
  TempDirectory dir;
  const std::string path = dir.file("file");
  const auto asked = [&](uint64_t flags) {
    return callsOfOpen(openParam(path, OSS_FILE_OPEN_ALWAYS, OSS_FILE_READ, flags));
  };
  const auto attributes = [&](DWORD value) {
    return ElementsAre(expectedCall(path, GENERIC_READ, OPEN_ALWAYS, value));
  };

  EXPECT_THAT(asked(0), attributes(0x00000080));
  EXPECT_THAT(asked(1), attributes(0x80000080));
  EXPECT_THAT(asked(2), attributes(0x04000080));
  EXPECT_THAT(asked(3), attributes(0x84000080));
  EXPECT_THAT(asked(4), attributes(0x00000080));
  EXPECT_THAT(asked(~uint64_t{3}), attributes(0x00000080));
}

TEST(OSSHFileOpen, ModeAndReservedWordAreNotUsed) {
  TempDirectory dir;
  const std::string path = dir.file("file");
  OSSFileOpenParam param = openParam(path, OSS_FILE_OPEN_ALWAYS, OSS_FILE_READ);
  param.mode = ~uint64_t{0};
  param.reserved = ~uint64_t{0};
  EXPECT_THAT(callsOfOpen(param),
              ElementsAre(expectedCall(path, GENERIC_READ, OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL)));
}

// ---- open: what comes of it ----

using OSSHFileOpenTest = OSSHFileTest;

TEST_F(OSSHFileOpenTest, AConstructedHandleIsClosed) {
  EXPECT_EQ(fieldsOf(file_), kClosed);
  EXPECT_EQ(file_.getFileHandle(), INVALID_HANDLE_VALUE);
}

TEST_F(OSSHFileOpenTest, AnOpenHandleOwnsTheFile) {
  openFile();
  EXPECT_EQ(fieldsOf(file_), (HandleFields{handle(), INVALID_HANDLE_VALUE, nullptr}));
  EXPECT_EQ(sizeOf(handle()), sizeof kContent - 1);
  EXPECT_EQ(positionOf(handle()), 0);
  EXPECT_THAT(log_.records(), IsEmpty());
}

TEST_F(OSSHFileOpenTest, CreationsKeepEmptyOrMakeTheFile) {
  const struct {
    uint64_t creation;
    const char* before;  // null: the file is missing
    const char* after;
  } kRows[] = {
      {OSS_FILE_OPEN_EXISTING, "old", "old"}, {OSS_FILE_OPEN_ALWAYS, "old", "old"},
      {OSS_FILE_OPEN_ALWAYS, nullptr, ""},    {OSS_FILE_TRUNCATE, "old", ""},
      {OSS_FILE_CREATE_NEW, nullptr, ""},     {OSS_FILE_CREATE_ALWAYS, "old", ""},
      {OSS_FILE_CREATE_ALWAYS, nullptr, ""},
  };
  for (const auto& row : kRows) {
    SCOPED_TRACE(row.creation);
    ::DeleteFileA(path_.c_str());
    if (row.before != nullptr) writeFile(path_, row.before);

    const OSSFileOpenParam param = openParam(path_, row.creation, OSS_FILE_WRITE);
    EXPECT_EQ(file_.open(&param), ECF_OK);
    EXPECT_EQ(file_.close(), ECF_OK);
    EXPECT_EQ(readFile(path_), row.after);
  }
  EXPECT_THAT(log_.records(), IsEmpty());
}

TEST_F(OSSHFileOpenTest, AFileThatIsDeletedOnCloseIsGoneBehindIt) {
  const OSSFileOpenParam param =
      openParam(path_, OSS_FILE_OPEN_EXISTING, OSS_FILE_READ, OSS_FILE_DELETE_ON_CLOSE);
  ASSERT_EQ(file_.open(&param), ECF_OK);
  EXPECT_NE(::GetFileAttributesA(path_.c_str()), INVALID_FILE_ATTRIBUTES);
  EXPECT_EQ(file_.close(), ECF_OK);
  EXPECT_EQ(::GetFileAttributesA(path_.c_str()), INVALID_FILE_ATTRIBUTES);
}

TEST_F(OSSHFileOpenTest, TheOldestAcceptedVersionAndAnyLaterOneAreAccepted) {
  for (const uint64_t version : {OSS_VERSION_OLDEST, OSS_VERSION_CURRENT, ~uint64_t{0}}) {
    OSSFileOpenParam param = openParam(path_, OSS_FILE_OPEN_EXISTING, OSS_FILE_READ);
    param.version = version;
    EXPECT_EQ(file_.open(&param), ECF_OK);
    EXPECT_EQ(file_.close(), ECF_OK);
  }
}

TEST_F(OSSHFileOpenTest, OpeningAnOpenHandleLosesItsFileWithoutClosingIt) {
  openFile();
  const UniqueHandle lost(handle());
  openFile();
  EXPECT_NE(handle(), lost.get());
  EXPECT_EQ(sizeOf(lost.get()), sizeof kContent - 1);
}

TEST_F(OSSHFileOpenTest, AFailedOpenOfAnOpenHandleClosesItsFields) {
  openFile();
  const UniqueHandle lost(handle());
  FailingCall fails("CreateFileA", ERROR_ACCESS_DENIED, {.result = kAllOnes});
  const OSSFileOpenParam param = openParam(path_, OSS_FILE_OPEN_ALWAYS, OSS_FILE_READ);
  EXPECT_EQ(file_.open(&param), ECF_ACCESS_DENIED);
  EXPECT_EQ(fieldsOf(file_), kClosed);
  EXPECT_EQ(sizeOf(lost.get()), sizeof kContent - 1);
}

// ---- open: refusals ----

TEST_F(OSSHFileOpenTest, ANullRecordIsRefused) {
  expectRefusal([&] { return file_.open(nullptr); }, ECF_INVALID_PARAMETER,
                FoundRecord(OSS_LOG_ERROR, Func::OSSHFile_open, 1111, ECF_INVALID_PARAMETER));
}

TEST_F(OSSHFileOpenTest, ARecordThatIsTooOldIsRefused) {
  for (const uint64_t version : {uint64_t{0}, kTooOld}) {
    OSSFileOpenParam param = openParam(path_, OSS_FILE_OPEN_EXISTING, OSS_FILE_READ);
    param.version = version;
    expectRefusal([&] { return file_.open(&param); }, ECF_INVALID_VERSION,
                  FoundRecord(OSS_LOG_ERROR, Func::OSSHFile_open, 1112, ECF_INVALID_VERSION,
                              {Uint(version)}));
  }
}

TEST_F(OSSHFileOpenTest, ANullPathIsRefused) {
  OSSFileOpenParam param = openParam(path_, OSS_FILE_OPEN_EXISTING, OSS_FILE_READ);
  param.path = nullptr;
  expectRefusal([&] { return file_.open(&param); }, ECF_INVALID_PARAMETER,
                FoundRecord(OSS_LOG_INFO, Func::OSSHFile_open, 210, ECF_INVALID_PARAMETER));
}

TEST_F(OSSHFileOpenTest, AnUnknownCreationIsRefused) {
  for (const uint64_t creation : kNoEnumerator) {
    const OSSFileOpenParam param = openParam(path_, creation, OSS_FILE_READ);
    expectRefusal([&] { return file_.open(&param); }, ECF_INVALID_PARAMETER,
                  FoundRecord(OSS_LOG_INFO, Func::OSSHFile_open, 230, ECF_INVALID_PARAMETER));
  }
}

TEST_F(OSSHFileOpenTest, AnUnknownAccessIsRefused) {
  for (const uint64_t access : kNoEnumerator) {
    const OSSFileOpenParam param = openParam(path_, OSS_FILE_OPEN_EXISTING, access);
    expectRefusal([&] { return file_.open(&param); }, ECF_INVALID_PARAMETER,
                  FoundRecord(OSS_LOG_INFO, Func::OSSHFile_open, 240, ECF_INVALID_PARAMETER));
  }
}

TEST_F(OSSHFileOpenTest, TruncatingWithReadAccessIsRefused) {
  const OSSFileOpenParam param = openParam(path_, OSS_FILE_TRUNCATE, OSS_FILE_READ);
  expectRefusal([&] { return file_.open(&param); }, ECF_INVALID_PARAMETER,
                FoundRecord(OSS_LOG_INFO, Func::OSSHFile_open, 250, ECF_INVALID_PARAMETER));
}

TEST_F(OSSHFileOpenTest, CreatingAnExistingFileAnewIsRefused) {
  const OSSFileOpenParam param = openParam(path_, OSS_FILE_CREATE_NEW, OSS_FILE_WRITE);
  expectRefusal(
      [&] { return file_.open(&param); }, ECF_FILE_EXISTS,
      FoundRecord(OSS_LOG_INFO, Func::OSSHFile_open, 260, ECF_FILE_EXISTS, {String(path_)}));
}

TEST_F(OSSHFileOpenTest, OpeningAMissingFileIsRefused) {
  const std::string missing = dir_.file("missing");
  const OSSFileOpenParam param = openParam(missing, OSS_FILE_OPEN_EXISTING, OSS_FILE_READ);
  expectRefusal([&] { return file_.open(&param); }, ECF_FILE_DOESNT_EXIST,
                FoundRecord(OSS_LOG_INFO, Func::OSSHFile_open, 270, ECF_FILE_DOESNT_EXIST,
                            {String(missing)}));
}

TEST_F(OSSHFileOpenTest, AFileWhoseAttributesAreDeniedCountsAsMissing) {
  FailingCall fails("GetFileAttributesA", ERROR_ACCESS_DENIED, {.result = INVALID_FILE_ATTRIBUTES});
  const OSSFileOpenParam param = openParam(path_, OSS_FILE_OPEN_EXISTING, OSS_FILE_READ);
  expectRefusal(
      [&] { return file_.open(&param); }, ECF_FILE_DOESNT_EXIST,
      FoundRecord(OSS_LOG_INFO, Func::OSSHFile_open, 270, ECF_FILE_DOESNT_EXIST, {String(path_)}));
}

TEST_F(OSSHFileOpenTest, ARefusalBeforeTheSystemIsAskedLeavesAnOpenHandleOpen) {
  openFile();
  const OSSFileOpenParam param = openParam(path_, OSS_FILE_CREATE_NEW, OSS_FILE_WRITE);
  expectRefusal(
      [&] { return file_.open(&param); }, ECF_FILE_EXISTS,
      FoundRecord(OSS_LOG_INFO, Func::OSSHFile_open, 260, ECF_FILE_EXISTS, {String(path_)}));
}

TEST_F(OSSHFileOpenTest, TheFirstBadArgumentIsTheOneReported) {
  OSSFileOpenParam param;
  expectRefusal([&] { return file_.open(&param); }, ECF_INVALID_PARAMETER,
                FoundRecord(OSS_LOG_INFO, Func::OSSHFile_open, 210, ECF_INVALID_PARAMETER));
  param.path = path_.c_str();
  expectRefusal([&] { return file_.open(&param); }, ECF_INVALID_PARAMETER,
                FoundRecord(OSS_LOG_INFO, Func::OSSHFile_open, 230, ECF_INVALID_PARAMETER));
  param.creation = OSS_FILE_TRUNCATE;
  expectRefusal([&] { return file_.open(&param); }, ECF_INVALID_PARAMETER,
                FoundRecord(OSS_LOG_INFO, Func::OSSHFile_open, 240, ECF_INVALID_PARAMETER));
}

TEST_F(OSSHFileOpenTest, ASystemThatRefusesIsReportedWithAllArguments) {
  const struct {
    DWORD error;
    OSSErr code;
    uint64_t level;
  } kRows[] = {
      {ERROR_ACCESS_DENIED, ECF_ACCESS_DENIED, OSS_LOG_INFO},
      {ERROR_SHARING_VIOLATION, ECF_FILE_SHARE, OSS_LOG_ERROR},
      {ERROR_NOT_READY, ECF_FILE_DEVICE_UNAVAILABLE, OSS_LOG_ERROR},
      {ERROR_PATH_NOT_FOUND, ECF_FILE_PATH_DOESNT_EXIST, OSS_LOG_INFO},
      {ERROR_FILENAME_EXCED_RANGE, ECF_FILE_NAME_TOO_LONG, OSS_LOG_INFO},
      {ERROR_ALREADY_EXISTS, ECF_FILE_EXISTS, OSS_LOG_INFO},
      {ERROR_CRC, ECF_UNKNOWN, OSS_LOG_ERROR},
  };
  for (const auto& row : kRows) {
    FailingCall fails("CreateFileA", row.error, {.result = kAllOnes});
    const OSSFileOpenParam param =
        openParam(path_, OSS_FILE_OPEN_ALWAYS, OSS_FILE_READ_WRITE, OSS_FILE_WRITE_THROUGH);
    expectRefusal(
        [&] { return file_.open(&param); }, row.code,
        SystemRecord(row.level, Func::OSSHFile_open, 280, SysCall::CreateFileA, row.error, row.code,
                     {{1, String(path_)},
                      {2, Hex(DWORD{OPEN_ALWAYS})},
                      {5, Hex(kReadAndWrite)},
                      {6, Hex(DWORD{0x80000080})}}));
  }
}

TEST_F(OSSHFileOpenTest, ADirectoryIsRefusedByTheSystem) {
  const OSSFileOpenParam param = openParam(dir_.path(), OSS_FILE_OPEN_EXISTING, OSS_FILE_READ);
  expectRefusal([&] { return file_.open(&param); }, ECF_ACCESS_DENIED,
                SystemRecord(OSS_LOG_INFO, Func::OSSHFile_open, 280, SysCall::CreateFileA,
                             ERROR_ACCESS_DENIED, ECF_ACCESS_DENIED,
                             {{1, String(dir_.path())},
                              {2, Hex(DWORD{OPEN_EXISTING})},
                              {5, Hex(DWORD{GENERIC_READ})},
                              {6, Hex(DWORD{FILE_ATTRIBUTE_NORMAL})}}));
}

TEST_F(OSSHFileOpenTest, TruncatingAMissingFileIsRefusedByTheSystem) {
  const std::string missing = dir_.file("missing");
  const OSSFileOpenParam param = openParam(missing, OSS_FILE_TRUNCATE, OSS_FILE_WRITE);
  expectRefusal([&] { return file_.open(&param); }, ECF_FILE_DOESNT_EXIST,
                SystemRecord(OSS_LOG_INFO, Func::OSSHFile_open, 280, SysCall::CreateFileA,
                             ERROR_FILE_NOT_FOUND, ECF_FILE_DOESNT_EXIST,
                             {{1, String(missing)},
                              {2, Hex(DWORD{TRUNCATE_EXISTING})},
                              {5, Hex(DWORD{GENERIC_WRITE})},
                              {6, Hex(DWORD{FILE_ATTRIBUTE_NORMAL})}}));
}

TEST_F(OSSHFileOpenTest, APathThatIsNoneIsRefusedByTheSystem) {
  const struct {
    std::string path;
    DWORD error;
    OSSErr code;
  } kRows[] = {
      {dir_.file("<a|b>"), ERROR_INVALID_NAME, ECF_FILE_INVALID_NAME},
      {dir_.file("missing\\file"), ERROR_PATH_NOT_FOUND, ECF_FILE_PATH_DOESNT_EXIST},
      {"", ERROR_PATH_NOT_FOUND, ECF_FILE_PATH_DOESNT_EXIST},
  };
  for (const auto& row : kRows) {
    const OSSFileOpenParam param = openParam(row.path, OSS_FILE_CREATE_ALWAYS, OSS_FILE_WRITE);
    expectRefusal([&] { return file_.open(&param); }, row.code,
                  SystemRecord(OSS_LOG_INFO, Func::OSSHFile_open, 280, SysCall::CreateFileA,
                               row.error, row.code,
                               {{1, String(row.path)},
                                {2, Hex(DWORD{CREATE_ALWAYS})},
                                {5, Hex(DWORD{GENERIC_WRITE})},
                                {6, Hex(DWORD{FILE_ATTRIBUTE_NORMAL})}}));
  }
}

// ---- close ----

using OSSHFileCloseTest = OSSHFileTest;

TEST_F(OSSHFileCloseTest, ClosesTheFileAndItsFields) {
  const size_t before = openHandles();
  openFile();
  EXPECT_EQ(openHandles(), before + 1);
  EXPECT_EQ(file_.close(), ECF_OK);
  EXPECT_EQ(openHandles(), before);
  EXPECT_EQ(fieldsOf(file_), kClosed);
  EXPECT_THAT(log_.records(), IsEmpty());
}

TEST_F(OSSHFileCloseTest, AClosedHandleIsRefused) {
  expectRefusal(
      [&] { return file_.close(); }, ECF_INVALID_PARAMETER,
      SystemRecord(OSS_LOG_INFO, Func::OSSHFile_close, 20, SysCall::CloseHandle,
                   ERROR_INVALID_HANDLE, ECF_INVALID_PARAMETER, {{1, Hex(INVALID_HANDLE_VALUE)}}));
}

// The system would take all ones for the process itself, and close nothing with success.
TEST_F(OSSHFileCloseTest, TheValueAllOnesNeverReachesTheSystem) {
  std::vector<HANDLE> closed;
  ImportHook hook("CloseHandle", [&](Call& call) {
    closed.push_back(call.argument<HANDLE>(0));
    return call.passOn();
  });
  EXPECT_EQ(file_.close(), ECF_INVALID_PARAMETER);
  EXPECT_THAT(closed, Not(Contains(INVALID_HANDLE_VALUE)));
}

TEST_F(OSSHFileCloseTest, ARefusedCloseLeavesTheHandleOpen) {
  openFile();
  FailingCall fails("CloseHandle", ERROR_CRC);
  expectRefusal([&] { return file_.close(); }, ECF_UNKNOWN,
                SystemRecord(OSS_LOG_ERROR, Func::OSSHFile_close, 20, SysCall::CloseHandle,
                             ERROR_CRC, ECF_UNKNOWN, {{1, Hex(handle())}}));
}

// ---- sync ----

using OSSHFileSyncTest = OSSHFileTest;

TEST_F(OSSHFileSyncTest, FlushesTheFile) {
  openFile();
  std::vector<HANDLE> flushed;
  ImportHook hook("FlushFileBuffers", [&](Call& call) {
    flushed.push_back(call.argument<HANDLE>(0));
    return call.passOn();
  });
  EXPECT_EQ(file_.sync(), ECF_OK);
  EXPECT_THAT(flushed, ElementsAre(handle()));
  EXPECT_THAT(log_.records(), IsEmpty());
}

TEST_F(OSSHFileSyncTest, ASystemThatRefusesIsReported) {
  openFile();
  FailingCall fails("FlushFileBuffers", ERROR_DISK_FULL);
  expectRefusal([&] { return file_.sync(); }, ECF_FILE_NO_SPACE,
                SystemRecord(OSS_LOG_INFO, Func::OSSHFile_sync, 20, SysCall::FlushFileBuffers,
                             ERROR_DISK_FULL, ECF_FILE_NO_SPACE, {{1, Hex(handle())}}));
}

TEST_F(OSSHFileSyncTest, AClosedHandleIsRefusedByTheSystem) {
  expectRefusal(
      [&] { return file_.sync(); }, ECF_INVALID_PARAMETER,
      SystemRecord(OSS_LOG_INFO, Func::OSSHFile_sync, 20, SysCall::FlushFileBuffers,
                   ERROR_INVALID_HANDLE, ECF_INVALID_PARAMETER, {{1, Hex(INVALID_HANDLE_VALUE)}}));
}

TEST_F(OSSHFileSyncTest, AHandleWithoutWriteAccessIsRefusedByTheSystem) {
  openFile(OSS_FILE_READ);
  expectRefusal([&] { return file_.sync(); }, ECF_ACCESS_DENIED,
                SystemRecord(OSS_LOG_INFO, Func::OSSHFile_sync, 20, SysCall::FlushFileBuffers,
                             ERROR_ACCESS_DENIED, ECF_ACCESS_DENIED, {{1, Hex(handle())}}));
}

}  // namespace
