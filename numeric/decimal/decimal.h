// decimal.h - the decimal core: text to number, number to text, and the two encodings.
//
// Text follows the General Decimal Arithmetic specification (to-number, to-scientific-string), the
// encodings IEEE 754-2008 with densely packed decimal coefficients. Pure functions on plain
// records: nothing allocates, nothing is global, nothing is refused; what went wrong is a condition
// in the context's status.
#pragma once

#include "ossdecimal.h"

namespace oss {

// The context of a format; any other value of it gives one that is all zeros.
DecimalContext decimalContext(uint32_t format) noexcept;

// Makes the number that a text means in a context: rounded to its digits, limited by its exponents.
// Conditions are added to the context's status. A text that breaks the syntax, as null does, gives
// a quiet NaN and kConversionSyntax.
void toNumber(const char* text, DecimalContext& context, DecimalNumber& number) noexcept;

// The text of a number, of any number that a format holds: sign, 34 digits, point, E-6176, NUL.
inline constexpr int32_t kDecimalTextBytes = 43;

// Writes the text of a number that has a value, with its NUL: "1.23E+5", "Infinity", "-NaN17".
// Returns its length without the NUL; if that is more than `size`, nothing is written.
uint32_t toScientificText(const DecimalNumber& number, char* out, uint64_t size) noexcept;

// The magnitude of a finite number without what lies behind the point. False when it does not fit.
bool integerPart(const DecimalNumber& number, uint64_t& value) noexcept;

// Writes the interchange encoding, the byte with the sign first. The number fits the context, as
// one made by toNumber or decode in it does; one without a value is encoded as 0.
void encode(const DecimalNumber& number, const DecimalContext& context, uint8_t* out) noexcept;

// Makes the number of an interchange encoding, also of one that is not canonical.
void decode(const uint8_t* in, const DecimalContext& context, DecimalNumber& number) noexcept;

}  // namespace oss
