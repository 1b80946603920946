// `osse info`: what the machine tells of itself.
#include "commands.h"
#include "machinereport.h"
#include "terminal.h"

namespace oss::tool {

int InfoCommand::run() const {
  const MachineReport report = askMachine();
  OutputFile file;
  if (!file.open(output)) return kFailed;
  Output text(&OutputFile::sink, &file);
  if (json)
    writeJson(report, text);
  else
    writeTable(report, text);
  return finish(text);
}

}  // namespace oss::tool
