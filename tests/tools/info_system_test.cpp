// `osse info` on this machine.
#include <gmock/gmock.h>
#include <windows.h>

#include <cstdlib>
#include <nlohmann/json.hpp>

#include "commands.h"
#include "harness/importhook.h"
#include "harness/tempdir.h"
#include "osscatalog.h"

using namespace osse_test;
using oss::tool::InfoCommand;
using testing::HasSubstr;

namespace {

std::string written(bool json) {
  const TempDirectory dir;
  const InfoCommand command = {.json = json, .output = dir.file("output")};
  EXPECT_EQ(command.run(), oss::tool::kDone);
  return readFile(dir.file("output"));
}

class MachineInfo : public testing::Test {
 protected:
  // The object of a fact.
  static nlohmann::json factIn(const nlohmann::json& document, const std::string& group,
                               const std::string& name) {
    EXPECT_TRUE(document.contains(group)) << group;
    EXPECT_TRUE(document.value(group, nlohmann::json::object()).contains(name)) << name;
    return document.at(group).at(name);
  }
};

TEST_F(MachineInfo, AgreesWithWhatTheSystemTells) {
  const auto document = nlohmann::json::parse(written(true));
  SYSTEM_INFO system;
  ::GetSystemInfo(&system);
  EXPECT_EQ(factIn(document, "processors", "online"),
            (nlohmann::json{{"value", system.dwNumberOfProcessors}, {"status", "OK"}}));
  EXPECT_EQ(factIn(document, "operating system", "computer name"),
            (nlohmann::json{{"value", std::getenv("COMPUTERNAME")}, {"status", "OK"}}));
  EXPECT_EQ(factIn(document, "operating system", "build"),
            (nlohmann::json{{"value", nullptr}, {"status", "ECF_NOT_SUPPORTED"}}));
  EXPECT_EQ(factIn(document, "memory", "physical total").at("unit"), "MiB");
  EXPECT_EQ(factIn(document, "user", "name").at("value"), std::getenv("USERNAME"));
  EXPECT_EQ(factIn(document, "drive C:\\", "file system").at("value"), "NTFS");
  EXPECT_EQ(factIn(document, "drive C:\\", "drive type").at("value"), "stationary");
  EXPECT_EQ(document.at("kernel limits").size(), 22u);
}

// Both forms tell the same facts in the same order.
TEST_F(MachineInfo, TheTableHasALineForEachValue) {
  const auto document = nlohmann::ordered_json::parse(written(true));
  const std::string table = written(false);
  size_t at = 0;
  for (const auto& [group, facts] : document.items()) {
    at = table.find(group + '\n', at);
    ASSERT_NE(at, std::string::npos) << group;
    for (const auto& [name, fact] : facts.items()) {
      at = table.find("\n  " + name + "  ", at);
      ASSERT_NE(at, std::string::npos) << name;
      const std::string line = table.substr(at + 1, table.find('\n', at + 1) - at - 1);
      EXPECT_THAT(line, testing::EndsWith("  " + fact.at("status").get<std::string>()));
    }
  }
}

TEST_F(MachineInfo, WhatIsRefusedCarriesItsCode) {
  FailingCall name("GetUserNameA", ERROR_ACCESS_DENIED);
  FailingCall drives("GetLogicalDriveStringsA", ERROR_ACCESS_DENIED);
  const auto document = nlohmann::json::parse(written(true));
  const nlohmann::json refused = {{"value", nullptr}, {"status", "ECF_ACCESS_DENIED"}};
  EXPECT_EQ(factIn(document, "user", "name"), refused);
  EXPECT_EQ(factIn(document, "drives", "roots"), refused);
}

TEST_F(MachineInfo, AnOutputThatCannotBeWrittenFails) {
  const TempDirectory dir;
  const InfoCommand command = {.json = false, .output = dir.file("missing\\output")};
  EXPECT_EQ(command.run(), oss::tool::kFailed);
}

}  // namespace
