// gtmmaskview.h - a look at the bytes of a trace mask and at its table of points.
#pragma once

#include <array>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "ossgtmmask.h"

namespace oss::gtm_model {

inline constexpr uint32_t kComponents = 257;
inline constexpr uint32_t kFunctions = 4096;
inline constexpr uint32_t kRoomForPoints = 1999;
inline constexpr size_t kRecordsAt = 36;
inline constexpr size_t kRecordBytes = 514;
inline constexpr size_t kBitmapsEnd = kRecordsAt + kRecordBytes * kComponents;
inline constexpr size_t kTableAt = 132136;

constexpr uint32_t idOf(uint64_t product, uint64_t component, uint64_t function) {
  return static_cast<uint32_t>(product << 27 | component << 19 | function);
}

inline const uint8_t* bytesOf(const GTM_TRC_MASK& mask) {
  return reinterpret_cast<const uint8_t*>(&mask);
}

inline const GTMPointTable& tableOf(const GTM_TRC_MASK& mask) {
  return *reinterpret_cast<const GTMPointTable*>(bytesOf(mask) + kTableAt);
}

// The nodes of a chain, of the bucket 0 to 1023 or from any other link; cut off at 2,000.
inline std::vector<uint16_t> chainFrom(const GTMPointTable& table, uint16_t node) {
  std::vector<uint16_t> chain;
  for (; node != 0 && chain.size() < 2000; node = table.nodes[node].next) chain.push_back(node);
  return chain;
}

inline std::vector<uint16_t> freeNodes(const GTMPointTable& table) {
  return chainFrom(table, table.firstFree);
}

// By key and probe, the flags.
using Points = std::map<std::pair<uint32_t, uint16_t>, uint64_t>;

inline Points pointsIn(const GTMPointTable& table) {
  Points points;
  for (uint32_t node = 1; node < 2000; ++node)
    if (const GTMPoint& point = table.nodes[node]; point.key != 0)
      points[{point.key, point.probe}] = point.flags;
  return points;
}

// What is wrong with a table; empty when every node is in its place once and the counts agree.
inline std::string faultOf(const GTMPointTable& table) {
  std::array<uint32_t, 2000> seen{};
  for (const uint16_t node : freeNodes(table)) {
    if (table.nodes[node].key != 0) return "free node in use: " + std::to_string(node);
    ++seen[node];
  }

  uint64_t points = 0, excluded = 0;
  for (uint32_t bucket = 0; bucket < 1024; ++bucket)
    for (const uint16_t node : chainFrom(table, table.buckets[bucket])) {
      const GTMPoint& point = table.nodes[node];
      if (point.key == 0) return "free node in a chain: " + std::to_string(node);
      if (point.key % 1024 != bucket) return "node in another's chain: " + std::to_string(node);
      ++seen[node];
      ++points;
      if ((point.flags & 2) != 0) ++excluded;
    }

  for (uint32_t node = 1; node < 2000; ++node)
    if (seen[node] != 1) return "node not in its place once: " + std::to_string(node);
  if (table.points != points) return "points miscounted";
  if (table.excludedPoints != excluded) return "excluded points miscounted";
  if (pointsIn(table).size() != points) return "a point is there twice";
  return {};
}

}  // namespace oss::gtm_model
