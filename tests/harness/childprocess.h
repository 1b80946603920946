// childprocess.h - a second process, played by the same test program.
//
//   CHILD_ROLE(holdLock) {
//     Event held(arguments[1]), done(arguments[2]);
//     ... lock arguments[0] ...
//     held.set();
//     return done.wait() ? 0 : 1;
//   }
//
//   TEST(...) {
//     Event held, done;
//     Child child = startChild("holdLock", {path, held.name(), done.name()});
//     ASSERT_TRUE(held.wait());
//     ...
//     done.set();
//     EXPECT_EQ(child.wait(), 0u);
//   }
//
// A role returns the exit code. It may use EXPECT_...: what fails there is printed, and the process
// ends with kExpectationFailed. A child never outlives its parent, nor the test that started it,
// and no wait is without an end.
#pragma once

#include <windows.h>

#include <map>
#include <string>
#include <utility>
#include <vector>

namespace osse_test {

inline constexpr uint32_t kExpectationFailed = 211;

struct ChildOptions {
  std::map<std::string, std::string> environment = {};  // added to the parent's
  std::string directory = {};                           // current directory; empty: the parent's
  std::string outputFile = {};  // receives standard output and error; empty: the parent's
};

class Child {
 public:
  Child(HANDLE process, std::string role) : process_(process), role_(std::move(role)) {}
  Child(Child&& other) noexcept;
  Child& operator=(Child&&) = delete;
  ~Child();

  // Signalled at the end; this object's.
  HANDLE handle() const { return process_; }

  // Waits for the end and returns the exit code. A child that does not end within four minutes
  // fails the test and is killed.
  uint32_t wait();

  // The system's identifier of the process.
  uint32_t id() const { return ::GetProcessId(process_); }

  // Ends the process at once, as a crash would: nothing of it runs any more.
  void kill();

 private:
  HANDLE process_;  // null when it could not be started
  std::string role_;
};

// Starts the test program in a role. Arguments hold no quotation marks and end in no backslash.
Child startChild(const std::string& role, const std::vector<std::string>& arguments = {},
                 const ChildOptions& options = {});

// Starts it, waits and returns its exit code.
uint32_t runChild(const std::string& role, const std::vector<std::string>& arguments = {},
                  const ChildOptions& options = {});

// ---- Roles ----

using ChildArguments = std::vector<std::string>;
using ChildRole = int (*)(const ChildArguments& arguments);

struct ChildRoleRegistration {
  ChildRoleRegistration(const char* name, ChildRole role);
};

// Declares a role. `arguments` are those of startChild.
#define CHILD_ROLE(name)                                                                  \
  static int name##Role(const ::osse_test::ChildArguments& arguments);                    \
  static const ::osse_test::ChildRoleRegistration name##Registration(#name, &name##Role); \
  static int name##Role([[maybe_unused]] const ::osse_test::ChildArguments& arguments)

// What main asks: true when the command line names a role, which then has run.
bool playChildRole(int argc, char** argv, int* exitCode);

}  // namespace osse_test
