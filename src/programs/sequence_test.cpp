// Frame patterns, sequence discovery and progress lines.
#include "programs/sequence.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

TEST(Sequence, PatternsNeedExactlyOneIntegerConversion) {
  std::string error;
  for (const char* good : {"f/%05d.png", "%d.ppm", "a%%b%3d.jpg", "%09d"}) {
    EXPECT_TRUE(checkFramePattern(good, error)) << good << ": " << error;
  }
  // Anything else would make snprintf read arguments that are not there.
  for (const char* bad : {"frame.png", "%d%d.png", "%s.png", "%05x.png", "%.3d", "%ld.png", "%123d", "%", "a%"}) {
    EXPECT_FALSE(checkFramePattern(bad, error)) << bad;
  }
  EXPECT_EQ(frameName("f/%05d.png", 42), "f/00042.png");
  EXPECT_EQ(frameName("a%%b%3d", 7), "a%b  7");
}

TEST(Sequence, FramesStartAtZeroOrOneAndStopAtTheFirstGap) {
  const std::string dir = testing::TempDir() + "vemo_seq_" + std::to_string(getpid());
  ASSERT_EQ(mkdir(dir.c_str(), 0755), 0);
  const std::string pattern = dir + "/%03d.png";
  for (int n : {1, 2, 3, 5}) std::fclose(std::fopen(frameName(pattern, n).c_str(), "w"));
  EXPECT_EQ(findFrames(pattern, -1), (std::vector<int>{1, 2, 3}));
  EXPECT_EQ(findFrames(pattern, 2), (std::vector<int>{2, 3}));
  EXPECT_EQ(findFrames(pattern, 5), (std::vector<int>{5}));
  std::fclose(std::fopen(frameName(pattern, 0).c_str(), "w"));
  EXPECT_EQ(findFrames(pattern, -1), (std::vector<int>{0, 1, 2, 3}));
  EXPECT_TRUE(findFrames(dir + "/none%d.png", -1).empty());
  std::system(("rm -rf '" + dir + "'").c_str());
}

TEST(Sequence, ProgressIsABarOnATerminalAndPlainLinesOtherwise) {
  EXPECT_EQ(progressLine(3, 10, 6.0, false), "3/10 pairs, 0.50 pairs/s\n");
  EXPECT_EQ(progressLine(0, 10, 0.0, false), "0/10 pairs, -- pairs/s\n");
  const std::string bar = progressLine(5, 10, 2.0, true);
  EXPECT_EQ(bar.front(), '\r');
  EXPECT_EQ(bar.find('\n'), std::string::npos);
  EXPECT_NE(bar.find("[" + std::string(15, '#') + std::string(15, ' ') + "]"), std::string::npos) << bar;
  EXPECT_NE(bar.find("2.50 pairs/s"), std::string::npos);
  // A video that does not say how long it is: counts only.
  EXPECT_EQ(progressLine(3, -1, 6.0, false), "3 pairs, 0.50 pairs/s\n");
  EXPECT_EQ(progressLine(3, -1, 6.0, true), "\r3 pairs, 0.50 pairs/s");
}
