// showtext.h - the document of a trap file as text: a paragraph for each of its members.
#pragma once

#include "output.h"
#include "trap/describe.h"

namespace oss::tool {

// \param full  also parameters of frames, vector and debug registers, and all of the raw stack
void writeText(const TrapDocument& document, bool full, Output& output);

}  // namespace oss::tool
