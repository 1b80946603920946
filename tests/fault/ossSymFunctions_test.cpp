// What the wrappers keep to themselves.
#include "fault/ossSymFunctions.h"

#include <gtest/gtest.h>
#include <windows.h>

#include "osssymbol.h"

namespace {

TEST(SymInitializeCalls, AreAllCounted) {
  const uint64_t before = oss::symInitializeCalls();
  ossSymInitialize(nullptr, nullptr, FALSE);  // refused
  oss::initializeSymbols();
  ossSymInitialize(::GetCurrentProcess(), nullptr, TRUE);
  EXPECT_EQ(oss::symInitializeCalls(), before + 3);
}

}  // namespace
