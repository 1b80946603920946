// The catalog: constant tables made from the .def files at compile time, and their accessors.
//
// Always true: slot 0 of every table is unused, and a table has one slot more than its count says,
// so that an index equal to the count still finds a slot (the last one may be empty). Look-ups by
// index accept that last slot; searches by name stop before it.
#include <array>
#include <cstring>
#include <string_view>

#include "osscatalog.h"

namespace oss {
namespace {

// ---- Texts for the reserved rows ----

// "<prefix><index>" for every index, so that each slot without a row of its own still answers.
template <size_t Count>
struct ReservedNames {
  std::array<std::array<char, 24>, Count + 1> text{};

  consteval explicit ReservedNames(std::string_view prefix) {
    for (size_t index = 0; index <= Count; ++index) {
      auto out = text[index].begin();
      for (const char c : prefix) *out++ = c;

      std::array<char, 10> digits{};
      size_t length = 0;
      for (size_t rest = index; rest != 0 || length == 0; rest /= 10)
        digits[length++] = static_cast<char>('0' + rest % 10);
      while (length != 0) *out++ = digits[--length];
    }
  }

  constexpr const char* operator[](size_t index) const { return text[index].data(); }
};

// ---- Functions ----

struct NameRow {
  uint32_t index;
  const char* name;
};

constexpr NameRow kOperations[] = {
#define ECF_FUNCTION(number, enumerator, name) {number, name},
#include "ecf_functions.def"
#undef ECF_FUNCTION
};

constexpr NameRow kSystemCalls[] = {
#define ECF_SYSCALL(number, enumerator, name) {number, name},
#include "ecf_syscalls.def"
#undef ECF_SYSCALL
};

constexpr uint32_t kOperationCount = 174;
constexpr uint32_t kSystemCallCount = 354;

template <size_t Rows>
consteval bool rowsRise(const NameRow (&rows)[Rows], uint32_t count) {
  for (size_t i = 0; i < Rows; ++i)
    if (rows[i].index == 0 || rows[i].index >= count ||
        (i > 0 && rows[i].index <= rows[i - 1].index))
      return false;
  return true;
}

static_assert(rowsRise(kOperations, kOperationCount) && std::size(kOperations) == 173,
              "ecf_functions.def: a row is missing, doubled or out of place");
static_assert(rowsRise(kSystemCalls, kSystemCallCount),
              "ecf_syscalls.def: a row is doubled or out of place");
static_assert(static_cast<uint32_t>(Func::OSSHFile_close) == 0x081A0003);
static_assert(static_cast<uint32_t>(SysCall::CloseHandle) == 0x08140069);

constexpr ReservedNames<kSystemCallCount> kReservedSystemCalls("RESERVED_");

consteval auto operationNames() {
  std::array<const char*, kOperationCount + 1> names{};
  for (const NameRow& row : kOperations) names[row.index] = row.name;
  return names;
}

consteval auto systemCallNames() {
  std::array<const char*, kSystemCallCount + 1> names{};
  for (uint32_t index = 1; index < kSystemCallCount; ++index)
    names[index] = kReservedSystemCalls[index];
  for (const NameRow& row : kSystemCalls) names[row.index] = row.name;
  return names;
}

constexpr auto kOperationNames = operationNames();
constexpr auto kSystemCallNames = systemCallNames();
constexpr std::array<const char*, 2> kNoFunctions{};

// ---- Products and components ----

struct ComponentRow {
  uint32_t product;
  uint32_t component;
  const char* name;
  const char* shortName;
};

constexpr ComponentRow kComponents[] = {
#define ECF_COMPONENT(product, component, owner, name, shortName) \
  {product, component, name, shortName},
#include "ecf_components.def"
#undef ECF_COMPONENT
};

constexpr uint32_t kProductCount = 3;
constexpr std::array<const char*, kProductCount + 1> kProductNames = {"", "common", "tools", "KT5"};
constexpr std::array<uint32_t, kProductCount + 1> kComponentCounts = {0, 16, 4, 184};
constexpr uint32_t kMostComponents = 184;

struct ComponentNames {
  const char* name = nullptr;
  const char* shortName = nullptr;
};

constexpr ReservedNames<kMostComponents> kReservedComponents("COMP_RESERVED_");

template <uint32_t Product>
consteval auto componentNames() {
  constexpr uint32_t kCount = kComponentCounts[Product];
  std::array<ComponentNames, kCount + 1> names{};
  for (uint32_t index = 1; index < kCount; ++index)
    names[index] = {"reserved", kReservedComponents[index]};
  names[kCount] = {"", ""};
  for (const ComponentRow& row : kComponents)
    if (row.product == Product) names[row.component] = {row.name, row.shortName};
  return names;
}

constexpr auto kCommonComponents = componentNames<1>();
constexpr auto kToolsComponents = componentNames<2>();
constexpr auto kServerComponents = componentNames<3>();
constexpr std::array<const ComponentNames*, kProductCount + 1> kComponentNames = {
    nullptr, kCommonComponents.data(), kToolsComponents.data(), kServerComponents.data()};

// The function slots of one component. A component without rows has one slot, which is empty.
struct Functions {
  const char* const* names = kNoFunctions.data();
  uint32_t count = 1;
};

constexpr Functions functionsOf(uint32_t product, uint32_t component) {
  if (product == 1 && component == 3) return {kOperationNames.data(), kOperationCount};
  if (product == 1 && component == 2) return {kSystemCallNames.data(), kSystemCallCount};
  if (product == 0 || product > kProductCount) return {nullptr, 0};
  if (component == 0 || component > kComponentCounts[product]) return {nullptr, 0};
  return {};
}

// ---- Return codes ----

// Who owns a code: product and component.
struct Owner {
  uint32_t product;
  uint32_t component;
};

namespace owners {
#define ECF_COMPONENT(product, component, owner, name, shortName) \
  constexpr Owner owner = {product, component};
#include "ecf_components.def"
#undef ECF_COMPONENT
}  // namespace owners

struct CodeRow {
  uint64_t value;
  const char* name;
};
OSS_LAYOUT(CodeRow, 16);
OSS_FIELD(CodeRow, value, 0, 8);
OSS_FIELD(CodeRow, name, 8, 8);

struct DescriptionRow {
  uint32_t product;
  uint32_t component;
  const char* text;
};
OSS_LAYOUT(DescriptionRow, 16);
OSS_FIELD(DescriptionRow, product, 0, 4);
OSS_FIELD(DescriptionRow, component, 4, 4);
OSS_FIELD(DescriptionRow, text, 8, 8);

struct CatalogRow {
  uint32_t index;
  OSSErr code;
  const char* name;
  Owner owner;
  const char* description;
};

constexpr CatalogRow kCatalogRows[] = {
#define ECF_ERROR(index, name, owner, description) {index, name, #name, owners::owner, description},
#define ECF_WARNING(index, name, owner, description) \
  {index, name, #name, owners::owner, description},
#include "ecf_codes.def"
#undef ECF_ERROR
#undef ECF_WARNING
};

constexpr uint32_t kSetCount = 1;
constexpr uint32_t kCodeCount = 1322;
constexpr uint32_t kLastGenericCode = 7;

consteval bool rowsFollowTheirIndex() {
  uint32_t previous = 0;
  for (const CatalogRow& row : kCatalogRows) {
    if (row.index <= previous || row.index > kCodeCount) return false;
    previous = row.index;
  }
  return true;
}
static_assert(rowsFollowTheirIndex(), "ecf_codes.def: a row is doubled or out of place");

constexpr ReservedNames<kCodeCount> kReservedCodes("ECF_RESERVED_");

consteval auto codeTable() {
  std::array<CodeRow, kCodeCount + 1> table{};
  for (uint32_t index = 1; index <= kCodeCount; ++index)
    table[index] = {OSS_ERR_FLAG | OSS_ERR_SET_1 | index, kReservedCodes[index]};
  for (const CatalogRow& row : kCatalogRows) table[row.index] = {row.code, row.name};
  return table;
}

consteval auto descriptionTable() {
  std::array<DescriptionRow, kCodeCount + 1> table{};
  for (uint32_t index = 1; index <= kCodeCount; ++index) {
    const Owner who = index <= kLastGenericCode ? owners::Generic : owners::OperatingSystem;
    table[index] = {who.product, who.component, "Reserved"};
  }
  for (const CatalogRow& row : kCatalogRows)
    table[row.index] = {row.owner.product, row.owner.component, row.description};
  return table;
}

constexpr auto kCodes = codeTable();
constexpr auto kDescriptions = descriptionTable();

// Codes are owned by products 1 and 2 only.
constexpr std::array<const char*, 3> kErrorProductNames = {"", kProductNames[1], kProductNames[2]};

// ---- Fields ----

constexpr uint32_t productOf(uint32_t funcId) { return funcId >> 27; }
constexpr uint32_t componentOf(uint32_t funcId) { return funcId >> 19 & 0xFF; }
constexpr uint32_t functionOf(uint32_t funcId) { return funcId & 0xFFFF; }
constexpr uint32_t setOf(OSSErr rc) { return rc >> 28 & 0x7; }

// The code's index, or 0 when the code is not catalogued. Bit 31 takes no part: a warning and an
// error of one index are one row.
constexpr uint32_t catalogIndexOf(OSSErr rc) {
  const uint32_t index = rc & OSS_ERR_INDEX_MASK;
  return setOf(rc) == kSetCount && index <= kCodeCount ? index : 0;
}

const ComponentNames* componentOfIdentifier(uint32_t funcId) {
  const uint32_t product = productOf(funcId);
  const uint32_t component = componentOf(funcId);
  if (product == 0 || product > kProductCount) return nullptr;
  if (component == 0 || component > kComponentCounts[product]) return nullptr;
  return &kComponentNames[product][component];
}

bool equal(const char* slot, const char* name) { return slot && std::strcmp(slot, name) == 0; }

}  // namespace
}  // namespace oss

using namespace oss;

uint32_t ecfGetNumProducts() noexcept { return kProductCount; }

uint32_t ecfGetNumComponents(uint32_t product) noexcept {
  return product <= kProductCount ? kComponentCounts[product] : 0;
}

uint32_t ecfGetNumFunctions(uint32_t product, uint32_t component) noexcept {
  return functionsOf(product, component).count;
}

const char* ecfGetProductName(uint32_t funcId) noexcept {
  const uint32_t product = productOf(funcId);
  return product != 0 && product <= kProductCount ? kProductNames[product] : nullptr;
}

const char* ecfGetComponentName(uint32_t funcId) noexcept {
  const ComponentNames* const component = componentOfIdentifier(funcId);
  return component ? component->name : nullptr;
}

const char* ecfGetComponentShortName(uint32_t funcId) noexcept {
  const ComponentNames* const component = componentOfIdentifier(funcId);
  return component ? component->shortName : nullptr;
}

const char* ecfGetFunctionName(uint32_t funcId) noexcept {
  const uint32_t function = functionOf(funcId);
  const Functions functions = functionsOf(productOf(funcId), componentOf(funcId));
  return function != 0 && function <= functions.count ? functions.names[function] : nullptr;
}

uint32_t ecfFindProductIndex(const char* name) noexcept {
  if (name == nullptr) return 0;
  for (uint32_t index = 1; index <= kProductCount; ++index)
    if (equal(kProductNames[index], name)) return index;
  return 0;
}

uint32_t ecfFindComponentIndex(uint32_t product, const char* shortName) noexcept {
  if (shortName == nullptr) return 0;
  // Deliberate: the last slot is not searched, although look-ups by index accept it.
  for (uint32_t index = 1; index < ecfGetNumComponents(product); ++index)
    if (equal(kComponentNames[product][index].shortName, shortName)) return index;
  return 0;
}

uint32_t ecfFindFunctionIndex(uint32_t product, uint32_t component, const char* name) noexcept {
  if (name == nullptr) return 0;
  const Functions functions = functionsOf(product, component);
  // Deliberate: the last slot is not searched, although look-ups by index accept it.
  for (uint32_t index = 1; index < functions.count; ++index)
    if (equal(functions.names[index], name)) return index;
  return 0;
}

const char* ecfErrorGetSetName(OSSErr rc) noexcept {
  return setOf(rc) == kSetCount ? "setecf" : nullptr;
}

uint32_t ecfErrorGetNumCodes(uint32_t set) noexcept { return set == kSetCount ? kCodeCount : 0; }

const char* ecfErrorGetCodeName(OSSErr rc) noexcept {
  if (rc == ECF_OK) return "OK";
  const uint32_t index = catalogIndexOf(rc);
  return index != 0 ? kCodes[index].name : nullptr;
}

const char* ecfErrorGetDescription(OSSErr rc) noexcept {
  if (rc == ECF_OK) return "OK";
  const uint32_t index = catalogIndexOf(rc);
  return index != 0 ? kDescriptions[index].text : nullptr;
}

const char* ecfErrorGetProductName(OSSErr rc) noexcept {
  const uint32_t index = catalogIndexOf(rc);
  return index != 0 ? kErrorProductNames[kDescriptions[index].product] : nullptr;
}

const char* ecfErrorGetComponentName(OSSErr rc) noexcept {
  const uint32_t index = catalogIndexOf(rc);
  if (index == 0) return nullptr;
  const DescriptionRow& row = kDescriptions[index];
  return kComponentNames[row.product][row.component].name;
}
