// gtmpoints.h - the trace-point table of a mask: a chained hash table in nodes of its own.
//
// Always true: every node from 1 on is either in the free list or in the chain of its key's bucket,
// once; a free node's key is 0; `points` counts the nodes in chains, `excludedPoints` those of them
// that are excluded. The program that changes the mask is alone with it.
#pragma once

#include "ossgtmmask.h"

namespace oss {

inline constexpr uint16_t kMaskNodes = 2000;
inline constexpr uint16_t kNoNode = 0;

// The key of a function's points: its identifier without the kind bits.
constexpr uint32_t pointKey(uint32_t funcId) noexcept { return funcId & 0xFFF8FFFF; }

// Only the function's number takes part: the points of one function share a bucket.
constexpr uint32_t bucketOf(uint32_t key) noexcept { return key & 0x3FF; }

constexpr bool isExcluded(const GTMPoint& point) noexcept {
  return (point.flags & GTM_EXCLUDED) != 0;
}

// The point's node, or kNoNode.
inline uint16_t findPoint(const GTMPointTable& table, uint32_t key, uint16_t probe) noexcept {
  uint16_t node = table.buckets[bucketOf(key)];
  while (node != kNoNode && (table.nodes[node].key != key || table.nodes[node].probe != probe))
    node = table.nodes[node].next;
  return node;
}

void clearPoints(GTMPointTable& table) noexcept;

// Inserts the point, or gives it new flags when it is there; false when there is no free node.
bool putPoint(GTMPointTable& table, uint32_t key, uint16_t probe, uint64_t flags) noexcept;

// Takes the point out; false when it was not there.
bool removePoint(GTMPointTable& table, uint32_t key, uint16_t probe) noexcept;

// The points of a function of the component of that global index.
bool hasPointsOf(const GTMPointTable& table, uint32_t index, uint32_t function) noexcept;
void removePointsOf(GTMPointTable& table, uint32_t index, uint32_t function) noexcept;

}  // namespace oss
