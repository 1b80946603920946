// osshexdump.h - memory as readable text, 16 bytes a line.
//
//   0x00007FFE1234ABC0 : 4865 6C6C 6F2C 2077 6F72 6C64 210A 0001    Hello, world!...
//   |address, flag 2    |groups of two bytes, 40 columns        |    |characters, unless flag 4
//
// The functions allocate nothing and take no lock. Any thread may call them at any time, also from
// a fault handler.
#pragma once

#include "osstypes.h"

/// A line that holds exactly 1, 2, 4 or 8 bytes shows them as one little-endian number, "0x...".
inline constexpr uint64_t OSS_HEXDUMP_VALUE = 1;
/// A line begins with the address of its first byte.
inline constexpr uint64_t OSS_HEXDUMP_ADDRESS = 2;
/// A line ends behind the bytes, without the characters.
inline constexpr uint64_t OSS_HEXDUMP_NO_CHARACTERS = 4;

/// Bytes of a line buffer: 82 columns and a NUL.
inline constexpr uint64_t OSS_HEXDUMP_LINE = 83;

extern "C" {

/// Writes one line: its text, CR LF, NUL. A full line has 61 characters, 82 with the address; 42
/// and 63 without the column of characters. What the line leaves of its buffer is blank.
/// \param line     receives the line; OSS_HEXDUMP_LINE bytes
/// \param address  the bytes
/// \param count    how many, 0 to 16; more count as 16
/// \param flags    OSS_HEXDUMP_...
/// \return the characters written without the NUL; 0 when `line` is null, or `address` is and count
///         is not 0
OSS_API uint64_t ossHexDumpLine(char* line, const void* address, uint64_t count,
                                uint64_t flags) noexcept;

/// Writes a region line by line, each behind a prefix. Only whole lines are written: the first that
/// does not fit ends the dump. A line fits when at least three bytes more are left than it has
/// characters, its prefix included.
/// \param address  the region
/// \param length   its bytes
/// \param out      receives the text; always NUL-terminated unless outSize is 0
/// \param outSize  bytes at `out`
/// \param prefix   written before each line; null for none
/// \param flags    OSS_HEXDUMP_...
/// \return the characters written without the NUL; 0 when `out` or `address` is null or a size is 0
OSS_API uint64_t ossHexDumpToBuffer(const void* address, uint64_t length, char* out,
                                    uint64_t outSize, const char* prefix, uint64_t flags) noexcept;

}  // extern "C"
