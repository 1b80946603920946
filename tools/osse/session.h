// session.h - what the commands that read a dump have in common: the dump, the output, and that
// both are whole at the end.
#pragma once

#include <string>

#include "commands.h"
#include "dumpfile.h"
#include "names.h"
#include "osscatalog.h"
#include "output.h"
#include "terminal.h"

namespace oss::tool {

class Session {
 public:
  Session() : output(&OutputFile::sink, &file_) {}

  // Opens both. The output is created only when the dump is one, also one that is cut off, which is
  // told. \return false, with a complaint
  bool open(const std::string& dumpPath, const std::string& outputPath) {
    if (const OSSErr rc = dump.open(dumpPath)) {
      refuse(dumpPath, rc);
      return false;
    }
    if (const std::string missing = dump.missing(); !missing.empty())
      complain(dumpPath + ": is cut off, it lacks " + missing);
    return file_.open(outputPath, dumpPath);
  }

  // \return the exit code
  int close() { return finish(output); }

  // Calls `use` for each record of the dump.
  template <class Use>
  void forEach(Use&& use) {
    Progress progress;
    while (!output.failed() && dump.next()) {
      use();
      progress.step();
    }
  }

  DumpFile dump;
  Names names;
  Output output;

 private:
  void refuse(const std::string& dumpPath, OSSErr rc) {
    if (rc != ECF_GTRACE_DUMP_FILE_INVALID_EYE_CATCHER)
      complain(dumpPath, rc);
    else if (dump.isTrapFile())
      complain(dumpPath + ": is a trap file; see osse trap");
    else
      complain(dumpPath + ": is no trace dump", rc);
  }

  OutputFile file_;
};

// The table of a function-count dump.
void writeCountsOf(Session& session);

}  // namespace oss::tool
