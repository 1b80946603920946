// ossipc.h - everything that processes share: names of objects, shared memory, semaphores.
//
// What all of it has in common. A handle is constructed closed and owns what the system gave it
// from a successful create or attach until detach or destroy; no destructor releases anything. It
// does not check its own state unless it says so: the system refuses what cannot be. One thread
// uses a handle at a time; what lies in shared memory is the callers' to synchronise.
//
// Every operation with a name of its own in the catalog is traced. One with a parameter record
// first refuses, with a log record at level Error and without calling the system,
//   a null record                     ECF_INVALID_PARAMETER, probe 1111
//   a record older than 20040702      ECF_INVALID_VERSION,   probe 1112
// and any other null pointer that it needs like a null record. A call that the system refuses gives
// the mapped code (ossErrorMapSystem) with a log record that names the call, its error and what it
// was about. Nothing is retried.
#pragma once

#include "ossipcmemory.h"     // shared memory
#include "ossipcmemoryex.h"   // shared memory under a plain name, and private
#include "ossipcqueue.h"      // message queues
#include "ossipcresource.h"   // how objects are named, and who may open them
#include "ossipcsemaphore.h"  // counting semaphores
#include "ossipcwaitpost.h"   // rendezvous: wait until another posts
#include "osstypes.h"
