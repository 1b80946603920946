// The names of sources in block headers. Every allocation passes here.
#include "memory/ossblock.h"

#include <emmintrin.h>

#include <bit>
#include <cstring>

namespace oss {
namespace {

__m128i equals(__m128i text, char c) noexcept { return _mm_cmpeq_epi8(text, _mm_set1_epi8(c)); }

// A bit for each of the sixteen characters.
uint32_t bitsOf(__m128i characters) noexcept {
  return static_cast<uint32_t>(_mm_movemask_epi8(characters));
}

}  // namespace

// Sixteen characters at a time. The loads are aligned, so that none reaches into a page without a
// part of the text, but they do read around it.
[[gnu::no_sanitize_address]] [[gnu::no_sanitize_thread]] std::string_view baseNameOf(
    const char* path) noexcept {
  if (path == nullptr) return {};
  const char* name = path;
  const uintptr_t before = reinterpret_cast<uintptr_t>(path) % sizeof(__m128i);
  const char* at = path - before;
  for (uint32_t part = ~0u << before;; part = ~0u, at += sizeof(__m128i)) {
    const __m128i text = *reinterpret_cast<const __m128i*>(at);
    const uint32_t end = bitsOf(equals(text, '\0')) & part;
    const uint32_t slashes = bitsOf(_mm_or_si128(equals(text, '\\'), equals(text, '/'))) & part;
    // Those in front of the end, which may be none of the sixteen.
    if (const uint32_t own = slashes & ~end & (end - 1); own != 0) name = at + std::bit_width(own);
    if (end != 0) return {name, static_cast<size_t>(at + std::countr_zero(end) - name)};
  }
}

uint32_t hashOf(std::string_view baseName) noexcept {
  const char* at = baseName.data();
  size_t left = baseName.size();
  const auto byte = [&at](size_t i) { return uint32_t{static_cast<unsigned char>(at[i])}; };

  uint32_t hash = 0;
  if (left >= 7) hash = (byte(3) << 28 | byte(4) << 21 | byte(5) << 13) + byte(6) * 32;

  uint32_t lastFirst = 0;
  for (; left >= 4; left -= 4, at += 4) {
    uint32_t four;
    std::memcpy(&four, at, sizeof four);
    lastFirst ^= four;
  }
  hash ^= __builtin_bswap32(lastFirst);
  for (size_t i = 0; i < left; ++i) hash ^= byte(i) << (8 * (left - 1 - i));
  return hash;
}

[[gnu::flatten]] uint32_t hashOfFile(const char* path) noexcept { return hashOf(baseNameOf(path)); }

}  // namespace oss
