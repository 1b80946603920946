// Records of random bytes: whatever a dump claims, nothing outside a record is read, and what is
// written stays well-formed. Payloads lie in blocks of their own size, so that the sanitizers see
// every byte beyond them.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <random>
#include <string>
#include <vector>

#include "exportchrome.h"
#include "exportfolded.h"
#include "exportperfetto.h"
#include "flowtext.h"
#include "passfilter.h"
#include "slotscan.h"
#include "stats.h"
#include "tools/protodecode.h"
#include "tools/textsink.h"

using namespace oss::tool;
using osse_test::keep;

namespace {

constexpr int kRecords = 3000;

// One, two or more slots; the fields that steer are near their limits, the rest is anything.
std::vector<uint64_t> randomPayload(std::mt19937_64& random) {
  const size_t slots = 1 + random() % 5 * (random() % 2);
  const size_t bytes = slots * 64 - 12;
  // A record has room for its head, whatever its length.
  std::vector<uint64_t> payload((std::max(bytes, sizeof(GTraceRecord)) + 7) / 8);
  for (uint64_t& word : payload) word = random() % 3 == 0 ? random() % 300 : random();
  auto& head = *reinterpret_cast<GTraceRecord*>(payload.data());
  head.type = static_cast<uint16_t>(random() % 3 == 0 ? random() : 1 + random() % 2);
  head.funcId = 0x081A0000 + static_cast<uint32_t>(random() % 5);
  head.threadId = random() % 3;
  head.processId = 7;
  if (random() % 2 == 0) head.dataLength = static_cast<uint16_t>(random() % 400);
  if (random() % 2 == 0) head.itemCount = static_cast<uint32_t>(random() % 10);
  return payload;
}

template <class Visitor>
void feed(Visitor& visitor) {
  std::mt19937_64 random(20040702);
  Flow flow(true);
  for (int i = 0; i < kRecords; ++i) {
    const std::vector<uint64_t> payload = randomPayload(random);
    const uint64_t slots = (payload.size() * 8 + 75) / 64;
    const uint64_t bytes = payload.size() * 8 == sizeof(GTraceRecord) ? 52 : slots * 64 - 12;
    flow.add(Record(payload.data(), std::min<uint64_t>(bytes, payload.size() * 8)), visitor);
  }
  flow.finish(visitor);
}

}  // namespace

TEST(TraceHostile, TextHasNoBytesButPrintableOnes) {
  std::string text;
  Output output(&keep, &text);
  Names names;
  RecordText lines(output, names, Clock(10'000'000), true);
  FlowText flow(lines, true);
  feed(flow);
  output.flush();

  EXPECT_GE(std::count(text.begin(), text.end(), '\n'), kRecords);
  EXPECT_TRUE(std::all_of(text.begin(), text.end(),
                          [](char c) { return c == '\n' || (c >= 0x20 && c <= 0x7E); }));
}

TEST(TraceHostile, ChromeStaysValidAndPerfettoDecodes) {
  std::string json, packets;
  Output chromeOutput(&keep, &json), perfettoOutput(&keep, &packets);
  Names names;
  ChromeExport chrome(chromeOutput, names, Clock(10'000'000));
  PerfettoExport perfetto(perfettoOutput, names, Clock(10'000'000));
  feed(chrome);
  feed(perfetto);
  chrome.finish("random");
  chromeOutput.flush();
  perfettoOutput.flush();

  EXPECT_GE(nlohmann::json::parse(json)["traceEvents"].size(), size_t{kRecords});
  const std::string decoded = osse_test::decodeMessage(
      packets, {"1", "1.11", "1.11.4", "1.12", "1.12.2", "1.12.3", "1.60", "1.60.3", "1.60.4"});
  EXPECT_EQ(decoded.find("broken"), std::string::npos);
}

TEST(TraceHostile, SumsCountEveryRecordOnce) {
  std::string table, stacks;
  Output tableOutput(&keep, &table), stacksOutput(&keep, &stacks);
  Names names;
  FunctionStats stats;
  FoldedExport folded(stacksOutput, names, Clock(10'000'000), false);
  feed(stats);
  feed(folded);
  stats.write(tableOutput, names, Clock(10'000'000), true);
  folded.finish();
  tableOutput.flush();
  stacksOutput.flush();

  EXPECT_NE(table.find("records " + std::to_string(kRecords) + ", threads 3"), std::string::npos);
  EXPECT_FALSE(stacks.empty());
}

namespace {

// A thousand slots; every other one looks like a record's head, often of a wrong count or of an
// earlier pass.
std::vector<uint64_t> brokenSlots(std::mt19937_64& random) {
  std::vector<uint64_t> words(1000 * RAMBO_SLOT / 8);
  for (size_t i = 0; i < words.size(); ++i) {
    const bool isHead = i % (RAMBO_SLOT / 8) == 0 && random() % 2 == 0;
    const uint64_t slots = random() % 4 == 0 ? random() % 3000 : random() % 3;
    const uint64_t sequence = i / 8 + (random() % 8 == 0 ? 4000 : 0);
    words[i] = isHead ? sequence | uint64_t{RAMBO_RECORD_MARK} << 32 | slots << 48 : random() % 2;
  }
  return words;
}

}  // namespace

TEST(TraceHostile, EverySlotIsCountedOnceHoweverItIsBroken) {
  std::mt19937_64 random(20040702);
  const std::vector<uint64_t> words = brokenSlots(random);
  const SlotScan::Window window = {1000, 1000};
  SlotScan scan(&window);
  const auto* const slots = reinterpret_cast<const char*>(words.data());
  EXPECT_EQ(scan.scan(slots, words.size() * 8, true), words.size() * 8);
  uint64_t rejected = 0;
  for (const Reject why :
       {Reject::NotARecord, Reject::SlotCount, Reject::CutOff, Reject::Trailer, Reject::Stale})
    rejected += scan.rejected(why);
  EXPECT_EQ(scan.slots(), 1000u);
  EXPECT_EQ(scan.recordSlots() + scan.neverWritten() + rejected, 1000u);
}

// A head of this pass keeps the slots that it counts, among them what looks like other heads.
TEST(TraceHostile, WhatIsOfNoRecordOfThisPassIsZeroedAndNothingElse) {
  std::mt19937_64 random(20040702);
  for (int round = 0; round < 20; ++round) {
    const std::vector<uint64_t> words = brokenSlots(random);
    std::vector<uint64_t> expected = words;
    uint64_t behindRecord = 0;
    for (uint64_t slot = 0; slot < 1000; ++slot) {
      const uint64_t head = words[slot * 8];
      const uint64_t slots = head >> 48;
      const bool isHead = static_cast<uint32_t>(head) == slot &&
                          (head >> 32 & 0xFFFF) == RAMBO_RECORD_MARK && slots >= 1 && slots <= 2048;
      if (slot >= behindRecord && isHead) behindRecord = slot + slots;
      if (slot >= behindRecord)
        std::fill_n(expected.begin() + static_cast<ptrdiff_t>(slot) * 8, 8, 0);
    }
    std::vector<uint64_t> cleared = words;
    PassFilter().clear(reinterpret_cast<char*>(cleared.data()), 1000, 0);
    EXPECT_TRUE(cleared == expected) << "round " << round;
  }
}
