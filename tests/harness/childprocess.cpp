#include "harness/childprocess.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <string_view>

namespace osse_test {
namespace {

constexpr DWORD kPatienceMilliseconds = 240'000;
constexpr std::string_view kRoleOption = "--child=";

// Every child belongs to one job, whose end ends them all: the system closes the job's only handle
// when this process ends, however it ends.
HANDLE job() {
  static const HANDLE theJob = [] {
    const HANDLE created = ::CreateJobObjectA(nullptr, nullptr);
    JOBOBJECT_EXTENDED_LIMIT_INFORMATION limits = {};
    limits.BasicLimitInformation.LimitFlags = JOB_OBJECT_LIMIT_KILL_ON_JOB_CLOSE;
    EXPECT_TRUE(::SetInformationJobObject(created, JobObjectExtendedLimitInformation, &limits,
                                          sizeof limits));
    return created;
  }();
  return theJob;
}

std::string commandLineOf(const std::string& role, const ChildArguments& arguments) {
  char program[MAX_PATH + 1] = {};
  ::GetModuleFileNameA(nullptr, program, MAX_PATH);
  std::string line = '"' + std::string(program) + "\" " + std::string(kRoleOption) + role;
  for (const std::string& argument : arguments) {
    EXPECT_EQ(argument.find('"'), std::string::npos) << argument;
    EXPECT_FALSE(argument.ends_with('\\')) << argument;
    line += " \"" + argument + '"';
  }
  return line;
}

// The parent's environment with the additions, as the system takes it: NAME=value texts, each with
// its NUL, and one more NUL.
std::string environmentOf(const std::map<std::string, std::string>& additions) {
  std::string block;
  char* const strings = ::GetEnvironmentStringsA();
  for (const char* text = strings; *text != '\0'; text += std::string_view(text).size() + 1) {
    // The first character may be an equals sign that belongs to the name.
    const std::string_view variable = text;
    const std::string name(variable.substr(0, variable.find('=', 1)));
    if (!additions.contains(name)) block.append(variable) += '\0';
  }
  ::FreeEnvironmentStringsA(strings);
  for (const auto& [name, value] : additions) block.append(name + '=' + value) += '\0';
  return block + '\0';
}

// A file that a child can inherit as its standard output; all ones when there is none.
HANDLE openOutput(const std::string& path) {
  if (path.empty()) return INVALID_HANDLE_VALUE;
  SECURITY_ATTRIBUTES inheritable = {sizeof inheritable, nullptr, TRUE};
  const HANDLE file = ::CreateFileA(path.c_str(), GENERIC_WRITE, FILE_SHARE_READ, &inheritable,
                                    CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
  EXPECT_NE(file, INVALID_HANDLE_VALUE) << path;
  return file;
}

std::map<std::string, ChildRole, std::less<>>& roles() {
  static std::map<std::string, ChildRole, std::less<>> all;
  return all;
}

}  // namespace

Child::Child(Child&& other) noexcept
    : process_(std::exchange(other.process_, nullptr)), role_(std::move(other.role_)) {}

Child::~Child() {
  if (process_ == nullptr) return;
  kill();
  ::CloseHandle(process_);
}

uint32_t Child::wait() {
  if (::WaitForSingleObject(process_, kPatienceMilliseconds) != WAIT_OBJECT_0) {
    ADD_FAILURE() << "the child " << role_ << " does not end";
    kill();
  }
  DWORD exitCode = STILL_ACTIVE;
  ::GetExitCodeProcess(process_, &exitCode);
  return exitCode;
}

void Child::kill() {
  ::TerminateProcess(process_, kExpectationFailed);
  ::WaitForSingleObject(process_, kPatienceMilliseconds);
}

Child startChild(const std::string& role, const std::vector<std::string>& arguments,
                 const ChildOptions& options) {
  std::string commandLine = commandLineOf(role, arguments);
  std::string environment = environmentOf(options.environment);
  const HANDLE output = openOutput(options.outputFile);
  STARTUPINFOA start = {};
  start.cb = sizeof start;
  if (output != INVALID_HANDLE_VALUE) {
    start.dwFlags = STARTF_USESTDHANDLES;
    start.hStdInput = INVALID_HANDLE_VALUE;
    start.hStdOutput = start.hStdError = output;
  }

  // It starts suspended, so that it belongs to the job before it can do anything.
  PROCESS_INFORMATION created = {};
  const BOOL started = ::CreateProcessA(
      nullptr, commandLine.data(), nullptr, nullptr, output != INVALID_HANDLE_VALUE,
      CREATE_SUSPENDED, environment.data(),
      options.directory.empty() ? nullptr : options.directory.c_str(), &start, &created);
  EXPECT_TRUE(started) << commandLine << ": error " << ::GetLastError();
  if (output != INVALID_HANDLE_VALUE) ::CloseHandle(output);
  if (!started) return Child(nullptr, role);

  EXPECT_TRUE(::AssignProcessToJobObject(job(), created.hProcess));
  ::ResumeThread(created.hThread);
  ::CloseHandle(created.hThread);
  return Child(created.hProcess, role);
}

uint32_t runChild(const std::string& role, const std::vector<std::string>& arguments,
                  const ChildOptions& options) {
  return startChild(role, arguments, options).wait();
}

ChildRoleRegistration::ChildRoleRegistration(const char* name, ChildRole role) {
  if (!roles().emplace(name, role).second) {
    std::fprintf(stderr, "two child roles are named %s\n", name);
    std::abort();
  }
}

bool playChildRole(int argc, char** argv, int* exitCode) {
  if (argc < 2 || !std::string_view(argv[1]).starts_with(kRoleOption)) return false;
  const auto role = roles().find(std::string_view(argv[1]).substr(kRoleOption.size()));
  if (role == roles().end()) {
    std::fprintf(stderr, "no child role: %s\n", argv[1]);
    *exitCode = kExpectationFailed;
    return true;
  }

  *exitCode = role->second(ChildArguments(argv + 2, argv + argc));
  if (testing::UnitTest::GetInstance()->ad_hoc_test_result().Failed())
    *exitCode = kExpectationFailed;
  return true;
}

}  // namespace osse_test
