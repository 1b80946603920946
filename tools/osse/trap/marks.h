// marks.h - what the sections of a trap file are known by. Sections have no tags, so each is known
// by what must hold for its fields: a size that stands in it, flags with few values, selectors that
// every thread has, addresses that follow each other.
//
// Always true: the answer depends on nothing but the bytes from `at` on, and asking for it costs
// no more than the length of one record. A record that the file's end cuts off is known by the
// marks that are left of it, if there are any; none of them may be missing then.
#pragma once

#include "trap/bytes.h"

namespace oss::tool {

bool isHeader(const Bytes& file, uint64_t at);

// The processor record with the version record behind it; one mark of five may be damaged.
bool isSystem(const Bytes& file, uint64_t at);

// A string with its length: it has an equals sign, or the length of another one follows. Or the end
// mark.
bool isEnvironment(const Bytes& file, uint64_t at);
bool isEnvironmentEnd(const Bytes& file, uint64_t at);
// Half of the end mark, where the environment goes on.
bool isDamagedEnvironmentEnd(const Bytes& file, uint64_t at);

// Knows little, for most fields of an exception record can have any value.
bool isException(const Bytes& file, uint64_t at);

// Two marks of six may be damaged.
bool isContext(const Bytes& file, uint64_t at);

bool isModule(const Bytes& file, uint64_t at);

// Two marks of six may be damaged.
bool isFrame(const Bytes& file, uint64_t at);
// Whole, and with all of its marks: what is no frame, but overlaps one, is none then.
bool isSoundFrame(const Bytes& file, uint64_t at);

// A count, and the first of that many module records.
bool isModuleSection(const Bytes& file, uint64_t at);

// Whether this may be the version of the debugging-help library.
bool isLibraryVersion(const Bytes& file, uint64_t at);

}  // namespace oss::tool
