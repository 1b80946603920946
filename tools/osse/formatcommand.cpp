// `osse trace format`: one line a record.
#include "flowtext.h"
#include "session.h"

namespace oss::tool {

int FormatCommand::run() const {
  Session session;
  if (!session.open(file, output)) return kFailed;
  DumpFile& dump = session.dump;
  if (dump.isCounts()) {
    writeCountsOf(session);
    return session.close();
  }

  RecordText text(session.output, session.names, dump.clock(), dump.hasStamps());
  if (flow) {
    Flow calls(dump.hasStamps());
    FlowText lines(text, dump.hasStamps());
    session.forEach([&] { calls.add(dump.record(), lines); });
    calls.finish(lines);
  } else {
    session.forEach([&] {
      text.write(dump.record(), 0);
      text.endLine();
    });
  }
  return session.close();
}

}  // namespace oss::tool
