// The reader of trap files: whatever sections a file has, wherever it is cut, and whatever field is
// damaged, it finds what is there.
#include <gmock/gmock.h>

#include <map>
#include <random>

#include "tools/trapparts.h"
#include "trap/trapfile.h"

using namespace osse_test;
using namespace oss::tool;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

namespace {

// "header 0+392, system 392+260, ..."
std::string placesOf(const TrapFile& trap) {
  std::string text;
  for (const TrapFile::Place& place : trap.places)
    text.append(text.empty() ? "" : ", ")
        .append(nameOf(place.section))
        .append(" " + std::to_string(place.offset) + "+" + std::to_string(place.bytes));
  return text;
}

// The sections of TrapParts, to be left out or damaged one by one.
constexpr std::string TrapParts::*kSections[] = {
    &TrapParts::system,  &TrapParts::environment, &TrapParts::exception, &TrapParts::context,
    &TrapParts::modules, &TrapParts::version,     &TrapParts::frames,    &TrapParts::moduleSection};
constexpr const char* kNames[] = {"system",  "environment",     "exception", "context",
                                  "modules", "library version", "stack",     "module section"};

void leaveOut(TrapParts& trap, size_t section) {
  (trap.*kSections[section]).clear();
  if (kSections[section] != &TrapParts::frames) return;
  trap.instructions.clear();
  trap.rawStack.clear();
}

std::string expectedPlaces(const TrapParts& trap) {
  std::string text = "header 0+392";
  size_t offset = 392;
  for (size_t i = 0; i < std::size(kSections); ++i) {
    size_t bytes = (trap.*kSections[i]).size();
    if (kSections[i] == &TrapParts::frames)
      bytes += trap.instructions.size() + trap.rawStack.size();
    if (bytes == 0) continue;
    text.append(", ").append(kNames[i]).append(" " + std::to_string(offset) + "+");
    text += std::to_string(bytes);
    offset += bytes;
  }
  return text;
}

// Reads a copy in a block of its own, so that the sanitizers see every byte beyond it.
std::optional<TrapFile> read(const std::string& file) {
  const std::vector<char> copy(file.begin(), file.end());
  return readTrapFile({copy.data(), copy.size()});
}

}  // namespace

TEST(TrapReader, EverySectionIsFoundAndWhole) {
  const TrapParts parts;
  const std::optional<TrapFile> trap = read(parts.whole());
  ASSERT_TRUE(trap);
  EXPECT_EQ(placesOf(*trap), expectedPlaces(parts));
  EXPECT_THAT(trap->problems, IsEmpty());

  EXPECT_EQ(trap->header.value.processId, 4242u);
  EXPECT_EQ(trap->system.value.processors, 8u);
  EXPECT_EQ(trap->version.value.build, 7601u);
  EXPECT_EQ(trap->memory.value.load, 42u);
  EXPECT_EQ(trap->plainMemory.bytes, 0u);
  EXPECT_THAT(trap->environment, ElementsAre("PATH=C:\\kt5;C:\\windows", "USER=somebody"));
  EXPECT_EQ(trap->exception.value.address, kFaultAddress);
  EXPECT_EQ(trap->context.value.rip, kFaultAddress);
  ASSERT_EQ(trap->modules.size(), 3u);
  EXPECT_STREQ(trap->modules[1].value.name, "C:\\kt5\\KT5X.dll");
  EXPECT_EQ(trap->libraryVersion.value.revision, 5);
  EXPECT_EQ(trap->instructions, parts.instructions);
  ASSERT_EQ(trap->frames.size(), 3u);
  EXPECT_EQ(trap->frames[2].value.pc.offset, 0x7FF800001000u);
  EXPECT_EQ(trap->stackWords, 1024u);
  EXPECT_EQ(trap->stack, parts.rawStack.substr(8));
  EXPECT_EQ(trap->stackAddress(), kStackPointer);
  EXPECT_EQ(trap->moduleSection.size(), 3u);
}

TEST(TrapReader, AnySetOfSectionsIsToldApart) {
  for (uint32_t set = 0; set < 1u << std::size(kSections); ++set) {
    TrapParts parts;
    for (size_t i = 0; i < std::size(kSections); ++i)
      if ((set >> i & 1) == 0) leaveOut(parts, i);
    if (parts.modules.empty()) put<uint16_t>(parts.header, 46, 0);
    const std::optional<TrapFile> trap = read(parts.whole());
    ASSERT_TRUE(trap);
    EXPECT_EQ(placesOf(*trap), expectedPlaces(parts)) << "set " << set;
    EXPECT_THAT(trap->problems, IsEmpty()) << "set " << set;
  }
}

TEST(TrapReader, EachMemoryStatusIsKnownByItsSize) {
  TrapParts parts;
  parts.system.resize(196 + 56);
  put<uint32_t>(parts.system, 196, 56);
  std::optional<TrapFile> trap = read(parts.whole());
  EXPECT_EQ(placesOf(*trap), expectedPlaces(parts));
  EXPECT_EQ(trap->memory.bytes, 0u);
  EXPECT_EQ(trap->plainMemory.value.physical, uint64_t{1} << 30);

  // Neither the header, written early, nor a size tells: what follows does.
  put<uint32_t>(parts.header, 40, 0);
  put<uint32_t>(parts.system, 196, 0xDEAD);
  trap = read(parts.whole());
  EXPECT_EQ(placesOf(*trap), expectedPlaces(parts));

  parts.system.resize(196);
  trap = read(parts.whole());
  EXPECT_EQ(placesOf(*trap), expectedPlaces(parts));
  EXPECT_EQ(trap->memory.bytes + trap->plainMemory.bytes, 0u);
}

TEST(TrapReader, AStackSectionMayEndEarly) {
  // Without a context only the instruction bytes are written.
  TrapParts parts;
  parts.frames.clear();
  parts.rawStack.clear();
  std::optional<TrapFile> trap = read(parts.whole());
  EXPECT_EQ(trap->instructions, parts.instructions);
  EXPECT_THAT(trap->problems, IsEmpty());
  EXPECT_EQ(trap->moduleSection.size(), 3u);

  // A failed walk, and no instruction bytes.
  parts = TrapParts();
  put<uint32_t>(parts.header, 388, 0);
  parts.instructions.clear();
  parts.frames = trapFrame(kFaultAddress, kWalkFailed, kStackPointer);
  trap = read(parts.whole());
  EXPECT_EQ(trap->frames.size(), 1u);
  EXPECT_EQ(trap->stack, parts.rawStack.substr(8));
  EXPECT_THAT(trap->problems, IsEmpty());

  // No readable word.
  parts.rawStack.assign(8, '\0');
  trap = read(parts.whole());
  EXPECT_EQ(trap->stackWords, 0u);
  EXPECT_THAT(trap->problems, IsEmpty());
  EXPECT_EQ(trap->moduleSection.size(), 3u);
}

TEST(TrapReader, WhatIsNoTrapFileIsRefused) {
  EXPECT_FALSE(read(""));
  EXPECT_FALSE(read("*TPHDE6"));
  EXPECT_FALSE(read(std::string(1000, '\0')));
  EXPECT_FALSE(read(std::string(392, '\0')));
}

TEST(TrapReader, AHeaderIsFoundBehindOtherBytes) {
  const std::optional<TrapFile> trap = read("older text\n" + TrapParts().whole());
  ASSERT_TRUE(trap);
  EXPECT_EQ(trap->places.front().offset, 11u);
  EXPECT_EQ(trap->places.size(), 9u);
  EXPECT_THAT(trap->problems, ElementsAre("at 0x0: 11 bytes stand in front of the header"));
}

// Every byte of the file is its end once. What lies in front of it is there, and a cut within a
// section is told; but for one behind the instruction bytes, which may be all of the stack.
TEST(TrapReader, ACutFileIsReadAsFarAsItGoes) {
  const TrapParts parts;
  const std::string file = parts.whole();
  const TrapFile all = *read(file);
  const size_t firstFrame = file.find(parts.frames);
  for (size_t size = 8; size < file.size(); ++size) {
    const std::optional<TrapFile> trap = read(file.substr(0, size));
    ASSERT_TRUE(trap);
    bool isBorder = size == firstFrame;
    for (size_t i = 0; i < all.places.size(); ++i) {
      const TrapFile::Place& place = all.places[i];
      isBorder |= place.offset + place.bytes == size;
      if (place.offset + place.bytes > size) break;
      ASSERT_LT(i, trap->places.size()) << "cut at " << size;
      EXPECT_EQ(nameOf(trap->places[i].section), std::string(nameOf(place.section))) << size;
      EXPECT_EQ(trap->places[i].bytes, place.bytes) << "cut at " << size;
    }
    EXPECT_EQ(trap->problems.empty(), isBorder) << "cut at " << size;
  }
}

TEST(TrapReader, ACutRecordKeepsItsFront) {
  TrapParts parts;
  const std::string front = parts.header + parts.system + parts.environment + parts.exception;
  std::optional<TrapFile> trap = read(front + parts.context.substr(0, 0x100));
  EXPECT_TRUE(trap->context.holds(&Context::rip));
  EXPECT_FALSE(trap->context.holds(&Context::floatMxCsr));
  EXPECT_EQ(trap->context.value.rip, kFaultAddress);

  trap = read(front + parts.context + parts.modules.substr(0, 304 + 290));
  ASSERT_EQ(trap->modules.size(), 2u);
  EXPECT_TRUE(trap->modules[1].holds(&OSSTrapModule::base));
  EXPECT_FALSE(trap->modules[1].holds(&OSSTrapModule::end));

  trap = read(front + parts.context + parts.modules + parts.version + parts.instructions +
              parts.frames.substr(0, 264 + 20));
  ASSERT_EQ(trap->frames.size(), 2u);
  EXPECT_TRUE(trap->frames[1].holds(&WalkFrame::pc));
  EXPECT_THAT(trap->problems.back(), HasSubstr("the file is cut off in a frame"));
}

namespace {

// The fields of a section: each ends where the next one begins, the last number is an end.
struct Layout {
  std::string TrapParts::*section;
  std::vector<size_t> fields;
};

const std::vector<Layout>& layouts() {
  static const std::vector<Layout> kLayouts = {
      {&TrapParts::header, {0, 8, 12, 16, 24, 40, 44, 46, 48, 308, 388, 392}},
      {&TrapParts::system, {0,  2,  4,  8,   16,  24,  32,  36,  40,  44,  46,  48,  52, 56,
                            60, 64, 68, 196, 200, 204, 212, 220, 228, 236, 244, 252, 260}},
      {&TrapParts::environment, {0, 8, 30, 38, 51, 59, 70}},
      {&TrapParts::exception, {0, 4, 8, 16, 24, 28, 32, 40, 48, 152}},
      {&TrapParts::context, {0,    0x30, 0x34,  0x38,  0x3A,  0x3C,  0x42,  0x44,  0x48,  0x78,
                             0x98, 0xF8, 0x100, 0x118, 0x11C, 0x120, 0x1A0, 0x300, 0x4A0, 1232}},
      {&TrapParts::modules,
       {0, 272, 280, 288, 296, 300, 304, 576, 584, 592, 600, 604, 608, 880, 888, 896, 904, 908,
        912}},
      {&TrapParts::version, {0, 2, 4, 6, 8}},
      {&TrapParts::instructions, {0, 64}},
      {&TrapParts::frames,
       {0,   8,   12,  16,  28,  32,  44,  48,  60,  64,  80,  88,  120, 124, 128,
        264, 276, 280, 292, 296, 308, 312, 324, 384, 388, 528, 544, 556, 560}},
      {&TrapParts::rawStack, {0, 8, 8200}},
      {&TrapParts::moduleSection, {0, 8, 280, 288, 296, 304, 308, 312}},
  };
  return kLayouts;
}

}  // namespace

// One field holds anything. Every section is still found where it is; that something is wrong is
// told whenever a mark is gone.
TEST(TrapReader, AnyFieldMayBeDamaged) {
  std::mt19937_64 random(20040702);
  const TrapParts whole;
  const std::string expected = expectedPlaces(whole);
  for (const Layout& layout : layouts())
    for (size_t i = 0; i + 1 < layout.fields.size(); ++i)
      for (const int pattern : {0, 0x7F, 0xFF, -1}) {
        TrapParts parts;
        std::string& section = parts.*layout.section;
        const size_t start = layout.fields[i];
        const size_t end = layout.fields[i + 1];
        for (size_t at = start; at < end; ++at)
          section[at] = static_cast<char>(pattern < 0 ? random() : static_cast<uint64_t>(pattern));
        const std::optional<TrapFile> trap = read(parts.whole());
        ASSERT_TRUE(trap);
        const auto which = &layout - layouts().data();
        EXPECT_EQ(placesOf(*trap), expected)
            << "section " << which << " field at " << start << " pattern " << pattern << "\n"
            << testing::PrintToString(trap->problems);
        const bool isMark = (layout.section == &TrapParts::header && start == 0) ||
                            (layout.section == &TrapParts::environment && start == 59);
        if (isMark) {
          EXPECT_THAT(trap->problems, Not(IsEmpty())) << "section " << which << " at " << start;
        }
      }
}

TEST(TrapReader, WhatIsWrongIsTold) {
  const auto problemsOf = [](const TrapParts& parts) { return read(parts.whole())->problems; };
  const auto damaged = [&](auto change) {
    TrapParts parts;
    change(parts);
    return problemsOf(parts);
  };
  EXPECT_THAT(damaged([](TrapParts& parts) { parts.header[0] = '?'; }),
              ElementsAre("at 0x0: the eye-catcher is damaged"));
  EXPECT_THAT(damaged([](TrapParts& parts) { put<uint16_t>(parts.header, 46, 2); }),
              ElementsAre("at 0x83A: there are 3 module records, and 2 were told of"));
  EXPECT_THAT(damaged([](TrapParts& parts) { put<uint32_t>(parts.header, 388, 65); }),
              ElementsAre("at 0x0: the header tells of more instruction bytes than there can be",
                          "at 0xBD2: the section stack is damaged"));
  EXPECT_THAT(damaged([](TrapParts& parts) { put<uint64_t>(parts.environment, 30, 0); }),
              ElementsAre("at 0x2AA: 21 bytes of the environment are damaged"));
  EXPECT_THAT(damaged([](TrapParts& parts) { put<uint32_t>(parts.exception, 4, 0x12345); }),
              ElementsAre("at 0x2D2: the section exception is damaged"));
  EXPECT_THAT(damaged([](TrapParts& parts) { parts.context.replace(0x30, 0x18, 0x18, '\xFF'); }),
              ElementsAre("at 0x36A: the section context is damaged"));
  EXPECT_THAT(damaged([](TrapParts& parts) { put<uint64_t>(parts.modules, 304 + 280, 7); }),
              ElementsAre("at 0x96A: a module record is damaged"));
  EXPECT_THAT(damaged([](TrapParts& parts) { put<uint64_t>(parts.frames, 16, 0); }),
              ElementsAre("at 0xC12: a frame's return address is damaged: it is not the last"));
  EXPECT_THAT(damaged([](TrapParts& parts) { put<uint64_t>(parts.frames, 2 * 264 + 16, 1); }),
              ElementsAre("at 0xF2A: the walk over the stack has no end"));
  EXPECT_THAT(damaged([](TrapParts& parts) { put<uint64_t>(parts.rawStack, 0, 9000); }),
              ElementsAre("at 0xF2A: the raw stack's count of words is damaged"));
}

// A writer that faulted in a section goes on with the next one.
TEST(TrapReader, ASectionThatEndedEarlyIsToldAndTheNextOneIsFound) {
  TrapParts parts;
  parts.rawStack.clear();
  std::optional<TrapFile> trap = read(parts.whole());
  EXPECT_EQ(trap->frames.size(), 3u);
  EXPECT_EQ(trap->moduleSection.size(), 3u);
  EXPECT_THAT(trap->problems, ElementsAre("at 0xF2A: the raw stack is missing"));

  parts = TrapParts();
  parts.environment.resize(parts.environment.size() - 19);
  trap = read(parts.whole());
  EXPECT_EQ(trap->environment.size(), 2u);
  EXPECT_EQ(trap->exception.value.code, 0xC0000005);
  EXPECT_THAT(trap->problems, ElementsAre("at 0x2BF: the environment ends without its end mark"));

  // The modules were written, but not the header once more.
  parts = TrapParts();
  put<uint16_t>(parts.header, 46, 0);
  trap = read(parts.whole());
  EXPECT_EQ(trap->modules.size(), 3u);
  EXPECT_THAT(trap->problems,
              ElementsAre("at 0x83A: there are 3 module records, and 0 were told of"));
}

// Files of many damages, up to bytes that mean nothing: the reader ends, and stays within them.
TEST(TrapReader, AnyBytesAreReadToTheirEnd) {
  std::mt19937_64 random(20040702);
  const std::string whole = TrapParts().whole();
  for (int round = 0; round < 500; ++round) {
    std::string file = whole;
    for (uint64_t i = random() % 64; i > 0; --i) {
      const uint64_t at = 8 + random() % (file.size() - 16);
      put<uint64_t>(file, at, random() >> random() % 64);
    }
    if (round % 3 == 0) file.erase(400 + random() % 11000, random() % 300);
    const std::optional<TrapFile> trap = read(file);
    ASSERT_TRUE(trap);
    uint64_t behind = 0;
    for (const TrapFile::Place& place : trap->places) {
      EXPECT_GE(place.offset, behind);
      behind = place.offset + place.bytes;
    }
    EXPECT_LE(behind, file.size());
    EXPECT_LE(trap->problems.size(), 51u);
  }
}

TEST(TrapReader, AStackOfAnotherFaultIsTold) {
  TrapParts parts;
  put<uint64_t>(parts.context, 0xF8, kFaultAddress + 2);
  EXPECT_THAT(read(parts.whole())->problems,
              ElementsAre("at 0xBD2: the walk does not begin where the registers are: the stack is "
                          "of another fault"));

  // A walk that failed tells nothing of where it began, nor does a file without registers.
  parts.frames = trapFrame(kFaultAddress, kWalkFailed, kStackPointer);
  EXPECT_THAT(read(parts.whole())->problems, IsEmpty());
  parts = TrapParts();
  parts.context.clear();
  EXPECT_THAT(read(parts.whole())->problems, IsEmpty());
}

// Three dumps, the second of any set of sections: each is read as if it were alone.
TEST(TrapReader, EachOfSeveralDumpsIsRead) {
  const std::string whole = TrapParts().whole();
  for (uint32_t set = 0; set < 1u << std::size(kSections); ++set) {
    TrapParts parts;
    for (size_t i = 0; i < std::size(kSections); ++i)
      if ((set >> i & 1) == 0) leaveOut(parts, i);
    if (parts.modules.empty()) put<uint16_t>(parts.header, 46, 0);
    put<uint32_t>(parts.header, 8, 5151);
    const std::string file = whole + parts.whole() + whole;
    for (uint64_t number = 1; number <= 3; ++number) {
      std::optional<TrapFile> trap = readTrapFile(file, number);
      ASSERT_TRUE(trap);
      EXPECT_EQ(trap->number, number);
      EXPECT_EQ(trap->dumps, 3u);
      EXPECT_THAT(trap->problems, IsEmpty()) << "dump " << number << " set " << set;
      EXPECT_EQ(trap->header.value.processId, number == 2 ? 5151u : 4242u);
      const uint64_t start = trap->places.front().offset;
      for (TrapFile::Place& place : trap->places) place.offset -= start;
      EXPECT_EQ(placesOf(*trap), expectedPlaces(number == 2 ? parts : TrapParts()))
          << "dump " << number << " set " << set;
    }
  }
}

TEST(TrapReader, TheLastDumpIsReadUnlessAnotherIsWanted) {
  TrapParts last;
  put<uint32_t>(last.header, 8, 5151);
  const std::string file = TrapParts().whole() + last.whole();
  for (const uint64_t number : {uint64_t{2}, uint64_t{3}, kLastDump})
    EXPECT_EQ(readTrapFile(file, number)->header.value.processId, 5151u) << number;
  EXPECT_EQ(readTrapFile(file)->number, 2u);
}

// Wherever a dump was cut off, the one that was appended to it is whole.
TEST(TrapReader, ADumpThatWasCutOffTakesNothingOfTheNext) {
  TrapParts next;
  put<uint32_t>(next.header, 8, 5151);
  const std::string cut = TrapParts().whole();
  for (size_t size = 8; size < cut.size(); size += 37) {
    std::optional<TrapFile> trap = read(cut.substr(0, size) + next.whole());
    ASSERT_TRUE(trap);
    EXPECT_EQ(trap->dumps, 2u) << "cut at " << size;
    EXPECT_EQ(trap->header.value.processId, 5151u) << "cut at " << size;
    EXPECT_THAT(trap->problems, IsEmpty()) << "cut at " << size;
    EXPECT_EQ(trap->places.front().offset, size);
    for (TrapFile::Place& place : trap->places) place.offset -= size;
    EXPECT_EQ(placesOf(*trap), expectedPlaces(next)) << "cut at " << size;
  }
}

// A fault in a handler finds the header that the handler has just made on its stack.
TEST(TrapReader, AHeaderOnTheStackBeginsNoDump) {
  TrapParts parts;
  parts.rawStack.replace(8 + 64 * 8, parts.header.size(), parts.header);
  const std::optional<TrapFile> trap = read(parts.whole() + TrapParts().whole());
  EXPECT_EQ(trap->dumps, 2u);
  EXPECT_EQ(placesOf(*readTrapFile(parts.whole())), expectedPlaces(parts));
}
