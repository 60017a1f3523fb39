#include "backends/cpu/convolve.h"

#include <gtest/gtest.h>

#include <stdexcept>

#include "backends/cpu/plane_test_util.h"
#include "variational/filter_masks.h"

using flowcore::testing_util::Planes;
using flowcore::testing_util::sameBits;

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
      flowcore::cpu::gConvolveX(out.ptr(), in.ptr(), in.height, in.width, in.pitch, kMasks[m], kLengths[m]);
      tiledReferenceX(in, ref, kMasks[m], kLengths[m]);
      Planes inT = transpose(in, s[0] + 3), outT(s[1], s[0], s[0] + 3);
      flowcore::cpu::gConvolveY(outT.ptr(), inT.ptr(), inT.height, inT.width, inT.pitch, kMasks[m], kLengths[m]);
      for (int y = 0; y < in.height; ++y)
        for (int x = 0; x < in.width; ++x) {
          ASSERT_TRUE(sameBits(out.at(x, y), ref.at(x, y))) << s[1] << "x" << s[0] << " len " << kLengths[m] << " at " << x << "," << y;
          ASSERT_TRUE(sameBits(outT.at(y, x), ref.at(x, y))) << "y pass, at " << x << "," << y;
        }
      EXPECT_TRUE(out.paddingIntact());
      EXPECT_TRUE(outT.paddingIntact());
    }
}

TEST(ShortMaskConvolution, RightHaloRepeatsBlockEndWhileClampPathUsesEdgeColumn) {
  // 17 columns, 5 taps: column 15's sample at +2 is column 17 (beyond the
  // image); the tile gives the block's last column 15, the clamp path the
  // edge column 16. Column 16 (alone in its block) sees 14 through the left
  // halo and itself beyond the edge.
  Planes in(2, 17, 24);
  in.fill([](int x, int y, int) { return (float)(x + 100 * y); });
  const float last[5] = {0, 0, 0, 0, 1}, first[5] = {1, 0, 0, 0, 0};
  Planes out(2, 17, 24);
  flowcore::cpu::gConvolveX(out.ptr(), in.ptr(), 2, 17, 24, last, 5);
  EXPECT_EQ(out.at(15, 1), 115.0f);
  EXPECT_EQ(out.at(14, 1), 116.0f);
  EXPECT_EQ(out.at(16, 1), 116.0f);
  flowcore::cpu::gConvolveX(out.ptr(), in.ptr(), 2, 17, 24, first, 5);
  EXPECT_EQ(out.at(16, 0), 14.0f);
  EXPECT_EQ(out.at(0, 0), 0.0f);  // left edge replicated
  EXPECT_EQ(out.at(1, 0), 0.0f);
  Planes inplace = in;
  flowcore::cpu::gConvolveX(inplace.ptr(), inplace.ptr(), 2, 17, 24, last, 5);
  EXPECT_EQ(inplace.at(15, 1), 116.0f);
  EXPECT_EQ(inplace.at(16, 1), 116.0f);
  EXPECT_EQ(inplace.at(3, 1), 105.0f);
  EXPECT_TRUE(inplace.paddingIntact());
}

TEST(ClampConvolution, InPlaceAndLongMasksAgreeWithDistinctBuffersAwayFromBorders) {
  Planes in(40, 37, 44);
  in.fillRandom(5);
  int len = 0;
  const std::vector<float> g = flowcore::GaussianFilterCreate(1.5f, len);  // 9 taps: clamp path
  ASSERT_EQ(len, 9);
  Planes a(40, 37, 44), b = in;
  flowcore::cpu::gConvolveY(a.ptr(), in.ptr(), 40, 37, 44, g.data(), len);
  flowcore::cpu::gConvolveY(b.ptr(), b.ptr(), 40, 37, 44, g.data(), len);
  for (int y = 0; y < 40; ++y)
    for (int x = 0; x < 37; ++x) {
      // Direct clamp-to-edge reference.
      float sum = 0.0f;
      for (int j = 0; j < len; ++j) sum = fmaf(g[j], in.at(x, std::min(std::max(y + j - 4, 0), 39)), sum);
      ASSERT_TRUE(sameBits(a.at(x, y), sum)) << x << "," << y;
      ASSERT_TRUE(sameBits(b.at(x, y), sum)) << x << "," << y;
    }
  EXPECT_TRUE(a.paddingIntact());
  EXPECT_TRUE(b.paddingIntact());
}

TEST(GaussianFilter, InPlaceEqualsSeparateAndIgnoresPadding) {
  Planes in(21, 19, 26);
  in.fillRandom(9);
  Planes out(21, 19, 26), same = in;
  flowcore::cpu::gGaussianFilter(out.ptr(), in.ptr(), 21, 19, 26, 2.0f);
  flowcore::cpu::gGaussianFilter(same.ptr(), same.ptr(), 21, 19, 26, 2.0f);
  for (int y = 0; y < 21; ++y)
    for (int x = 0; x < 19; ++x) {
      ASSERT_TRUE(std::isfinite(out.at(x, y))) << "padding read as data at " << x << "," << y;
      ASSERT_TRUE(sameBits(out.at(x, y), same.at(x, y)));
    }
  EXPECT_TRUE(out.paddingIntact());
  // A constant image stays constant (mask sums to one).
  Planes flat(21, 19, 26);
  flat.fill([](int, int, int) { return 42.0f; });
  flowcore::cpu::gGaussianFilter(flat.ptr(), flat.ptr(), 21, 19, 26, 4.0f);
  EXPECT_NEAR(flat.at(18, 20), 42.0f, 1e-3f);
}

TEST(ConvolutionArguments, RefusesMasksThatDoNotFitAndMismatchedSizes) {
  Planes in(4, 4, 4), out(4, 4, 4);
  std::vector<float> big(flowcore::cpu::kMaxMaskLength + 1, 0.0f);
  EXPECT_THROW(flowcore::cpu::gConvolveX(out.ptr(), in.ptr(), 4, 4, 4, big.data(), (int)big.size()), std::invalid_argument);
  EXPECT_THROW(flowcore::cpu::gConvolveY(out.ptr(), in.ptr(), 4, 4, 4, big.data(), 0), std::invalid_argument);
  EXPECT_THROW(flowcore::cpu::gConvolveX(out.ptr(), in.ptr(), 4, 5, 4, big.data(), 3), std::invalid_argument);
  const float f[9] = {0, 0, 0, 0, 1, 0, 0, 0, 0};
  EXPECT_THROW(flowcore::cpu::Convolve2d(out.ptr(), 4, 3, in.ptr(), 4, 4, f, 3, 3), std::invalid_argument);
  in.fillRandom(2);
  flowcore::cpu::Convolve2d(out.ptr(), 4, 4, in.ptr(), 4, 4, f, 3, 3);  // centre tap only: identity
  EXPECT_EQ(out.data, in.data);
}
