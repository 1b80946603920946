// The stack section: instruction bytes, frames, raw stack.
#include "trap/marks.h"
#include "trap/reader.h"

namespace oss::tool {
namespace {

bool isLastFrame(const Part<WalkFrame>& frame) {
  const uint64_t returning = frame.value.returning.offset;
  return returning == 0 || returning == OSS_TRAP_WALK_FAILED;
}

}  // namespace

void TrapReader::readStack() {
  const uint64_t start = at_;
  met_[static_cast<size_t>(TrapSection::Stack)] = true;
  readInstructions();
  readFrames();
  if (isOfAnotherFault())
    problem("the walk does not begin where the registers are: the stack is of another fault",
            start);
  readRawStack();
  place(TrapSection::Stack, start);
}

// A walk begins at the context's instruction. One that failed at once tells nothing.
bool TrapReader::isOfAnotherFault() const {
  if (trap_.frames.empty() || !trap_.context.holds(&Context::rip)) return false;
  const Part<WalkFrame>& first = trap_.frames.front();
  return first.isWhole() && first.value.returning.offset != OSS_TRAP_WALK_FAILED &&
         first.value.pc.offset != trap_.context.value.rip;
}

void TrapReader::readInstructions() {
  uint64_t count = std::min(trap_.header.value.instructionBytes, OSS_TRAP_MOST_INSTRUCTIONS);
  const uint64_t told = at_ + count;
  if (file_.left(told) != 0 && !isFrame(file_, told)) {
    const std::optional<uint64_t> frames = findFrames(at_);
    if (frames && *frames != told) {
      count = *frames - at_;
      problem("there are " + std::to_string(count) + " instruction bytes, and " +
                  std::to_string(trap_.header.value.instructionBytes) + " were told of",
              at_);
    }
  }
  trap_.instructions = takeText(count);
  if (trap_.instructions.size() < count)
    problem("the file is cut off in the instruction bytes", at_);
}

// A walk ends at a frame without a return address, or where it failed. What follows is asked as
// well, for either may be damaged: the raw stack begins with a small number, no frame does.
void TrapReader::readFrames() {
  const auto isCount = [this](uint64_t at) {
    const std::optional<uint64_t> words = file_.get<uint64_t>(at);
    return words && *words <= OSS_TRAP_MOST_STACK_WORDS;
  };
  const auto isRawStack = [&](uint64_t at) {
    return isCount(at) && file_.left(at) >= (*file_.get<uint64_t>(at) + 1) * sizeof(uint64_t);
  };
  while (file_.left(at_) != 0) {
    if (!isFrame(file_, at_)) {
      const uint64_t behind = at_ + sizeof(WalkFrame);
      if (isRawStack(at_) || file_.left(behind) == 0 || !isFrame(file_, behind)) break;
      problem("a frame is damaged", at_);
    }
    const uint64_t place = at_;
    trap_.frames.push_back(take<WalkFrame>());
    const Part<WalkFrame>& frame = trap_.frames.back();
    if (!frame.isWhole()) problem("the file is cut off in a frame", place);
    if (!isLastFrame(frame)) continue;
    if (file_.left(at_) == 0 || isCount(at_) || !isFrame(file_, at_)) return;
    problem("a frame's return address is damaged: it is not the last", place);
  }
  if (!trap_.frames.empty() && trap_.frames.back().isWhole())
    problem("the walk over the stack has no end", at_);
}

void TrapReader::readRawStack() {
  if (trap_.frames.empty()) return;
  if (file_.left(at_) != 0 && isModuleSection(file_, at_))
    return problem("the raw stack is missing", at_);
  const std::optional<uint64_t> words = file_.get<uint64_t>(at_);
  if (!words) {
    if (trap_.frames.back().isWhole())
      problem("the file is cut off in front of the raw stack", at_);
    at_ += file_.left(at_);
    return;
  }
  at_ += sizeof *words;
  trap_.stackWords = std::min(*words, OSS_TRAP_MOST_STACK_WORDS);
  const uint64_t bytes = *trap_.stackWords * sizeof(uint64_t);
  if (*words > OSS_TRAP_MOST_STACK_WORDS || !isFollowed(at_ + bytes)) {
    const std::optional<uint64_t> there = wordsToNextSection();
    if (there) trap_.stackWords = there;
    if (*words != trap_.stackWords)
      problem("the raw stack's count of words is damaged", at_ - sizeof *words);
  }
  trap_.stack = takeText(*trap_.stackWords * sizeof(uint64_t));
  if (trap_.stack.size() < *trap_.stackWords * sizeof(uint64_t))
    problem("the file is cut off in the raw stack", at_);
}

// To the module section or to another dump.
std::optional<uint64_t> TrapReader::wordsToNextSection() const {
  for (uint64_t words = 0; words <= OSS_TRAP_MOST_STACK_WORDS; ++words) {
    const uint64_t at = at_ + words * sizeof(uint64_t);
    if (isModuleSection(file_, at) || isHeader(file_, at)) return words;
  }
  return std::nullopt;
}

}  // namespace oss::tool
