// ossoperation_fakes.h - what the frame of an operation calls, in a program that has only the
// frame and operations that need little else.
//
// Each fake writes its call down with all arguments as one line, so that the order of calls is a
// list of lines, and then spoils the last error, as a call of the system might:
//
//   entry  thread function
//   data   thread function probe type {item type, length, bytes} ...
//   map    function probe call error
//   level  code
//   log    facility function code probe level called #number {item type, size, bytes} ...
//   error  thread function probe type extra {item type, length, bytes} ...
//   exit   thread function code extra
//
// Of what the operations call besides, each is a line of its own: "sleep 100" and the like.
//
// One thread at a time.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "osstypes.h"

namespace oss::fakes {

extern std::vector<std::string> g_calls;

// What the mapping answers.
extern OSSErr g_mapped;
extern uint64_t g_mappedLevel;

// The level that the rule for codes answers.
extern uint64_t g_levelOfCode;

// Runs while a record is being written; may be empty.
extern std::function<void()> g_duringLog;

[[gnu::format(gnu_printf, 1, 2)]] std::string text(const char* format, ...);

// Writes a call down, as the fakes do.
void note(std::string call);

}  // namespace oss::fakes
