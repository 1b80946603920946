#include "trap/exceptionname.h"

namespace oss::tool {

const char* exceptionName(uint32_t code) {
  switch (code) {
    case 0x40010005: return "control-C";
    case 0x40010006: return "debugger print";
    case 0x406D1388: return "thread name";
    case 0x80000001: return "guard page";
    case 0x80000002: return "datatype misalignment";
    case 0x80000003: return "breakpoint";
    case 0x80000004: return "single step";
    case kAccessViolation: return "access violation";
    case kInPageError: return "in-page error";
    case 0xC0000008: return "invalid handle";
    case 0xC0000017: return "no memory";
    case 0xC000001D: return "illegal instruction";
    case 0xC0000025: return "noncontinuable exception";
    case 0xC0000026: return "invalid disposition";
    case 0xC000008C: return "array bounds exceeded";
    case 0xC000008D: return "floating-point denormal operand";
    case 0xC000008E: return "floating-point divide by zero";
    case 0xC000008F: return "floating-point inexact result";
    case 0xC0000090: return "floating-point invalid operation";
    case 0xC0000091: return "floating-point overflow";
    case 0xC0000092: return "floating-point stack check";
    case 0xC0000093: return "floating-point underflow";
    case 0xC0000094: return "integer divide by zero";
    case 0xC0000095: return "integer overflow";
    case 0xC0000096: return "privileged instruction";
    case 0xC00000FD: return "stack overflow";
    case 0xC0000135: return "DLL not found";
    case 0xC0000139: return "entry point not found";
    case 0xC0000142: return "DLL initialization failed";
    case 0xC0000194: return "possible deadlock";
    case 0xC00002B4: return "multiple floating-point faults";
    case 0xC00002B5: return "multiple floating-point traps";
    case 0xC0000374: return "heap corruption";
    case 0xC0000409: return "stack buffer overrun";
    case 0xC0000417: return "invalid C run-time parameter";
    case 0xC0000420: return "assertion failure";
    case 0xE06D7363: return "C++ exception";
    case 0x20474343: return "C++ exception of GCC";
    default: return nullptr;
  }
}

const char* accessName(uint64_t operation) {
  switch (operation) {
    case 0: return "read";
    case 1: return "write";
    case 8: return "execute";
    default: return "unknown";
  }
}

}  // namespace oss::tool
