#include "itemlist.h"

#include "recordtext.h"

namespace oss::tool {

std::string_view listItems(const Record& record, std::string& text) {
  text.clear();
  for (Items items(record); text.size() < kLongestItemList && items.next();) {
    text += text.empty() ? "[" : " [";
    appendItem(text, items.item(), record.isError());
    text += ']';
  }
  if (text.size() > kLongestItemList) {
    text.resize(kLongestItemList);
    text += "...";
  }
  return text;
}

}  // namespace oss::tool
