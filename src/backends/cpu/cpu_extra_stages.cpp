#include "backends/cpu/cpu_extra_stages.h"

#include <string>

#include "backends/cpu/convolve.h"
#include "backends/cpu/pixel_loop.h"
#include "backends/cpu/row_parallel.h"
#include "pixel/elementwise.h"
#include "pixel/objective.h"
#include "pixel/sor.h"

namespace vemo {

// Each thread takes whole rows; a pass writes only pixels of one colour and
// reads only the other colour (and the pixel itself), so the result does not
// depend on how rows are shared out.
void CpuExtraStages::sorIteration(const float* devMatrix, const float* rhs, float* du, float* dv, int height,
                                  int width, int term, float omega, int pitch) {
  cpu::checkPlane("sorIteration", height, width, pitch);
  if (term != 0 && term != 1) cpu::refuseArguments("sorIteration: colour must be 0 or 1, got " + std::to_string(term));
  cpu::parallelRows(height, width, [&](int y0, int y1) {
    for (int y = y0; y < y1; ++y)
      for (int x = sorFirstColumn(y, term); x < width; x += 2)
        SORiteration_mem_opt_kernel(devMatrix, rhs, du, dv, height, width, omega, pitch, x, y);
  });
}

void CpuExtraStages::mult(float* c, const float* a, const float* b, int height, int width, int pitch) {
  cpu::checkPlane("mult", height, width, pitch);
  cpu::forEachPixel(height, width, [&](int x, int y) { Mult_kernel(c, a, b, pitch, x, y); });
}

void CpuExtraStages::psi(float* x, int height, int width, int pitch) {
  cpu::checkPlane("psi", height, width, pitch);
  cpu::forEachPixel(height, width, [&](int px, int py) { Psi_kernel(x, pitch, px, py); });
}

void CpuExtraStages::convolve2d(float* out, const float* in, int height, int width, const float* filter,
                                int filt_height, int filt_width) {
  cpu::Convolve2d(out, height, width, in, height, width, filter, filt_height, filt_width);
}

}  // namespace vemo
