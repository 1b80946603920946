#include "ansitext.h"

#include <windows.h>

namespace oss::tool {

std::string utf8OfAnsi(std::string_view ansi) {
  // Neither form has more units than three for each byte.
  const int bytes = static_cast<int>(ansi.size());
  std::wstring wide(ansi.size(), L'\0');
  const int units = ::MultiByteToWideChar(CP_ACP, 0, ansi.data(), bytes, wide.data(), bytes);
  std::string utf8(3 * ansi.size(), '\0');
  const int size = ::WideCharToMultiByte(CP_UTF8, 0, wide.data(), units, utf8.data(),
                                         static_cast<int>(utf8.size()), nullptr, nullptr);
  utf8.resize(static_cast<size_t>(size));
  return utf8;
}

}  // namespace oss::tool
