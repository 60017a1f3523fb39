// Bounds on decoded image sizes, checked against the header before any
// pixel memory is allocated.
#pragma once

#include <cstddef>

namespace NImageIO {

// Largest accepted frame: 2^26 pixels (three float planes take 768 MiB),
// and no side longer than 65535.
constexpr std::size_t kMaxImagePixels = std::size_t(1) << 26;
constexpr int kMaxImageSide = 65535;

}  // namespace NImageIO
