// Names of kernel objects as text.
#include "ipc/ossipcname.h"

#include <gtest/gtest.h>

#include <cstring>
#include <limits>
#include <string>

using namespace oss;

namespace {

constexpr int32_t kLeast = std::numeric_limits<int32_t>::min();
constexpr int32_t kGreatest = std::numeric_limits<int32_t>::max();
constexpr char kStale = '\x5A';

// The whole buffer after a name was formed in it.
struct Formed {
  explicit Formed(const std::string& path, int32_t projectID = 7,
                  NameScope scope = NameScope::Session) {
    std::memset(bytes, kStale, sizeof bytes);
    formIPCName(path.c_str(), projectID, scope, bytes);
  }

  std::string name() const { return bytes; }
  std::string rest() const {
    const size_t used = name().size() + 1;
    return {bytes + used, sizeof bytes - used};
  }

  char bytes[kIPCNameBytes];
};

std::string nameOf(const std::string& path, int32_t projectID = 7,
                   NameScope scope = NameScope::Session) {
  return Formed(path, projectID, scope).name();
}

TEST(IPCName, IsThePrefixTheNumberAndThePath) {
  EXPECT_EQ(nameOf("data"), "OSSEIPC7data");
  EXPECT_EQ(nameOf("data", 7, NameScope::Global), "Global\\OSSEIPC7data");
}

TEST(IPCName, DropsEveryColonAndBackslashOfThePathAndNothingElse) {
  EXPECT_EQ(nameOf("C:\\data\\inst1"), "OSSEIPC7Cdatainst1");
  EXPECT_EQ(nameOf("\\\\server\\share\\"), "OSSEIPC7servershare");
  EXPECT_EQ(nameOf(":\\:\\"), "OSSEIPC7");
  EXPECT_EQ(nameOf("C:"), "OSSEIPC7C");
  EXPECT_EQ(nameOf("C:/a b/c.d/"), "OSSEIPC7C/a b/c.d/");
  EXPECT_EQ(nameOf("%d%s"), "OSSEIPC7%d%s");
}

TEST(IPCName, KeepsBytesAbove127AndControlCharacters) {
  std::string path;
  for (int byte = 1; byte < 256; ++byte)
    if (byte != ':' && byte != '\\') path += static_cast<char>(byte);
  EXPECT_EQ(path.size(), 253u);
  EXPECT_EQ(nameOf(path), "OSSEIPC7" + path);
}

TEST(IPCName, PrintsTheNumberWithItsSign) {
  EXPECT_EQ(nameOf("p", 0), "OSSEIPC0p");
  EXPECT_EQ(nameOf("p", -3), "OSSEIPC-3p");
  EXPECT_EQ(nameOf("p", kGreatest), "OSSEIPC2147483647p");
  EXPECT_EQ(nameOf("p", kLeast, NameScope::Global), "Global\\OSSEIPC-2147483648p");
}

// Nothing stands between the two.
TEST(IPCName, OfANumberAndAPathThatBeginsWithADigitCollides) {
  EXPECT_EQ(nameOf("1a", 1), nameOf("a", 11));
}

TEST(IPCName, IsCutAt261Characters) {
  const std::string prefix = "OSSEIPC7";
  for (const size_t length : {0u, 1u, 252u, 253u, 254u, 260u, 261u, 300u, 70'000u}) {
    const std::string path(length, 'p');
    const std::string whole = prefix + path;
    EXPECT_EQ(nameOf(path), whole.substr(0, 261)) << length;
  }
  EXPECT_EQ(nameOf(std::string(300, 'p')).size(), 261u);
  EXPECT_EQ(nameOf(std::string(300, 'p'), kLeast, NameScope::Global).size(), 261u);
}

TEST(IPCName, WhatIsDroppedDoesNotCount) {
  const std::string path = std::string(300, '\\') + std::string(253, 'p') + ":\\q";
  EXPECT_EQ(nameOf(path), "OSSEIPC7" + std::string(253, 'p'));
}

TEST(IPCName, LeavesTheBytesBehindItsNULAlone) {
  const std::string stale(264, kStale);
  EXPECT_EQ(Formed("").rest(), stale.substr(0, 264 - 9));
  EXPECT_EQ(Formed("abc").rest(), stale.substr(0, 264 - 12));
  EXPECT_EQ(Formed(std::string(300, 'p')).rest(), stale.substr(0, 2));
}

}  // namespace
