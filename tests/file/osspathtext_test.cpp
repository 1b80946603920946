// Paths as text.
#include "file/osspathtext.h"

#include <gmock/gmock.h>

#include <cstring>
#include <string>
#include <vector>

using namespace oss;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

// A path of `length` bytes: "C:\aaa...".
std::string pathOfLength(size_t length) { return R"(C:\)" + std::string(length - 3, 'a'); }

// ---- Device paths ----

TEST(DevicePath, IsADriveAPhysicalDriveOrAVolume) {
  for (const char* const path : {R"(\\.\C:)", R"(\\.\C:\dir)", R"(\\.\::)", "\\\\.\\\x80:",
                                 R"(\\.\PhysicalDrive)", R"(\\.\PhysicalDrive0)", R"(\\?\Volume)",
                                 R"(\\?\Volume{01234567-89ab-cdef-0123-456789abcdef}\)"})
    EXPECT_TRUE(isDevicePath(path)) << path;
}

TEST(DevicePath, IsNothingElse) {
  for (const char* const path :
       {"", R"(\)", R"(\\)", R"(\\.)", R"(\\.\)", R"(\\.\C)", R"(\\.\COM1:)", R"(\\?\C:)",
        R"(\\.\physicaldrive0)", R"(\\.\PhysicalDriv)", R"(\\?\volume)", R"(\\?\Volum)",
        R"(//./C:)", R"(C:\)", R"(\\server\share)", R"( \\.\C:)"})
    EXPECT_FALSE(isDevicePath(path)) << path;
}

// ---- The directory part ----

TEST(DirectoryPart, EndsBeforeTheLastBackslashWithSomethingBehindIt) {
  const struct {
    const char *path, *directory;
    uint64_t needed;
  } kRows[] = {
      {R"(C:\dir)", "C:", 3},
      {R"(C:\a\b)", R"(C:\a)", 5},
      {R"(C:\a\b\)", R"(C:\a)", 5},
      {R"(C:\a\\)", R"(C:\a)", 5},
      {R"(dir\file)", "dir", 4},
      {R"(dir\ )", "dir", 4},
      {R"(dir\.)", "dir", 4},
      {R"(a/b\c)", "a/b", 4},
      {R"(\\server\share)", R"(\\server)", 9},
      {R"(\\server)", R"(\)", 2},
      {"\xE4\\\xFF", "\xE4", 2},
  };
  for (const auto& row : kRows) {
    const DirectoryPart part = directoryPartOf(row.path);
    EXPECT_EQ(part.text, row.directory) << row.path;
    EXPECT_EQ(part.needed, row.needed) << row.path;
  }
}

TEST(DirectoryPart, OfAFirstByteAloneIsTheRootWhoseTerminatorIsNotCounted) {
  for (const char* const path : {R"(\)", R"(\file)", R"(\dir\)", R"(\\)"}) {
    EXPECT_EQ(directoryPartOf(path).text, R"(\)") << path;
    EXPECT_EQ(directoryPartOf(path).needed, 1u) << path;
  }
}

TEST(DirectoryPart, OfAPathWithoutOneIsADotThatFitsEverywhere) {
  for (const char* const path :
       {"file", "f", R"(dir\)", R"(C:\)", "C:", "C:file", "a/b", " ", "."}) {
    EXPECT_EQ(directoryPartOf(path).text, ".") << path;
    EXPECT_EQ(directoryPartOf(path).needed, 0u) << path;
  }
}

// ---- The base ----

std::string baseOf(const char* path) {
  const BasePart part = basePartOf(path);
  std::vector<char> out(part.needed, '?');
  writeBase(part, out.data());
  return out.data();
}

TEST(BasePart, IsTheLastComponentWithoutBackslashes) {
  const struct {
    const char *path, *base;
    uint64_t needed;
  } kRows[] = {
      {R"(C:\dir\file)", "file", 5}, {R"(C:\dir\)", "dir", 5},
      {R"(C:\dir)", "dir", 4},       {"file", "file", 5},
      {R"(dir\)", "dir", 5},         {R"(C:\)", "C:", 4},
      {R"(dir\\)", "", 2},           {R"(a/b)", "a/b", 4},
      {R"(dir\ )", " ", 2},          {R"(dir\..)", "..", 3},
      {R"(\dir\file)", "file", 5},   {R"(\\server\share)", "share", 6},
      {R"(\\.\C:)", "C:", 3},        {"dir\\\x80\xFF", "\x80\xFF", 3},
  };
  for (const auto& row : kRows) {
    EXPECT_EQ(baseOf(row.path), row.base) << row.path;
    EXPECT_EQ(basePartOf(row.path).needed, row.needed) << row.path;
  }
}

TEST(BasePart, OfARootAndOfWhatStandsInItIsTheRoot) {
  const struct {
    const char* path;
    uint64_t needed;
  } kRows[] = {{R"(\)", 2}, {R"(\file)", 5}, {R"(\dir\)", 5}, {R"(\\)", 2}};
  for (const auto& row : kRows) {
    EXPECT_EQ(baseOf(row.path), R"(\)") << row.path;
    EXPECT_EQ(basePartOf(row.path).needed, row.needed) << row.path;
  }
}

// ---- Bounded copies ----

TEST(CopyBounded, CutsAndAlwaysTerminates) {
  char out[6] = "?????";
  copyBounded("abc", out, 4);
  EXPECT_EQ(std::string(out, 5), std::string("abc\0?", 5));
  copyBounded("abc", out, 3);
  EXPECT_EQ(std::string(out, 5), std::string("ab\0\0?", 5));
  copyBounded("abc", out, 1);
  EXPECT_EQ(std::string(out, 5), std::string("\0b\0\0?", 5));
  copyBounded("xyz", out, 0);
  EXPECT_EQ(std::string(out, 5), std::string("\0b\0\0?", 5));
  copyBounded("xyz", nullptr, 0);
  copyBounded("", out, ~uint64_t{0});
  EXPECT_STREQ(out, "");
}

TEST(TrailingSeparator, IsLeftAwayOnceUnlessAColonStandsBeforeIt) {
  const struct {
    const char *path, *tested;
  } kRows[] = {
      {R"(C:\dir\)", R"(C:\dir)"},
      {R"(C:\dir\\)", R"(C:\dir\)"},
      {R"(a\)", "a"},
      {R"(\\)", R"(\)"},
      {R"(C:\)", R"(C:\)"},
      {R"(:\)", R"(:\)"},
      {R"(\)", R"(\)"},
      {"", ""},
      {"C:/dir/", "C:/dir/"},
      {R"(C:\dir)", R"(C:\dir)"},
  };
  for (const auto& row : kRows) {
    char buffer[kPathTextBytes];
    EXPECT_STREQ(withoutTrailingSeparator(row.path, buffer), row.tested) << row.path;
  }
}

TEST(TrailingSeparator, OfAPathTooLongForTheBufferStays) {
  char buffer[kPathTextBytes];
  for (const size_t length : {259u, 260u, 261u, 262u, 300u}) {
    const std::string path = pathOfLength(length - 1) + '\\';
    const std::string tested = withoutTrailingSeparator(path.c_str(), buffer);
    EXPECT_EQ(tested, length <= 261 ? path.substr(0, length - 1) : path) << length;
  }
}

TEST(JoinPath, PutsOneBackslashBetweenItsParts) {
  char joined[kPathBytes];
  ASSERT_TRUE(joinPath(R"(C:\dir)", "file", joined));
  EXPECT_STREQ(joined, R"(C:\dir\file)");
  ASSERT_TRUE(joinPath(R"(C:\dir\)", "file", joined));
  EXPECT_STREQ(joined, R"(C:\dir\\file)");
  ASSERT_TRUE(joinPath("", "", joined));
  EXPECT_STREQ(joined, R"(\)");
}

TEST(JoinPath, RefusesWhatItWouldHaveToCut) {
  const std::string directory = pathOfLength(250);
  char joined[kPathBytes];
  ASSERT_TRUE(joinPath(directory, "12345678", joined));
  EXPECT_EQ(joined, directory + R"(\12345678)");
  EXPECT_EQ(std::strlen(joined), 259u);
  EXPECT_FALSE(joinPath(directory, "123456789", joined));
  EXPECT_FALSE(joinPath(directory, "1234567890", joined));
  EXPECT_FALSE(joinPath(pathOfLength(300), "", joined));
}

// ---- The walk ----

std::vector<std::string> stepsOf(const std::string& path) {
  std::vector<std::string> steps;
  PathWalk walk(path);
  if (walk.isBareRoot()) return steps;
  do {
    walk.step();
    steps.emplace_back(walk.prefix());
  } while (!walk.atEnd());
  return steps;
}

TEST(PathWalk, StepsFromComponentToComponent) {
  EXPECT_THAT(stepsOf(R"(C:\a\b\c)"), ElementsAre(R"(C:\a\)", R"(C:\a\b\)", R"(C:\a\b\c)"));
  EXPECT_THAT(stepsOf(R"(C:\a\b\)"), ElementsAre(R"(C:\a\)", R"(C:\a\b\)"));
  EXPECT_THAT(stepsOf(R"(a\b)"), ElementsAre(R"(a\)", R"(a\b)"));
  EXPECT_THAT(stepsOf("a"), ElementsAre("a"));
  EXPECT_THAT(stepsOf(R"(\a)"), ElementsAre(R"(\)", R"(\a)"));
  EXPECT_THAT(stepsOf(R"(a\\b)"), ElementsAre(R"(a\)", R"(a\\)", R"(a\\b)"));
  EXPECT_THAT(stepsOf("a/b"), ElementsAre("a/b"));
  EXPECT_THAT(stepsOf(R"( \.)"), ElementsAre(R"( \)", R"( \.)"));
  EXPECT_THAT(stepsOf("\xE4\\\xFF"), ElementsAre("\xE4\\", "\xE4\\\xFF"));
}

TEST(PathWalk, HasNoStepForARoot) {
  EXPECT_THAT(stepsOf(R"(\\server\share\a\b)"),
              ElementsAre(R"(\\server\share\a\)", R"(\\server\share\a\b)"));
  EXPECT_THAT(stepsOf(R"(\\?\C:\a)"), ElementsAre(R"(\\?\C:\a)"));
  EXPECT_THAT(stepsOf(R"(z:\a)"), ElementsAre(R"(z:\a)"));
  for (const char* const root : {R"(C:\)", R"(z:\)", R"(\\server\share\)", R"(\\server\share)",
                                 R"(\\server\)", R"(\\server)", R"(\\)"})
    EXPECT_THAT(stepsOf(root), IsEmpty()) << root;
}

TEST(PathWalk, TakesLetterColonAndBackslashAloneForADrive) {
  EXPECT_THAT(stepsOf("C:"), ElementsAre("C:"));
  EXPECT_THAT(stepsOf(R"(C:a\b)"), ElementsAre(R"(C:a\)", R"(C:a\b)"));
  EXPECT_THAT(stepsOf(R"(1:\a)"), ElementsAre(R"(1:\)", R"(1:\a)"));
  EXPECT_THAT(stepsOf(R"([:\a)"), ElementsAre(R"([:\)", R"([:\a)"));
}

// The system is to say what it thinks of nothing.
TEST(PathWalk, HasOneStepForAnEmptyPath) { EXPECT_THAT(stepsOf(""), ElementsAre("")); }

TEST(PathWalk, HoldsPathsUpTo260Bytes) {
  for (const size_t length : {259u, 260u}) {
    const std::string path = pathOfLength(length);
    EXPECT_TRUE(PathWalk::canWalk(path));
    EXPECT_THAT(stepsOf(path), ElementsAre(path));
  }
  EXPECT_FALSE(PathWalk::canWalk(pathOfLength(261)));
}

}  // namespace
