// osstraptext.h - what of a trap file is text: the environment, and the prolog of an XML report.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace oss {

// ---- The environment ----

// Takes one piece of a section.
class SectionSink {
 public:
  SectionSink() = default;
  virtual ~SectionSink() = default;
  SectionSink(const SectionSink&) = delete;
  SectionSink& operator=(const SectionSink&) = delete;

  virtual void write(const void* data, uint64_t size) noexcept = 0;
};

// Writes each string of an environment, and the end marker behind them, as a 64-bit length and its
// bytes.
// \param strings  as the system keeps them: each with its NUL, and an empty one at the end; null
//                 counts as none
void writeEnvironment(const char* strings, SectionSink& sink) noexcept;

// ---- The prolog ----

inline constexpr std::string_view kXmlProlog =
    "<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?>\n"
    "<?xml-stylesheet type=\"text/xsl\" href=\"kt5trapfile.xsl\"?>\n";

inline constexpr size_t kNoTag = ~size_t{0};

// Where the last tag in a text begins if that is a closing one; kNoTag otherwise.
size_t findClosingTag(std::string_view text) noexcept;

}  // namespace oss
