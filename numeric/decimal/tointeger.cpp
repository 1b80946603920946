// Number to integer: the digits before the point, unit by unit.
#include "numeric/decimal/decimal.h"
#include "numeric/decimal/digits.h"

namespace oss {
namespace {

constexpr int32_t kUnitDigits = 4;
constexpr uint32_t kUnitPowers[] = {1, 10, 100, 1000, 10000};

// False when the result does not fit.
bool multiplyAdd(uint64_t& value, uint64_t factor, uint64_t addend) noexcept {
  return !__builtin_mul_overflow(value, factor, &value) &&
         !__builtin_add_overflow(value, addend, &value);
}

}  // namespace

bool integerPart(const DecimalNumber& number, uint64_t& value) noexcept {
  value = 0;
  for (int32_t unit = (number.digits - 1) / kUnitDigits; unit >= 0; --unit) {
    const int32_t power = number.exponent + unit * kUnitDigits;  // of the unit's last digit
    if (power <= -kUnitDigits) break;
    const int32_t behind = power < 0 ? -power : 0;  // its digits behind the point
    if (!multiplyAdd(value, kUnitPowers[kUnitDigits - behind],
                     number.units[unit] / kUnitPowers[behind]))
      return false;
  }

  if (value == 0) return true;
  for (int32_t power = number.exponent; power > 0; --power)
    if (!multiplyAdd(value, 10, 0)) return false;
  return true;
}

}  // namespace oss
