// osscommandline.h - the text of a command line: a program and its arguments.
//
//   C:\tools\a.exe, "x" "y z" ""   ->   "C:\tools\a.exe" x y z
//
// Pure: the caller provides the memory, of the size that it is told. Texts are NUL-terminated; a
// list of arguments is one text behind the other, ended by an empty one.
#pragma once

#include <cstdint>

namespace oss {

// The bytes that the command of a program may take, with its NUL.
uint64_t commandBytes(const char* program) noexcept;

// Writes the program in quotation marks, or as it is where it begins with one.
void writeCommand(const char* program, char* out) noexcept;

// The bytes of the command line that the next function writes, with its NUL.
uint64_t commandLineBytes(const char* command, const char* arguments) noexcept;

// Writes the command and the arguments with a blank between each. Deliberate: an argument is never
// quoted or escaped; whoever needs that has done so.
void writeCommandLine(const char* command, const char* arguments, char* out) noexcept;

}  // namespace oss
