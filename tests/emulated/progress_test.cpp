// How far long work is, as it is shown.
#include <gtest/gtest.h>

#include "workstation/progress.h"

TEST(Progress, SaysWhatIsDoneHowFastItGoesAndWhenItEnds) {
  constexpr std::uint64_t kMiB = 1 << 20, kGiB = 1 << 30;
  const struct {
    std::uint64_t done, total;
    double seconds;
    std::size_t width;
    const char* line;
  } cases[] = {
      {0, 100 * kMiB, 0, 40, "[>              ]  0 %  0.0 of 100.0 MiB"},
      {3 * kGiB / 2, 4 * kGiB, 6, 70, "[========>             ]  37 %  1.5 of 4.0 GiB  256.0 MiB/s  0:10 left"},
      {kMiB, 10'000 * kMiB, 1, 80, "[>                               ]  0 %  0.0 of 9.8 GiB  1.0 MiB/s  2:46:39 left"},
      {kGiB, kGiB, 2, 24, "100 %  1.0 of 1.0 GiB  5"}};
  for (const auto& [done, total, seconds, width, line] : cases) {
    EXPECT_EQ(workstation::ProgressLine(done, total, seconds, width), line);
  }
  EXPECT_EQ(workstation::TitleLine("37 % of 12 items, 3.0 MB left", 45),
            "[====>       ]  37 % of 12 items, 3.0 MB left");
  EXPECT_EQ(workstation::TitleLine("Command Prompt", 45) + workstation::TitleLine("370 % of it", 45), "");
}
