// ansitext.h - what the system tells in its code page, as the UTF-8 that this program writes.
#pragma once

#include <string>
#include <string_view>

namespace oss::tool {

// \param ansi  in the process's ANSI code page
std::string utf8OfAnsi(std::string_view ansi);

}  // namespace oss::tool
