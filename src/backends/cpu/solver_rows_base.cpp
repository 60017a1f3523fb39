// The solver's row loops for the baseline instruction set.
#define VEMO_ROWS_ISA base
#include "backends/cpu/solver_rows_impl.h"
