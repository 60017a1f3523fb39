// A frame rate as the exact fraction containers store (30000/1001 for NTSC).
#pragma once

struct VideoRate {
  int num = 0;  // num / den frames per second
  int den = 1;
  bool known() const { return num > 0 && den > 0; }
  double perSecond() const { return known() ? static_cast<double>(num) / den : 0.0; }
};
