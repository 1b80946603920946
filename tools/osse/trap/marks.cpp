#include "trap/marks.h"

#include <array>
#include <cstddef>

#include "trap/trapfile.h"

namespace oss::tool {
namespace {

// Counts which marks of a record hold. One beyond the file's end does neither.
class Marks {
 public:
  Marks(const Bytes& file, uint64_t at) : file_(file), at_(at) {}

  template <class Field, class Test>
  void expect(size_t offset, Test&& test) {
    const std::optional<Field> field = file_.get<Field>(at_ + offset);
    if (!field) return;
    ++(test(*field) ? held_ : broken_);
  }
  template <class Field>
  void expectEqual(size_t offset, Field wanted) {
    expect<Field>(offset, [wanted](Field field) { return field == wanted; });
  }

  // \param wanted  of a whole record; one that is cut off needs `least`, and no broken one
  bool hold(uint64_t size, int wanted, int least) const {
    return file_.left(at_) >= size ? held_ >= wanted : held_ >= least && broken_ == 0;
  }

 private:
  const Bytes& file_;
  uint64_t at_;
  int held_ = 0;
  int broken_ = 0;
};

// Programs have the lower half of the address space.
bool isUserAddress(uint64_t address) { return address < uint64_t{1} << 47; }

// Whether a string of the environment can have this length.
bool isStringLength(uint64_t length) { return length != 0 && length <= 0xFFFF; }

bool isText(std::string_view text) {
  return std::all_of(text.begin(), text.end(),
                     [](char c) { return static_cast<unsigned char>(c) >= ' '; });
}

// At least one character, at most 260 of them, and zeros behind them; as far as it is there.
bool isModuleName(std::string_view name) {
  constexpr size_t kFewest = 4;  // of a name that is cut off
  const size_t length = std::min(name.find('\0'), name.size());
  if (length > 260 || !isText(name.substr(0, length))) return false;
  if (length == name.size())
    return length >= kFewest && std::all_of(name.begin(), name.end(), [](char c) { return c > 0; });
  return length != 0 && name.find_first_not_of('\0', length) == std::string_view::npos;
}

std::string_view endMark() {
  static constexpr auto kMark = [] {
    std::array<char, sizeof(uint64_t) + sizeof OSS_TRAP_ENVIRONMENT_END - 1> mark{};
    mark[0] = sizeof OSS_TRAP_ENVIRONMENT_END - 1;
    std::copy_n(OSS_TRAP_ENVIRONMENT_END, sizeof OSS_TRAP_ENVIRONMENT_END - 1,
                mark.begin() + sizeof(uint64_t));
    return mark;
  }();
  return {kMark.data(), kMark.size()};
}

}  // namespace

bool isHeader(const Bytes& file, uint64_t at) {
  return file.piece(at, sizeof OSSTrapHeader::eyeCatcher) == OSS_TRAP_EYE_CATCHER;
}

bool isSystem(const Bytes& file, uint64_t at) {
  constexpr uint32_t kVersion = sizeof(SystemInfo);
  Marks marks(file, at);
  marks.expectEqual<uint32_t>(offsetof(SystemInfo, pageSize), 4096);
  marks.expectEqual<uint64_t>(offsetof(SystemInfo, lowestAddress), 0x10000);
  marks.expectEqual<uint32_t>(offsetof(SystemInfo, granularity), 0x10000);
  marks.expectEqual<uint32_t>(kVersion + offsetof(OsVersion, size), sizeof(OsVersion));
  marks.expectEqual<uint32_t>(kVersion + offsetof(OsVersion, platform), 2);
  return marks.hold(sizeof(SystemInfo) + sizeof(OsVersion), 4, 1);
}

bool isEnvironmentEnd(const Bytes& file, uint64_t at) {
  return file.piece(at, endMark().size()) == endMark();
}

bool isDamagedEnvironmentEnd(const Bytes& file, uint64_t at) {
  constexpr size_t kLength = sizeof(uint64_t);
  const std::string_view mark = file.piece(at, endMark().size());
  if (mark.size() != endMark().size()) return false;
  return mark.substr(kLength) == endMark().substr(kLength) ||
         (mark.substr(0, kLength) == endMark().substr(0, kLength) &&
          mark.find('=', kLength) == std::string_view::npos);
}

bool isEnvironment(const Bytes& file, uint64_t at) {
  const std::optional<uint64_t> length = file.get<uint64_t>(at);
  if (!length || !isStringLength(*length)) return false;
  if (isEnvironmentEnd(file, at)) return true;

  const std::string_view text = file.piece(at + sizeof *length, *length);
  if (text.find('\0') != std::string_view::npos) return false;
  if (text.size() < *length) return isText(text);
  const std::optional<uint64_t> next = file.get<uint64_t>(at + sizeof *length + *length);
  return text.find('=') != std::string_view::npos || (next && isStringLength(*next));
}

bool isException(const Bytes& file, uint64_t at) {
  constexpr uint32_t kAllFlags = 0xFF;
  Marks marks(file, at);
  marks.expect<uint32_t>(offsetof(ExceptionRecord, code), [](uint32_t code) { return code != 0; });
  marks.expect<uint32_t>(offsetof(ExceptionRecord, flags),
                         [](uint32_t flags) { return flags <= kAllFlags; });
  marks.expect<uint64_t>(offsetof(ExceptionRecord, nested), isUserAddress);
  marks.expect<uint64_t>(offsetof(ExceptionRecord, address), isUserAddress);
  marks.expect<uint32_t>(offsetof(ExceptionRecord, parameterCount),
                         [](uint32_t count) { return count <= ExceptionRecord::kMostParameters; });
  return marks.hold(sizeof(ExceptionRecord), 5, 2);
}

bool isContext(const Bytes& file, uint64_t at) {
  constexpr uint32_t kNotFlags = 0x07EFFF80;  // what no context has: neither parts nor requests
  constexpr uint16_t kCode = 0x33;
  constexpr uint16_t kStack = 0x2B;
  const std::optional<uint32_t> mxCsr = file.get<uint32_t>(at + offsetof(Context, mxCsr));
  Marks marks(file, at);
  marks.expect<uint32_t>(offsetof(Context, flags), [](uint32_t flags) {
    return (flags & kContextAmd64) != 0 && (flags & kNotFlags) == 0;
  });
  marks.expectEqual<uint16_t>(offsetof(Context, cs), kCode);
  marks.expectEqual<uint16_t>(offsetof(Context, ss), kStack);
  // Bit 1 is always set.
  marks.expect<uint32_t>(offsetof(Context, eflags),
                         [](uint32_t eflags) { return (eflags & 2) != 0 && eflags < 0x400000; });
  marks.expect<uint64_t>(offsetof(Context, rsp), isUserAddress);
  // A program sets it as one value.
  marks.expect<uint32_t>(offsetof(Context, floatMxCsr),
                         [mxCsr](uint32_t saved) { return saved == mxCsr && saved <= 0xFFFF; });
  return marks.hold(sizeof(Context), 4, 1);
}

bool isModule(const Bytes& file, uint64_t at) {
  constexpr uint64_t kPage = 4096;
  constexpr uint64_t kLargestImage = uint64_t{1} << 32;
  const std::optional<uint64_t> base = file.get<uint64_t>(at + offsetof(OSSTrapModule, base));
  const std::optional<uint64_t> end = file.get<uint64_t>(at + offsetof(OSSTrapModule, end));
  if (base && (*base % kPage != 0 || !isUserAddress(*base))) return false;
  if (end && (*end <= *base || *end - *base > kLargestImage)) return false;
  if (file.get<uint32_t>(at + offsetof(OSSTrapModule, reserved)).value_or(0) != 0) return false;
  return isModuleName(file.piece(at, sizeof OSSTrapModule::name));
}

namespace {

bool isFrame(const Bytes& file, uint64_t at, int damaged) {
  const auto isFlag = [](uint32_t flag) { return flag <= 1; };
  constexpr size_t kMode = offsetof(WalkAddress, mode);
  Marks modes(file, at);
  modes.expectEqual<uint32_t>(offsetof(WalkFrame, pc) + kMode, kFlatAddress);
  modes.expectEqual<uint32_t>(offsetof(WalkFrame, returning) + kMode, kFlatAddress);
  modes.expectEqual<uint32_t>(offsetof(WalkFrame, frame) + kMode, kFlatAddress);
  modes.expectEqual<uint32_t>(offsetof(WalkFrame, stack) + kMode, kFlatAddress);
  Marks marks = modes;
  marks.expect<uint32_t>(offsetof(WalkFrame, isFar), isFlag);
  marks.expect<uint32_t>(offsetof(WalkFrame, isVirtual), isFlag);
  return modes.hold(sizeof(WalkFrame), 4 - damaged, 1) &&
         marks.hold(sizeof(WalkFrame), 6 - damaged, 1);
}

}  // namespace

bool isFrame(const Bytes& file, uint64_t at) { return isFrame(file, at, 2); }

bool isSoundFrame(const Bytes& file, uint64_t at) {
  return file.left(at) >= sizeof(WalkFrame) && isFrame(file, at, 0);
}

bool isModuleSection(const Bytes& file, uint64_t at) {
  const std::optional<uint64_t> count = file.get<uint64_t>(at);
  if (!count || *count == 0 || *count > kMostModules) return false;
  return isModule(file, at + sizeof *count);
}

bool isLibraryVersion(const Bytes& file, uint64_t at) {
  const std::optional<ApiVersion> version = file.get<ApiVersion>(at);
  // Neither a minor number nor a revision: such is the length of a string.
  return version && version->major != 0 && version->major < 100 && version->minor < 1000 &&
         (version->minor != 0 || version->revision != 0) && version->reserved == 0;
}

}  // namespace oss::tool
