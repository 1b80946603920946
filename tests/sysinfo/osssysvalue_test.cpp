// What a record holds before anything is written into it.
#include "osssysvalue.h"

#include <gtest/gtest.h>

#include <new>

#include "ossmachine.h"

namespace {

// Called where the compiler cannot follow: what the bytes hold before a constructor is nothing that
// it would keep.
template <class Value>
const Value* construct(unsigned char* place) {
  using Make = const Value* (*)(unsigned char*);
  volatile Make make = [](unsigned char* bytes) -> const Value* { return new (bytes) Value; };
  return make(place);
}

template <class Value>
void expectNothing() {
  alignas(Value) unsigned char bytes[sizeof(Value)];
  std::memset(bytes, 0xA5, sizeof bytes);
  const Value* const value = construct<Value>(bytes);
  EXPECT_EQ(value->value, decltype(value->value){});
  EXPECT_EQ(value->status, 0u);
}

TEST(SysInfoValues, AreConstructedAsZeroAndValid) {
  expectNothing<OSSSysInfoUint>();
  expectNothing<OSSSysInfoSint>();
  expectNothing<OSSSysInfoSint64>();
  expectNothing<OSSSysInfoDouble>();
}

// Deliberate: 255 of its 256 bytes.
TEST(SysInfoValues, ATextIsConstructedEmptyButForItsLastByte) {
  alignas(OSSSysInfoStr) unsigned char bytes[sizeof(OSSSysInfoStr)];
  std::memset(bytes, 0xA5, sizeof bytes);
  construct<OSSSysInfoStr>(bytes);
  for (size_t at = 0; at < sizeof bytes; ++at) EXPECT_EQ(bytes[at], at == 255 ? 0xA5 : 0) << at;
}

TEST(SysInfoValues, RecordsAreStampedWithTheCurrentVersion) {
  EXPECT_EQ(OSSCPUInfo().version, 0x09010007u);
  EXPECT_EQ(OSSOSInfo().version, 0x09010007u);
  EXPECT_EQ(OSSKernelIPCInfo().version, 0x09010007u);
  EXPECT_EQ(OSSSystemDirectoryInfo().version, 0x09010007u);
}

}  // namespace
