// Trace masks: setting, deleting and testing products, components, functions, types and points.
#include "ossgtmmask.h"

#include <algorithm>
#include <cstring>

#include "osscatalog.h"
#include "trace/gtmindex.h"
#include "trace/gtmpoints.h"

uint32_t g_iGtmScanCursor = 1;

namespace oss {
namespace {

// The types that a point can be cut out of.
constexpr uint32_t kPointTypes = 1 << 3 | 1 << 4 | 1 << 5 | 1 << 11 | 1 << 13;
// In a flattened mask: what a function with points adds, and what is taken of the components.
constexpr uint32_t kFlattenedPointTypes = kPointTypes | 0x07C0;  // and 6 to 10
constexpr uint32_t kFlattenedTypes = 0x7FFE;                     // 1 to 14

constexpr bool isAll(uint64_t value) noexcept { return static_cast<uint32_t>(value) == GTM_ALL; }

uint32_t pointKey(uint64_t product, uint64_t component, uint64_t function) noexcept {
  return makeFunctionId(static_cast<uint32_t>(product), static_cast<uint32_t>(component),
                        FunctionKind::None, static_cast<uint32_t>(function));
}

template <size_t bytes>
void fill(uint8_t (&bitmap)[bytes]) noexcept {
  std::memset(bitmap, 0xFF, bytes);
}

template <size_t bytes>
bool isFull(const uint8_t (&bitmap)[bytes]) noexcept {
  return std::all_of(bitmap, bitmap + bytes, [](uint8_t byte) { return byte == 0xFF; });
}

// ---- Types and functions of one component -------------------------------------------------------

uint32_t typesOf(const GTMComponent& component) noexcept {
  return component.types[0] | static_cast<uint32_t>(component.types[1]) << 8;
}

void addTypes(GTMComponent& component, uint64_t type) noexcept {
  if (isAll(type))
    fill(component.types);
  else if (type < kMaskTypes)
    setBit(component.types, type);
}

void removeTypes(GTMComponent& component, uint64_t type) noexcept {
  if (isAll(type))
    std::memset(component.types, 0, sizeof component.types);
  else if (type < kMaskTypes)
    clearBit(component.types, type);
}

bool hasFunctions(const GTMComponent& component) noexcept {
  return std::any_of(component.functions, component.functions + sizeof component.functions,
                     [](uint8_t byte) { return byte != 0; });
}

bool hasOtherFunctions(const GTMComponent& component, uint32_t function) noexcept {
  GTMComponent others = component;
  clearBit(others.functions, function);
  return hasFunctions(others);
}

}  // namespace
}  // namespace oss

using namespace oss;

// What setting and deleting are made of. Components are named by their global index, from 1.
struct GTM_TRC_MASK::Editor {
  OSS_FIELD(GTM_TRC_MASK, products_, 0, 4);
  OSS_FIELD(GTM_TRC_MASK, components_, 4, 33);
  OSS_FIELD(GTM_TRC_MASK, records_, 550, 131'584);
  OSS_FIELD(GTM_TRC_MASK, table_, 132'136, 50'072);

  GTM_TRC_MASK& mask;

  GTMComponent& component(uint32_t index) const noexcept { return mask.records_[index - 1]; }

  // ---- Setting ----

  void addComponent(uint32_t index, uint64_t type) const noexcept {
    setBit(mask.components_, index);
    fill(component(index).functions);
    addTypes(component(index), type);
  }

  void addProduct(uint64_t product, uint64_t type) const noexcept {
    const ComponentRange& range = rangeOf(product);
    for (uint32_t i = 0; i < range.capacity; ++i) addComponent(range.first + i, type);
  }

  void addEverything(uint64_t type) const noexcept {
    fill(mask.products_);
    setBit(mask.components_, 0);
    for (uint32_t index = 1; index < kMaskComponents; ++index) addComponent(index, type);
  }

  // ---- Deleting, from a point upwards ----

  // Takes away what has nothing left below it.
  void pruneFunction(uint32_t index, uint32_t function) const noexcept {
    if (typesOf(component(index)) == 0 && !hasPointsOf(mask.table_, index, function))
      clearBit(component(index).functions, function);
  }
  void pruneComponent(uint32_t index) const noexcept {
    if (!hasFunctions(component(index))) clearBit(mask.components_, index);
  }
  void pruneProduct(uint64_t product) const noexcept {
    if (product >= kMaskProducts) return;
    const ComponentRange& range = rangeOf(product);
    for (uint32_t i = 0; i < range.capacity; ++i)
      if (hasBit(mask.components_, range.first + i)) return;
    clearBit(mask.products_, product);
  }

  // False when the point is to be excluded and there is no room for that.
  bool cutPoint(uint32_t index, uint32_t key, uint16_t probe) const noexcept {
    const uint32_t function = key & 0xFFFF;
    if (removePoint(mask.table_, key, probe)) {
      pruneFunction(index, function);
      return true;
    }
    const bool isRecordedAsAWhole = hasBit(mask.products_, key >> 27) &&
                                    hasBit(mask.components_, index) &&
                                    hasBit(component(index).functions, function) &&
                                    (typesOf(component(index)) & kPointTypes) != 0;
    return !isRecordedAsAWhole || putPoint(mask.table_, key, probe, GTM_EXCLUDED);
  }

  // False when the mask is to stay as it is.
  bool removeFunction(uint32_t index, uint32_t function, uint64_t type) const noexcept {
    const bool isShared = hasOtherFunctions(component(index), function);
    // Deliberate: the types are the component's, so one stays while another function has it.
    if (isShared && !isAll(type)) return false;

    if (!isShared) removeTypes(component(index), type);
    if (isAll(type)) {
      removePointsOf(mask.table_, index, function);
      clearBit(component(index).functions, function);
    } else {
      pruneFunction(index, function);
    }
    return true;
  }

  void removeComponent(uint32_t index, uint64_t type) const noexcept {
    removeTypes(component(index), type);
    if (typesOf(component(index)) != 0) return;  // what is left goes for every function
    for (uint32_t function = 0; function < kMaskFunctions; ++function) {
      if (!hasBit(component(index).functions, function)) continue;
      if (isAll(type)) removePointsOf(mask.table_, index, function);
      pruneFunction(index, function);
    }
    pruneComponent(index);
  }

  void removeProduct(uint64_t product, uint64_t type) const noexcept {
    const ComponentRange& range = rangeOf(product);
    for (uint32_t i = 0; i < range.capacity; ++i) removeComponent(range.first + i, type);
  }

  void removeEverything(uint64_t type) const noexcept {
    clearBit(mask.components_, 0);
    for (uint32_t index = 1; index < kMaskComponents; ++index) removeComponent(index, type);
    for (uint64_t product = 0; product < kMaskProducts; ++product) pruneProduct(product);
  }
};

bool GTM_TRC_MASK::gtmClearMask() noexcept {
  std::memset(products_, 0, sizeof products_);
  std::memset(components_, 0, sizeof components_);
  std::memset(unused_, 0, sizeof unused_);
  std::memset(records_, 0, sizeof records_);
  clearPoints(table_);
  return true;
}

bool GTM_TRC_MASK::gtmSetMask(uint64_t prod, uint64_t comp, uint64_t func, uint64_t typeOrProbe,
                              uint64_t options, uint64_t pointFlags) noexcept {
  const Editor edit{*this};
  const bool isPoint = (options & GTM_POINT) != 0;
  if (isAll(prod)) {
    if (!isPoint) edit.addEverything(typeOrProbe);
    return true;
  }

  if (prod < kMaskProducts) setBit(products_, prod);
  if (isAll(comp)) {
    if (!isPoint) edit.addProduct(prod, typeOrProbe);
    return true;
  }

  const uint32_t index = indexOf(prod, comp);
  if (index == 0) return true;
  setBit(components_, index);
  if (isAll(func)) {
    if (!isPoint) edit.addComponent(index, typeOrProbe);
    return true;
  }

  if (func >= kMaskFunctions) return true;
  setBit(edit.component(index).functions, func);
  if (isPoint)
    return putPoint(table_, pointKey(prod, comp, func), static_cast<uint16_t>(typeOrProbe),
                    pointFlags);
  addTypes(edit.component(index), typeOrProbe);
  return true;
}

bool GTM_TRC_MASK::gtmDelMask(uint64_t prod, uint64_t comp, uint64_t func, uint64_t typeOrProbe,
                              uint64_t options) noexcept {
  const Editor edit{*this};
  const bool isPoint = (options & GTM_POINT) != 0;
  if (isAll(prod)) {
    if (isPoint) return true;
    if (isAll(typeOrProbe)) return gtmClearMask();
    edit.removeEverything(typeOrProbe);
    return true;
  }

  bool hadRoom = true;
  if (isAll(comp)) {
    if (!isPoint) edit.removeProduct(prod, typeOrProbe);
  } else if (const uint32_t index = indexOf(prod, comp); index != 0) {
    if (isAll(func)) {
      if (!isPoint) edit.removeComponent(index, typeOrProbe);
    } else if (func < kMaskFunctions) {
      const auto function = static_cast<uint32_t>(func);
      if (isPoint)
        hadRoom =
            edit.cutPoint(index, pointKey(prod, comp, func), static_cast<uint16_t>(typeOrProbe));
      else if (!edit.removeFunction(index, function, typeOrProbe))
        return true;
    }
    edit.pruneComponent(index);
  }
  edit.pruneProduct(prod);
  return hadRoom;
}

bool GTM_TRC_MASK::gtmIsElemInMask(uint32_t funcId, uint16_t type, uint16_t probe) const noexcept {
  if (!hasBit(products_, funcId >> 27)) return false;
  const uint32_t index = indexOfIdentifier(funcId);
  if (index == 0 || !hasBit(components_, index)) return false;
  const GTMComponent& component = records_[index - 1];
  const uint32_t function = funcId & 0xFFFF;
  if (function >= kMaskFunctions || !hasBit(component.functions, function)) return false;

  const bool isTypeSet = type < kMaskTypes && hasBit(component.types, type);
  if (isTypeSet && (table_.excludedPoints == 0 || (kPointTypes >> type & 1) == 0)) return true;
  const uint16_t node = findPoint(table_, pointKey(funcId), probe);
  return node == kNoNode ? isTypeSet : !isExcluded(table_.nodes[node]);
}

bool GTM_TRC_MASK::gtmIsCompInMask(uint64_t prod, uint64_t comp) const noexcept {
  const uint32_t index = indexOf(prod, comp);
  return index != 0 && hasBit(components_, index);
}

bool GTM_TRC_MASK::gtmIsFuncInMask(uint64_t prod, uint64_t comp, uint64_t func) const noexcept {
  const uint32_t index = indexOf(prod, comp);
  return index != 0 && func < kMaskFunctions && hasBit(records_[index - 1].functions, func);
}

bool GTM_TRC_MASK::gtmIsTypeInMask(uint64_t prod, uint64_t comp, uint64_t type) const noexcept {
  const uint32_t index = indexOf(prod, comp);
  return index != 0 && type < kMaskTypes && hasBit(records_[index - 1].types, type);
}

bool GTM_TRC_MASK::gtmIsProdMaskFull() const noexcept { return isFull(products_); }

bool GTM_TRC_MASK::gtmIsCompMaskFull(uint64_t prod) const noexcept {
  const uint32_t count =
      prod < kMaskProducts ? ecfGetNumComponents(static_cast<uint32_t>(prod)) : 0;
  for (uint32_t component = 1; component < count; ++component)
    if (!gtmIsCompInMask(prod, component)) return false;
  return true;
}

bool GTM_TRC_MASK::gtmIsFuncMaskFull(uint64_t prod, uint64_t comp) const noexcept {
  const uint32_t index = indexOf(prod, comp);
  return index != 0 && isFull(records_[index - 1].functions);
}

bool GTM_TRC_MASK::gtmIsTypeMaskFull(uint64_t prod, uint64_t comp) const noexcept {
  const uint32_t index = indexOf(prod, comp);
  return index != 0 && isFull(records_[index - 1].types);
}

void GTM_TRC_MASK::gtmReplicateMask(GTMask* out) const noexcept {
  *out = {};
  uint32_t types = 0;
  for (uint32_t product = 1; product <= ecfGetNumProducts(); ++product) {
    if (!hasBit(products_, product)) continue;
    setBit(out->products, product);

    for (uint32_t component = 1; component < ecfGetNumComponents(product); ++component) {
      if (!gtmIsCompInMask(product, component)) continue;
      setBit(out->components, component);
      const uint32_t index = indexOf(product, component);
      types |= typesOf(records_[index - 1]) & kFlattenedTypes;

      for (uint32_t function = 1; function < ecfGetNumFunctions(product, component); ++function) {
        if (!gtmIsFuncInMask(product, component, function)) continue;
        setBit(out->functions, function);
        if (hasPointsOf(table_, index, function)) types |= kFlattenedPointTypes;
      }
    }
  }
  out->types = static_cast<uint16_t>(types);
  out->classes = types != 0 ? 0xFF : 0;
}

bool GTM_TRC_MASK::gtmScanPointsHash(uint32_t* key, uint64_t* flags,
                                     uint16_t* probe) const noexcept {
  while (g_iGtmScanCursor < kMaskNodes) {
    const GTMPoint& point = table_.nodes[g_iGtmScanCursor++];
    if (point.key == 0) continue;
    *key = point.key;
    *flags = point.flags;
    *probe = point.probe;
    return true;
  }
  return false;
}
