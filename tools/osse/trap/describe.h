// describe.h - a trap file as a JSON document, which `osse trap show` writes as it is or as text.
//
// Always true: what the file does not have is not in the document, nor are fields behind a cut.
// Addresses and other numbers of 64 bits are texts in hex, since a double holds only 53 bits.
#pragma once

#include <nlohmann/json.hpp>

#include "trap/trapfile.h"

namespace oss::tool {

using TrapDocument = nlohmann::ordered_json;

TrapDocument describe(const TrapFile& trap);

}  // namespace oss::tool
