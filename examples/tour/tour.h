// tour.h - what the acts of the tour share: how a result is told, and where its files lie.
#pragma once

#include <string>

#include "osscatalog.h"

namespace tour {

struct Stage {
  std::string input;       // the file that the tour reads
  std::string folder;      // where it leaves its own files
  std::string logFile;     // the diagnostic log
  std::string workFile;    // the copy that it works on
  std::string ownProgram;  // to start the tour a second time, as the other process
};

// Prints a heading, or a remark below the last result.
void act(const char* title);
void note(const char* format, ...) __attribute__((format(gnu_printf, 1, 2)));

// Prints a call and what it returned, by name and description from the catalog. Returns true on
// success, so that an act can stop where going on makes no sense.
bool told(const char* call, OSSErr rc);

// As told(), for a call that is meant to fail: the tour has failed if it returns anything else.
void expected(const char* call, OSSErr rc, OSSErr wanted);

// The number of results so far that were not what the tour meant to show.
int surprises();

// The acts.
void readAndCopy(const Stage& stage);
void workOnTheCopy(const Stage& stage);
void lockFromTwoProcesses(const Stage& stage);
void keepTrees(const Stage& stage);
void shareWithAnotherProcess(const Stage& stage);
void convertNumbersAndTimes(const Stage& stage);
void debugMemory(const Stage& stage);
void runThreads(const Stage& stage);
void startPrograms(const Stage& stage);
void runIntoFailures(const Stage& stage);
void catchFaults(const Stage& stage);
void traceItself(const Stage& stage);

// The other process of an act: holds the lock of `file` from when it signals the event
// "<name>.held" until it sees "<name>.done". Returns the process's exit code.
int holdLock(const char* file, const char* name);

// Another program of an act: signals the event "<name>.runs" and ends when it sees
// "<name>.may-end".
int runUntilTold(const char* name);

// The other process of the act that shares: answers one question that comes through the queues
// below `path`, and posts. Returns the process's exit code.
int serve(const char* path);

// The other process of an act: faults as the name says and leaves a trap file in the folder. Does
// not return unless there is no such fault.
int fault(const char* name, const char* folder);

// The other process of another act: allocates three blocks and frees one.
int leak();

}  // namespace tour
