#include "fault/osstraptext.h"

#include <cstring>

#include "osstrapfile.h"

namespace oss {
namespace {

void writeCounted(std::string_view text, SectionSink& sink) noexcept {
  const uint64_t length = text.size();
  sink.write(&length, sizeof length);
  sink.write(text.data(), length);
}

}  // namespace

void writeEnvironment(const char* strings, SectionSink& sink) noexcept {
  while (strings != nullptr && *strings != '\0') {
    const std::string_view text(strings);
    writeCounted(text, sink);
    strings += text.size() + 1;
  }
  writeCounted(OSS_TRAP_ENVIRONMENT_END, sink);
}

size_t findClosingTag(std::string_view text) noexcept {
  const size_t tag = text.rfind('<');
  if (tag == std::string_view::npos || tag + 1 == text.size()) return kNoTag;
  return text[tag + 1] == '/' ? tag : kNoTag;
}

}  // namespace oss
