// `osse info` on this machine.
#include <gmock/gmock.h>
#include <windows.h>

#include <cstdlib>
#include <cstring>
#include <nlohmann/json.hpp>
#include <regex>

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
  char fileSystem[MAX_PATH] = {};
  EXPECT_TRUE(::GetVolumeInformationA("C:\\", nullptr, 0, nullptr, nullptr, nullptr, fileSystem,
                                      sizeof fileSystem));
  EXPECT_EQ(factIn(document, "drive C:\\", "file system").at("value"), fileSystem);
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

// What the system tells in its code page comes back from the text unharmed.
TEST_F(MachineInfo, TextsAreUtf8InBothForms) {
  ImportHook name("GetUserNameA", [](Call& call) {
    std::memcpy(call.argument<char*>(0), "J\xFCrgen", 7);
    *call.argument<DWORD*>(1) = 7;
    return TRUE;
  });
  const std::string told = factIn(nlohmann::json::parse(written(true)), "user", "name")["value"];
  wchar_t wide[20] = {};
  char ansi[20] = {};
  ASSERT_NE(::MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, told.c_str(), -1, wide, 20), 0);
  ASSERT_NE(::WideCharToMultiByte(CP_ACP, 0, wide, -1, ansi, 20, nullptr, nullptr), 0);
  EXPECT_STREQ(ansi, "J\xFCrgen");
  EXPECT_THAT(written(false), HasSubstr(told));
}

// ---- A machine with the drive C: alone ----

// Only what the test refuses keeps it from telling all of its drive.
class OneDrive : public MachineInfo {
 protected:
  // The lines of the drive in the table; of the blanks that pad a column two are left.
  static std::string driveInTable() {
    const std::string table = written(false);
    const size_t start = table.find(std::string(kDrive) + '\n');
    EXPECT_NE(start, std::string::npos);
    const std::string padded = table.substr(start, table.find("\n\n", start) + 1 - start);
    return std::regex_replace(padded, std::regex(" {3,}"), "  ");
  }
  static std::string driveInJson() {
    return nlohmann::ordered_json::parse(written(true)).at(kDrive).dump();
  }

  static constexpr const char* kDrive = "drive C:\\";

 private:
  ImportHook strings_{"GetLogicalDriveStringsA", [](Call& call) {
                        constexpr char kRoots[] = "C:\\\0";
                        std::memcpy(call.argument<char*>(1), kRoots, sizeof kRoots);
                        return sizeof kRoots - 2;
                      }};
  ImportHook space_{"GetDiskFreeSpaceExA", [](Call& call) {
                      call.argument<ULARGE_INTEGER*>(2)->QuadPart = 5 << 20;
                      call.argument<ULARGE_INTEGER*>(3)->QuadPart = 3 << 20;
                      return TRUE;
                    }};
};

// The listing and the disk are both asked for the volume.
TEST_F(OneDrive, AVolumeThatIsRefusedLeavesTheDriveWithItsType) {
  ImportHook volume("GetVolumeInformationA", [](Call&) {
    ::SetLastError(ERROR_ACCESS_DENIED);
    return FALSE;
  });
  EXPECT_EQ(driveInTable(),
            "drive C:\\\n"
            "  volume  -  ECF_ACCESS_DENIED\n"
            "  file system  -  ECF_ACCESS_DENIED\n"
            "  total  -  ECF_ACCESS_DENIED\n"
            "  free  -  ECF_ACCESS_DENIED\n"
            "  serial number  -  ECF_FAILED\n"
            "  drive type  stationary  OK\n");
  EXPECT_EQ(driveInJson(), R"({"volume":{"value":null,"status":"ECF_ACCESS_DENIED"},)"
                           R"("file system":{"value":null,"status":"ECF_ACCESS_DENIED"},)"
                           R"("total":{"value":null,"unit":"MiB","status":"ECF_ACCESS_DENIED"},)"
                           R"("free":{"value":null,"unit":"MiB","status":"ECF_ACCESS_DENIED"},)"
                           R"("serial number":{"value":null,"status":"ECF_FAILED"},)"
                           R"("drive type":{"value":"stationary","status":"OK"}})");
}

BOOL WINAPI refuseName(const char*, char*, DWORD) {
  ::SetLastError(ERROR_NOT_READY);
  return FALSE;
}

// What the listing tells is told; what hangs on the name of the volume is not.
TEST_F(OneDrive, AMountedVolumeWhoseNameIsRefusedHasNeitherSerialNumberNorType) {
  ImportHook volume("GetVolumeInformationA", [](Call& call) {
    std::strcpy(call.argument<char*>(1), "System");
    std::strcpy(call.argument<char*>(6), "NTFS");
    return TRUE;
  });
  ImportHook attributes("GetFileAttributesA", [](Call&) {
    return FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_REPARSE_POINT;
  });
  ImportHook lookUp("GetProcAddress", [](Call& call) -> void* {
    if (call.argument<const char*>(1) == std::string("GetVolumeNameForVolumeMountPointA"))
      return reinterpret_cast<void*>(&refuseName);
    return reinterpret_cast<void*>(call.passOn());
  });
  EXPECT_EQ(driveInTable(),
            "drive C:\\\n"
            "  volume  System  OK\n"
            "  file system  NTFS  OK\n"
            "  total  5 MiB  OK\n"
            "  free  3 MiB  OK\n"
            "  serial number  -  ECF_FAILED\n"
            "  drive type  -  ECF_FAILED\n");
  EXPECT_EQ(driveInJson(), R"({"volume":{"value":"System","status":"OK"},)"
                           R"("file system":{"value":"NTFS","status":"OK"},)"
                           R"("total":{"value":5,"unit":"MiB","status":"OK"},)"
                           R"("free":{"value":3,"unit":"MiB","status":"OK"},)"
                           R"("serial number":{"value":null,"status":"ECF_FAILED"},)"
                           R"("drive type":{"value":null,"status":"ECF_FAILED"}})");
}

}  // namespace
