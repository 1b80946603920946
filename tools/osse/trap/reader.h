// reader.h - the walk over the bytes of a trap file.
//
// At each place the reader asks which of the sections that it has not met yet is there. First by
// its marks; if none is known, by what follows: a section of a fixed length is believed, damaged as
// it is, when behind it stands one that is known, or the file's end. If that fails as well, it goes
// on a byte at a time until a section is known.
//
// Another header ends a dump, as the file's end does: what follows is another walk's.
//
// Always true: every step moves on, so the walk ends; each section is read once.
#pragma once

#include "trap/marks.h"
#include "trap/trapfile.h"

namespace oss::tool {

class TrapReader {
 public:
  // \param start  where the dump begins
  // \param trap   an empty one, which is filled
  TrapReader(std::string_view file, uint64_t start, TrapFile& trap)
      : file_(file), trap_(trap), at_(start) {}

  // \return false when there is no header
  bool read();

  // Instead of it: whether a dump begins at the start for certain, with a section, or the end,
  // behind its header. What lies on a stack may look like a header as well.
  bool beginsDump();

  // Behind read(): where the next dump begins, or the file's end.
  uint64_t end() const { return at_; }

 private:
  using Modules = std::vector<Part<OSSTrapModule>>;

  bool findHeader();
  void readHeader(uint64_t at);
  bool readNext();

  std::optional<TrapSection> known(uint64_t at) const;
  std::optional<TrapSection> knownByMarks(uint64_t at) const;
  std::optional<TrapSection> knownByWhatFollows(uint64_t at) const;
  std::optional<TrapSection> knownFromAfar(uint64_t at) const;
  bool isEnd(uint64_t at) const { return file_.left(at) == 0 || isHeader(file_, at); }
  bool isFollowed(uint64_t at) const { return isEnd(at) || known(at); }
  bool isMet(TrapSection section) const { return met_[static_cast<size_t>(section)]; }
  bool isException(uint64_t at) const;
  bool isVersion(uint64_t at) const;
  bool isStack(uint64_t at) const;
  bool isDamagedModuleSection(uint64_t at) const;
  bool isEndOfStack(uint64_t at) const;
  std::optional<uint64_t> findFrames(uint64_t at) const;

  bool skipToKnown();
  void read(TrapSection section);
  void readSystem();
  uint64_t findMemoryStatus() const;
  void readEnvironment();
  bool hasEnvironmentEnd();
  void readModules(Modules& modules, uint64_t count);
  void readModuleSection();
  void readStack();
  void readInstructions();
  void readFrames();
  void readRawStack();
  bool isOfAnotherFault() const;
  std::optional<uint64_t> wordsToNextSection() const;

  // Takes the record that stands here and moves behind it.
  template <class Record>
  Part<Record> take() {
    const Part<Record> part(file_, at_);
    at_ += part.bytes;
    return part;
  }
  std::string takeText(uint64_t bytes);
  void place(TrapSection section, uint64_t start);
  void problem(const std::string& what, uint64_t at);

  Bytes file_;
  TrapFile& trap_;
  uint64_t at_;
  uint64_t environmentEnd_ = 0;  // where its mark was found
  bool met_[kTrapSections] = {};
};

}  // namespace oss::tool
