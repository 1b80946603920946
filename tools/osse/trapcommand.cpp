// `osse trap show` and `osse trap export`: a trap file for people, programs and debuggers.
#include "commands.h"
#include "output.h"
#include "terminal.h"
#include "trap/minidump.h"
#include "trap/showtext.h"

namespace oss::tool {
namespace {

// \param number  of the dump; 0 is the last
// \return nothing, with a complaint, when there is no trap file to be read, or no such dump in it
std::optional<TrapFile> open(const std::string& path, uint64_t number) {
  std::string bytes;
  if (!readInput(path, kLargestTrapFile, bytes)) return std::nullopt;
  if (bytes.size() == kLargestTrapFile) complain(path + ": only its first 16 MiB are read");
  std::optional<TrapFile> trap = readTrapFile(bytes, number == 0 ? kLastDump : number);
  if (!trap) {
    complain(path + ": is no trap file, the eye-catcher " + OSS_TRAP_EYE_CATCHER + " is missing");
    return trap;
  }
  const std::string dumps = std::to_string(trap->dumps);
  if (number > trap->dumps) {
    complain(path + ": holds no dump " + std::to_string(number) + ", the last is " + dumps);
    return std::nullopt;
  }
  if (number == 0 && trap->dumps > 1)
    complain(path + ": holds " + dumps + " dumps, and this is the last; see --dump");
  if (const auto& problems = trap->problems; !problems.empty())
    complain(path + ": is damaged or cut off" +
             (problems.size() == 1
                  ? ""
                  : ", " + std::to_string(problems.size()) + " problems; the first is") +
             " " + problems.front());
  return trap;
}

}  // namespace

int TrapShowCommand::run() const {
  const std::optional<TrapFile> trap = open(file, dump);
  OutputFile target;
  if (!trap || !target.open(output, file)) return kFailed;
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
  const std::optional<TrapFile> trap = open(file, dump);
  if (!trap) return kFailed;
  for (const std::string& missing : missingInMinidump(*trap))
    complain(file + ": does not have " + missing);
  const std::string bytes = minidumpOf(*trap);
  OutputFile target;
  if (!target.open(minidump, file)) return kFailed;
  if (target.write(bytes.data(), bytes.size())) return kDone;
  complain(minidump + ": could not be written");
  return kFailed;
}

}  // namespace oss::tool
