#include "names.h"

#include "digits.h"
#include "osscatalog.h"

namespace oss::tool {
namespace {

std::string nameOr(const char* name, uint32_t number) {
  if (name != nullptr) return name;
  char text[kLongestNumber];
  return {text, putHex(text, number)};
}

}  // namespace

std::string Names::functionName(uint32_t funcId) {
  return nameOr(ecfGetFunctionName(funcId), funcId);
}

std::string Names::codeName(uint32_t rc) { return nameOr(ecfErrorGetCodeName(rc), rc); }

bool Names::isCode(uint32_t rc) { return rc != 0 && ecfErrorGetCodeName(rc) != nullptr; }

}  // namespace oss::tool
