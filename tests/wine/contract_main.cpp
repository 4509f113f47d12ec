// The contract tests' entry point on Windows, where programs start with wide arguments.
#include <gtest/gtest.h>

int wmain(int argc, wchar_t** argv);

int wmain(int argc, wchar_t** argv) {
  testing::InitGoogleTest(&argc, argv);
  const int result = RUN_ALL_TESTS();
  return result;
}
