#include "trap/modulemap.h"

#include "trap/words.h"

namespace oss::tool {

ModuleMap::ModuleMap(const std::vector<Part<OSSTrapModule>>& modules) {
  for (const Part<OSSTrapModule>& module : modules) {
    if (!module.holds(&OSSTrapModule::end)) continue;
    const std::string_view path = textIn(module.value.name);
    const std::string_view name = path.substr(path.find_last_of("\\/") + 1);
    ranges_.push_back({module.value.base, module.value.end, utf8Of(name)});
  }
  std::stable_sort(ranges_.begin(), ranges_.end(),
                   [](const Range& a, const Range& b) { return a.base < b.base; });
}

std::string ModuleMap::find(uint64_t address) const {
  auto behind = std::upper_bound(ranges_.begin(), ranges_.end(), address,
                                 [](uint64_t at, const Range& range) { return at < range.base; });
  if (behind == ranges_.begin()) return {};
  const Range& range = *--behind;
  return address < range.end ? range.name + "+" + hexOf(address - range.base) : std::string();
}

}  // namespace oss::tool
