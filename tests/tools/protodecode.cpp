#include "tools/protodecode.h"

#include <cstdint>

namespace osse_test {
namespace {

class Decoder {
 public:
  explicit Decoder(const std::set<std::string>& messages) : messages_(messages) {}

  std::string text;

  bool message(std::string_view bytes, const std::string& way, size_t depth) {
    while (!bytes.empty()) {
      uint64_t key = 0;
      if (!varint(bytes, key)) return false;
      const std::string here = way + std::to_string(key >> 3);
      text.append(2 * depth, ' ').append(std::to_string(key >> 3));
      if (!field(bytes, key & 7, here, depth)) return false;
    }
    return true;
  }

 private:
  bool field(std::string_view& bytes, uint64_t wireType, const std::string& way, size_t depth) {
    uint64_t value = 0;
    if ((wireType != 0 && wireType != 2) || !varint(bytes, value)) return false;
    if (wireType == 0) {
      text += " = " + std::to_string(value) + '\n';
      return true;
    }
    if (value > bytes.size()) return false;
    const std::string_view content = bytes.substr(0, value);
    bytes.remove_prefix(value);
    if (messages_.count(way) == 0) {
      text.append(" = \"").append(content).append("\"\n");
      return true;
    }
    text += '\n';
    return message(content, way + '.', depth + 1);
  }

  static bool varint(std::string_view& bytes, uint64_t& value) {
    value = 0;
    for (int shift = 0; shift < 70 && !bytes.empty(); shift += 7) {
      const auto byte = static_cast<unsigned char>(bytes.front());
      bytes.remove_prefix(1);
      value |= uint64_t{byte & 0x7Fu} << shift;
      if ((byte & 0x80) == 0) return true;
    }
    return false;
  }

  const std::set<std::string>& messages_;
};

}  // namespace

std::string decodeMessage(std::string_view bytes, const std::set<std::string>& messages) {
  Decoder decoder(messages);
  if (!decoder.message(bytes, "", 0)) decoder.text += "broken";
  return decoder.text;
}

}  // namespace osse_test
