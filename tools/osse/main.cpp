// osse - the program that controls the services of the library: the command line.
//
// Exit codes: 0 done, 1 refused (the reason is on standard error), 2 bad usage.
#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>

#include "commands.h"

using namespace oss::tool;

namespace {

void addOutput(CLI::App& command, std::string& output) {
  command.add_option("-o,--output", output, "write there instead of to standard output");
}

void addInfo(CLI::App& app, InfoCommand& info) {
  CLI::App* const command =
      app.add_subcommand("info", "show what the machine tells, each value with its status");
  command->add_flag("--json", info.json, "as JSON instead of as a table");
  addOutput(*command, info.output);
}

void addDump(CLI::App& trace, DumpCommand& dump) {
  CLI::App* const command =
      trace.add_subcommand("dump", "write what a traced program has recorded to a file");
  command->add_option("--section", dump.section, "the named section that holds the control block")
      ->required();
  command->add_option("FILE", dump.file, "the dump to write")->required();
  CLI::Option* const follow = command->add_flag(
      "--follow", dump.follow, "write chunks as they fill, until tracing is disabled or Ctrl+C");
  command
      ->add_option("--ring", dump.ringBytes,
                   "with --follow: keep the last BYTES, rounded up to chunks of 128 KiB")
      ->check(CLI::PositiveNumber)
      ->needs(follow);
}

void addFormat(CLI::App& trace, FormatCommand& format) {
  CLI::App* const command = trace.add_subcommand("format", "show a dump, a line for each record");
  command->add_option("FILE", format.file, "a dump")->required();
  command->add_flag("--flow", format.flow, "indent by the depth of calls, and show durations");
  addOutput(*command, format.output);
}

void addStats(CLI::App& trace, StatsCommand& stats) {
  CLI::App* const command =
      trace.add_subcommand("stats", "sum a dump up: functions, rejected slots, losses");
  command->add_option("FILE", stats.file, "a dump")->required();
  addOutput(*command, stats.output);
}

void addExport(CLI::App& trace, ExportCommand& exporting) {
  using Form = ExportCommand::Form;
  CLI::App* const command =
      trace.add_subcommand("export", "convert a dump for viewers of timelines and flame graphs");
  command->add_option("FILE", exporting.file, "a dump")->required();
  CLI::Option_group* const forms = command->add_option_group("form");
  forms->add_flag_callback(
      "--perfetto", [&exporting] { exporting.form = Form::Perfetto; }, "a Perfetto trace");
  forms->add_flag_callback(
      "--chrome", [&exporting] { exporting.form = Form::Chrome; }, "a Chrome trace, JSON");
  forms->add_flag_callback(
      "--folded", [&exporting] { exporting.form = Form::Folded; }, "folded stacks");
  forms->require_option(1);
  addOutput(*command, exporting.output);
}

void addIpc(CLI::App& app, IpcCommand& ipc) {
  CLI::App* const command = app.add_subcommand(
      "ipc", "the objects that a path and a number name, and the message queue among them");
  command->add_option("PATH", ipc.path, "the path that names were formed from")->required();
  command->add_option("NUMBER", ipc.number, "the number of the object, or of the queue's first")
      ->required();
  command->add_flag("--local", ipc.local, "the name was formed as a local one");
  command->add_flag("--json", ipc.json, "as JSON");
  addOutput(*command, ipc.output);
}

void addTrapShow(CLI::App& trap, TrapShowCommand& show) {
  CLI::App* const command = trap.add_subcommand("show", "show what a trap file holds");
  command->add_option("FILE", show.file, "a trap file")->required();
  CLI::Option* const json = command->add_flag("--json", show.json, "as one JSON document");
  command
      ->add_flag("--full", show.full,
                 "with the parameters of frames, vector registers and all of the stack")
      ->excludes(json);
  addOutput(*command, show.output);
}

void addTrapExport(CLI::App& trap, TrapExportCommand& exporting) {
  CLI::App* const command = trap.add_subcommand("export", "convert a trap file for debuggers");
  command->add_option("FILE", exporting.file, "a trap file")->required();
  command->add_option("--minidump", exporting.minidump, "the minidump to write")->required();
}

int run(int argc, char** argv) {
  CLI::App app(
      "Traces and inspects the operating-system services, and shows what they leave behind.",
      "osse");
  app.require_subcommand(1);
  InfoCommand info;
  addInfo(app, info);
  CLI::App* const trace = app.add_subcommand("trace", "dumps of traces");
  CLI::App* const trap = app.add_subcommand("trap", "files that a faulting process writes");
  trace->require_subcommand(1);
  trap->require_subcommand(1);

  DumpCommand dump;
  FormatCommand format;
  StatsCommand stats;
  ExportCommand exporting;
  addDump(*trace, dump);
  addFormat(*trace, format);
  addStats(*trace, stats);
  addExport(*trace, exporting);
  IpcCommand ipc;
  addIpc(app, ipc);
  TrapShowCommand trapShow;
  TrapExportCommand trapExport;
  addTrapShow(*trap, trapShow);
  addTrapExport(*trap, trapExport);

  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& refusal) {
    return app.exit(refusal) == 0 ? kDone : kBadUsage;
  }
  if (app.got_subcommand("info")) return info.run();
  if (app.got_subcommand("ipc")) return ipc.run();
  if (*trap) return trap->got_subcommand("show") ? trapShow.run() : trapExport.run();
  const std::string chosen = trace->get_subcommands().front()->get_name();
  if (chosen == "dump") return dump.run();
  if (chosen == "format") return format.run();
  if (chosen == "stats") return stats.run();
  return exporting.run();
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return run(argc, argv);
  } catch (const std::exception& failure) {
    static_cast<void>(std::fprintf(stderr, "osse: %s\n", failure.what()));
    return kFailed;
  }
}
