#include "core/ossprobe.h"

#include <windows.h>

// The copy, and where a fault in it continues. Written in assembly because only there can a
// function name its own handler; the handler sends the faulting thread to the second label.
extern "C" char ossProbeFailed[];

__asm__(
    "    .text\n"
    "    .p2align 4\n"
    "    .globl ossProbeCopy24\n"
    "    .globl ossProbeFailed\n"
    "    .def ossProbeCopy24; .scl 2; .type 32; .endef\n"
    "    .seh_proc ossProbeCopy24\n"
    "    .seh_handler ossProbeHandler, @except\n"
    "ossProbeCopy24:\n"
    "    .seh_endprologue\n"
    "    movq -24(%rcx), %r8\n"
    "    movq -16(%rcx), %r9\n"
    "    movq -8(%rcx), %r10\n"
    "    movq %r8, (%rdx)\n"
    "    movq %r9, 8(%rdx)\n"
    "    movq %r10, 16(%rdx)\n"
    "    movl $1, %eax\n"
    "    ret\n"
    "ossProbeFailed:\n"
    "    xorl %eax, %eax\n"
    "    ret\n"
    "    .seh_endproc\n");

extern "C" EXCEPTION_DISPOSITION ossProbeHandler(EXCEPTION_RECORD* record, void*, CONTEXT* context,
                                                 void*) {
  if (record->ExceptionFlags & (EXCEPTION_UNWINDING | EXCEPTION_EXIT_UNWIND))
    return ExceptionContinueSearch;
  context->Rip = reinterpret_cast<DWORD64>(ossProbeFailed);
  return ExceptionContinueExecution;
}
