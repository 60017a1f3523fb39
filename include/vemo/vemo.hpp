// vemo: dense optical flow between two frames.
//
//   #include <vemo/vemo.hpp>
//
//   vemo::Engine engine;                         // CUDA GPU where usable, else the CPU
//   vemo::Image a = vemo::read_image("frame1.png"), b = vemo::read_image("frame2.png");
//   vemo::Flow flow = engine.flow(a.view(), b.view());
//   vemo::write_flo("flow.flo", flow);
//
// See docs/cpp-api.md.
#pragma once

#include "vemo/cancel.hpp"
#include "vemo/engine.hpp"
#include "vemo/errors.hpp"
#include "vemo/flow.hpp"
#include "vemo/image.hpp"
#include "vemo/parameters.hpp"
#include "vemo/tools.hpp"
#include "vemo/version.hpp"
