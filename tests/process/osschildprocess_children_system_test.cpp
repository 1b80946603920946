// Starting other programs for real: the child is the test program itself in a role.
#include "process/osschildprocessfixture.h"

using namespace osse_test;
using namespace testing;
using namespace std::string_literals;

namespace {

CHILD_ROLE(exitWith) {
  ossProcessExit(static_cast<uint32_t>(std::stoul(arguments[0], nullptr, 0)));
}

TEST_F(OSSHProcessTest, ASynchronousCreateTellsTheExitCodeWhateverItIs) {
  for (const uint32_t code : {0u, 3u, 259u, 0xC0000005u}) {
    status_ = {1, 2, 3};
    processID_ = 0;
    EXPECT_EQ(createRole("exitWith", {std::to_string(code)}, kSynchronous), ECF_OK);
    EXPECT_EQ(status_.reserved0, 0u);
    EXPECT_EQ(status_.exitCode, code);
    EXPECT_EQ(status_.reserved2, 0u);
    EXPECT_NE(processID_, 0u);
    EXPECT_EQ(fieldsOf(process_), (ProcessFields{false, true, 2, INVALID_HANDLE_VALUE}));
  }
  EXPECT_EQ(log_.text(), "");
}

TEST_F(OSSHProcessTest, IdentifierAndStatusMayBeNull) {
  OSSProcessParam param;
  const std::string program = ownProgram(), list = roleList("exitWith", {"1"});
  param.program = program.c_str();
  param.arguments = list.c_str();
  param.flags = kSynchronous;
  EXPECT_EQ(process_.create(&param, nullptr, nullptr), ECF_OK);
}

CHILD_ROLE(writeCommandLine) {
  writeFile(arguments[0], ::GetCommandLineA());
  return static_cast<int>(arguments.size());
}

// The program lies in a folder with a blank, under a name with one.
TEST_F(OSSHProcessTest, AProgramWithBlanksSeesItsCommandLineAsItWasPutTogether) {
  TempDirectory dir;
  const std::string output = dir.file("output");
  const std::string folder = dir.file("with blank");
  ASSERT_TRUE(::CreateDirectoryA(folder.c_str(), nullptr));
  const std::string program = folder + "\\a b.exe";
  const std::string own = ownProgram();
  ASSERT_TRUE(::CopyFileA(own.c_str(), program.c_str(), TRUE));
  // The copy finds the library where the original does.
  char path[4096] = {};
  ::GetEnvironmentVariableA("PATH", path, sizeof path);
  ::SetEnvironmentVariableA("PATH", (own.substr(0, own.rfind('\\')) + ';' + path).c_str());

  // The child counts what reaches its main: an argument with a blank comes as two.
  EXPECT_EQ(create(program, roleList("writeCommandLine", {output, "x", "y z", "\"v w\""}), 2),
            ECF_OK);
  EXPECT_EQ(status_.exitCode, 5u);
  EXPECT_EQ(readFile(output),
            '"' + program + "\" --child=writeCommandLine " + output + " x y z \"v w\"");

  EXPECT_EQ(create('"' + program + "\" --child=writeCommandLine", listOf({output}), 2), ECF_OK);
  EXPECT_EQ(status_.exitCode, 1u);
  EXPECT_EQ(readFile(output), '"' + program + "\" --child=writeCommandLine " + output);
  ::SetEnvironmentVariableA("PATH", path);
  EXPECT_TRUE(::DeleteFileA(program.c_str()));
}

CHILD_ROLE(tellEnvironment) {
  char value[16] = {};
  ::GetEnvironmentVariableA("OSSE_TOLD", value, sizeof value);
  return value[0] != '\0' ? std::stoi(value) : 0;
}

TEST_F(OSSHProcessTest, AnEnvironmentBlockReplacesTheCallersWhichIsInheritedWithoutOne) {
  ::SetEnvironmentVariableA("OSSE_TOLD", "41");
  EXPECT_EQ(createRole("tellEnvironment", {}, kSynchronous), ECF_OK);
  EXPECT_EQ(status_.exitCode, 41u);

  char root[MAX_PATH] = {};
  ::GetEnvironmentVariableA("SystemRoot", root, sizeof root);
  const std::string block = "OSSE_TOLD=42\0SystemRoot="s + root + '\0';
  const std::string program = ownProgram(), list = roleList("tellEnvironment");
  OSSProcessParam param;
  param.program = program.c_str();
  param.arguments = list.c_str();
  param.environment = block.c_str();
  param.flags = kSynchronous;
  EXPECT_EQ(process_.create(&param, nullptr, &status_), ECF_OK);
  EXPECT_EQ(status_.exitCode, 42u);
  ::SetEnvironmentVariableA("OSSE_TOLD", nullptr);
}

CHILD_ROLE(setInheritedEvent) {
  return ::SetEvent(reinterpret_cast<HANDLE>(std::stoull(arguments[0]))) ? 1 : 0;
}

TEST_F(OSSHProcessTest, InheritableHandlesReachTheChildIfAskedFor) {
  SECURITY_ATTRIBUTES inheritable = {sizeof inheritable, nullptr, TRUE};
  const UniqueHandle event(::CreateEventA(&inheritable, TRUE, FALSE, nullptr));
  const std::string handle = std::to_string(reinterpret_cast<uint64_t>(event.get()));
  EXPECT_EQ(createRole("setInheritedEvent", {handle}, kSynchronous), ECF_OK);
  EXPECT_EQ(::WaitForSingleObject(event.get(), 0), DWORD{WAIT_TIMEOUT});
  EXPECT_EQ(createRole("setInheritedEvent", {handle}, kSynchronous | OSS_PROCESS_INHERIT), ECF_OK);
  EXPECT_EQ(::WaitForSingleObject(event.get(), 0), WAIT_OBJECT_0);
  EXPECT_EQ(status_.exitCode, 1u);
}

CHILD_ROLE(runUntilTold) {
  SharedBlock<uint32_t> id(arguments[0]);
  Event runs(arguments[1]), mayEnd(arguments[2]);
  *id = ossProcessID();
  runs.set();
  return mayEnd.wait() ? 6 : 7;
}

// The library has let go of it, and it runs on.
TEST_F(OSSHProcessTest, AChildOutlivesTheCreateThatLetsGoOfIt) {
  for (const uint64_t flags : {uint64_t{0}, OSS_PROCESS_DETACHED}) {
    SharedBlock<uint32_t> id;
    Event runs, mayEnd;
    EXPECT_EQ(createRole("runUntilTold", {id.name(), runs.name(), mayEnd.name()}, flags), ECF_OK);
    ASSERT_TRUE(runs.wait());
    EXPECT_EQ(*id, processID_);
    const UniqueHandle child(
        ::OpenProcess(SYNCHRONIZE | PROCESS_QUERY_INFORMATION, FALSE, processID_));
    ASSERT_NE(child, nullptr);
    EXPECT_EQ(::WaitForSingleObject(child.get(), 0), DWORD{WAIT_TIMEOUT});
    mayEnd.set();
    EXPECT_EQ(::WaitForSingleObject(child.get(), 120'000), WAIT_OBJECT_0);
    DWORD code = 0;
    EXPECT_TRUE(::GetExitCodeProcess(child.get(), &code));
    EXPECT_EQ(code, 6u);
  }
}

// The system's own program is the quickest to start.
TEST_F(OSSHProcessTest, ADozenChildrenLeaveNoHandleBehind) {
  const auto runOne = [this] { return create("cmd.exe", "/c\0exit 4\0"s, kSynchronous); };
  ASSERT_EQ(runOne(), ECF_OK);  // the first may leave handles of the system's own
  const size_t before = openHandles();
  for (int i = 0; i < 12; ++i) {
    ASSERT_EQ(runOne(), ECF_OK) << i;
    ASSERT_EQ(status_.exitCode, 4u);
  }
  EXPECT_EQ(openHandles(), before);
}

// ---- The calling process ----

TEST(OSSProcess, TheParentIsNotKnown) { EXPECT_EQ(ossProcessParentID(), 0xFFFFFFFF); }

}  // namespace
