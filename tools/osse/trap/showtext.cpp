#include "trap/showtext.h"

#include <cctype>

#include "table.h"
#include "trap/words.h"

namespace oss::tool {
namespace {

using Json = TrapDocument;

constexpr size_t kFewLines = 16;  // of a hex dump that is not shown in full

// "library version" for libraryVersion.
std::string wordsOf(std::string_view key) {
  std::string words;
  for (const char c : key) {
    if (std::isupper(static_cast<unsigned char>(c)) != 0) words += ' ';
    words += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  }
  return words;
}

// UTF-8 with a point for each control character: nothing in a file steers the terminal.
std::string printable(std::string_view text) {
  std::string shown;
  for (size_t i = 0; i < text.size(); ++i) {
    const auto byte = static_cast<unsigned char>(text[i]);
    const bool isHighControl =
        byte == 0xC2 && i + 1 < text.size() && static_cast<unsigned char>(text[i + 1]) < 0xA0;
    if (isHighControl) ++i;
    shown += byte < ' ' || byte == 0x7F || isHighControl ? '.' : static_cast<char>(byte);
  }
  return shown;
}

std::string scalar(const Json& value) {
  return value.is_string() ? printable(value.get_ref<const std::string&>()) : value.dump();
}

// A scalar, or a list of them in one line.
std::string cell(const Json& value) {
  if (!value.is_array()) return scalar(value);
  std::string list;
  for (const Json& item : value) {
    if (!list.empty()) list += ", ";
    list += scalar(item);
  }
  return list;
}

void writeFields(const Json& object, Output& output) {
  size_t width = 0;
  for (const auto& item : object.items()) width = std::max(width, wordsOf(item.key()).size());
  for (const auto& item : object.items()) {
    std::string line = wordsOf(item.key());
    line.resize(width + 2, ' ');
    output.write(line + cell(item.value()) + "\n");
  }
}

// The keys of the first are the columns: only the last can have fewer, by a cut.
void writeTable(const Json& list, bool full, Output& output) {
  std::vector<std::string> keys;
  for (const auto& item : list.front().items())
    if (full || item.key() != "parameters") keys.push_back(item.key());
  if (keys.empty()) return;
  Table table(std::vector<std::string>(keys.begin(), keys.end()));
  for (const Json& object : list) {
    std::vector<std::string> cells;
    cells.reserve(keys.size());
    for (const std::string& key : keys)
      cells.push_back(object.contains(key) ? cell(object[key]) : "-");
    table.add(std::move(cells));
  }
  table.write(output);
}

void writeRegisters(const Json& registers, bool full, Output& output) {
  constexpr size_t kWidth = 96;
  constexpr size_t kNameWidth = 3;
  std::string line;
  size_t valueWidth = 0;
  const auto flush = [&] {
    if (!line.empty()) output.write(line + "\n");
    line.clear();
  };
  for (const auto& item : registers.items()) {
    const std::string& key = item.key();
    if (!full && (key.starts_with("xmm") || key.starts_with("dr"))) continue;
    const std::string value = cell(item.value());
    std::string name = wordsOf(key);
    const bool isAligned = value.size() >= addressOf(0).size();
    name.resize(isAligned ? std::max(name.size(), kNameWidth) : name.size(), ' ');
    // Long values stand below each other.
    const bool isOther = isAligned ? value.size() != valueWidth : valueWidth != 0;
    valueWidth = isAligned ? value.size() : 0;
    if (isOther || line.size() + name.size() + value.size() + 3 > kWidth) flush();
    line.append(line.empty() ? "" : "  ").append(name).append(" ").append(value);
  }
  flush();
}

int digitOf(char c) { return c <= '9' ? c - '0' : c - 'A' + 10; }

void writeHexDump(const Json& block, bool full, Output& output) {
  constexpr size_t kBytes = 16;
  const auto& digits = block["bytes"].get_ref<const std::string&>();
  uint64_t address =
      block.contains("address") ? std::stoull(block["address"].get<std::string>(), nullptr, 16) : 0;
  const size_t lines = (digits.size() / 2 + kBytes - 1) / kBytes;
  const size_t shown = full ? lines : std::min(lines, kFewLines);
  for (size_t i = 0; i < shown; ++i, address += kBytes) {
    std::string line = addressOf(address) + ' ';
    std::string characters;
    for (size_t at = 2 * kBytes * i; at < std::min(2 * kBytes * (i + 1), digits.size()); at += 2) {
      line.append(characters.size() == kBytes / 2 ? "  " : " ").append(digits, at, 2);
      const int byte = digitOf(digits[at]) * 16 + digitOf(digits[at + 1]);
      characters += byte >= ' ' && byte <= '~' ? static_cast<char>(byte) : '.';
    }
    line.resize(addressOf(0).size() + 3 * kBytes + 4, ' ');
    output.write(line + characters + "\n");
  }
  if (shown < lines)
    output.write(std::to_string(lines - shown) + " more lines; --full shows them\n");
}

void writeMember(const std::string& key, const Json& value, bool full, Output& output) {
  if (value.is_array()) {
    if (value.empty()) return;
    if (value.front().is_object()) return writeTable(value, full, output);
    for (const Json& item : value) output.write(cell(item) + "\n");
    return;
  }
  if (key == "registers") return writeRegisters(value, full, output);
  if (value.contains("bytes")) return writeHexDump(value, full, output);
  writeFields(value, output);
}

std::string titleOf(const std::string& key, const Json& value) {
  std::string title = wordsOf(key);
  if (value.is_array()) title += ", " + std::to_string(value.size());
  if (value.contains("bytes"))
    title +=
        ", " + std::to_string(value["bytes"].get_ref<const std::string&>().size() / 2) + " bytes";
  return title;
}

}  // namespace

void writeText(const TrapDocument& document, bool full, Output& output) {
  bool isFirst = true;
  for (const auto& member : document.items()) {
    output.write((isFirst ? "[" : "\n[") + titleOf(member.key(), member.value()) + "]\n");
    isFirst = false;
    writeMember(member.key(), member.value(), full, output);
  }
}

}  // namespace oss::tool
