// ossipcwaitpost.h - a waitpost: one party waits until another posts, and may be handed a message
// of fixed size.
//
// Three things make one. A control block and a post area lie in memory of the caller's, normally in
// a section that all parties map, each at an address of its own; a system event, which each party
// opens by its name, wakes the waiters. One party creates the waitpost, the others open it with the
// same block and name. Without a name it serves the threads of one process, which share its handle.
//
//   control block   0        1          2     8                      16
//                   [noLatch |dataLatch | 0   | flags                ]
//
//   cleared --create--> valid --destroy--> invalid        flags: named or unnamed is set when valid
//
// A post with a message copies it into the post area and then sets the event; a wait that is
// signalled copies it out. Both copy under dataLatch, a latch as in osslatch.h, so that nobody sees
// half a message, unless the waitpost was created without. A second post before the first is
// fetched overwrites it.
//
//   - Automatic reset: a post lets one waiter go. Manual reset: it lets all go, also those to come,
//     until somebody calls reset.
//   - The block is trusted. Its flags and noLatch decide what an operation does; addresses and
//     sizes are only ever those of the party's own handle, so that a block full of garbage leads
//     nobody out of its post area.
//   - Nothing records who holds dataLatch: a party that ends while it copies leaves it held. Posts
//     and waits without a message still work; those with one wait for ever, until somebody creates
//     the waitpost anew on the block.
//
// A handle is a plain value. It is constructed empty, and nothing is released by a destructor. Any
// threads may post, wait and reset through one handle at a time; nothing else may run with the
// other four operations. All operations are traced, and refuse records as ossipc.h says. A block
// that is not valid is refused as ECF_WAITPOST_NOT_INITIALIZED, logged with its flags at level
// Info.
#pragma once

#include "ossipcresource.h"
#include "osstypes.h"

/// OSSIPCWaitpostControlBlock::flags. A block is valid when it is named or unnamed.
inline constexpr uint64_t OSS_WAITPOST_IS_AUTOMATIC = 1;
inline constexpr uint64_t OSS_WAITPOST_IS_NAMED = 2;
inline constexpr uint64_t OSS_WAITPOST_IS_UNNAMED = 4;

/// What the parties share. The caller provides the memory, aligned to 8 bytes; the operations alone
/// write to it.
struct OSSIPCWaitpostControlBlock {
  uint8_t noLatch = 0;    ///< 1: messages are copied without the latch
  uint8_t dataLatch = 0;  ///< guards the post area
  uint8_t reserved[6] = {};
  uint64_t flags = 0;  ///< OSS_WAITPOST_IS_...; 0 before create and after destroy
};
OSS_LAYOUT(OSSIPCWaitpostControlBlock, 16);
OSS_FIELD(OSSIPCWaitpostControlBlock, noLatch, 0, 1);
OSS_FIELD(OSSIPCWaitpostControlBlock, dataLatch, 1, 1);
OSS_FIELD(OSSIPCWaitpostControlBlock, flags, 8, 8);
static_assert(alignof(OSSIPCWaitpostControlBlock) == 8, "shared between processes");

/// OSSIPCWaitpostCreateParam::type.
inline constexpr uint64_t OSS_WAITPOST_MANUAL = 0;
inline constexpr uint64_t OSS_WAITPOST_AUTOMATIC = 1;
inline constexpr uint64_t OSS_WAITPOST_NO_LATCH = 2;  ///< manual, and messages may be seen in parts

struct OSSIPCWaitpostCreateParam {
  uint64_t version = OSS_VERSION_CURRENT;
  OSSIPCWaitpostControlBlock* controlBlock = nullptr;  ///< required
  void* postArea = nullptr;                            ///< null without messages
  uint64_t postSize = 0;                               ///< bytes of a message, 0 without
  const OSSIPCResID* resID = nullptr;  ///< the event's name; null: a waitpost of this process
  uint64_t reserved = 0;
  uint64_t type = OSS_WAITPOST_MANUAL;
};
OSS_LAYOUT(OSSIPCWaitpostCreateParam, 56);
OSS_FIELD(OSSIPCWaitpostCreateParam, version, 0, 8);
OSS_FIELD(OSSIPCWaitpostCreateParam, controlBlock, 8, 8);
OSS_FIELD(OSSIPCWaitpostCreateParam, postArea, 16, 8);
OSS_FIELD(OSSIPCWaitpostCreateParam, postSize, 24, 8);
OSS_FIELD(OSSIPCWaitpostCreateParam, resID, 32, 8);
OSS_FIELD(OSSIPCWaitpostCreateParam, reserved, 40, 8);
OSS_FIELD(OSSIPCWaitpostCreateParam, type, 48, 8);

struct OSSIPCWaitpostOpenParam {
  uint64_t version = OSS_VERSION_CURRENT;
  OSSIPCWaitpostControlBlock* controlBlock = nullptr;  ///< required
  void* postArea = nullptr;                            ///< as at create, where this party sees it
  uint64_t postSize = 0;                               ///< as at create
  const OSSIPCResID* resID = nullptr;                  ///< required
  uint64_t reserved = 0;                               ///< must be 0
};
OSS_LAYOUT(OSSIPCWaitpostOpenParam, 48);
OSS_FIELD(OSSIPCWaitpostOpenParam, version, 0, 8);
OSS_FIELD(OSSIPCWaitpostOpenParam, controlBlock, 8, 8);
OSS_FIELD(OSSIPCWaitpostOpenParam, postArea, 16, 8);
OSS_FIELD(OSSIPCWaitpostOpenParam, postSize, 24, 8);
OSS_FIELD(OSSIPCWaitpostOpenParam, resID, 32, 8);
OSS_FIELD(OSSIPCWaitpostOpenParam, reserved, 40, 8);

/// OSSIPCWaitpostWaitParam::timeout.
inline constexpr int64_t OSS_WAITPOST_FOREVER = 0xFFFFFFFF;

struct OSSIPCWaitpostWaitParam {
  uint64_t version = OSS_VERSION_CURRENT;
  int64_t timeout = 0;    ///< milliseconds, of which the system takes the lower 32 bits
  uint64_t reserved = 0;  ///< must be 0
};
OSS_LAYOUT(OSSIPCWaitpostWaitParam, 24);
OSS_FIELD(OSSIPCWaitpostWaitParam, version, 0, 8);
OSS_FIELD(OSSIPCWaitpostWaitParam, timeout, 8, 8);
OSS_FIELD(OSSIPCWaitpostWaitParam, reserved, 16, 8);

/// What the records ask for beside the version is the caller's duty; it is not checked.
class OSS_API OSSHIPCWaitpost {
 public:
  /// Constructs an empty handle.
  OSSHIPCWaitpost() noexcept;

  /// Makes the control block a waitpost, whatever it held. A name that has an event already gives
  /// that event, with its way of resetting and its state. The fields of a handle that is in use are
  /// overwritten: its event stays open and is lost; so also by open.
  /// \retval 0                      the waitpost is valid; a new event is not signalled
  /// \retval ECF_INVALID_PARAMETER  the control block is null (probe 1111)
  /// \return otherwise the code of the security attributes (120), or the system's refusal of the
  ///         event, mapped and logged with attributes and name (130). The block is cleared.
  OSSErr create(const OSSIPCWaitpostCreateParam* param) noexcept;

  /// Joins a waitpost that another party created.
  /// \retval 0                             joined
  /// \retval ECF_WAITPOST_NOT_INITIALIZED  the block is null or not valid (30)
  /// \return otherwise the system's refusal of the event, mapped and logged with the name (40)
  /// Refused at 30, the handle keeps the block, and at 40 also the post area. It must then only be
  /// opened or created again: on a valid block its destroy would end the waitpost for every party,
  /// and its post would write the area.
  OSSErr open(const OSSIPCWaitpostOpenParam* param) noexcept;

  /// Ends the waitpost: the block is invalid for every party from now on. Waiters are not woken.
  /// dataLatch stays as it is.
  /// \retval 0                             ended; the handle is empty
  /// \retval ECF_WAITPOST_NOT_INITIALIZED  the block is null or not valid (10); nothing is changed
  /// \return otherwise the system's refusal to close the event, mapped and logged (40); all the
  ///         rest is done
  OSSErr destroy() noexcept;

  /// Leaves the waitpost, which stays valid for the other parties.
  /// \retval 0                             the handle is empty
  /// \retval ECF_WAITPOST_NOT_INITIALIZED  the block is null or not valid (10)
  /// \return otherwise the system's refusal to close the event, mapped and logged (20). Then, as
  ///         before, the handle is unchanged.
  OSSErr close() noexcept;

  /// Waits for a post.
  /// \param message  receives the post area's bytes, as many as the handle's size; may be null
  /// \retval 0                             somebody has posted; *message is set
  /// \retval ECF_WAITPOST_NOT_POSTED       nobody has, and the time-out is 0. *message is set to
  ///                                       what the post area holds; not logged
  /// \retval ECF_TIMEOUT                   nobody has within a time-out that is not 0 (110)
  /// \retval ECF_WAITPOST_NOT_INITIALIZED  the block is null or not valid (20)
  /// \retval ECF_SEM_WAIT_ABANDONED        the system calls the wait abandoned (100)
  /// \return otherwise what the system's wait returned, as it is (120). The records of 100 to 120,
  ///         level Info, show handle and time-out, and system error 0; *message is untouched.
  OSSErr wait(const OSSIPCWaitpostWaitParam* param, void* message) noexcept;

  /// Lets waiters go.
  /// \param message  supplies the post area's bytes, as many as the handle's size; with null the
  ///                 post area stays as it is
  /// \retval 0                             posted
  /// \retval ECF_WAITPOST_NOT_INITIALIZED  the block is null or not valid (10)
  /// \return otherwise the system's refusal, mapped and logged (70); the post area is written
  OSSErr post(const void* message) noexcept;

  /// Takes a post back that nobody has consumed.
  /// \retval 0                             waiters wait again
  /// \retval ECF_WAITPOST_NOT_INITIALIZED  the block is null or not valid (10)
  /// \return otherwise the system's refusal, mapped, and logged under post (50)
  OSSErr reset() noexcept;

 private:
  struct Layout;

  void copyMessage(void* to, const void* from) noexcept;
  void clear() noexcept;

  OSSIPCWaitpostControlBlock* controlBlock_ = nullptr;
  void* postArea_ = nullptr;
  uint64_t postSize_ = 0;
  void* event_;  // all ones while there is none
};
OSS_LAYOUT(OSSHIPCWaitpost, 32);
