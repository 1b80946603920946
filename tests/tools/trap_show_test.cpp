// `osse trap show`: the document of a trap file, as JSON and as text.
#include <gmock/gmock.h>

#include <random>

#include "tools/textsink.h"
#include "tools/trapparts.h"
#include "trap/showtext.h"

using namespace osse_test;
using namespace oss::tool;
using testing::HasSubstr;
using testing::Not;
using Json = nlohmann::ordered_json;

namespace {

Json document(const TrapParts& parts) { return describe(*readTrapFile(parts.whole())); }

std::string textOf(const Json& document, bool full = false) {
  std::string text;
  Output output(&keep, &text);
  writeText(document, full, output);
  output.flush();
  return text;
}

constexpr std::string_view kText = R"([header]
process              4242
thread               17
local time           2026-11-22T01:26:23.045
executable           C:\kt5\child.exe
content flags        0x43F
contents             exception, context, modules, control registers, instruction bytes, library version, extended memory status
modules              3
instruction address  0x0000000140001000
instruction bytes    64

[system]
architecture     9
level            6
revision         0x9E0A
processors       8
processor mask   0xFF
page size        4096
granularity      65536
lowest address   0x0000000000010000
highest address  0x00007FFFFFFEFFFF
version          6.1.7601
platform         2
service pack     Service Pack 1

[memory]
load            42
physical        1073741824
physical free   2147483648
page file       3221225472
page file free  4294967296
addresses       5368709120
addresses free  6442450944

[environment, 2]
PATH=C:\kt5;C:\windows
USER=somebody

[exception]
code            0xC0000005
name            access violation
flags           0x0
address         0x0000000140001020
place           child.exe+0x1020
access          write
access address  0x0000000000000010
parameters      0x1, 0x10

[registers]
rip 0x0000000140001020  rsp 0x000000000012FD40  rbp 0x0000000000006666  rax 0x0000000000001111
rbx 0x0000000000004444  rcx 0x0000000000002222  rdx 0x0000000000003333  rsi 0x0000000000007777
rdi 0x0000000000008888  r8  0x0000000000009999  r9  0x000000000000AAAA  r10 0x000000000000BBBB
r11 0x000000000000CCCC  r12 0x000000000000DDDD  r13 0x000000000000EEEE  r14 0x000000000000FFFF
r15 0x0000000000011110
eflags 0x10246  cs 0x33  ss 0x2B  ds 0x2B  es 0x2B  fs 0x53  gs 0x2B  mxcsr 0x1F80
context flags 0x10005F

[modules, 3]
              base                 end                linked       marker  name
0x0000000140000000  0x0000000140009000  2023-11-14T22:13:20Z          0x0  C:\kt5\child.exe
0x0000000180000000  0x0000000180020000  2020-09-13T12:26:40Z  0x180001230  C:\kt5\KT5X.dll
0x00007FF800000000  0x00007FF8001F0000  1970-01-01T00:00:01Z          0x0  C:\windows\system32\ntdll.dll

[library version]
major     4
minor     0
revision  5

[instructions, 64 bytes]
0x0000000140001000  90 91 92 93 94 95 96 90  91 92 93 94 95 96 90 91  ................
0x0000000140001010  92 93 94 95 96 90 91 92  93 94 95 96 90 91 92 93  ................
0x0000000140001020  94 95 96 90 91 92 93 94  95 96 90 91 92 93 94 95  ................
0x0000000140001030  96 90 91 92 93 94 95 96  90 91 92 93 94 95 96 90  ................

[walk]
frames  3
end     no return address

[frames, 3]
                pc              return               frame               stack  place
0x0000000140001020  0x0000000180002345  0x000000000012FD60  0x000000000012FD40  child.exe+0x1020
0x0000000180002345  0x00007FF800001000  0x000000000012FDA0  0x000000000012FD80  KT5X.dll+0x2345
0x00007FF800001000  0x0000000000000000  0x000000000012FDE0  0x000000000012FDC0  ntdll.dll+0x1000

[stack, 8192 bytes]
0x000000000012FD40  20 10 00 40 01 00 00 00  21 11 01 41 02 01 01 01   ..@....!..A....
)";

constexpr std::string_view kEnd = R"(
[sections, 9]
offset  bytes  name
   0x0    392  header
 0x188    260  system
 0x28C     70  environment
 0x2D2    152  exception
 0x36A   1232  context
 0x83A    912  modules
 0xBCA      8  library version
 0xBD2   9056  stack
0x2F32    920  module section

[problems, 0]
)";

}  // namespace

TEST(TrapShow, TextHasAParagraphForEverySection) {
  const std::string text = textOf(document(TrapParts()));
  EXPECT_EQ(text.substr(0, kText.size()), kText);
  EXPECT_THAT(text, HasSubstr("\n496 more lines; --full shows them\n\n[module section, 3]\n"));
  EXPECT_EQ(text.substr(text.size() - kEnd.size()), kEnd);
}

TEST(TrapShow, FullTextHasTheRestOfEachRecord) {
  const Json trap = document(TrapParts());
  const std::string text = textOf(trap, true);
  EXPECT_THAT(text, HasSubstr("dr0 0x00000000000000D0"));
  EXPECT_THAT(text, HasSubstr("xmm0 0x00000000000066660000000000005555"));
  EXPECT_THAT(text, HasSubstr("0x00000000000000A0, 0x00000000000000A1, 0x00000000000000A2, "));
  EXPECT_THAT(text, HasSubstr("\n0x0000000000131D30  "));
  EXPECT_THAT(textOf(trap), Not(HasSubstr("xmm0")));
}

TEST(TrapShow, JsonHasEveryValue) {
  const Json trap = Json::parse(document(TrapParts()).dump());
  std::vector<std::string> keys;
  for (const auto& member : trap.items()) keys.push_back(member.key());
  EXPECT_THAT(keys,
              testing::ElementsAre("header", "system", "memory", "environment", "exception",
                                   "registers", "modules", "libraryVersion", "instructions", "walk",
                                   "frames", "stack", "moduleSection", "sections", "problems"));
  EXPECT_EQ(trap["header"]["process"], 4242);
  EXPECT_EQ(trap["header"]["contents"].size(), 7u);
  EXPECT_EQ(trap["memory"]["addressesFree"], uint64_t{6} << 30);
  EXPECT_EQ(trap["exception"]["parameters"], Json({"0x1", "0x10"}));
  EXPECT_EQ(trap["registers"]["rip"], "0x0000000140001020");
  EXPECT_EQ(trap["registers"]["xmm0"], "0x00000000000066660000000000005555");
  EXPECT_EQ(trap["modules"][1]["marker"], "0x180001230");
  EXPECT_EQ(trap["frames"][1]["place"], "KT5X.dll+0x2345");
  EXPECT_EQ(trap["frames"][1]["parameters"][3], "0x00000000000000A3");
  EXPECT_EQ(trap["walk"]["end"], "no return address");
  EXPECT_EQ(trap["stack"]["words"], 1024);
  EXPECT_EQ(trap["stack"]["bytes"].get<std::string>().size(), 2u * 8192);
  EXPECT_EQ(trap["stack"]["bytes"].get<std::string>().substr(16, 16), "2111014102010101");
  EXPECT_EQ(trap["problems"], Json::array());
}

TEST(TrapShow, ExceptionsHaveNames) {
  const auto exception = [](uint32_t code, uint64_t first) {
    TrapParts parts;
    put<uint32_t>(parts.exception, 0, code);
    put<uint64_t>(parts.exception, 32, first);
    return document(parts)["exception"];
  };
  EXPECT_EQ(exception(0xC0000005, 0)["access"], "read");
  EXPECT_EQ(exception(0xC0000005, 8)["access"], "execute");
  EXPECT_EQ(exception(0xC0000005, 5)["access"], "unknown");
  EXPECT_EQ(exception(0xC0000006, 1)["name"], "in-page error");
  EXPECT_EQ(exception(0xC0000094, 1)["name"], "integer divide by zero");
  EXPECT_FALSE(exception(0xC0000094, 1).contains("access"));
  EXPECT_EQ(exception(0xC000001D, 1)["name"], "illegal instruction");
  EXPECT_FALSE(exception(0xC0001234, 1).contains("name"));
}

TEST(TrapShow, ForeignBytesAreTextAndSteerNothing) {
  TrapParts parts;
  parts.environment = trapString(
                          "NAME=\xDC"
                          "ber\x1B[2J\x9B") +
                      trapString("**L*E*R*M**");
  const Json trap = document(parts);
  EXPECT_EQ(trap["environment"][0],
            "NAME=\xC3\x9C"
            "ber\x1B[2J\xC2\x9B");
  EXPECT_THAT(textOf(trap), HasSubstr("\nNAME=\xC3\x9C"
                                      "ber.[2J.\n"));
  EXPECT_EQ(Json::parse(trap.dump()), trap);
}

TEST(TrapShow, WhatIsCutOffIsLeftOut) {
  TrapParts parts;
  const std::string file = parts.whole();
  Json trap = describe(*readTrapFile(file.substr(0, 100)));
  EXPECT_EQ(trap["header"]["thread"], 17);
  EXPECT_FALSE(trap["header"].contains("executable"));
  EXPECT_EQ(trap["problems"][0], "at 0x64: the file is cut off in the header");

  trap = describe(*readTrapFile(file.substr(0, file.find(parts.exception) + 40)));
  EXPECT_EQ(trap["exception"]["parameters"], Json({"0x1"}));
  EXPECT_FALSE(trap["exception"].contains("access"));

  trap = describe(*readTrapFile(file.substr(0, file.find(parts.frames) + 264 + 40)));
  EXPECT_EQ(trap["walk"]["end"], "the file is cut off");
  EXPECT_EQ(trap["frames"][1]["return"], "0x00007FF800001000");
  EXPECT_THAT(textOf(trap),
              HasSubstr("0x0000000180002345  0x00007FF800001000                   -"));
}

// Whatever the bytes: the JSON parses, and the text is printable.
TEST(TrapShow, DamagedFilesAreShownAsPrintableText) {
  std::mt19937_64 random(20040702);
  const std::string whole = TrapParts().whole();
  for (int round = 0; round < 100; ++round) {
    std::string file = whole;
    for (uint64_t i = random() % 200; i > 0; --i)
      file[8 + random() % 4000] = static_cast<char>(random());
    file.resize(400 + random() % (file.size() - 400));
    const Json trap = describe(*readTrapFile(file));
    EXPECT_EQ(Json::parse(trap.dump()), trap);
    const std::string text = textOf(trap, round % 2 == 0);
    EXPECT_TRUE(std::all_of(text.begin(), text.end(), [](char c) {
      return c == '\n' || static_cast<unsigned char>(c) >= ' ';
    }));
  }
}
