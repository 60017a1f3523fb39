#include "backends/cpu/convolve.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <vector>

#include "backends/cpu/plane_test_util.h"
#include "method/filter_masks.h"

using vemo::testing_util::Planes;
using vemo::testing_util::sameBits;

namespace {

// Literal emulation of one 16x16 block of the tiled horizontal filter: load
// the centre, replicate past the right edge, fill the halos, then sum.
void tiledReferenceX(const Planes& in, Planes& out, const float* mask, int length) {
  const int h = length / 2, R = 16 + 2 * h;
  for (int by = 0; by * 16 < in.height; ++by)
    for (int bx = 0; bx * 16 < in.width; ++bx)
      for (int ty = 0; ty < 16; ++ty) {
        const int y = by * 16 + ty;
        if (y >= in.height) continue;
        std::vector<float> tile(R, -1.0f);
        for (int tx = 0; tx < 16; ++tx) {
          const int x = bx * 16 + tx;
          tile[h + tx] = x < in.width ? in.at(x, y) : 0.0f;
        }
        for (int tx = 0; tx < 16; ++tx)
          if (bx * 16 + tx >= in.width) tile[h + tx] = tile[h + in.width - 1 - bx * 16];
        for (int tx = 0; tx < h; ++tx) {
          const int x = bx * 16 + tx;
          tile[h + tx + 16] = x + 16 < in.width ? in.at(x + 16, y) : tile[h + 15];
        }
        for (int tx = 16 - h; tx < 16; ++tx) {
          const int x = bx * 16 + tx;
          tile[h + tx - 16] = x - 16 >= 0 ? in.at(x - 16, y) : tile[h];
        }
        for (int tx = 0; tx < 16; ++tx) {
          const int x = bx * 16 + tx;
          float sum = 0.0f;
          for (int j = 0; j < length; ++j) sum = fmaf(mask[j], tile[tx + j], sum);
          if (x < in.width) out.at(x, y) = sum;
        }
      }
}

// The same image transposed, so the vertical filter can be checked with the
// horizontal reference.
Planes transpose(const Planes& p, int pitch) {
  Planes t(p.width, p.height, pitch);
  t.fill([&](int x, int y, int) { return p.at(y, x); });
  return t;
}

const float kMasks[][7] = {{0.7f}, {0.25f, 0.5f, 0.25f}, {0.083333336f, -0.6666667f, 0.0f, 0.6666667f, -0.083333336f},
                           {0.1f, 0.2f, 0.3f, 0.2f, 0.1f, 0.05f, 0.05f}, {0.2f, -0.3f, 0.4f, 0.7f}};
const int kLengths[] = {1, 3, 5, 7, 4};

}  // namespace

TEST(ShortMaskConvolution, BlockHaloRulesMatchTileEmulationAtBlockEdgesWithPaddedPitch) {
  // Sizes straddle block edges (15/16/17, 33) so that halos come from a
  // neighbouring block, from the replicated edge or from the block's own end.
  const int sizes[][2] = {{17, 16}, {35, 33}, {16, 17}, {1, 5}, {31, 40}};
  for (auto& s : sizes)
    for (int m = 0; m < 5; ++m) {
      Planes in(s[0], s[1], s[1] + 7);
      in.fillRandom(11 + m);
      Planes out(s[0], s[1], s[1] + 7), ref(s[0], s[1], s[1] + 7);
      vemo::cpu::gConvolveX(out.ptr(), in.ptr(), in.height, in.width, in.pitch, kMasks[m], kLengths[m]);
      tiledReferenceX(in, ref, kMasks[m], kLengths[m]);
      Planes inT = transpose(in, s[0] + 3), outT(s[1], s[0], s[0] + 3);
      vemo::cpu::gConvolveY(outT.ptr(), inT.ptr(), inT.height, inT.width, inT.pitch, kMasks[m], kLengths[m]);
      for (int y = 0; y < in.height; ++y)
        for (int x = 0; x < in.width; ++x) {
          ASSERT_TRUE(sameBits(out.at(x, y), ref.at(x, y))) << s[1] << "x" << s[0] << " len " << kLengths[m] << " at " << x << "," << y;
          ASSERT_TRUE(sameBits(outT.at(y, x), ref.at(x, y))) << "y pass, at " << x << "," << y;
        }
      EXPECT_TRUE(out.paddingIntact());
      EXPECT_TRUE(outT.paddingIntact());
    }
}

// Long masks, and short ones applied in place, read clamped samples instead
// of tiles: the result is the direct clamp-to-edge correlation, bit for bit,
// along either axis.
TEST(ClampConvolution, InPlaceAndLongMasksAreTheClampToEdgeCorrelation) {
  Planes in(40, 37, 44);
  in.fillRandom(5);
  int len = 0;
  const std::vector<float> g = vemo::GaussianFilterCreate(1.5f, len);  // 9 taps
  ASSERT_EQ(len, 9);
  struct Case {
    const float* mask;
    int length;
    bool inPlace;
  };
  for (const Case k : {Case{g.data(), len, false}, Case{g.data(), len, true}, Case{kMasks[2], 5, true}})
    for (bool alongX : {true, false}) {
      Planes out(40, 37, 44);
      if (k.inPlace) out = in;
      const float* src = k.inPlace ? out.ptr() : in.ptr();
      if (alongX) {
        vemo::cpu::gConvolveX(out.ptr(), src, 40, 37, 44, k.mask, k.length);
      } else {
        vemo::cpu::gConvolveY(out.ptr(), src, 40, 37, 44, k.mask, k.length);
      }
      const int h = k.length / 2;
      for (int y = 0; y < 40; ++y)
        for (int x = 0; x < 37; ++x) {
          float sum = 0.0f;
          for (int j = 0; j < k.length; ++j) {
            const int sx = alongX ? std::min(std::max(x + j - h, 0), 36) : x;
            const int sy = alongX ? y : std::min(std::max(y + j - h, 0), 39);
            sum = fmaf(k.mask[j], in.at(sx, sy), sum);
          }
          ASSERT_TRUE(sameBits(out.at(x, y), sum)) << k.length << (k.inPlace ? " in place" : "") << " at " << x
                                                   << "," << y;
        }
      EXPECT_TRUE(out.paddingIntact());
    }
}

TEST(ConvolutionArguments, RefusesMasksThatDoNotFitAndMismatchedSizes) {
  Planes in(4, 4, 4), out(4, 4, 4);
  std::vector<float> big(vemo::cpu::kMaxMaskLength + 1, 0.0f);
  EXPECT_THROW(vemo::cpu::gConvolveX(out.ptr(), in.ptr(), 4, 4, 4, big.data(), (int)big.size()), std::invalid_argument);
  EXPECT_THROW(vemo::cpu::gConvolveY(out.ptr(), in.ptr(), 4, 4, 4, big.data(), 0), std::invalid_argument);
  EXPECT_THROW(vemo::cpu::gConvolveX(out.ptr(), in.ptr(), 4, 5, 4, big.data(), 3), std::invalid_argument);
  const float f[9] = {0, 0, 0, 0, 1, 0, 0, 0, 0};
  EXPECT_THROW(vemo::cpu::Convolve2d(out.ptr(), 4, 3, in.ptr(), 4, 4, f, 3, 3), std::invalid_argument);
}
