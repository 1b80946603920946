// ossgtmmask.h - which trace points are to be recorded.
//
// A mask goes from coarse to fine: products, components, functions and record types as bitmaps, and
// below them single trace points (function and probe), included or excluded. It is plain data
// without pointers and lies inside the options record of a trace control block, so it may sit in
// shared memory. It starts as zeros, which records nothing and has no room for points, or with
// gtmClearMask().
//
// Arguments are 64 bits wide; one whose low 32 bits are all ones means "all". Numbers of products,
// components and functions are those of the catalog. Nothing is locked: the program that controls
// tracing changes a mask while tracing is off.
#pragma once

#include "osstypes.h"

/// Meaning "all": only the low 32 bits of an argument are compared with it.
inline constexpr uint64_t GTM_ALL = 0xFFFFFFFF;
/// A bit of the options: the fourth argument is a probe, not a record type.
inline constexpr uint64_t GTM_POINT = 1;
/// A bit of a point's flags: the point is cut out of what is recorded.
inline constexpr uint64_t GTM_EXCLUDED = 2;

struct GTMComponent {
  uint8_t types[2];
  uint8_t functions[512];
};
OSS_LAYOUT(GTMComponent, 514);
OSS_FIELD(GTMComponent, types, 0, 2);
OSS_FIELD(GTMComponent, functions, 2, 512);

struct GTMPoint {
  uint32_t key;  ///< the function identifier without its kind bits; 0 for a free node
  uint32_t unused;
  uint64_t flags;
  uint16_t probe;
  uint16_t next;  ///< 0 ends a chain
};
OSS_LAYOUT(GTMPoint, 24);
OSS_FIELD(GTMPoint, key, 0, 4);
OSS_FIELD(GTMPoint, flags, 8, 8);
OSS_FIELD(GTMPoint, probe, 16, 2);
OSS_FIELD(GTMPoint, next, 18, 2);

/// A chained hash table. Node 0 is the null link.
struct GTMPointTable {
  GTMPoint nodes[2000];
  uint16_t firstFree;
  uint16_t buckets[1024];  ///< by the low ten bits of the key
  uint64_t points;
  uint64_t excludedPoints;
};
OSS_LAYOUT(GTMPointTable, 50072);
OSS_FIELD(GTMPointTable, nodes, 0, 48000);
OSS_FIELD(GTMPointTable, firstFree, 48000, 2);
OSS_FIELD(GTMPointTable, buckets, 48002, 2048);
OSS_FIELD(GTMPointTable, points, 50056, 8);
OSS_FIELD(GTMPointTable, excludedPoints, 50064, 8);

/// A mask without its points, as the filter bitmaps of the trace options hold it.
struct GTMask {
  uint16_t types;
  uint8_t products[4];
  uint8_t components[32];  ///< by component number, whatever the product
  uint8_t functions[512];
  uint8_t classes;  ///< 0xFF when any type is set
  uint8_t unused;
};
OSS_LAYOUT(GTMask, 552);
OSS_FIELD(GTMask, types, 0, 2);
OSS_FIELD(GTMask, products, 2, 4);
OSS_FIELD(GTMask, components, 6, 32);
OSS_FIELD(GTMask, functions, 38, 512);
OSS_FIELD(GTMask, classes, 550, 1);

/// Where gtmScanPointsHash goes on: a node, from 1. The library only advances it; set it to 1 to
/// begin. One for the process.
extern "C" OSS_API uint32_t g_iGtmScanCursor;

class OSS_API GTM_TRC_MASK {
 public:
  /// Empties the mask. \return true
  bool gtmClearMask() noexcept;

  /// Adds a record type to a product, component or function, or a point to a function.
  ///
  /// The bits of product, component and function are set with it. What the mask has no room for is
  /// silently not set: products from 32 on, components behind the last record, functions from 4,096
  /// on (nor is then their type or point), types from 16 on. With GTM_ALL everything below is set,
  /// too, but nothing below is in point mode.
  /// \param typeOrProbe  a record type or GTM_ALL; with GTM_POINT a probe, of which 16 bits count
  /// \param options      0 or GTM_POINT
  /// \param pointFlags   0 or GTM_EXCLUDED; a point that is there already takes the new flags
  /// \return false when the table of points is full, else true
  bool gtmSetMask(uint64_t prod, uint64_t comp, uint64_t func, uint64_t typeOrProbe,
                  uint64_t options, uint64_t pointFlags) noexcept;

  /// Takes away what gtmSetMask adds, then what has nothing left below it: a function without
  /// points in a component without types, a component without functions, a product without
  /// components.
  ///
  /// The functions of a component share its types: deleting one type of one function changes
  /// nothing while other functions remain; deleting all types takes the function and its points
  /// away, the last function also the types. In point mode a point that is not there is added as
  /// excluded when a type of points is recorded for its function.
  /// \return false when that excluded point finds the table full, else true
  bool gtmDelMask(uint64_t prod, uint64_t comp, uint64_t func, uint64_t typeOrProbe,
                  uint64_t options) noexcept;

  /// Tells whether a trace point is to be recorded. Its product, component and function must be in
  /// the mask; then a type of the component is recorded but for excluded points (which have types
  /// 3, 4, 5, 11 and 13 only), another type where the point is in the table and not excluded.
  /// \param funcId  the function identifier; its kind bits do not matter
  bool gtmIsElemInMask(uint32_t funcId, uint16_t type, uint16_t probe) const noexcept;

  /// Each tests a single bit; false for what the mask has no room for.
  bool gtmIsCompInMask(uint64_t prod, uint64_t comp) const noexcept;
  bool gtmIsFuncInMask(uint64_t prod, uint64_t comp, uint64_t func) const noexcept;
  bool gtmIsTypeInMask(uint64_t prod, uint64_t comp, uint64_t type) const noexcept;

  bool gtmIsProdMaskFull() const noexcept;
  /// Every component of the catalog's product; true when it has fewer than two.
  bool gtmIsCompMaskFull(uint64_t prod) const noexcept;
  bool gtmIsFuncMaskFull(uint64_t prod, uint64_t comp) const noexcept;
  bool gtmIsTypeMaskFull(uint64_t prod, uint64_t comp) const noexcept;

  /// Flattens the mask, as far as the catalog goes: products and components that are in the mask,
  /// their functions, and the types 1 to 14 of all of them. A function with points, excluded ones
  /// too, adds the types 3 to 11 and 13.
  /// \param out  not null; overwritten
  void gtmReplicateMask(GTMask* out) const noexcept;

  /// Fetches the next point from g_iGtmScanCursor on, in the order of the nodes. All arguments are
  /// outputs and not null; untouched at the end.
  /// \return false when there is none left
  bool gtmScanPointsHash(uint32_t* key, uint64_t* flags, uint16_t* probe) const noexcept;

 private:
  struct Editor;  // the steps of setting and deleting, which are not exported

  uint8_t products_[4];
  uint8_t components_[33];     // 257 bits: the last one lies where the record of component 0 would
  uint8_t unused_[513];        // the rest of that record
  GTMComponent records_[256];  // of the components from 1 on
  GTMPointTable table_;
};
OSS_LAYOUT(GTM_TRC_MASK, 182208);
