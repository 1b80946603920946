// ossstring.h - numbers and truth values from text, and a formatter that always terminates.
//
// Letters and white space are those of the C locale, whatever the process has set. Any thread may
// use everything here at any time. No operation traces or logs.
#pragma once

#include "osstypes.h"

extern "C" {

/// Reads an integer: white space, an optional sign, digits. A letter is a digit from 10 (A) to 35
/// (Z) in either case.
/// \param text  the text; null gives 0
/// \param end   receives the first character not used; the start of the text when a sign or nothing
///              is followed by white space or the end; null for a null text. May be null itself
/// \param base  0 detects it: 16 after 0x, 8 after 0, else 10. 16 accepts an 0x in front, 8 a 0;
///              any other is used as it is. A prefix 0x without a digit gives 0 and ends at the x
/// \return the value. Out of range, it is the end of the range on that side and errno is 34; errno
///         is not cleared otherwise. A value that wraps past 64 bits and comes out larger than
///         before its last digit is not noticed: 30000000000000000000 is 11553255926290448384
OSS_API int64_t ossStrToSint64(const char* text, char** end, int base) noexcept;
/// The same, unsigned: a negative number gives its two's complement ("-1" all ones); out of range,
/// with either sign, gives all ones.
OSS_API uint64_t ossStrToUint64(const char* text, char** end, unsigned int base) noexcept;

/// Reads a truth value: 1, ON, Y, YES, T, TRUE or 0, OFF, N, NO, F, FALSE, in either case and with
/// nothing around it.
/// \param value  receives it, false if there is none; may be null
/// \retval 0                           read
/// \retval ECF_OSS_NOT_BOOLEAN_STRING  the text is none of these, or null
OSS_API OSSErr ossStrToBoolean(const char* text, bool* value) noexcept;

/// Formats in the dialect of the C run-time (%I64u is 64 bits wide) and terminates the text.
/// \param size  bytes at `buffer`, at least 1
/// \return the characters in the buffer without the NUL: size - 1 when the text did not fit or the
///         formatter failed; 0 when buffer or format is null or size is 0, and nothing is written
OSS_API uint64_t ossSnprintf(char* buffer, size_t size, const char* format, ...) noexcept
    OSS_PRINTF_LIKE(3, 4);

}  // extern "C"
