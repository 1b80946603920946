// Claim: a hex dump takes at most a tenth of the time of one that calls the formatter for each
// byte. Both write the same text, a page of random bytes.
#include "osshexdump.h"

#include <cstdio>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "ratio.h"

namespace {

using namespace oss::bench;

constexpr int64_t kTurns = 10;

constexpr size_t kBytes = 4096;
constexpr size_t kBytesPerLine = 16;
constexpr size_t kLines = kBytes / kBytesPerLine;
constexpr size_t kRoom = kLines * OSS_HEXDUMP_LINE + 100;

// The same bytes in every run.
std::vector<uint8_t> page() {
  std::mt19937 random(20040702);
  std::vector<uint8_t> bytes(kBytes);
  for (uint8_t& byte : bytes) byte = static_cast<uint8_t>(random());
  return bytes;
}

// ---- The peer ----

char* formatLine(char* out, const uint8_t* bytes, bool withAddress) {
  if (withAddress)
    out += std::snprintf(out, 22, "0x%016llX : ", reinterpret_cast<unsigned long long>(bytes));
  for (size_t i = 0; i < kBytesPerLine; ++i)
    out += std::snprintf(out, 4, i % 2 == 0 ? "%02X" : "%02X ", unsigned{bytes[i]});
  out += std::snprintf(out, 4, "   ");
  for (size_t i = 0; i < kBytesPerLine; ++i)
    *out++ = bytes[i] >= 32 && bytes[i] <= 126 ? static_cast<char>(bytes[i]) : '.';
  std::memcpy(out, "\r\n", 3);
  return out + 2;
}

void formatPage(const std::vector<uint8_t>& bytes, char* out, bool withAddress) {
  for (size_t at = 0; at < kBytes; at += kBytesPerLine)
    out = formatLine(out, &bytes[at], withAddress);
}

void dumpPage(const std::vector<uint8_t>& bytes, char* out, bool withAddress) {
  ossHexDumpToBuffer(bytes.data(), kBytes, out, kRoom, nullptr,
                     withAddress ? OSS_HEXDUMP_ADDRESS : 0);
}

// ---- Both ----

using Writer = void(const std::vector<uint8_t>& bytes, char* out, bool withAddress);

// The time is that of one line.
template <Writer* kWriter, bool kWithAddress>
void writeLines(benchmark::State& state) {
  const std::vector<uint8_t> bytes = page();
  std::string text(kRoom, '\0'), peers(kRoom, '\0');
  kWriter(bytes, text.data(), kWithAddress);
  formatPage(bytes, peers.data(), kWithAddress);
  if (std::strcmp(text.data(), peers.data()) != 0) state.SkipWithError("the texts differ");

  for (auto _ : state) {
    kWriter(bytes, text.data(), kWithAddress);
    benchmark::DoNotOptimize(text.data());
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(kLines));
}

void hexDump(benchmark::State& state) { writeLines<dumpPage, false>(state); }
void formatterPerByte(benchmark::State& state) { writeLines<formatPage, false>(state); }
void hexDumpWithAddress(benchmark::State& state) { writeLines<dumpPage, true>(state); }
void formatterPerByteWithAddress(benchmark::State& state) { writeLines<formatPage, true>(state); }
OSS_BENCHMARK(hexDump);
OSS_BENCHMARK(formatterPerByte);
OSS_BENCHMARK(hexDumpWithAddress);
OSS_BENCHMARK(formatterPerByteWithAddress);

constexpr Claim kRows[] = {
    {"hexDump", atMostTimes(0.1), "formatterPerByte"},
    {"hexDumpWithAddress", atMostTimes(0.1), "formatterPerByteWithAddress"},
};

}  // namespace

const std::span<const Claim> oss::bench::kClaims{kRows};
