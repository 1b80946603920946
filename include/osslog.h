// osslog.h - the diagnostic log: one text record for every failure and event.
//
// A record names the reporting function, the probe (the place inside it), the message code with its
// description, the called function with its return code or system error, and typed data items. It
// goes to a file that several processes may share, to the Windows event log, or to the standard
// error stream. How a record is read: docs/diagnostic-log.md.
//
// Every operation of the library reports its failures to the default facility, which is closed
// until the host opens it with ossLogFacOpen(&param, nullptr): until then those records are refused
// and nothing else changes. The result of writing a record never reaches the operation's caller.
//
// Deliberate: a record that one thread writes while another record of the process is being written
// is dropped silently, with result 0. The same rule stops the log from logging its own failures.
#pragma once

#include "ossassert.h"   // reports of failed assertions, pointer checks
#include "osshexdump.h"  // memory as text
#include "osstypes.h"

/// Where records go. 3 is not a destination.
inline constexpr uint64_t OSS_LOG_TO_FILE = 1;
inline constexpr uint64_t OSS_LOG_TO_EVENT_LOG = 2;
inline constexpr uint64_t OSS_LOG_TO_STDERR = 4;

/// What ossLogFacOpen copies. Texts that fill their array without a NUL are cut by one character.
struct OSSLogFacOpenParam {
  uint64_t version = OSS_VERSION_CURRENT;
  char path[261] = {};       ///< the log file; needed for destination 1
  char name[51] = {};        ///< the facility, and the event log's source name; never empty
  uint64_t level = 0;        ///< the highest level recorded, 0..5; see ossLogFacSetLevel
  uint64_t destination = 0;  ///< OSS_LOG_TO_...
  uint64_t fileMode = 0;     ///< handed to the file open; unused on this platform
};
OSS_LAYOUT(OSSLogFacOpenParam, 344);
OSS_FIELD(OSSLogFacOpenParam, version, 0, 8);
OSS_FIELD(OSSLogFacOpenParam, path, 8, 261);
OSS_FIELD(OSSLogFacOpenParam, name, 269, 51);
OSS_FIELD(OSSLogFacOpenParam, level, 320, 8);
OSS_FIELD(OSSLogFacOpenParam, destination, 328, 8);
OSS_FIELD(OSSLogFacOpenParam, fileMode, 336, 8);

/// A log facility. The caller owns the memory; constructed, and so is all zero, it is closed.
struct OSSLogFacility {
  char path[261] = {};
  char name[51] = {};
  uint8_t latch = 0;  ///< serialises writers, level changes, open and close
  uint8_t latchReserved[7] = {};
  uint64_t level = 0;
  uint64_t destination = 0;
  uint64_t fileMode = 0;
  uint8_t open = 0;  ///< 1 while open
  uint8_t reserved[3] = {};
  uint32_t writerThread = 0;  ///< the thread that is writing a record
};
OSS_LAYOUT(OSSLogFacility, 352);
OSS_FIELD(OSSLogFacility, path, 0, 261);
OSS_FIELD(OSSLogFacility, name, 261, 51);
OSS_FIELD(OSSLogFacility, latch, 312, 1);
OSS_FIELD(OSSLogFacility, latchReserved, 313, 7);
OSS_FIELD(OSSLogFacility, level, 320, 8);
OSS_FIELD(OSSLogFacility, destination, 328, 8);
OSS_FIELD(OSSLogFacility, fileMode, 336, 8);
OSS_FIELD(OSSLogFacility, open, 344, 1);
OSS_FIELD(OSSLogFacility, writerThread, 348, 4);

/// Item types. A type of 0 or above, or a size that a number cannot have, is shown as a hex dump.
inline constexpr int32_t OSS_LOG_HEX = -1;     ///< 1, 2, 4 or 8 bytes
inline constexpr int32_t OSS_LOG_SINT = -2;    ///< 1, 2, 4 or 8 bytes
inline constexpr int32_t OSS_LOG_UINT = -3;    ///< 1, 2, 4 or 8 bytes
inline constexpr int32_t OSS_LOG_CHAR = -4;    ///< the first byte
inline constexpr int32_t OSS_LOG_STRING = -5;  ///< up to its NUL, its size or 512 bytes
inline constexpr int32_t OSS_LOG_BOOL = -6;    ///< 1, 2, 4 or 8 bytes
inline constexpr int32_t OSS_LOG_DUMP = 0;     ///< any size, at most 512 bytes shown

extern "C" {

/// Opens a facility; a null one is the process's default facility. An open facility is opened again
/// over its old settings. Not logged, not traced. Any thread may call it.
/// \retval 0                      the facility is open
/// \retval ECF_INVALID_PARAMETER  `param` is null or older than 20040702; its destination is not 1,
///                                2 or 4; its level is above 5; its name is empty, or its path is
///                                and the destination is the file. The facility is unchanged.
OSS_API OSSErr ossLogFacOpen(const OSSLogFacOpenParam* param, OSSLogFacility* facility) noexcept;

/// Closes a facility; a null one is the default facility. Closing a closed one changes nothing.
/// \retval 0  always
OSS_API OSSErr ossLogFacClose(OSSLogFacility* facility) noexcept;

/// Changes the level of an open facility; a null one is the default facility. With level 5 only
/// records of level 5 are written; otherwise those of level 5 and those from 1 up to the level. The
/// level is not checked: one above 5 admits every record but those of level 0.
/// \retval 0                      the level is changed
/// \retval ECF_INVALID_PARAMETER  the facility is not open
OSS_API OSSErr ossLogFacSetLevel(OSSLogFacility* facility, uint64_t level) noexcept;

/// Writes a record about something that the reporting function found itself.
///
/// The three functions that write a record share their first rules. `facility` may be null for the
/// default one. `funcId` is the reporting function, `messageCode` a return code or 0 for none,
/// `probe` the place in the function, `level` 1..5. Items follow as triples: a pointer to the data
/// (may be null), its size in bytes (uint64_t), its type (int32_t, OSS_LOG_...). A record holds
/// 4,095 characters; what does not fit is cut. Any thread may call them.
/// \param itemCount  the number of items
/// \retval 0                      the record is written, or filtered by its level, or dropped
///                                because another record is being written
/// \retval ECF_INVALID_PARAMETER  `itemCount` is negative, or the facility is not open
/// \retval ECF_FAILED             the destination refused the record
OSS_API OSSErr ossLog(OSSLogFacility* facility, uint32_t funcId, OSSErr messageCode, uint64_t probe,
                      uint64_t level, int32_t itemCount, ...) noexcept;

/// Writes a record about a called function of the system that returned `calledRC`.
/// \param itemMask  0 for no items; otherwise bit 31 and, for each argument n (1..31) that follows
///                  as an item, bit n - 1; the items follow by increasing n
/// \retval 0                      as ossLog
/// \retval ECF_INVALID_PARAMETER  `itemMask` is positive, or the facility is not open
/// \retval ECF_FAILED             as ossLog
OSS_API OSSErr ossLogRC(OSSLogFacility* facility, uint32_t funcId, uint32_t calledFuncId,
                        OSSErr calledRC, OSSErr messageCode, uint64_t probe, uint64_t level,
                        int32_t itemMask, ...) noexcept;

/// Writes a record about a failed system call; its level text is marked "(OS)".
/// \param sysCallId  the call, 0x08140000 + number
/// \param sysError   the error that it reported
/// \param itemMask   as ossLogRC
/// \retval 0                      as ossLog
/// \retval ECF_INVALID_PARAMETER  as ossLogRC
/// \retval ECF_FAILED             as ossLog
OSS_API OSSErr ossLogSysRC(OSSLogFacility* facility, uint32_t funcId, uint32_t sysCallId,
                           uint64_t sysError, OSSErr messageCode, uint64_t probe, uint64_t level,
                           int32_t itemMask, ...) noexcept;

}  // extern "C"
