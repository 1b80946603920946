// indexmap.h - numbers the distinct keys that it sees: 0, 1, 2, ... A key is two words.
//
// An open table with linear probing that is at most half full. Nothing is ever taken out.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace oss::tool {

class IndexMap {
 public:
  struct Found {
    uint32_t index;
    bool isNew;
  };

  IndexMap() : table_(16) {}

  uint32_t size() const { return used_; }

  // The number of a key, which a new one receives now.
  Found findOrAdd(uint64_t first, uint64_t second) {
    for (size_t at = hash(first, second);; ++at) {
      Entry& entry = table_[at & (table_.size() - 1)];
      if (entry.index == kFree) return {add(entry, first, second), true};
      if (entry.first == first && entry.second == second) return {entry.index, false};
    }
  }

 private:
  static constexpr uint32_t kFree = UINT32_MAX;

  struct Entry {
    uint64_t first = 0;
    uint64_t second = 0;
    uint32_t index = kFree;
  };

  // Fibonacci hashing: the product's upper half depends on every bit of the key.
  static size_t hash(uint64_t first, uint64_t second) {
    const uint64_t mixed = (first ^ (second << 32 | second >> 32)) * 0x9E3779B97F4A7C15;
    return static_cast<size_t>(mixed >> 32);
  }

  uint32_t add(Entry& entry, uint64_t first, uint64_t second) {
    const uint32_t index = used_++;
    entry = {first, second, index};
    if (used_ > table_.size() / 2) grow();
    return index;
  }

  void grow() {
    std::vector<Entry> old(table_.size() * 2);
    old.swap(table_);
    for (const Entry& entry : old) {
      if (entry.index == kFree) continue;
      size_t at = hash(entry.first, entry.second);
      while (table_[at & (table_.size() - 1)].index != kFree) ++at;
      table_[at & (table_.size() - 1)] = entry;
    }
  }

  std::vector<Entry> table_;
  uint32_t used_ = 0;
};

}  // namespace oss::tool
