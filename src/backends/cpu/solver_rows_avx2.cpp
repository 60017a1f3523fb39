// The solver's row loops for processors with AVX2 and FMA (x86-64-v3).
#if defined(__GNUC__) && defined(__x86_64__)
#pragma GCC target("arch=x86-64-v3")
#define VEMO_ROWS_ISA avx2
#include "backends/cpu/solver_rows_impl.h"
#endif
