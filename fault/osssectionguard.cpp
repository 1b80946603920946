#include "fault/osssectionguard.h"

#include "fault/ossguardtable.h"

// The call, and where a fault in it continues. Written in assembly because only there can a
// function name its own handler: the run-time's, which unwinds the stack to the label that the
// scope table names, whatever the exception is.
__asm__(
    "    .text\n"
    "    .p2align 4\n"
    "    .globl ossCallGuarded\n"
    "    .def ossCallGuarded; .scl 2; .type 32; .endef\n"
    "    .seh_proc ossCallGuarded\n"
    "    .seh_handler __C_specific_handler, @except\n"
    "    .seh_handlerdata\n"
    "    .long 1\n"  // one scope: its begin, its end, any exception, where it goes on
    "    .rva .LossGuardedBegin, .LossGuardedEnd\n"
    "    .long 1\n"
    "    .rva .LossGuardedFault\n"
    "    .text\n"
    "ossCallGuarded:\n"
    "    subq $40, %rsp\n"
    "    .seh_stackalloc 40\n"
    "    .seh_endprologue\n"
    "    movq %rcx, %rax\n"
    "    movq %rdx, %rcx\n"
    ".LossGuardedBegin:\n"
    "    call *%rax\n"
    "    nop\n"
    ".LossGuardedEnd:\n"
    "    movl $1, %eax\n"
    "    jmp .LossGuardedReturn\n"
    ".LossGuardedFault:\n"
    "    xorl %eax, %eax\n"
    ".LossGuardedReturn:\n"
    "    addq $40, %rsp\n"
    "    ret\n"
    "    .seh_endproc\n");

namespace oss {

bool endsWithoutFault(void (*work)(void*), void* argument) noexcept {
  if (ossCallGuarded(work, argument)) return true;
  releaseOwnGuards();
  return false;
}

}  // namespace oss
