// The environment section and the prolog of XML reports, as bytes.
#include "fault/osstraptext.h"

#include <gtest/gtest.h>

#include <string>

using namespace oss;
using namespace std::string_literals;

namespace {

class Bytes final : public SectionSink {
 public:
  void write(const void* data, uint64_t size) noexcept override {
    bytes.append(static_cast<const char*>(data), size);
  }

  std::string bytes;
};

std::string environmentOf(const char* strings) {
  Bytes sink;
  writeEnvironment(strings, sink);
  return sink.bytes;
}

const std::string kEnd = "\x0B\0\0\0\0\0\0\0**L*E*R*M**"s;

TEST(EnvironmentSection, HoldsEachStringWithItsLengthAndTheMarker) {
  EXPECT_EQ(environmentOf("A=1\0=C:=C:\\x\0LONG=value\0"),
            "\x03\0\0\0\0\0\0\0A=1"
            "\x08\0\0\0\0\0\0\0=C:=C:\\x"
            "\x0A\0\0\0\0\0\0\0LONG=value"s +
                kEnd);
}

TEST(EnvironmentSection, OfAnEmptyEnvironmentIsTheMarker) {
  EXPECT_EQ(environmentOf("\0"), kEnd);
  EXPECT_EQ(environmentOf(nullptr), kEnd);
}

TEST(EnvironmentSection, TakesLengthsBeyondOneByte) {
  std::string strings = "V=" + std::string(300, 'x');
  strings += '\0';
  EXPECT_EQ(environmentOf(strings.c_str()),
            "\x2E\x01\0\0\0\0\0\0V="s + std::string(300, 'x') + kEnd);
}

TEST(XmlProlog, IsTwoLines) {
  EXPECT_EQ(kXmlProlog,
            "<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?>\n"
            "<?xml-stylesheet type=\"text/xsl\" href=\"kt5trapfile.xsl\"?>\n");
}

TEST(ClosingTag, IsTheLastTagIfItCloses) {
  EXPECT_EQ(findClosingTag("</report>\n"), 0u);
  EXPECT_EQ(findClosingTag("</item></report>"), 7u);
  EXPECT_EQ(findClosingTag("text</"), 4u);
}

TEST(ClosingTag, IsNoOtherTag) {
  EXPECT_EQ(findClosingTag("</report><!-- more -->"), kNoTag);
  EXPECT_EQ(findClosingTag("</report><item/>"), kNoTag);
  EXPECT_EQ(findClosingTag("</report><"), kNoTag);
  EXPECT_EQ(findClosingTag("report>"), kNoTag);
  EXPECT_EQ(findClosingTag(""), kNoTag);
  EXPECT_EQ(findClosingTag(kXmlProlog), kNoTag);
}

}  // namespace
