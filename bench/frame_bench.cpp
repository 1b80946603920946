// Claim: with tracing off, the frame of an operation is free: it costs less than 1 ns.
//
// Both functions check a parameter record and move a position, and refuse to move it too far; one
// does so within the frame.
#include "core/ossoperation.h"
#include "ossfile.h"
#include "ratio.h"

namespace {

using namespace oss;
using namespace oss::bench;

constexpr int64_t kTurns = 200'000;

constexpr uint64_t kFarthest = uint64_t{1} << 60;
uint64_t g_position = 0;

// Called through a pointer that the compiler cannot follow, so neither becomes part of the loop.
using Move = OSSErr(const OSSFileSeekParam* param, uint64_t* position) noexcept;

OSSErr moveFramed(const OSSFileSeekParam* param, uint64_t* position) noexcept {
  Operation op(Func::OSSHFile_seek);
  if (const OSSErr rc = op.check(param)) return rc;
  if (param->origin > OSS_FILE_END) return op.failField(120, param->origin);

  if (g_position > kFarthest)
    return op.failSystem(130, SysCall::SetFilePointer, {{1, hex(g_position)}});
  g_position += static_cast<uint64_t>(param->offset);
  op.trace(140, g_position);
  *position = g_position;
  return op.exit();
}

OSSErr moveBare(const OSSFileSeekParam* param, uint64_t* position) noexcept {
  if (param == nullptr) return ECF_INVALID_PARAMETER;
  if (param->version < OSS_VERSION_OLDEST) return ECF_INVALID_VERSION;
  if (param->origin > OSS_FILE_END) return ECF_INVALID_PARAMETER;

  if (g_position > kFarthest) return ECF_UNKNOWN;
  g_position += static_cast<uint64_t>(param->offset);
  *position = g_position;
  return ECF_OK;
}

void run(benchmark::State& state, Move* move) {
  benchmark::DoNotOptimize(move);
  OSSFileSeekParam param;
  param.offset = 1;
  uint64_t position = 0;
  for (auto _ : state) benchmark::DoNotOptimize(move(&param, &position));
}
OSS_BENCHMARK_OF(run, moveFramed);
OSS_BENCHMARK_OF(run, moveBare);

constexpr Claim kRows[] = {{"run/moveFramed", atMostNanosecondsOver(1), "run/moveBare"}};

}  // namespace

const std::span<const Claim> oss::bench::kClaims{kRows};
