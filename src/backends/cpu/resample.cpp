#include "backends/cpu/resample.h"

#include <vector>

#include "backends/cpu/pixel_loop.h"
#include "pixel/resample.h"

namespace flowcore::cpu {

namespace {

// The cells of every footprint along one axis with their lead and tail
// factors, laid out one footprint after another: output index o covers the
// source cells first[o] .. first[o] + (offset[o + 1] - offset[o]) - 1, their
// factors at lead[offset[o]...] and tail[offset[o]...].
struct AxisCells {
  std::vector<int> first, offset;
  std::vector<float> lead, tail;

  AxisCells(int size, int newsize) : first(newsize), offset(newsize + 1) {
    for (int o = 0; o < newsize; ++o) {
      const AreaSpan s = areaSpan(size, newsize, o);
      first[o] = s.first;
      offset[o] = static_cast<int>(lead.size());
      for (int i = s.first; i < areaSpanEnd(s, size); ++i) {
        lead.push_back(areaLeadFactor(s, i));
        tail.push_back(areaTailFactor(s, i));
      }
    }
    offset[newsize] = static_cast<int>(lead.size());
  }
};

// One footprint of rowCells x colCells cells (kRows, kCols when they are
// fixed, which unrolls the loops): the plain weighted sum, or the
// confidence-weighted numerator and denominator. Cells in footprint row j
// are rows[j * pitch + i], their weights w[j * cells + i].
template <int kRows, int kCols>
inline __attribute__((always_inline)) float footprintSum(const float* rows, std::size_t pitch, const float* w,
                                                         std::size_t cells, int rowCells, int colCells) {
  const int nj = kRows > 0 ? kRows : rowCells, ni = kCols > 0 ? kCols : colCells;
  float sum = 0.0f;
  for (int j = 0; j < nj; ++j)
    for (int i = 0; i < ni; ++i) sum = fmaf(rows[j * pitch + i], w[j * cells + i], sum);
  return sum;
}

template <int kRows, int kCols>
inline __attribute__((always_inline)) float footprintWeighted(const float* rows, const float* confRows,
                                                              std::size_t pitch, const float* w, std::size_t cells,
                                                              int rowCells, int colCells) {
  const int nj = kRows > 0 ? kRows : rowCells, ni = kCols > 0 ? kCols : colCells;
  float num = 0.0f, den = 0.0f;
  for (int j = 0; j < nj; ++j)
    for (int i = 0; i < ni; ++i) {
      const float c = confRows[j * pitch + i];
      if (c > 0.0f) {
        const float cw = c * w[j * cells + i];
        num = fmaf(rows[j * pitch + i], cw, num);
        den = den + cw;
      }
    }
  return num / den;
}

// areaAverage and areaWeightedAverage with the weights looked up: the same
// cells in the same order, the same weights and the same sums. For an output
// row, weights[j * cells + k] is the weight of the row's footprint row j and
// the listed column cell k; `weights` has room for cy's longest footprint.
// Footprints of 2 or 3 cells a side (every level close to full size) take
// unrolled loops.
VEMO_CPU_CLONES void downsampleRows(const float* arr, int pitch, float* out, int newwidth, int newpitch,
                                    const float* conf, const AxisCells& cx, const AxisCells& cy, float norm,
                                    float* weights, int y0, int y1) {
  const std::size_t cells = cx.offset[newwidth];
  const std::size_t stride = pitch;
  for (int y = y0; y < y1; ++y) {
    const int rowCells = cy.offset[y + 1] - cy.offset[y];
    for (int j = 0; j < rowCells; ++j) {
      const float leadY = cy.lead[cy.offset[y] + j], tailY = cy.tail[cy.offset[y] + j];
      float* w = weights + j * cells;
      for (std::size_t k = 0; k < cells; ++k) w[k] = areaWeightFromFactors(cx.lead[k], cx.tail[k], leadY, tailY);
    }
    const float* rows = arr + (size_t)cy.first[y] * pitch;
    const float* confRows = conf ? conf + (size_t)cy.first[y] * pitch : nullptr;
    float* o = out + (size_t)y * newpitch;
    for (int x = 0; x < newwidth; ++x) {
      const int k0 = cx.offset[x], colCells = cx.offset[x + 1] - k0;
      const float* r = rows + cx.first[x];
      const float* w = weights + k0;
      const int shape = (rowCells == 2 || rowCells == 3) && (colCells == 2 || colCells == 3)
                            ? (rowCells - 2) * 2 + (colCells - 2)
                            : 4;
      if (conf) {
        const float* c = confRows + cx.first[x];
        switch (shape) {
          case 0: o[x] = footprintWeighted<2, 2>(r, c, stride, w, cells, 2, 2); break;
          case 1: o[x] = footprintWeighted<2, 3>(r, c, stride, w, cells, 2, 3); break;
          case 2: o[x] = footprintWeighted<3, 2>(r, c, stride, w, cells, 3, 2); break;
          case 3: o[x] = footprintWeighted<3, 3>(r, c, stride, w, cells, 3, 3); break;
          default: o[x] = footprintWeighted<0, 0>(r, c, stride, w, cells, rowCells, colCells);
        }
      } else {
        float sum;
        switch (shape) {
          case 0: sum = footprintSum<2, 2>(r, stride, w, cells, 2, 2); break;
          case 1: sum = footprintSum<2, 3>(r, stride, w, cells, 2, 3); break;
          case 2: sum = footprintSum<3, 2>(r, stride, w, cells, 3, 2); break;
          case 3: sum = footprintSum<3, 3>(r, stride, w, cells, 3, 3); break;
          default: sum = footprintSum<0, 0>(r, stride, w, cells, rowCells, colCells);
        }
        o[x] = sum / norm;
      }
    }
  }
}

VEMO_CPU_CLONES void interpolateRows(float* outarray, int owidth, int opitch, const float* src, int height, int width,
                                     int pitch, float scaleFactor, int y0, int y1) {
  for (int y = y0; y < y1; ++y)
    for (int x = 0; x < owidth; ++x) outarray[y * opitch + x] = interpolateAt(src, height, width, pitch, scaleFactor, x, y);
}

}  // namespace

// The footprints depend on x alone or y alone: their cells and factors are
// listed once per call. An output row reads about height / newheight source
// rows, which sets how rows are shared out.
void downsample(const float* arr, int height, int width, int pitch, float* out, int newheight, int newwidth,
                int newpitch, const float* conf) {
  checkPlane("downsample (source)", height, width, pitch);
  checkPlane("downsample (target)", newheight, newwidth, newpitch);
  const AxisCells cx(width, newwidth), cy(height, newheight);
  const float norm = areaNorm(height, width, newheight, newwidth);
  const long rowWork = static_cast<long>(height) * width / newheight;
  int longest = 0;
  for (int y = 0; y < newheight; ++y)
    if (cy.offset[y + 1] - cy.offset[y] > longest) longest = cy.offset[y + 1] - cy.offset[y];
  const std::size_t tableFloats = static_cast<std::size_t>(longest) * cx.offset[newwidth];
  parallelRows(newheight, static_cast<int>(rowWork < 0x7fffffffL ? rowWork : 0x7fffffffL), [&](int y0, int y1) {
    std::vector<float> weights(tableFloats);
    downsampleRows(arr, pitch, out, newwidth, newpitch, conf, cx, cy, norm, weights.data(), y0, y1);
  });
}

void gInterpolate(float* outarray, int oheight, int owidth, int opitch, const float* src, int height, int width,
                  int pitch, float scaleFactor) {
  checkPlane("gInterpolate (source)", height, width, pitch);
  checkPlane("gInterpolate (target)", oheight, owidth, opitch);
  parallelRows(oheight, owidth, [&](int y0, int y1) {
    interpolateRows(outarray, owidth, opitch, src, height, width, pitch, scaleFactor, y0, y1);
  });
}

}  // namespace flowcore::cpu
