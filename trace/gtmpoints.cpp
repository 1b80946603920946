// The trace-point table of a mask.
#include "trace/gtmpoints.h"

#include <cstring>

#include "trace/gtmindex.h"

namespace oss {
namespace {

bool belongsTo(const GTMPoint& point, uint32_t index, uint32_t function) noexcept {
  return (point.key & 0xFFFF) == function && indexOfIdentifier(point.key) == index;
}

// Takes the node that the link leads to out of its chain; the link then leads to the next one.
void release(GTMPointTable& table, uint16_t& link) noexcept {
  const uint16_t node = link;
  GTMPoint& point = table.nodes[node];
  link = point.next;
  --table.points;
  if (isExcluded(point)) --table.excludedPoints;
  point = {.key = 0, .unused = 0, .flags = 0, .probe = 0, .next = table.firstFree};
  table.firstFree = node;
}

}  // namespace

void clearPoints(GTMPointTable& table) noexcept {
  std::memset(&table, 0, sizeof table);
  for (uint16_t node = 0; node < kMaskNodes - 1; ++node)
    table.nodes[node].next = static_cast<uint16_t>(node + 1);
  table.firstFree = 1;
}

bool putPoint(GTMPointTable& table, uint32_t key, uint16_t probe, uint64_t flags) noexcept {
  uint16_t node = findPoint(table, key, probe);
  if (node == kNoNode) {
    node = table.firstFree;
    if (node == kNoNode) return false;
    table.firstFree = table.nodes[node].next;
    uint16_t& bucket = table.buckets[bucketOf(key)];
    table.nodes[node] = {.key = key, .unused = 0, .flags = 0, .probe = probe, .next = bucket};
    bucket = node;
    ++table.points;
  }

  GTMPoint& point = table.nodes[node];
  if (isExcluded(point)) --table.excludedPoints;
  point.flags = flags;
  if (isExcluded(point)) ++table.excludedPoints;
  return true;
}

bool removePoint(GTMPointTable& table, uint32_t key, uint16_t probe) noexcept {
  const uint16_t node = findPoint(table, key, probe);
  if (node == kNoNode) return false;
  uint16_t* link = &table.buckets[bucketOf(key)];
  while (*link != node) link = &table.nodes[*link].next;
  release(table, *link);
  return true;
}

bool hasPointsOf(const GTMPointTable& table, uint32_t index, uint32_t function) noexcept {
  uint16_t node = table.buckets[bucketOf(function)];
  while (node != kNoNode && !belongsTo(table.nodes[node], index, function))
    node = table.nodes[node].next;
  return node != kNoNode;
}

void removePointsOf(GTMPointTable& table, uint32_t index, uint32_t function) noexcept {
  uint16_t* link = &table.buckets[bucketOf(function)];
  while (*link != kNoNode) {
    GTMPoint& point = table.nodes[*link];
    if (belongsTo(point, index, function))
      release(table, *link);
    else
      link = &point.next;
  }
}

}  // namespace oss
