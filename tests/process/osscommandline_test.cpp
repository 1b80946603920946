// Command lines: texts, and the memory that they are told to need.
#include "process/osscommandline.h"

#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

using namespace std::string_literals;

namespace {

// In exactly as much memory as the size says, so that a sanitizer sees one byte too many.
std::string commandOf(const std::string& program) {
  std::vector<char> out(oss::commandBytes(program.c_str()), '#');
  oss::writeCommand(program.c_str(), out.data());
  return out.data();
}

std::string lineOf(const std::string& command, const std::string& arguments) {
  std::vector<char> out(oss::commandLineBytes(command.c_str(), arguments.c_str()), '#');
  oss::writeCommandLine(command.c_str(), arguments.c_str(), out.data());
  EXPECT_EQ(out.back(), '\0');
  return out.data();
}

TEST(CommandLine, AProgramIsPutInQuotationMarks) {
  EXPECT_EQ(commandOf("C:\\tools\\a.exe"), "\"C:\\tools\\a.exe\"");
  EXPECT_EQ(commandOf("C:\\Program Files\\a b.exe"), "\"C:\\Program Files\\a b.exe\"");
  EXPECT_EQ(commandOf("a\"b"), "\"a\"b\"");
  EXPECT_EQ(commandOf(" \"a\""), "\" \"a\"\"");
  EXPECT_EQ(commandOf(""), "\"\"");
}

TEST(CommandLine, AProgramThatBeginsWithAQuotationMarkStaysAsItIs) {
  for (const char* const program : {"\"C:\\a b.exe\"", "\"a.exe\" already with arguments", "\""})
    EXPECT_EQ(commandOf(program), program);
}

TEST(CommandLine, ACommandMayTakeItsLengthAndThreeAndTwoForItsMarks) {
  EXPECT_EQ(oss::commandBytes("a.exe"), 5u + 3 + 2);
  EXPECT_EQ(oss::commandBytes("\"a.exe\""), 7u + 3);
  EXPECT_EQ(oss::commandBytes(""), 3u + 2);
}

TEST(CommandLine, ArgumentsFollowWithABlankBetweenEach) {
  EXPECT_EQ(lineOf("\"C:\\tools\\a.exe\"", "x\0y z\0"s), "\"C:\\tools\\a.exe\" x y z");
  EXPECT_EQ(lineOf("a", "1\0"s), "a 1");
  EXPECT_EQ(lineOf("a",
                   "1\0"
                   "2\0"
                   "3\0"s),
            "a 1 2 3");
}

TEST(CommandLine, WithoutArgumentsItIsTheCommandAlone) {
  EXPECT_EQ(lineOf("\"a.exe\"", ""), "\"a.exe\"");
  EXPECT_EQ(oss::commandLineBytes("\"a.exe\"", ""), 8u);
}

// Deliberate: the caller quotes.
TEST(CommandLine, ArgumentsAreNeitherQuotedNorEscaped) {
  EXPECT_EQ(lineOf("a",
                   "two words\0"
                   "a \"quoted\" one\0"
                   "back\\\0"
                   "\"\0"
                   " \0"s),
            "a two words a \"quoted\" one back\\ \"  ");
}

TEST(CommandLine, AListEndsAtItsFirstEmptyText) {
  EXPECT_EQ(lineOf("a",
                   "1\0\0"
                   "2\0"s),
            "a 1");
}

TEST(CommandLine, ALineMayBeLong) {
  const std::string argument(30'000, 'x');
  std::string arguments;
  for (int i = 0; i < 3; ++i) arguments += argument + '\0';
  EXPECT_EQ(lineOf("a", arguments), "a " + argument + ' ' + argument + ' ' + argument);
}

}  // namespace
