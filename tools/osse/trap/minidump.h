// minidump.h - a trap file in the form that debuggers open: a minidump of one thread.
//
// It holds the system, the modules, the thread with its registers, the exception, and of the memory
// the raw stack and the instruction bytes. The environment and the frames have no place in it;
// debuggers walk the stack themselves. What the trap file does not have is not in the minidump.
#pragma once

#include <string>
#include <vector>

#include "trap/trapfile.h"

namespace oss::tool {

// \return its bytes
std::string minidumpOf(const TrapFile& trap);

// What a debugger will miss, or has to be told without the file: "the registers".
std::vector<std::string> missingInMinidump(const TrapFile& trap);

}  // namespace oss::tool
