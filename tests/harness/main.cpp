// The product tests' main: runs the tests, or plays the child's part when the command line names
// one (childprocess.h).
#include <gmock/gmock.h>

#include "harness/childprocess.h"

int main(int argc, char** argv) {
  testing::InitGoogleMock(&argc, argv);
  int exitCode = 0;
  if (osse_test::playChildRole(argc, argv, &exitCode)) return exitCode;
  return RUN_ALL_TESTS();
}
