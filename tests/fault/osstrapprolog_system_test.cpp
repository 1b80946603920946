// The prolog of an XML report, and where an existing one is gone on with.
#include "fault/osstrapfixture.h"

using namespace osse_test;
using namespace testing;

namespace {

const std::string kProlog =
    "<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?>\n"
    "<?xml-stylesheet type=\"text/xsl\" href=\"kt5trapfile.xsl\"?>\n";

class XmlPrologTest : public TrapFileTest {
 protected:
  // The file behind a call and an append; "|" in `before` stands for nothing, in the result for
  // where the append began.
  std::string append(const std::string& before) {
    const std::string path = newPath();
    writeFile(path, before);
    OpenTrapFile file(path);
    wasEmpty_ = file.writeXMLProlog();
    file.write("|", 1);
    return readFile(path);
  }

  bool wasEmpty_ = false;
};

TEST_F(XmlPrologTest, AnEmptyFileReceivesIt) {
  EXPECT_EQ(append(""), kProlog + "|");
  EXPECT_TRUE(wasEmpty_);
}

TEST_F(XmlPrologTest, AFileWhoseSizeCannotBeToldReceivesIt) {
  const std::string path = newPath();
  writeFile(path, "text");
  OpenTrapFile file(path);
  FailingCall fails("GetFileSize", ERROR_CRC, {.result = 0xFFFFFFFF});
  EXPECT_TRUE(file.writeXMLProlog());
  EXPECT_EQ(readFile(path), kProlog);
}

TEST_F(XmlPrologTest, WithoutAFileItIsWrittenNowhere) {
  OSSTrapFile file;
  EXPECT_TRUE(file.writeXMLProlog());
}

TEST_F(XmlPrologTest, AReportIsGoneOnWithAtItsClosingTag) {
  EXPECT_EQ(append(kProlog + "<traps>\n<trap/>\n</traps>\n"),
            kProlog + "<traps>\n<trap/>\n|/traps>\n");
  EXPECT_FALSE(wasEmpty_);
  EXPECT_EQ(append(kProlog + "</"), kProlog + "|/");
}

TEST_F(XmlPrologTest, AReportThatEndsOtherwiseIsGoneOnWithAtItsEnd) {
  for (const std::string& rest : {std::string("<traps>\n<trap/>\n"), std::string("<"),
                                  std::string("</traps><!-- end -->"), std::string()}) {
    EXPECT_EQ(append(kProlog + rest), kProlog + rest + "|");
    EXPECT_FALSE(wasEmpty_);
  }
}

// Only as many bytes at the end as the prolog has are looked at.
TEST_F(XmlPrologTest, AClosingTagFarFromTheEndIsNotFound) {
  const std::string blanks(kProlog.size() - 2, ' ');
  EXPECT_EQ(append(kProlog + "</" + blanks), kProlog + "|/" + blanks);
  EXPECT_EQ(append(kProlog + "</ " + blanks), kProlog + "</ " + blanks + "|");
}

TEST_F(XmlPrologTest, AnyOtherFileIsGoneOnWithAtItsEnd) {
  std::string other = kProlog + "</traps>";
  other[20] = '#';
  for (const std::string& before : {other, std::string("</traps>"), kProlog.substr(0, 99)}) {
    EXPECT_EQ(append(before), before + "|");
    EXPECT_FALSE(wasEmpty_);
  }
}

}  // namespace
