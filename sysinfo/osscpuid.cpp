#include "sysinfo/osscpuid.h"

#include <windows.h>

// The instruction, and where a fault in it continues: a machine may forbid it to programs. Written
// in assembly because only there can a function name its own handler.
extern "C" char ossCpuidFailed[];

__asm__(
    "    .text\n"
    "    .p2align 4\n"
    "    .globl ossCpuidInto\n"
    "    .globl ossCpuidFailed\n"
    "    .def ossCpuidInto; .scl 2; .type 32; .endef\n"
    "    .seh_proc ossCpuidInto\n"
    "    .seh_handler ossCpuidHandler, @except\n"
    "ossCpuidInto:\n"
    "    pushq %rbx\n"
    "    .seh_pushreg %rbx\n"
    "    .seh_endprologue\n"
    "    movq %rdx, %r8\n"
    "    movl %ecx, %eax\n"
    "    xorl %ecx, %ecx\n"
    "    cpuid\n"
    "    movl %eax, (%r8)\n"
    "    movl %ebx, 4(%r8)\n"
    "    movl %ecx, 8(%r8)\n"
    "    movl %edx, 12(%r8)\n"
    "    movl $1, %eax\n"
    "    popq %rbx\n"
    "    ret\n"
    "ossCpuidFailed:\n"
    "    xorl %eax, %eax\n"
    "    popq %rbx\n"
    "    ret\n"
    "    .seh_endproc\n");

extern "C" EXCEPTION_DISPOSITION ossCpuidHandler(EXCEPTION_RECORD* record, void*, CONTEXT* context,
                                                 void*) {
  if (record->ExceptionFlags & (EXCEPTION_UNWINDING | EXCEPTION_EXIT_UNWIND))
    return ExceptionContinueSearch;
  context->Rip = reinterpret_cast<DWORD64>(ossCpuidFailed);
  return ExceptionContinueExecution;
}

namespace oss {

CpuRegisters cpuid(uint32_t leaf) noexcept {
  CpuRegisters registers;
  return ossCpuidInto(leaf, &registers) != 0 ? registers : CpuRegisters{};
}

}  // namespace oss
