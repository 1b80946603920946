// `osse trap export --minidump`: the streams, read back by the numbers of the published format.
#include <gmock/gmock.h>

#include <map>
#include <random>

#include "tools/trapparts.h"
#include "trap/minidump.h"

using namespace osse_test;
using namespace oss::tool;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

namespace {

struct Span {
  uint32_t bytes;
  uint32_t offset;
};

Span spanAt(const std::string& dump, size_t offset) {
  return {get<uint32_t>(dump, offset), get<uint32_t>(dump, offset + 4)};
}
// What is referred to lies inside.
std::string bytesAt(const std::string& dump, Span span) {
  EXPECT_LE(uint64_t{span.offset} + span.bytes, dump.size());
  if (span.offset > dump.size()) return {};
  return dump.substr(span.offset, span.bytes);
}

// The streams by their type.
std::map<uint32_t, std::string> streamsOf(const std::string& dump) {
  EXPECT_EQ(dump.substr(0, 8), std::string("MDMP\x93\xA7\0\0", 8));
  const auto count = get<uint32_t>(dump, 8);
  const auto directory = get<uint32_t>(dump, 12);
  std::map<uint32_t, std::string> streams;
  for (uint32_t i = 0; i < count; ++i) {
    const size_t entry = directory + 12 * i;
    streams[get<uint32_t>(dump, entry)] = bytesAt(dump, spanAt(dump, entry + 4));
  }
  EXPECT_EQ(streams.size(), count);
  return streams;
}

std::string textAt(const std::string& dump, uint32_t offset) {
  const std::string count = bytesAt(dump, {4, offset});
  if (count.size() != 4) return {};
  const std::string utf16 = bytesAt(dump, {get<uint32_t>(count, 0), offset + 4});
  EXPECT_EQ(bytesAt(dump, {2, static_cast<uint32_t>(offset + 4 + utf16.size())}),
            std::string(2, '\0'));
  std::string text;
  for (size_t i = 0; i < utf16.size(); i += 2) text += utf16[i];
  return text;
}

std::string dumpOf(const TrapParts& parts) { return minidumpOf(*readTrapFile(parts.whole())); }

}  // namespace

TEST(TrapMinidump, HasAllThatADebuggerAsksFor) {
  const TrapParts parts;
  const std::string dump = dumpOf(parts);
  auto streams = streamsOf(dump);
  EXPECT_EQ(get<uint32_t>(dump, 20), 1795310783u);  // 2026-11-22 01:26:23

  const std::string& system = streams[7];
  ASSERT_EQ(system.size(), 56u);
  EXPECT_EQ(get<uint16_t>(system, 0), 9);
  EXPECT_EQ(get<uint8_t>(system, 6), 8);
  EXPECT_EQ(get<uint32_t>(system, 8), 6u);
  EXPECT_EQ(get<uint32_t>(system, 16), 7601u);
  EXPECT_EQ(get<uint32_t>(system, 20), 2u);
  EXPECT_EQ(textAt(dump, get<uint32_t>(system, 24)), "Service Pack 1");

  const std::string& misc = streams[15];
  ASSERT_EQ(misc.size(), 24u);
  EXPECT_EQ(get<uint32_t>(misc, 0), 24u);
  EXPECT_EQ(get<uint32_t>(misc, 4), 1u);
  EXPECT_EQ(get<uint32_t>(misc, 8), 4242u);

  const std::string& modules = streams[4];
  ASSERT_EQ(modules.size(), 4u + 3 * 108);
  EXPECT_EQ(get<uint32_t>(modules, 0), 3u);
  EXPECT_EQ(get<uint64_t>(modules, 4 + 108), 0x180000000u);
  EXPECT_EQ(get<uint32_t>(modules, 4 + 108 + 8), 0x20000u);
  EXPECT_EQ(get<uint32_t>(modules, 4 + 108 + 16), 1600000000u);
  EXPECT_EQ(textAt(dump, get<uint32_t>(modules, 4 + 108 + 20)), "C:\\kt5\\KT5X.dll");

  const std::string& threads = streams[3];
  ASSERT_EQ(threads.size(), 4u + 48);
  EXPECT_EQ(get<uint32_t>(threads, 4), 17u);
  EXPECT_EQ(get<uint64_t>(threads, 4 + 24), kStackPointer);
  EXPECT_EQ(bytesAt(dump, spanAt(threads, 4 + 32)), parts.rawStack.substr(8));
  EXPECT_EQ(bytesAt(dump, spanAt(threads, 4 + 40)), parts.context);

  const std::string& exception = streams[6];
  ASSERT_EQ(exception.size(), 168u);
  EXPECT_EQ(get<uint32_t>(exception, 0), 17u);
  EXPECT_EQ(exception.substr(8, 152), parts.exception);
  EXPECT_EQ(bytesAt(dump, spanAt(exception, 160)), parts.context);

  const std::string& memory = streams[5];
  ASSERT_EQ(memory.size(), 4u + 2 * 16);
  EXPECT_EQ(get<uint64_t>(memory, 4), kStackPointer);
  EXPECT_EQ(get<uint64_t>(memory, 20), 0x140001000u);
  EXPECT_EQ(bytesAt(dump, spanAt(memory, 28)), parts.instructions);
  EXPECT_EQ(streams.size(), 6u);
}

TEST(TrapMinidump, HoldsNoMoreThanTheTrapFile) {
  TrapParts parts;
  EXPECT_THAT(missingInMinidump(*readTrapFile(parts.whole())), IsEmpty());
  parts.system.clear();
  parts.exception.clear();
  parts.context.clear();
  parts.modules.clear();
  parts.moduleSection.clear();
  parts.frames.clear();
  parts.rawStack.clear();
  put<uint32_t>(parts.header, 8, 0);
  EXPECT_THAT(missingInMinidump(*readTrapFile(parts.whole())),
              ElementsAre("the system: x64 with no version is assumed", "the registers",
                          "the exception", "the modules", "the stack"));

  const std::string dump = dumpOf(parts);
  auto streams = streamsOf(dump);
  EXPECT_EQ(streams.size(), 4u);
  EXPECT_EQ(streams.count(6) + streams.count(15), 0u);
  EXPECT_EQ(get<uint16_t>(streams[7], 0), 9);
  EXPECT_EQ(get<uint32_t>(streams[4], 0), 0u);
  EXPECT_EQ(streams[3].substr(28), std::string(24, '\0'));
  EXPECT_EQ(get<uint32_t>(streams[5], 0), 1u);
}

TEST(TrapMinidump, ModulesMayComeFromTheModuleSection) {
  TrapParts parts;
  parts.modules.clear();
  put<uint16_t>(parts.header, 46, 0);
  EXPECT_EQ(get<uint32_t>(streamsOf(dumpOf(parts))[4], 0), 3u);
}

// Without a context the stack is where the first frame has it.
TEST(TrapMinidump, TheStackIsFoundByItsFirstFrame) {
  TrapParts parts;
  parts.context.clear();
  const std::string dump = dumpOf(parts);
  const std::string threads = streamsOf(dump)[3];
  EXPECT_EQ(get<uint64_t>(threads, 4 + 24), kStackPointer);
  EXPECT_EQ(get<uint32_t>(threads, 4 + 40), 0u);
}

namespace {

// Each stream is as long as its kind, and its count where it has one, tell.
void expectListsAreWhole(const std::map<uint32_t, std::string>& streams) {
  for (const auto& [type, stream] : streams) {
    const size_t each = type == 3 ? 48 : type == 4 ? 108 : type == 5 ? 16 : 0;
    const size_t whole = each != 0   ? 4 + each * get<uint32_t>(stream, 0)
                         : type == 6 ? 168
                         : type == 7 ? 56
                                     : 24;
    ASSERT_EQ(stream.size(), whole) << "stream " << type;
  }
}

}  // namespace

TEST(TrapMinidump, OfADamagedFileEveryReferenceStaysInside) {
  std::mt19937_64 random(20040702);
  const std::string whole = TrapParts().whole();
  for (int round = 0; round < 300; ++round) {
    std::string file = whole;
    for (uint64_t i = random() % 200; i > 0; --i)
      file[8 + random() % 4000] = static_cast<char>(random());
    file.resize(400 + random() % (file.size() - 400));
    const std::string dump = minidumpOf(*readTrapFile(file));
    auto streams = streamsOf(dump);
    expectListsAreWhole(streams);
    const std::string& modules = streams[4];
    for (uint32_t i = 0; i < get<uint32_t>(modules, 0); ++i)
      EXPECT_LE(textAt(dump, get<uint32_t>(modules, 4 + 108 * i + 20)).size(), 272u);
    EXPECT_LE(textAt(dump, get<uint32_t>(streams[7], 24)).size(), 128u);
    for (const size_t at : {size_t{32}, size_t{40}}) bytesAt(dump, spanAt(streams[3], 4 + at));
    const std::string& memory = streams[5];
    for (uint32_t i = 0; i < get<uint32_t>(memory, 0); ++i)
      bytesAt(dump, spanAt(memory, 4 + 16 * i + 8));
    if (streams.count(6) != 0) bytesAt(dump, spanAt(streams[6], 160));
  }
}
