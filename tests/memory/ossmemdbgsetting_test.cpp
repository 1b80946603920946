// Tests of how the value of OSSEMEMDBG is taken apart.
#include "memory/ossmemdbgsetting.h"

#include <gtest/gtest.h>

#include <ostream>
#include <string>

#include "ossmemory.h"

using namespace oss;

namespace {

// What a value comes to.
struct Choice {
  std::string directory;
  std::string level;
  bool isValid;
  uint32_t eyeCatcher;
  uint32_t flags;
  bool listsLeaks;

  bool operator==(const Choice&) const = default;
};

void PrintTo(const Choice& choice, std::ostream* out) {
  *out << '"' << choice.directory << "\", \"" << choice.level << "\", valid " << choice.isValid
       << std::hex << ", eye-catcher 0x" << choice.eyeCatcher << ", flags 0x" << choice.flags
       << ", lists leaks " << choice.listsLeaks;
}

Choice choiceOf(const std::string& value) {
  const MemDebugSetting setting = parseMemDebugSetting(value.c_str());
  return {setting.directory,  setting.level, setting.isValid,
          setting.eyeCatcher, setting.flags, setting.listsLeaks};
}

Choice refused(const std::string& directory, const std::string& level) {
  return {directory, level, false, OSS_MEM_DEBUG_OFF, 0, false};
}

Choice full(const std::string& directory, const std::string& level) {
  return {directory, level, true, OSS_MEM_DEBUG_FULL, 0x0F, false};
}

Choice leaks(const std::string& directory, const std::string& level) {
  return {directory, level, true, OSS_MEM_DEBUG_FULL, 0x2F, true};
}

Choice light(const std::string& directory, const std::string& level) {
  return {directory, level, true, OSS_MEM_DEBUG_LIGHT, 0x0B, false};
}

// ---- Levels ----

TEST(MemDebugSetting, EachLevelChoosesItsModeAndFlags) {
  EXPECT_EQ(choiceOf("C:\\dir,FULL"), full("C:\\dir", "FULL"));
  EXPECT_EQ(choiceOf("C:\\dir,CORRUPTIONS"), full("C:\\dir", "CORRUPTIONS"));
  EXPECT_EQ(choiceOf("C:\\dir,LEAKS"), leaks("C:\\dir", "LEAKS"));
  EXPECT_EQ(choiceOf("C:\\dir,ALL"), leaks("C:\\dir", "ALL"));
  EXPECT_EQ(choiceOf("C:\\dir,LIGHT"), light("C:\\dir", "LIGHT"));
}

// Compared in any case, and kept as written.
TEST(MemDebugSetting, ALevelMayBeWrittenInAnyCase) {
  EXPECT_EQ(choiceOf("d,full"), full("d", "full"));
  EXPECT_EQ(choiceOf("d,Full"), full("d", "Full"));
  EXPECT_EQ(choiceOf("d,corruptionS"), full("d", "corruptionS"));
  EXPECT_EQ(choiceOf("d,leaks"), leaks("d", "leaks"));
  EXPECT_EQ(choiceOf("d,aLL"), leaks("d", "aLL"));
  EXPECT_EQ(choiceOf("d,lIgHt"), light("d", "lIgHt"));
}

TEST(MemDebugSetting, AnyOtherTextIsNoLevel) {
  for (const char* level :
       {"IDLE", "OSSFULL", "OFF", "FUL", "FULLX", " FULL", "FULL ", "LIGHT\n", "1", "F\xD5LL"})
    EXPECT_EQ(choiceOf(std::string("d,") + level), refused("d", level));
}

// ---- Parts ----

TEST(MemDebugSetting, WithoutALevelItIsRefusedButHasADirectory) {
  EXPECT_EQ(choiceOf("C:\\dir"), refused("C:\\dir", ""));
  EXPECT_EQ(choiceOf("C:\\dir,"), refused("C:\\dir", ""));
  EXPECT_EQ(choiceOf("FULL"), refused("FULL", ""));
}

// Empty parts do not count, so the level moves up to the directory's place.
TEST(MemDebugSetting, WithoutADirectoryTheLevelIsTakenForOne) {
  EXPECT_EQ(choiceOf(",FULL"), refused("FULL", ""));
  EXPECT_EQ(choiceOf(",,FULL"), refused("FULL", ""));
}

TEST(MemDebugSetting, EmptyPartsDoNotCount) {
  EXPECT_EQ(choiceOf("d,,FULL"), full("d", "FULL"));
  EXPECT_EQ(choiceOf(",d,FULL"), full("d", "FULL"));
  EXPECT_EQ(choiceOf("d,FULL,"), full("d", "FULL"));
  EXPECT_EQ(choiceOf(",,d,,FULL,,"), full("d", "FULL"));
}

TEST(MemDebugSetting, AThirdPartRefusesIt) {
  EXPECT_EQ(choiceOf("d,FULL,x"), refused("d", "FULL"));
  EXPECT_EQ(choiceOf("d,FULL,,x"), refused("d", "FULL"));
  EXPECT_EQ(choiceOf("d,FULL,LIGHT"), refused("d", "FULL"));
  EXPECT_EQ(choiceOf("d,FULL,x,y"), refused("d", "FULL"));
}

TEST(MemDebugSetting, NothingIsRefusedWithoutADirectory) {
  EXPECT_EQ(choiceOf(""), refused("", ""));
  EXPECT_EQ(choiceOf(","), refused("", ""));
  EXPECT_EQ(choiceOf(",,,"), refused("", ""));
}

TEST(MemDebugSetting, ADirectoryIsNotLookedInto) {
  EXPECT_EQ(choiceOf("C:\\with blank;and\xE4,FULL"), full("C:\\with blank;and\xE4", "FULL"));
  EXPECT_EQ(choiceOf(".,FULL"), full(".", "FULL"));
}

// A C string ends at its first null byte.
TEST(MemDebugSetting, NothingBehindANullByteIsRead) {
  EXPECT_EQ(choiceOf(std::string("d,FULL\0,x", 9)), full("d", "FULL"));
  EXPECT_EQ(choiceOf(std::string("d\0,FULL", 7)), refused("d", ""));
}

// ---- Lengths ----

TEST(MemDebugSetting, AValueOf259CharactersIsReadWhole) {
  const std::string directory(259 - 5, 'd');
  EXPECT_EQ(choiceOf(directory + ",FULL"), full(directory, "FULL"));
}

TEST(MemDebugSetting, ALongerValueIsCutBeforeItIsTakenApart) {
  const std::string directory(260 - 5, 'd');
  EXPECT_EQ(choiceOf(directory + ",FULL"), refused(directory, "FUL"));
  EXPECT_EQ(choiceOf(std::string(259, 'd') + ",FULL"), refused(std::string(259, 'd'), ""));
  EXPECT_EQ(choiceOf(std::string(10'000, 'd')), refused(std::string(259, 'd'), ""));
}

// What makes it invalid lies behind the cut.
TEST(MemDebugSetting, WhatIsCutOffDoesNotCount) {
  const std::string directory(259 - 5, 'd');
  EXPECT_EQ(choiceOf(directory + ",FULL,x"), full(directory, "FULL"));
  EXPECT_EQ(choiceOf(directory + ",FULLER"), full(directory, "FULL"));
}

TEST(MemDebugSetting, ALongerLevelIsCutTo18Characters) {
  EXPECT_EQ(choiceOf("d,ABCDEFGHIJKLMNOPQR"), refused("d", "ABCDEFGHIJKLMNOPQR"));
  EXPECT_EQ(choiceOf("d,ABCDEFGHIJKLMNOPQRS"), refused("d", "ABCDEFGHIJKLMNOPQR"));
  EXPECT_EQ(choiceOf("d,CORRUPTIONS0000000"), refused("d", "CORRUPTIONS0000000"));
}

TEST(MemDebugSetting, TheValueIsKeptAsFarAsItWasRead) {
  EXPECT_STREQ(parseMemDebugSetting("d,,x,y").value, "d,,x,y");
  EXPECT_EQ(parseMemDebugSetting(std::string(300, 'd').c_str()).value, std::string(259, 'd'));
}

}  // namespace
