// Numbered frame sequences and the progress display of a sequence run.
#pragma once

#include <cstdio>
#include <string>
#include <vector>

// Checks that pattern holds exactly one integer conversion (%d, %Nd or %0Nd,
// width up to 9) and no other conversion apart from "%%". False with the
// reason in error otherwise.
bool checkFramePattern(const std::string& pattern, std::string& error);

// The name of frame number n under a checked pattern.
std::string frameName(const std::string& pattern, int number);

// The frame numbers of a sequence: from first (or, when first < 0, from 0
// or else 1, whichever exists) while consecutive files exist.
std::vector<int> findFrames(const std::string& pattern, int first);

// One progress report: on a terminal a bar redrawn in place ("\r[####  ]
// 3/10 pairs, 0.50 pairs/s"), otherwise a plain line per report. A total
// below 0 is unknown: the count alone, without a bar.
std::string progressLine(int done, int total, double seconds, bool terminal);

class CProgress {
 public:
  // Reports to stream; terminal chooses the bar or plain lines.
  CProgress(std::FILE* stream, int total, bool terminal);
  void update(int done);
  // Ends the bar's line on a terminal.
  void finish();

 private:
  std::FILE* stream_;
  int total_;
  bool terminal_;
  double start_;
};
