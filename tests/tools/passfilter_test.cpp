// What an unfinished chunk holds of this pass of the ring.
#include "passfilter.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

using oss::tool::PassFilter;

namespace {

std::string slotsOf(uint32_t sequence, uint16_t slots) {
  const RamboRecordHead head = {sequence, RAMBO_RECORD_MARK, slots};
  std::string bytes(size_t{slots} * RAMBO_SLOT, 'x');
  std::memcpy(bytes.data(), &head, sizeof head);
  return bytes;
}

const std::string kCleared(RAMBO_SLOT, '\0');

}  // namespace

TEST(TracePassFilter, WhatAnEarlierPassLeftIsCleared) {
  const std::string ours = slotsOf(8292, 1) + slotsOf(8293, 2);
  const std::string earlier = slotsOf(103, 1);
  std::string chunk = ours + earlier + slotsOf(8296, 1);
  PassFilter().clear(chunk.data(), 5, 8292);

  EXPECT_EQ(chunk, ours + kCleared + slotsOf(8296, 1));
}

TEST(TracePassFilter, ARecordThatBeganInTheChunkBeforeIsKept) {
  std::string whole = slotsOf(0, 2046) + slotsOf(2046, 4);
  const std::string complete = whole.substr(0, RAMBO_CHUNK);
  std::string rest = whole.substr(RAMBO_CHUNK) + slotsOf(1, 1);
  PassFilter filter;
  filter.pass(complete.data(), 0);
  filter.clear(rest.data(), 3, 2048);

  EXPECT_EQ(rest, whole.substr(RAMBO_CHUNK) + kCleared);
}
