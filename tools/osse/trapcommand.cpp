// `osse trap show` and `osse trap export`: a trap file for people, programs and debuggers.
#include "commands.h"
#include "output.h"
#include "terminal.h"
#include "trap/minidump.h"
#include "trap/showtext.h"

namespace oss::tool {
namespace {

// \return nothing, with a complaint, when there is no trap file to be read
std::optional<TrapFile> open(const std::string& path) {
  std::string bytes;
  if (!readInput(path, kLargestTrapFile, bytes)) return std::nullopt;
  if (bytes.size() == kLargestTrapFile) complain(path + ": only its first 16 MiB are read");
  std::optional<TrapFile> trap = readTrapFile(bytes);
  if (!trap) {
    complain(path + ": is no trap file, the eye-catcher " + OSS_TRAP_EYE_CATCHER + " is missing");
  } else if (!trap->problems.empty()) {
    complain(path + ": is damaged or cut off, " + std::to_string(trap->problems.size()) +
             " problems; the first is " + trap->problems.front());
  }
  return trap;
}

}  // namespace

int TrapShowCommand::run() const {
  const std::optional<TrapFile> trap = open(file);
  OutputFile target;
  if (!trap || !target.open(output)) return kFailed;
  Output text(&OutputFile::sink, &target);
  const TrapDocument document = describe(*trap);
  if (json)
    text.write(document.dump(2) + "\n");
  else
    writeText(document, full, text);
  if (text.flush()) return kDone;
  complain("the output could not be written");
  return kFailed;
}

int TrapExportCommand::run() const {
  const std::optional<TrapFile> trap = open(file);
  if (!trap) return kFailed;
  for (const std::string& missing : missingInMinidump(*trap))
    complain(file + ": does not have " + missing + ", nor will the minidump");
  const std::string bytes = minidumpOf(*trap);
  OutputFile target;
  if (!target.open(minidump)) return kFailed;
  if (target.write(bytes.data(), bytes.size())) return kDone;
  complain(minidump + ": could not be written");
  return kFailed;
}

}  // namespace oss::tool
