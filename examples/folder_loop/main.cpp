// folder_loop PATTERN OUTDIR [PRESET]
//
// The flow of every consecutive pair of a numbered frame sequence, e.g.
// folder_loop 'frames/%05d.png' flows: frames/00000.png -> 00001.png gives
// flows/00000.flo, and so on until a number is missing. One Engine serves
// the whole sequence, so its buffers are made once.
#include <cstdio>
#include <string>
#include <sys/stat.h>

#include <vemo/vemo.hpp>

namespace {

std::string frameName(const char* pattern, int number) {
  char name[4096];
  std::snprintf(name, sizeof name, pattern, number);
  return name;
}

bool exists(const std::string& path) {
  struct stat info;
  return stat(path.c_str(), &info) == 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3 && argc != 4) {
    std::fprintf(stderr, "usage: %s PATTERN OUTDIR [PRESET]   (PATTERN like 'frames/%%05d.png')\n", argv[0]);
    return 2;
  }
  try {
    const vemo::Parameters parameters = vemo::Parameters::from_preset(argc == 4 ? argv[3] : "default");
    vemo::Engine engine;
    const int first = exists(frameName(argv[1], 0)) ? 0 : 1;
    vemo::Image previous = vemo::read_image(frameName(argv[1], first));
    int pairs = 0;
    for (int n = first + 1; exists(frameName(argv[1], n)); ++n) {
      vemo::Image next = vemo::read_image(frameName(argv[1], n));
      const vemo::Flow flow = engine.flow(previous.view(), next.view(), parameters);
      vemo::write_flo(frameName((std::string(argv[2]) + "/%05d.flo").c_str(), n - 1), flow);
      previous = std::move(next);
      ++pairs;
    }
    std::printf("%d pairs on %s\n", pairs, engine.device().c_str());
  } catch (const vemo::Error& e) {
    std::fprintf(stderr, "folder_loop: %s\n", e.what());
    return 1;
  }
  return 0;
}
