// protodecode.h - the wire format of Protocol Buffers, read back as text: a line for each field,
// indented by its depth.
//
//   1
//     10 = 1
//     60
//       1 = 5
//       3 = "text"
#pragma once

#include <set>
#include <string>
#include <string_view>

namespace osse_test {

// \param messages  the fields that are messages, by the way that leads to them: "1", "1.60"
// \return the text; it ends in "broken" where the bytes are no message
std::string decodeMessage(std::string_view bytes, const std::set<std::string>& messages);

}  // namespace osse_test
