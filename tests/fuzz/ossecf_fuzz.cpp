// Feeds the catalog and the error mapping with any identifiers, codes, errors and names. What must
// hold: a name that a look-up gives is found again by a search, and a name that a search finds is
// the one that was searched for.
#include <cstdint>
#include <cstring>
#include <string>

#include "osscatalog.h"
#include "tests/fuzz/input.h"
#include "tests/fuzz/require.h"

namespace {

bool same(const char* a, const char* b) { return a != nullptr && std::strcmp(a, b) == 0; }

void checkIdentifier(uint32_t funcId) {
  const uint32_t product = funcId >> 27;
  const uint32_t component = funcId >> 19 & 0xFF;
  const uint32_t function = funcId & 0xFFFF;

  const char* const productName = ecfGetProductName(funcId);
  require((productName != nullptr) == (product >= 1 && product <= ecfGetNumProducts()));
  if (productName != nullptr) require(ecfFindProductIndex(productName) == product);

  const uint32_t components = ecfGetNumComponents(product);
  const char* const shortName = ecfGetComponentShortName(funcId);
  require((shortName != nullptr) == (component >= 1 && component <= components));
  require((ecfGetComponentName(funcId) != nullptr) == (shortName != nullptr));
  if (shortName != nullptr)
    require(ecfFindComponentIndex(product, shortName) == (component < components ? component : 0));

  const uint32_t functions = ecfGetNumFunctions(product, component);
  require((functions != 0) == (shortName != nullptr));
  const char* const name = ecfGetFunctionName(funcId);
  require((name != nullptr) == (function >= 1 && function < functions));
  if (name != nullptr) require(ecfFindFunctionIndex(product, component, name) == function);
  require(name == ecfGetFunctionName(funcId ^ 0x00070000));
}

void checkCode(OSSErr rc) {
  const uint32_t index = rc & OSS_ERR_INDEX_MASK;
  const bool hasSet = (rc >> 28 & 7) == 1;
  const bool catalogued = hasSet && index >= 1 && index <= ecfErrorGetNumCodes(1);
  require((ecfErrorGetSetName(rc) != nullptr) == hasSet);
  require((ecfErrorGetCodeName(rc) != nullptr) == (catalogued || rc == 0));
  require((ecfErrorGetDescription(rc) != nullptr) == (catalogued || rc == 0));
  require((ecfErrorGetProductName(rc) != nullptr) == catalogued);
  require((ecfErrorGetComponentName(rc) != nullptr) == catalogued);
  require(rc << 1 == 0 || ecfErrorGetCodeName(rc) == ecfErrorGetCodeName(rc ^ OSS_ERR_FLAG));
  if (catalogued) require(ecfFindProductIndex(ecfErrorGetProductName(rc)) != 0);
}

void checkName(uint32_t product, uint32_t component, const std::string& text) {
  const char* const name = text.c_str();
  if (const uint32_t index = ecfFindProductIndex(name); index != 0)
    require(same(ecfGetProductName(index << 27), name));
  if (const uint32_t index = ecfFindComponentIndex(product, name); index != 0)
    require(same(ecfGetComponentShortName(product << 27 | index << 19), name));
  if (const uint32_t index = ecfFindFunctionIndex(product, component, name); index != 0)
    require(same(ecfGetFunctionName(product << 27 | component << 19 | index), name));
}

void checkSystemError(uint64_t call, uint64_t error) {
  uint64_t level = 0;
  const OSSErr rc = ossErrorMapSystem(0, 0, call, error, &level);
  require(rc >> 28 == 9 && ecfErrorGetCodeName(rc) != nullptr);
  require(level == OSS_LOG_ERROR || level == OSS_LOG_INFO);
  require(rc != ECF_UNKNOWN || level == OSS_LOG_ERROR);
  // An unknown error has no name.
  require(rc != ECF_UNKNOWN || ossErrorNameMapSystem(call, error) == nullptr);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Input input(data, size);
  checkIdentifier(input.take<uint32_t>());
  checkCode(input.take<uint32_t>());
  const uint64_t call = input.take<uint64_t>();
  checkSystemError(call, input.take<uint64_t>());
  const uint32_t product = input.take<uint32_t>();
  const uint32_t component = input.take<uint32_t>();
  checkName(product, component, std::string(input.rest()));
  return 0;
}
