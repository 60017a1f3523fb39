// Numeric constants shared by the host code.
#pragma once

namespace NMath {
// Single-precision pi, as used by the filters and the colour wheel.
constexpr float Pi = 3.1415927f;
}  // namespace NMath
