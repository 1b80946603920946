// itemlist.h - all items of a record as one text, "[0x2] [\"abc\"]", cut where a timeline has no
// use for more.
#pragma once

#include <string>
#include <string_view>

#include "record.h"

namespace oss::tool {

inline constexpr size_t kLongestItemList = size_t{16} << 10;

// The text stays in `text`, which the caller keeps for the next record.
std::string_view listItems(const Record& record, std::string& text);

}  // namespace oss::tool
