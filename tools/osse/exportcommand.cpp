// `osse trace export`: a dump in the form of another tool.
#include "exportchrome.h"
#include "exportfolded.h"
#include "exportperfetto.h"
#include "session.h"

namespace oss::tool {
namespace {

template <class Visitor>
void walk(Session& session, Visitor& visitor) {
  Flow calls(session.dump.hasStamps());
  session.forEach([&] { calls.add(session.dump.record(), visitor); });
  calls.finish(visitor);
}

}  // namespace

int ExportCommand::run() const {
  Session session;
  if (!session.open(file, output)) return kFailed;
  DumpFile& dump = session.dump;
  if (dump.isCounts()) {
    complain(file + ": counts functions and holds no records; see osse trace format");
    return kFailed;
  }

  switch (form) {
    case Form::Perfetto: {
      PerfettoExport visitor(session.output, session.names, dump.clock());
      walk(session, visitor);
      break;
    }
    case Form::Chrome: {
      ChromeExport visitor(session.output, session.names, dump.clock());
      walk(session, visitor);
      visitor.finish(dump.hasStamps() ? "performance counter"
                                      : "numbers of records, for lack of stamps");
      break;
    }
    case Form::Folded: {
      FoldedExport visitor(session.output, session.names, dump.clock(), dump.hasStamps());
      walk(session, visitor);
      visitor.finish();
      break;
    }
  }
  if (!dump.hasStamps() && form != Form::Folded)
    complain("the records have no stamps: times are their numbers, in microseconds");
  return session.close();
}

}  // namespace oss::tool
