// ossfault.h - what a host needs when it faults, or wants to know where it is: all at once.
//
//   ossstackwalk.h  the calling thread's stack, one walk step, the modules of a process
//   osssymbol.h     names for addresses; the debugging-help library behind its locks
//   osstrapfile.h   the trap file and its records
#pragma once

#include "ossstackwalk.h"
#include "osssymbol.h"
#include "osstrapfile.h"
