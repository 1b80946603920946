// gtmmaskmodel.h - what a trace mask must hold and answer, kept in plain sets.
//
// The model shares no code with the mask: its ranges, its bits and its points are its own.
#pragma once

#include <array>
#include <bitset>
#include <map>
#include <optional>
#include <set>
#include <vector>

#include "tests/trace/gtmmaskview.h"

namespace oss::gtm_model {

class MaskModel {
 public:
  void clear() {
    products_.clear();
    components_.clear();
    types_ = {};
    for (auto& functions : functions_) functions.reset();
    points_.clear();
    count_ = excluded_ = 0;
  }

  bool set(uint64_t product, uint64_t component, uint64_t function, uint64_t typeOrProbe,
           bool isPoint, uint64_t flags) {
    if (isAll(product)) {
      if (isPoint) return true;
      for (uint32_t each = 0; each < 32; ++each) products_.insert(each);
      for (uint32_t index = 0; index < kComponents; ++index) setWhole(index, typeOrProbe);
      return true;
    }

    if (product < 32) products_.insert(static_cast<uint32_t>(product));
    if (isAll(component)) {
      if (!isPoint)
        for (const uint32_t index : rangeOf(product)) setWhole(index, typeOrProbe);
      return true;
    }

    const std::optional<uint32_t> index = indexOf(product, component);
    if (!index) return true;
    components_.insert(*index);
    if (isAll(function)) {
      if (!isPoint) setWhole(*index, typeOrProbe);
      return true;
    }

    if (function >= kFunctions) return true;
    functions_[*index].set(function);
    if (!isPoint) {
      setType(*index, typeOrProbe);
      return true;
    }
    return putPoint(*index, function, idOf(product, component, function), typeOrProbe, flags);
  }

  bool del(uint64_t product, uint64_t component, uint64_t function, uint64_t typeOrProbe,
           bool isPoint) {
    if (isAll(product)) {
      if (!isPoint) deleteEverything(typeOrProbe);
      return true;
    }

    bool hasRoom = true;
    const std::optional<uint32_t> index = indexOf(product, component);
    if (isAll(component)) {
      if (!isPoint)
        for (const uint32_t each : rangeOf(product)) deleteWhole(each, typeOrProbe);
    } else if (index && isAll(function)) {
      if (!isPoint) deleteWhole(*index, typeOrProbe);
    } else if (index && function < kFunctions && isPoint) {
      const bool isInMask =
          products_.count(static_cast<uint32_t>(product)) != 0 && functions_[*index][function];
      hasRoom =
          deletePoint(*index, function, idOf(product, component, function), typeOrProbe, isInMask);
    } else if (index && function < kFunctions) {
      auto others = functions_[*index];
      others.reset(function);
      if (others.any() && !isAll(typeOrProbe)) return true;
      if (others.none()) deleteType(*index, typeOrProbe);
      if (isAll(typeOrProbe)) deletePointsOf(*index, function);
      if (isAll(typeOrProbe)) functions_[*index].reset(function);
      pruneFunction(*index, function);
    }
    if (index) pruneComponent(*index);
    pruneProduct(product);
    return hasRoom;
  }

  bool isIn(uint32_t id, uint32_t type, uint16_t probe) const {
    const std::optional<uint32_t> index = indexOf(id >> 27, id >> 19 & 0xFF);
    const uint32_t function = id & 0xFFFF;
    if (products_.count(id >> 27) == 0 || !index || components_.count(*index) == 0) return false;
    if (function >= kFunctions || !functions_[*index][function]) return false;

    const uint64_t* flags = findPoint(*index, function, id & 0xFFF8FFFF, probe);
    const bool isExcluded = flags != nullptr && (*flags & 2) != 0;
    if (type < 16 && types_[*index][type])
      return !isExcluded || !std::set<uint32_t>{3, 4, 5, 11, 13}.contains(type);
    return flags != nullptr && !isExcluded;
  }

  uint64_t points() const { return count_; }
  uint64_t excludedPoints() const { return excluded_; }

  // The bytes of the mask before its table.
  std::vector<uint8_t> bitmaps() const {
    std::vector<uint8_t> bytes(kBitmapsEnd);
    const auto mark = [&](size_t offset, size_t bit) {
      bytes[offset + bit / 8] = static_cast<uint8_t>(bytes[offset + bit / 8] | 1U << bit % 8);
    };
    for (const uint32_t product : products_) mark(0, product);
    for (const uint32_t index : components_) mark(4, index);
    for (uint32_t index = 1; index < kComponents; ++index) {
      const size_t record = kRecordsAt + kRecordBytes * index;
      for (uint32_t type = 0; type < 16; ++type)
        if (types_[index][type]) mark(record, type);
      if (functions_[index].none()) continue;
      for (uint32_t function = 0; function < kFunctions; ++function)
        if (functions_[index][function]) mark(record + 2, function);
    }
    return bytes;
  }

  Points allPoints() const {
    Points all;
    for (const auto& [index, functions] : points_)
      for (const auto& [function, points] : functions) all.insert(points.begin(), points.end());
    return all;
  }

 private:
  static bool isAll(uint64_t value) { return (value & 0xFFFFFFFF) == 0xFFFFFFFF; }

  // Products 1, 2 and 3 have the components of index 1 to 32, 33 to 64 and 65 to 256.
  static std::vector<uint32_t> rangeOf(uint64_t product) {
    std::vector<uint32_t> range;
    if (product < 1 || product > 3) return range;
    constexpr uint32_t kEnds[] = {1, 33, 65, 257};
    for (uint32_t index = kEnds[product - 1]; index < kEnds[product]; ++index)
      range.push_back(index);
    return range;
  }

  static std::optional<uint32_t> indexOf(uint64_t product, uint64_t component) {
    if (product < 1 || product > 3 || component > 255) return std::nullopt;
    const uint64_t index = component + (product == 1 ? 1 : product == 2 ? 33 : 65);
    if (index > 256) return std::nullopt;
    return static_cast<uint32_t>(index);
  }

  void setType(uint32_t index, uint64_t type) {
    if (isAll(type)) types_[index].set();
    if (type < 16) types_[index].set(type);
  }
  void deleteType(uint32_t index, uint64_t type) {
    if (isAll(type)) types_[index].reset();
    if (type < 16) types_[index].reset(type);
  }

  void setWhole(uint32_t index, uint64_t type) {
    components_.insert(index);
    if (index == 0) return;  // only its bit is there
    functions_[index].set();
    setType(index, type);
  }
  void deleteWhole(uint32_t index, uint64_t type) {
    deleteType(index, type);
    if (isAll(type))
      while (!points_[index].empty()) deletePointsOf(index, points_[index].begin()->first);
    if (types_[index].none()) {
      std::bitset<kFunctions> withPoints;
      for (const auto& [function, points] : points_[index])
        if (!points.empty()) withPoints.set(function);
      functions_[index] &= withPoints;
    }
    pruneComponent(index);
  }

  void deleteEverything(uint64_t type) {
    if (isAll(type)) return clear();
    components_.erase(0);
    for (uint32_t index = 1; index < kComponents; ++index) deleteWhole(index, type);
    for (uint64_t product = 0; product < 32; ++product) pruneProduct(product);
  }

  bool putPoint(uint32_t index, uint64_t function, uint32_t key, uint64_t probe, uint64_t flags) {
    Points& points = points_[index][function];
    const auto found = points.find({key, static_cast<uint16_t>(probe)});
    if (found != points.end()) {
      excluded_ -= (found->second & 2) / 2;
      found->second = flags;
    } else {
      if (count_ == kRoomForPoints) return false;
      points[{key, static_cast<uint16_t>(probe)}] = flags;
      ++count_;
    }
    excluded_ += (flags & 2) / 2;
    return true;
  }

  bool deletePoint(uint32_t index, uint64_t function, uint32_t key, uint64_t probe, bool isInMask) {
    Points& points = points_[index][function];
    const auto found = points.find({key, static_cast<uint16_t>(probe)});
    if (found != points.end()) {
      excluded_ -= (found->second & 2) / 2;
      --count_;
      points.erase(found);
      pruneFunction(index, function);
      return true;
    }
    const std::bitset<16> cuttable(1 << 3 | 1 << 4 | 1 << 5 | 1 << 11 | 1 << 13);
    if (!isInMask || (types_[index] & cuttable).none()) return true;
    return putPoint(index, function, key, probe, 2);
  }

  void deletePointsOf(uint32_t index, uint64_t function) {
    const auto component = points_.find(index);
    if (component == points_.end()) return;
    const auto points = component->second.find(function);
    if (points == component->second.end()) return;
    count_ -= points->second.size();
    for (const auto& [point, flags] : points->second) excluded_ -= (flags & 2) / 2;
    component->second.erase(points);
  }

  const uint64_t* findPoint(uint32_t index, uint64_t function, uint32_t key, uint16_t probe) const {
    const auto component = points_.find(index);
    if (component == points_.end()) return nullptr;
    const auto points = component->second.find(function);
    if (points == component->second.end()) return nullptr;
    const auto point = points->second.find({key, probe});
    return point != points->second.end() ? &point->second : nullptr;
  }

  // Without a type, a function without points goes; without a function, the component goes.
  void pruneFunction(uint32_t index, uint64_t function) {
    if (types_[index].none() && points_[index][function].empty()) functions_[index].reset(function);
  }
  void pruneComponent(uint32_t index) {
    if (functions_[index].none()) components_.erase(index);
  }

  void pruneProduct(uint64_t product) {
    for (const uint32_t index : rangeOf(product))
      if (components_.count(index) != 0) return;
    if (product < 32) products_.erase(static_cast<uint32_t>(product));
  }

  std::set<uint32_t> products_;
  std::set<uint32_t> components_;
  std::array<std::bitset<16>, kComponents> types_;
  std::array<std::bitset<kFunctions>, kComponents> functions_;
  std::map<uint32_t, std::map<uint64_t, Points>> points_;  // by index and function
  uint64_t count_ = 0;
  uint64_t excluded_ = 0;
};

}  // namespace oss::gtm_model
