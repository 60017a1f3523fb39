// Fuzzes the vemo command line: argument counts, numeric texts and
// combinations of good and bad input files.
//
// Input layout: byte 0 picks argc (1..12), bytes 1-3 pick frame 1, frame 2
// and the reference flow from a fixed set of files in a scratch directory,
// the rest is split at NUL bytes into the texts of positions 3..9. File
// paths never come from the input, so the run cannot touch anything outside
// the scratch directory. Frames are at most 20 x 18, which keeps the
// pyramid to a single level; iteration counts above 20 are skipped, since a
// long run is not a fault.
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "programs/command_line.h"
#include "driver/optic_flow.h"
#include "image/ppm_write.h"
#include "image/synthetic.h"

namespace {

std::string scratch;
std::vector<std::string> frames, references;

void writeText(const std::string& path, const std::string& text) {
  FILE* f = std::fopen(path.c_str(), "wb");
  std::fwrite(text.data(), 1, text.size(), f);
  std::fclose(f);
}

void prepareFiles() {
  scratch = "/tmp/vemo-cli-fuzz-" + std::to_string(getpid());
  mkdir(scratch.c_str(), 0700);
  CTensor<float> f1, f2, flow, g1, g2, gflow;
  NSynthetic::makeShiftedPair(20, 18, 1.5f, -0.5f, 7, f1, f2, flow);
  NSynthetic::makeShiftedPair(8, 8, 0.5f, 0.5f, 3, g1, g2, gflow);
  CTensor<float> one(1, 1, 3, 100.0f);
  const std::string d = scratch + "/";
  NImageIO::writePPM(f1, (d + "a.ppm").c_str());
  NImageIO::writePPM(f2, (d + "b.ppm").c_str());
  NImageIO::writePPM(g1, (d + "small.ppm").c_str());
  NImageIO::writePPM(one, (d + "one.ppm").c_str());
  writeText(d + "p3.ppm", "P3\n2 1\n255\n1 2 3 4 5 6\n");
  writeText(d + "cut.ppm", "P6\n20 18\n255\nxyz");
  frames = {d + "a.ppm", d + "b.ppm", d + "small.ppm", d + "one.ppm",
            d + "p3.ppm", d + "cut.ppm", d + "missing.ppm"};
  COpticFlow::writeMiddlebury(flow, (d + "ref.flo").c_str());
  COpticFlow::writeMiddlebury(gflow, (d + "small.flo").c_str());
  writeText(d + "bad.flo", "PIEH\x10\0\0\0");
  references = {d + "ref.flo", d + "small.flo", d + "bad.flo", d + "missing.flo"};
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (scratch.empty()) prepareFiles();
  if (size < 4) return 0;
  const int argc = 1 + data[0] % 12;
  std::vector<std::string> args = {"vemo", frames[data[1] % frames.size()],
                                   frames[data[2] % frames.size()]};
  const std::string reference = references[data[3] % references.size()];
  std::string current;
  for (size_t i = 4; i < size && args.size() < 10; ++i) {
    if (data[i] == 0) {
      args.push_back(current);
      current.clear();
    } else {
      current.push_back(static_cast<char>(data[i]));
    }
  }
  while (args.size() < 12) args.push_back(args.size() == 9 ? "3" : "1");
  if (argc >= 11) args[9] = reference;  // the reference is read from position 9
  if (argc >= 10 && (std::atoi(args[8].c_str()) > 20 || std::atoi(args[9].c_str()) > 20)) return 0;

  std::vector<char*> argv;
  for (int i = 0; i < argc; ++i) argv.push_back(args[i].data());
  argv.push_back(nullptr);
  try {
    runCommandLine(argc, argv.data());
  } catch (...) {
  }
  return 0;
}
