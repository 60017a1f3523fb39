#include "backends/cpu/resample.h"

#include <algorithm>
#include <vector>

#include "backends/cpu/pixel_loop.h"
#include "pixel/resample.h"

namespace vemo::cpu {

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

// The output columns grouped by how many source columns their footprints
// cover (at most a few distinct counts: the floor and ceiling of the ratio,
// and the edges). Columns of one group take the same loops, so a row's
// footprints can be summed a group at a time, several side by side.
struct ColumnGroups {
  std::vector<int> cells;    // column count of each group
  std::vector<int> offset;   // group g lists columns[offset[g] .. offset[g + 1])
  std::vector<int> columns;

  explicit ColumnGroups(const AxisCells& cx) {
    const int n = static_cast<int>(cx.first.size());
    for (int x = 0; x < n; ++x) {
      const int c = cx.offset[x + 1] - cx.offset[x];
      if (std::find(cells.begin(), cells.end(), c) == cells.end()) cells.push_back(c);
    }
    offset.push_back(0);
    for (int c : cells) {
      for (int x = 0; x < n; ++x)
        if (cx.offset[x + 1] - cx.offset[x] == c) columns.push_back(x);
      offset.push_back(static_cast<int>(columns.size()));
    }
  }
};

// The footprints of kLanes output columns xs[0...] of one row, each summed in
// the order of areaAverage (rows, then columns; fused multiply-adds) or, with
// kWeighted, of areaWeightedAverage (cells with positive confidence only),
// side by side so that one column's additions run while another's wait for
// their previous result. All have rowCells x colCells cells (kRows x kCols
// when fixed, which unrolls the loops). Cells in footprint row j of column x
// are rows[p][j * pitch + first[x] + i] for each of kPlanes planes p, their
// weights w[j * cells + offset[x] + i]. Weighted planes share the confidence,
// so they share which cells count and the denominator.
template <int kLanes, int kRows, int kCols, bool kWeighted, int kPlanes>
inline __attribute__((always_inline)) void sumFootprints(const float* const* rows, const float* confRows,
                                                         const float* weights, const AxisCells& cx, const int* xs,
                                                         std::size_t pitch, std::size_t cells, int rowCells,
                                                         int colCells, float norm, float* const* out) {
  const int nj = kRows > 0 ? kRows : rowCells, ni = kCols > 0 ? kCols : colCells;
  std::size_t at[kLanes];
  const float* w[kLanes];
  for (int k = 0; k < kLanes; ++k) {
    at[k] = cx.first[xs[k]];
    w[k] = weights + cx.offset[xs[k]];
  }
  float num[kPlanes][kLanes] = {}, den[kLanes] = {};
  for (int j = 0; j < nj; ++j)
    for (int i = 0; i < ni; ++i) {
      const std::size_t ri = j * pitch + i, wi = j * cells + i;
      for (int k = 0; k < kLanes; ++k) {
        if (kWeighted) {
          const float cv = confRows[at[k] + ri];
          if (cv > 0.0f) {
            const float cw = cv * w[k][wi];
            for (int p = 0; p < kPlanes; ++p) num[p][k] = fmaf(rows[p][at[k] + ri], cw, num[p][k]);
            den[k] = den[k] + cw;
          }
        } else {
          for (int p = 0; p < kPlanes; ++p) num[p][k] = fmaf(rows[p][at[k] + ri], w[k][wi], num[p][k]);
        }
      }
    }
  for (int p = 0; p < kPlanes; ++p)
    for (int k = 0; k < kLanes; ++k) out[p][xs[k]] = kWeighted ? num[p][k] / den[k] : num[p][k] / norm;
}

constexpr int kLanes = 4;

// Every column of group columns[0 .. count) of one output row.
template <int kRows, int kCols, bool kWeighted, int kPlanes>
inline __attribute__((always_inline)) void sumGroup(const float* const* rows, const float* confRows,
                                                    const float* weights, const AxisCells& cx, const int* columns,
                                                    int count, std::size_t pitch, std::size_t cells, int rowCells,
                                                    int colCells, float norm, float* const* out) {
  int k = 0;
  for (; k + kLanes <= count; k += kLanes)
    sumFootprints<kLanes, kRows, kCols, kWeighted, kPlanes>(rows, confRows, weights, cx, columns + k, pitch, cells,
                                                            rowCells, colCells, norm, out);
  for (; k < count; ++k)
    sumFootprints<1, kRows, kCols, kWeighted, kPlanes>(rows, confRows, weights, cx, columns + k, pitch, cells,
                                                       rowCells, colCells, norm, out);
}

template <bool kWeighted, int kPlanes>
inline __attribute__((always_inline)) void sumRow(const float* const* rows, const float* confRows,
                                                  const float* weights, const AxisCells& cx,
                                                  const ColumnGroups& groups, std::size_t pitch, std::size_t cells,
                                                  int rowCells, float norm, float* const* out) {
  for (std::size_t g = 0; g < groups.cells.size(); ++g) {
    const int colCells = groups.cells[g];
    const int* columns = groups.columns.data() + groups.offset[g];
    const int count = groups.offset[g + 1] - groups.offset[g];
    const int shape = (rowCells == 2 || rowCells == 3) && (colCells == 2 || colCells == 3)
                          ? (rowCells - 2) * 2 + (colCells - 2)
                          : 4;
#define VEMO_SUM_GROUP(R, C)                                                                                    \
  sumGroup<R, C, kWeighted, kPlanes>(rows, confRows, weights, cx, columns, count, pitch, cells, rowCells, colCells, \
                                     norm, out)
    switch (shape) {
      case 0: VEMO_SUM_GROUP(2, 2); break;
      case 1: VEMO_SUM_GROUP(2, 3); break;
      case 2: VEMO_SUM_GROUP(3, 2); break;
      case 3: VEMO_SUM_GROUP(3, 3); break;
      default: VEMO_SUM_GROUP(0, 0);
    }
#undef VEMO_SUM_GROUP
  }
}

// Up to three planes reduced in one pass (the weighted ones sharing `conf`).
struct ReducedPlanes {
  const float* in[3];
  float* out[3];
  int count;
};

// areaAverage and areaWeightedAverage with the weights looked up: the same
// cells in the same order, the same weights and the same sums. For an output
// row, weights[j * cells + k] is the weight of the row's footprint row j and
// the listed column cell k; `weights` has room for cy's longest footprint.
VEMO_CPU_CLONES void downsampleRows(const ReducedPlanes& planes, int pitch, int newwidth, int newpitch,
                                    const float* conf, const AxisCells& cx, const AxisCells& cy,
                                    const ColumnGroups& groups, float norm, float* weights, int y0, int y1) {
  const std::size_t cells = cx.offset[newwidth];
  const std::size_t stride = pitch;
  for (int y = y0; y < y1; ++y) {
    const int rowCells = cy.offset[y + 1] - cy.offset[y];
    for (int j = 0; j < rowCells; ++j) {
      const float leadY = cy.lead[cy.offset[y] + j], tailY = cy.tail[cy.offset[y] + j];
      float* w = weights + j * cells;
      for (std::size_t k = 0; k < cells; ++k) w[k] = areaWeightFromFactors(cx.lead[k], cx.tail[k], leadY, tailY);
    }
    const std::size_t in = static_cast<std::size_t>(cy.first[y]) * pitch, o = static_cast<std::size_t>(y) * newpitch;
    const float* rows[3];
    float* out[3];
    for (int p = 0; p < planes.count; ++p) {
      rows[p] = planes.in[p] + in;
      out[p] = planes.out[p] + o;
    }
    if (!conf && planes.count == 3)
      sumRow<false, 3>(rows, nullptr, weights, cx, groups, stride, cells, rowCells, norm, out);
    else if (!conf)
      sumRow<false, 1>(rows, nullptr, weights, cx, groups, stride, cells, rowCells, norm, out);
    else if (planes.count == 3)
      sumRow<true, 3>(rows, conf + in, weights, cx, groups, stride, cells, rowCells, norm, out);
    else
      sumRow<true, 1>(rows, conf + in, weights, cx, groups, stride, cells, rowCells, norm, out);
  }
}

// interpolateAt with the column axes looked up: where an output column
// samples depends on x alone.
VEMO_CPU_CLONES void interpolateRows(float* outarray, int owidth, int opitch, const float* src, int height,
                                     const TexAxis* columns, int pitch, float scaleFactor, int y0, int y1) {
  for (int y = y0; y < y1; ++y) {
    const TexAxis row = interpolateAxis(scaleFactor, y, height);
    for (int x = 0; x < owidth; ++x) outarray[y * opitch + x] = texBlend(src, pitch, columns[x], row);
  }
}

// The footprints depend on x alone or y alone: their cells and factors are
// listed once per call. An output row reads about height / newheight source
// rows, which sets how rows are shared out.
void downsamplePlanes(const ReducedPlanes& planes, int height, int width, int pitch, int newheight, int newwidth,
                      int newpitch, const float* conf) {
  checkPlane("downsample (source)", height, width, pitch);
  checkPlane("downsample (target)", newheight, newwidth, newpitch);
  const AxisCells cx(width, newwidth), cy(height, newheight);
  const ColumnGroups groups(cx);
  const float norm = areaNorm(height, width, newheight, newwidth);
  const long rowWork = static_cast<long>(height) * width / newheight;
  int longest = 0;
  for (int y = 0; y < newheight; ++y)
    if (cy.offset[y + 1] - cy.offset[y] > longest) longest = cy.offset[y + 1] - cy.offset[y];
  const std::size_t tableFloats = static_cast<std::size_t>(longest) * cx.offset[newwidth];
  parallelRows(newheight, static_cast<int>(rowWork < 0x7fffffffL ? rowWork : 0x7fffffffL), [&](int y0, int y1) {
    std::vector<float> weights(tableFloats);
    downsampleRows(planes, pitch, newwidth, newpitch, conf, cx, cy, groups, norm, weights.data(), y0, y1);
  });
}

}  // namespace

void downsample(const float* arr, int height, int width, int pitch, float* out, int newheight, int newwidth,
                int newpitch, const float* conf) {
  downsamplePlanes(ReducedPlanes{{arr}, {out}, 1}, height, width, pitch, newheight, newwidth, newpitch, conf);
}

void downsample3(const float* const in[3], float* const out[3], int height, int width, int pitch, int newheight,
                 int newwidth, int newpitch, const float* conf) {
  downsamplePlanes(ReducedPlanes{{in[0], in[1], in[2]}, {out[0], out[1], out[2]}, 3}, height, width, pitch, newheight,
                   newwidth, newpitch, conf);
}

void gInterpolate(float* outarray, int oheight, int owidth, int opitch, const float* src, int height, int width,
                  int pitch, float scaleFactor) {
  checkPlane("gInterpolate (source)", height, width, pitch);
  checkPlane("gInterpolate (target)", oheight, owidth, opitch);
  std::vector<TexAxis> columns(owidth > 0 ? owidth : 0);
  for (int x = 0; x < owidth; ++x) columns[x] = interpolateAxis(scaleFactor, x, width);
  parallelRows(oheight, owidth, [&](int y0, int y1) {
    interpolateRows(outarray, owidth, opitch, src, height, columns.data(), pitch, scaleFactor, y0, y1);
  });
}

}  // namespace vemo::cpu
