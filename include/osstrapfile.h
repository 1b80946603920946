// osstrapfile.h - the trap file: what a process knew when it faulted, in one binary file.
//
// A host's handler opens a file, initialises, and dumps the sections it wants:
//
//   OSSTrapFile trap;
//   trap.open(path, OSS_PRIMITIVE_OPEN_ALWAYS);
//   trap.seekToEnd();  // unless the file is new
//   trap.initialize(0, exception->ExceptionRecord, exception->ContextRecord, nullptr);
//   trap.dump(OSS_TRAP_ALL, 0, exception->ExceptionRecord, exception->ContextRecord);
//   trap.close();
//
// The file is the sections that were asked for, in the order of the list below, raw and without
// marks between them; all numbers are little-endian.
//
//   header            392 bytes, OSSTrapHeader
//   system            48 processor record, 148 operating-system version record, then the memory
//                     status: 64 bytes, or 56 where the system has only the old one
//   environment       for each string u64 length and its bytes; then 11 and "**L*E*R*M**"
//   exception         152 bytes, the system's exception record
//   context           1232 bytes, the system's register context
//   modules           304 bytes each, OSSTrapModule, as many as the header counts
//   library version   8 bytes: u16 major, minor, revision, reserved
//   stack             instruction bytes, as many as the header counts; frames of 264 bytes, the
//                     system's stack frame record, the last of which has the return address 0 or
//                     OSS_TRAP_WALK_FAILED; u64 count of 8-byte words, and those from the stack
//                     pointer on
//   module section    u64 count, then that many OSSTrapModule
//
// Memory is read through the system, so that what cannot be read raises nothing; whatever fault a
// section meets nevertheless ends that section, and the next one follows. In initialize() it ends
// the call of the debugging-help library that it comes from. A vectored handler sees such a fault
// first: on a thread that is inside initialize() or dump() both do nothing, of whatever object, and
// the handler must return EXCEPTION_CONTINUE_SEARCH for the section to end and the rest to follow.
// One thread uses an object at a time; several threads may write trap files at once.
//
// A thread whose stack has overflowed has too little of it left for the handler above: initialize()
// takes some 16 KiB where it is the first to load symbols. SetThreadStackGuarantee keeps that much
// back for the handler if the thread asks for it before. Or the handler hands the two records to a
// thread that waits for them, and waits in turn; the header then tells of that thread, unless a
// derived class has set `threadId` before.
#pragma once

#include "ossprimitivefile.h"
#include "osstypes.h"

// Tags of the system.
// NOLINTBEGIN(bugprone-reserved-identifier,cert-*)
struct _CONTEXT;
struct _EXCEPTION_RECORD;
// NOLINTEND(bugprone-reserved-identifier,cert-*)

// ---- The file -----------------------------------------------------------------------------------

/// The sections, in the order in which they are written.
inline constexpr uint64_t OSS_TRAP_HEADER = 0x4000;
inline constexpr uint64_t OSS_TRAP_SYSTEM = 0x1;
inline constexpr uint64_t OSS_TRAP_ENVIRONMENT = 0x2;
inline constexpr uint64_t OSS_TRAP_EXCEPTION = 0x10000;
inline constexpr uint64_t OSS_TRAP_CONTEXT = 0x20000;
inline constexpr uint64_t OSS_TRAP_MODULES = 0x40000;
inline constexpr uint64_t OSS_TRAP_LIBRARY_VERSION = 0x8000;
inline constexpr uint64_t OSS_TRAP_STACK = 0x4;
inline constexpr uint64_t OSS_TRAP_MODULE_SECTION = 0x80000;
inline constexpr uint64_t OSS_TRAP_ALL = 0xFC007;

/// Bits of OSSTrapHeader::contents.
inline constexpr uint32_t OSS_TRAP_HAS_EXCEPTION = 0x1;          ///< initialize() was given one
inline constexpr uint32_t OSS_TRAP_HAS_CONTEXT = 0x2;            ///< initialize() was given one
inline constexpr uint32_t OSS_TRAP_HAS_MODULES = 0x4;            ///< written as they were found
inline constexpr uint32_t OSS_TRAP_HAS_CONTROL = 0x8;            ///< instructions were looked for
inline constexpr uint32_t OSS_TRAP_HAS_INSTRUCTIONS = 0x10;      ///< and found
inline constexpr uint32_t OSS_TRAP_HAS_LIBRARY_VERSION = 0x20;   ///< it could be told
inline constexpr uint32_t OSS_TRAP_HAS_KEPT_MODULES = 0x200;     ///< written from what was kept
inline constexpr uint32_t OSS_TRAP_HAS_EXTENDED_MEMORY = 0x400;  ///< 64 bytes of memory status
inline constexpr uint32_t OSS_TRAP_HAS_MEMORY = 0x800;           ///< 56 bytes of memory status

inline constexpr char OSS_TRAP_EYE_CATCHER[] = "*TPHDE64";
inline constexpr char OSS_TRAP_ENVIRONMENT_END[] = "**L*E*R*M**";
/// The return address in the last frame of a walk that failed.
inline constexpr uint64_t OSS_TRAP_WALK_FAILED = 0xF2A3EBAD;

inline constexpr uint32_t OSS_TRAP_MOST_INSTRUCTIONS = 64;  ///< bytes
inline constexpr uint64_t OSS_TRAP_MOST_STACK_WORDS = 8193;

/// A local date and time, as the system records it.
struct OSSTrapTime {
  uint16_t year = 0;
  uint16_t month = 0;
  uint16_t weekday = 0;  ///< 0 is Sunday
  uint16_t day = 0;
  uint16_t hour = 0;
  uint16_t minute = 0;
  uint16_t second = 0;
  uint16_t millisecond = 0;
};
OSS_LAYOUT(OSSTrapTime, 16);

struct OSSTrapHeader {
  char eyeCatcher[8] = {};  ///< OSS_TRAP_EYE_CATCHER, without a NUL
  uint32_t processId = 0;
  uint32_t threadId = 0;
  uint64_t instructions = 0;  ///< where the captured instruction bytes begin
  OSSTrapTime time;           ///< of initialize()
  uint32_t contents = 0;      ///< OSS_TRAP_HAS_...
  uint16_t reserved = 0;
  uint16_t modules = 0;        ///< records in the section of modules, at most 65,535
  char executable[260] = {};   ///< path
  uint8_t reserved2[80] = {};  ///< zero
  uint32_t instructionBytes = 0;
};
OSS_LAYOUT(OSSTrapHeader, 392);
OSS_FIELD(OSSTrapHeader, eyeCatcher, 0, 8);
OSS_FIELD(OSSTrapHeader, processId, 8, 4);
OSS_FIELD(OSSTrapHeader, threadId, 12, 4);
OSS_FIELD(OSSTrapHeader, instructions, 16, 8);
OSS_FIELD(OSSTrapHeader, time, 24, 16);
OSS_FIELD(OSSTrapHeader, contents, 40, 4);
OSS_FIELD(OSSTrapHeader, reserved, 44, 2);
OSS_FIELD(OSSTrapHeader, modules, 46, 2);
OSS_FIELD(OSSTrapHeader, executable, 48, 260);
OSS_FIELD(OSSTrapHeader, reserved2, 308, 80);
OSS_FIELD(OSSTrapHeader, instructionBytes, 388, 4);

struct OSSTrapModule {
  char name[272] = {};  ///< at most 260 characters, as the system names the module
  uint64_t marker = 0;  ///< of its exported sqlzThisIsAKT5Library; 0 if it is none of the product's
  uint64_t base = 0;    ///< first address of its image
  uint64_t end = 0;     ///< first address behind it
  uint32_t timeStamp = 0;  ///< when it was linked
  uint8_t reserved[4] = {};
};
OSS_LAYOUT(OSSTrapModule, 304);
OSS_FIELD(OSSTrapModule, name, 0, 272);
OSS_FIELD(OSSTrapModule, marker, 272, 8);
OSS_FIELD(OSSTrapModule, base, 280, 8);
OSS_FIELD(OSSTrapModule, end, 288, 8);
OSS_FIELD(OSSTrapModule, timeStamp, 296, 4);
OSS_FIELD(OSSTrapModule, reserved, 300, 4);

namespace oss {
class TrapWriter;
}

// ---- Writing it ---------------------------------------------------------------------------------

class OSS_API OSSTrapFile : public OSSPrimitiveFileOp {
 public:
  /// Takes note of the process and the calling thread. Opens nothing.
  OSSTrapFile() noexcept;

  /// Puts the symbol search path back that the first initialize() found. Does not close the file.
  ~OSSTrapFile();

  OSSTrapFile(const OSSTrapFile&) = delete;
  OSSTrapFile& operator=(const OSSTrapFile&) = delete;

  /// Fills in the header: time, executable, contents, and of a context with control registers the
  /// instructions from 32 bytes in front of the faulting one on. Those are captured only if the
  /// first 8 of these bytes can be read, and as many of the 64 as can. Initialises symbols. Does
  /// nothing on a thread that is inside initialize() or dump().
  /// \param flags       reserved; not looked at
  /// \param er          the exception, or null
  /// \param ctx         the registers at the fault, or null
  /// \param symbolPath  where symbol files are looked for until the object ends; null leaves it.
  ///                    The path belongs to the process: it serves every thread, of two objects
  ///                    the one that ends last puts back what it found, and of a path that is
  ///                    longer than 260 characters the first 260 are put back, also where null
  ///                    was given. One that could not be told is not put back
  void initialize(uint32_t flags, _EXCEPTION_RECORD* er, _CONTEXT* ctx,
                  const char* symbolPath) noexcept;

  /// Writes sections at the file pointer, which stands at the end of the file: it must be new or
  /// empty, or the caller has gone there, since sections that write over what is there go on at the
  /// end. Does nothing before initialize(), without a file, or on a thread that is inside
  /// initialize() or dump(); what the system refuses to write is missing, and a module record that
  /// it takes a part of is not counted.
  /// \param sections  OSS_TRAP_...; other bits are ignored. OSS_TRAP_MODULES also writes the header
  ///                  again, with their count, where OSS_TRAP_HEADER was last written or else at
  ///                  the start of the file, and leaves the file pointer at the end
  /// \param code      reserved; not looked at
  /// \param er        written by OSS_TRAP_EXCEPTION, which a null leaves out
  /// \param ctx       written by OSS_TRAP_CONTEXT, walked from by OSS_TRAP_STACK; a null leaves out
  ///                  the one, and of the other all but the instruction bytes
  void dump(uint64_t sections, uint32_t code, _EXCEPTION_RECORD* er, _CONTEXT* ctx) noexcept;

  /// Begins an XML report, or prepares to append to one. The prolog is an XML declaration and a
  /// processing instruction that names the style sheet kt5trapfile.xsl, which is expected beside
  /// the report.
  /// \return true when the file was empty, or its size could not be told. Then the prolog is
  ///         written, and a refusal of that is not told. Else false: the file pointer stands at the
  ///         closing tag of a report that begins with the prolog and ends with a closing tag, which
  ///         the caller writes again behind what it appends; or else at the end
  bool writeXMLProlog() noexcept;

 protected:
  OSSTrapHeader header_;  ///< process and thread may be set before initialize()

 private:
  friend class oss::TrapWriter;
  struct Layout;

  uint32_t headerOffset_ = 0;
  uint32_t reserved_ = 0;
  bool initialized_ = false;
  char searchPath_[261] = {};
  bool isPathSaved_ = false;
  void* process_;
};
OSS_LAYOUT(OSSTrapFile, 680);
