// osse - the program that controls the services of the library: the command line.
//
// Exit codes: 0 done, 1 refused (the reason is on standard error), 2 bad usage.
#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>
#include <string>
#include <vector>

#include "commands.h"

using namespace oss::tool;

namespace {

// A variable of the shell that is not set arrives as an empty text, which is nobody's wish.
std::string refuseEmpty(const std::string& text) { return text.empty() ? "is empty" : ""; }

std::string refuseAllButCounts(const std::string& text) {
  const bool isNumber = !text.empty() && text.find_first_not_of("0123456789") == std::string::npos;
  const bool isZero = text.find_first_not_of('0') == std::string::npos;
  return isNumber && !isZero ? "" : text + " is not a whole number above 0";
}

CLI::Option* addText(CLI::App& command, const char* name, std::string& text, const char* about) {
  return command.add_option(name, text, about)->check(refuseEmpty);
}

CLI::Option* addCount(CLI::App& command, const char* name, uint64_t& count, const char* about) {
  return command.add_option(name, count, about)->check(refuseAllButCounts);
}

void addOutput(CLI::App& command, std::string& output) {
  addText(command, "-o,--output", output, "write there instead of to standard output");
}

void addWhichDump(CLI::App& command, uint64_t& dump) {
  addCount(command, "--dump", dump, "of a file with several dumps: 1 is the oldest; else the last");
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
  addText(*command, "--section", dump.section, "the named section that holds the control block")
      ->required();
  addText(*command, "FILE", dump.file, "the dump to write")->required();
  CLI::Option* const follow = command->add_flag(
      "--follow", dump.follow, "write chunks as they fill, until tracing is disabled or Ctrl+C");
  addCount(*command, "--ring", dump.ringBytes,
           "with --follow: keep the last BYTES, rounded up to chunks of 128 KiB")
      ->needs(follow);
}

void addFormat(CLI::App& trace, FormatCommand& format) {
  CLI::App* const command = trace.add_subcommand("format", "show a dump, a line for each record");
  addText(*command, "FILE", format.file, "a dump")->required();
  command->add_flag("--flow", format.flow, "indent by the depth of calls, and show durations");
  addOutput(*command, format.output);
}

void addStats(CLI::App& trace, StatsCommand& stats) {
  CLI::App* const command =
      trace.add_subcommand("stats", "sum a dump up: functions, rejected slots, losses");
  addText(*command, "FILE", stats.file, "a dump")->required();
  addOutput(*command, stats.output);
}

void addExport(CLI::App& trace, ExportCommand& exporting) {
  using Form = ExportCommand::Form;
  CLI::App* const command =
      trace.add_subcommand("export", "convert a dump for viewers of timelines and flame graphs");
  addText(*command, "FILE", exporting.file, "a dump")->required();
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
  addText(*command, "PATH", ipc.path, "the path that names were formed from")->required();
  command->add_option("NUMBER", ipc.number, "the number of the object, or of the queue's first")
      ->required();
  command->add_flag("--local", ipc.local, "the name was formed as a local one");
  command->add_flag("--json", ipc.json, "as JSON");
  addOutput(*command, ipc.output);
}

void addTrapShow(CLI::App& trap, TrapShowCommand& show) {
  CLI::App* const command = trap.add_subcommand("show", "show what a trap file holds");
  addText(*command, "FILE", show.file, "a trap file")->required();
  CLI::Option* const json = command->add_flag("--json", show.json, "as one JSON document");
  command
      ->add_flag("--full", show.full,
                 "with the parameters of frames, vector registers and all of the stack")
      ->excludes(json);
  addWhichDump(*command, show.dump);
  addOutput(*command, show.output);
}

void addTrapExport(CLI::App& trap, TrapExportCommand& exporting) {
  CLI::App* const command = trap.add_subcommand("export", "convert a trap file for debuggers");
  addText(*command, "FILE", exporting.file, "a trap file")->required();
  addText(*command, "--minidump", exporting.minidump, "the minidump to write")->required();
  addWhichDump(*command, exporting.dump);
}

// What is required is missing, above all, where another word is misspelt: that word is told then.
int refuse(const CLI::App& app, const CLI::ParseError& refusal) {
  const std::vector<std::string> unknown = app.remaining(true);
  if (refusal.get_name() != "RequiredError" || unknown.empty()) return app.exit(refusal);
  return app.exit(CLI::ExtrasError(std::vector<std::string>(1, unknown.front())));
}

int run(int argc, char** argv) {
  CLI::App app(
      "Traces and inspects the operating-system services, and shows what they leave behind.",
      "osse");
  app.require_subcommand(1);
  app.set_version_flag("--version", "osse " OSSE_VERSION);
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
    return refuse(app, refusal) == 0 ? kDone : kBadUsage;
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
