// The directory part and the base of a path, through the DLL.
#include "file/osspathfixture.h"

using namespace osse_test;
using namespace testing;
using oss::Func;

namespace {

// What an operation returned, and a buffer of '?' behind it.
struct Answer {
  OSSErr code;
  std::string bytes;

  bool operator==(const Answer&) const = default;
  friend void PrintTo(const Answer& answer, std::ostream* out) {
    *out << std::hex << answer.code << " \"" << answer.bytes << '"';
  }
};

using NameOperation = OSSErr(const char*, char*, uint64_t);

Answer ask(NameOperation* operation, const char* path, uint64_t size) {
  std::string bytes(300, '?');
  const OSSErr code = operation(path, bytes.data(), size);
  const size_t used = bytes.find_last_not_of('?') + 1;
  return {code, bytes.substr(0, used)};
}

std::string terminated(const std::string& text) { return text + '\0'; }

class OSSPathNamesTest : public PathTest {
 protected:
  static LogEvidence tooSmall(Func function, uint64_t needed, uint64_t given) {
    return FoundRecord(OSS_LOG_INFO, function, 30, ECF_BUFFER_TOO_SMALL,
                       {Uint(needed), Uint(given)});
  }
};

TEST_F(OSSPathNamesTest, DirectoryNameGivesTheDirectory) {
  const struct {
    const char *path, *directory;
  } kRows[] = {
      {"file", "."},
      {R"(\file)", R"(\)"},
      {R"(C:\file)", "C:"},
      {R"(\\.\C:)", R"(\\.\C:)"},
      {R"(C:\dir)", "C:"},
      {R"(C:\a\b\)", R"(C:\a)"},
      {R"(C:\)", "."},
      {R"(\)", R"(\)"},
      {R"(\\?\Volume{1}\a)", R"(\\?\Volume{1}\a)"},
      {R"(\\.\PhysicalDrive1)", R"(\\.\PhysicalDrive1)"},
      {R"(\\.\pipe\x)", R"(\\.\pipe)"},
  };
  for (const auto& row : kRows)
    EXPECT_EQ(ask(ossDirectoryName, row.path, 260), (Answer{ECF_OK, terminated(row.directory)}))
        << row.path;
}

TEST_F(OSSPathNamesTest, DirectoryNameNeedsRoomForItsTerminator) {
  EXPECT_EQ(ask(ossDirectoryName, R"(C:\a\b)", 5), (Answer{ECF_OK, terminated(R"(C:\a)")}));
  EXPECT_EQ(ask(ossDirectoryName, R"(C:\a\b)", 4), (Answer{ECF_BUFFER_TOO_SMALL, terminated("")}));
  EXPECT_THAT(log_.newRecords(), ElementsAre(tooSmall(Func::ossDirectoryName, 5, 4)));

  EXPECT_EQ(ask(ossDirectoryName, R"(\\.\C:)", 7), (Answer{ECF_OK, terminated(R"(\\.\C:)")}));
  EXPECT_EQ(ask(ossDirectoryName, R"(\\.\C:)", 6), (Answer{ECF_BUFFER_TOO_SMALL, terminated("")}));
  EXPECT_THAT(log_.newRecords(), ElementsAre(tooSmall(Func::ossDirectoryName, 7, 6)));
}

TEST_F(OSSPathNamesTest, DirectoryNameCutsADotAndARoot) {
  EXPECT_EQ(ask(ossDirectoryName, "file", 2), (Answer{ECF_OK, terminated(".")}));
  EXPECT_EQ(ask(ossDirectoryName, "file", 1), (Answer{ECF_OK, terminated("")}));
  EXPECT_EQ(ask(ossDirectoryName, "file", 0), (Answer{ECF_OK, ""}));
  EXPECT_EQ(ossDirectoryName("file", nullptr, 0), ECF_OK);
  EXPECT_EQ(ask(ossDirectoryName, R"(\file)", 1), (Answer{ECF_OK, terminated("")}));
  EXPECT_EQ(ask(ossDirectoryName, R"(\file)", 0), (Answer{ECF_BUFFER_TOO_SMALL, ""}));
  EXPECT_THAT(log_.newRecords(), ElementsAre(tooSmall(Func::ossDirectoryName, 1, 0)));
}

TEST_F(OSSPathNamesTest, BaseNameGivesTheBase) {
  const struct {
    const char *path, *base;
  } kRows[] = {
      {R"(C:\dir\file)", "file"}, {R"(C:\dir\)", "dir"}, {R"(\)", R"(\)"},
      {R"(\file)", R"(\)"},       {"file", "file"},      {R"(C:\)", "C:"},
  };
  for (const auto& row : kRows)
    EXPECT_EQ(ask(ossBaseName, row.path, 260), (Answer{ECF_OK, terminated(row.base)})) << row.path;
}

TEST_F(OSSPathNamesTest, BaseNameCountsABackslashBehindTheBase) {
  EXPECT_EQ(ask(ossBaseName, R"(C:\dir\)", 5), (Answer{ECF_OK, terminated("dir")}));
  EXPECT_EQ(ask(ossBaseName, R"(C:\dir\)", 4), (Answer{ECF_BUFFER_TOO_SMALL, ""}));
  EXPECT_THAT(log_.newRecords(), ElementsAre(tooSmall(Func::ossBaseName, 5, 4)));
  EXPECT_EQ(ask(ossBaseName, R"(C:\dir)", 4), (Answer{ECF_OK, terminated("dir")}));
  EXPECT_EQ(ask(ossBaseName, R"(C:\dir)", 3), (Answer{ECF_BUFFER_TOO_SMALL, ""}));
  EXPECT_EQ(ossBaseName("file", nullptr, 0), ECF_BUFFER_TOO_SMALL);
  EXPECT_THAT(log_.newRecords(),
              ElementsAre(tooSmall(Func::ossBaseName, 4, 3), tooSmall(Func::ossBaseName, 5, 0)));
}

TEST_F(OSSPathNamesTest, BothTakePathsOfAnyLength) {
  for (const size_t length : {259u, 260u, 261u, 5000u}) {
    const std::string part(length, 'a');
    EXPECT_EQ(ask(ossDirectoryName, (part + R"(\b)").c_str(), 300).code,
              length < 300 ? ECF_OK : ECF_BUFFER_TOO_SMALL);
    EXPECT_EQ(ask(ossBaseName, (R"(b\)" + part).c_str(), 300).code,
              length < 300 ? ECF_OK : ECF_BUFFER_TOO_SMALL);
    EXPECT_EQ(ask(ossDirectoryName, (part + R"(\b)").c_str(), length).code, ECF_BUFFER_TOO_SMALL);
    EXPECT_EQ(ask(ossBaseName, (R"(b\)" + part).c_str(), length).code, ECF_BUFFER_TOO_SMALL);
    const size_t records = log_.newRecords().size();
    EXPECT_EQ(records, length < 300 ? 2u : 4u);
  }
}

TEST_F(OSSPathNamesTest, BothRefuseNullAndEmptyPathsAndANullBuffer) {
  const struct {
    NameOperation* operation;
    Func function;
  } kRows[] = {{ossDirectoryName, Func::ossDirectoryName}, {ossBaseName, Func::ossBaseName}};
  for (const auto& row : kRows) {
    for (const char* const path : {static_cast<const char*>(nullptr), ""}) {
      EXPECT_EQ(ask(row.operation, path, 260), (Answer{ECF_INVALID_PARAMETER, ""}));
      EXPECT_THAT(log_.newRecords(),
                  ElementsAre(FoundRecord(OSS_LOG_INFO, row.function, 10, ECF_INVALID_PARAMETER)));
    }
    expectRefusal([&] { return row.operation("file", nullptr, 5); }, ECF_INVALID_PARAMETER,
                  nullRecord(row.function));
  }
}

}  // namespace
