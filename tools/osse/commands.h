// commands.h - the subcommands of `osse`, as main.cpp calls them: each does its work, says
// what went wrong on standard error, and returns the exit code.
#pragma once

#include <cstdint>
#include <string>

namespace oss::tool {

inline constexpr int kDone = 0;
inline constexpr int kFailed = 1;    // the file, the section or the system refuses
inline constexpr int kBadUsage = 2;  // the command line does

struct InfoCommand {
  bool json = false;
  std::string output;
  int run() const;
};

// ---- osse trace ----

struct FormatCommand {
  std::string file;
  std::string output;
  bool flow = false;
  int run() const;
};

struct StatsCommand {
  std::string file;
  std::string output;
  int run() const;
};

struct ExportCommand {
  enum class Form { Perfetto, Chrome, Folded };

  std::string file;
  std::string output;
  Form form = Form::Perfetto;
  int run() const;
};

struct IpcCommand {
  std::string path;
  int32_t number = 0;
  bool local = false;
  bool json = false;
  std::string output;
  int run() const;
};

struct DumpCommand {
  std::string section;
  std::string file;
  bool follow = false;
  uint64_t ringBytes = 0;  // 0: the file grows
  int run() const;
};

// ---- osse trap ----

struct TrapShowCommand {
  std::string file;
  std::string output;
  bool json = false;
  bool full = false;  // of the text; JSON always has all
  uint64_t dump = 0;  // of a file with several, from 1 on; 0 is the last
  int run() const;
};

struct TrapExportCommand {
  std::string file;
  std::string minidump;  // the file to write
  uint64_t dump = 0;     // as above
  int run() const;
};

}  // namespace oss::tool
