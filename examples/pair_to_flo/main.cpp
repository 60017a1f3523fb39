// pair_to_flo FRAME1 FRAME2 FLOW.flo [PICTURE.png]
//
// The flow from FRAME1 to FRAME2 (PNG, JPEG or PGM/PPM) with the method's
// default parameters, written as a .flo file and, optionally, as a colour
// picture.
#include <cstdio>

#include <vemo/vemo.hpp>

int main(int argc, char** argv) {
  if (argc != 4 && argc != 5) {
    std::fprintf(stderr, "usage: %s FRAME1 FRAME2 FLOW.flo [PICTURE.png]\n", argv[0]);
    return 2;
  }
  try {
    const vemo::Image frame1 = vemo::read_image(argv[1]);
    const vemo::Image frame2 = vemo::read_image(argv[2]);
    vemo::Engine engine;  // a CUDA GPU where one is usable, else the CPU
    const vemo::Flow flow = engine.flow(frame1.view(), frame2.view());
    vemo::write_flo(argv[3], flow);
    if (argc == 5) vemo::write_image(argv[4], vemo::flow_to_rgb(flow).view());
    std::printf("%s: %d x %d flow on %s (vemo %s)\n", argv[3], flow.width(), flow.height(), engine.device().c_str(),
                vemo::version());
  } catch (const vemo::Error& e) {
    std::fprintf(stderr, "pair_to_flo: %s\n", e.what());
    return 1;
  }
  return 0;
}
