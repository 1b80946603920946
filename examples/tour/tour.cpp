// The tour: a host program that uses the library as the product's components do, on a real file.
//
//   tour [FILE] [--out FOLDER]
//
// It opens the diagnostic log, reads FILE in pieces, copies it, works on the copy, shares it with a
// second process, keeps it in trees, talks with another process through queues, shared memory and a
// waitpost, converts numbers and times, starts other programs, runs into failures on purpose, and
// traces itself. In the end it prints the log that this left behind.
#include "tour.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "ossfile.h"
#include "osslog.h"
#include "ossprocess.h"
#include "ossstring.h"

namespace tour {
namespace {

int g_surprises = 0;

void printResult(const char* call, OSSErr rc) {
  const char* const name = ecfErrorGetCodeName(rc);
  const char* const description = ecfErrorGetDescription(rc);
  std::printf("  %-46s %s", call, name != nullptr ? name : "(not catalogued)");
  if (rc != ECF_OK) std::printf(" (0x%08X): %s", rc, description != nullptr ? description : "");
  std::printf("\n");
}

bool openLog(const Stage& stage) {
  OSSLogFacOpenParam param;
  ossSnprintf(param.path, sizeof param.path, "%s", stage.logFile.c_str());
  ossSnprintf(param.name, sizeof param.name, "tour");
  param.level = OSS_LOG_INFO;
  param.destination = OSS_LOG_TO_FILE;
  return told("ossLogFacOpen, level Info, to a file", ossLogFacOpen(&param, nullptr));
}

void printLog(const Stage& stage) {
  act("The diagnostic log that this left behind");
  told("ossLogFacClose", ossLogFacClose(nullptr));

  OSSFileOpenParam open;
  open.path = stage.logFile.c_str();
  open.creation = OSS_FILE_OPEN_EXISTING;
  open.access = OSS_FILE_READ;
  OSSHFile log;
  if (!told("OSSHFile::open, the log", log.open(&open))) return;

  char piece[4096];
  OSSFileReadParam read;
  read.size = sizeof piece;
  for (OSSErr rc = ECF_OK; rc == ECF_OK;) {
    uint64_t count = 0;
    rc = log.read(&read, piece, &count);
    // The log ends its lines with CR LF; the terminal wants LF.
    for (uint64_t i = 0; i < count; ++i)
      if (piece[i] != '\r') std::putchar(piece[i]);
  }
  told("OSSHFile::close", log.close());
}

int usage(FILE* to, int result) {
  std::fprintf(to,
               "usage: tour [FILE] [--out FOLDER]\n"
               "Shows the library at work on FILE (default README.md); leaves its own files in\n"
               "FOLDER (default the current one).\n");
  return result;
}

// Reads the command line; returns false when it makes no sense.
bool parse(int argc, char** argv, Stage* stage) {
  stage->input = "README.md";
  std::string folder;
  bool named = false;
  for (int i = 1; i < argc; ++i) {
    if (std::strcmp(argv[i], "--out") == 0 && i + 1 < argc) {
      folder = std::string(argv[++i]) + "\\";
    } else if (argv[i][0] != '-' && !named) {
      stage->input = argv[i];
      named = true;
    } else {
      return false;
    }
  }
  stage->folder = folder;
  stage->logFile = folder + "tour.log";
  stage->workFile = folder + "tour.copy";
  stage->ownProgram = argv[0];
  return true;
}

}  // namespace

void act(const char* title) { std::printf("\n%s\n", title); }

void note(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  std::printf("    ");
  std::vprintf(format, arguments);
  std::printf("\n");
  va_end(arguments);
}

bool told(const char* call, OSSErr rc) {
  printResult(call, rc);
  if (rc != ECF_OK) ++g_surprises;
  return rc == ECF_OK;
}

void expected(const char* call, OSSErr rc, OSSErr wanted) {
  printResult(call, rc);
  if (rc == wanted) return;
  ++g_surprises;
  note("but the tour meant to show %s", ecfErrorGetCodeName(wanted));
}

int surprises() { return g_surprises; }

}  // namespace tour

int main(int argc, char** argv) {
  if (argc == 4 && std::strcmp(argv[1], "--hold-lock") == 0)
    return tour::holdLock(argv[2], argv[3]);
  if (argc == 3 && std::strcmp(argv[1], "--exit-with") == 0) return std::atoi(argv[2]);
  if (argc == 3 && std::strcmp(argv[1], "--run-until-told") == 0)
    return tour::runUntilTold(argv[2]);
  if (argc == 3 && std::strcmp(argv[1], "--serve") == 0) return tour::serve(argv[2]);
  if (argc == 4 && std::strcmp(argv[1], "--fault") == 0) return tour::fault(argv[2], argv[3]);
  if (argc == 2 && std::strcmp(argv[1], "--leak") == 0) return tour::leak();
  if (argc == 2 && std::strcmp(argv[1], "--help") == 0) return tour::usage(stdout, 0);

  tour::Stage stage;
  if (!tour::parse(argc, argv, &stage)) return tour::usage(stderr, 2);

  std::remove(stage.logFile.c_str());
  tour::act("The log is opened");
  if (!tour::openLog(stage)) return 1;

  tour::readAndCopy(stage);
  tour::workOnTheCopy(stage);
  tour::lockFromTwoProcesses(stage);
  tour::keepTrees(stage);
  tour::shareWithAnotherProcess(stage);
  tour::convertNumbersAndTimes(stage);
  tour::debugMemory(stage);
  tour::runThreads(stage);
  tour::startPrograms(stage);
  tour::runIntoFailures(stage);
  tour::catchFaults(stage);
  tour::traceItself(stage);
  tour::printLog(stage);

  if (tour::surprises() != 0)
    std::printf("\n%d results were not what the tour meant to show.\n", tour::surprises());
  else
    std::printf("\nEverything went as meant. The log is %s, the copy %s.\n", stage.logFile.c_str(),
                stage.workFile.c_str());
  return tour::surprises() != 0 ? 1 : 0;
}
