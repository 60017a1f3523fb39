// Command line of the vemo program.
//
//   vemo frame1 frame2                          defaults
//   vemo frame1 frame2 s a b g e fp ls          seven parameters
//   vemo frame1 frame2 s a b g e fp ls ref      plus evaluation
//
// With 3 to 8 arguments both frames are read, the "Run ... for usage" line is
// printed and an empty (0 x 0) flow file is still written. The reference
// flow is read from the ninth argument, the same text that gives the solver
// iteration count; the tenth is only a switch that turns the evaluation on.
#include "programs/command_line.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "driver/optic_flow.h"
#include "driver/vemo.h"
#include "image/tensor.h"

namespace {

void printUsage(const char* program) {
  std::printf(
      "Usage : %s <frame1(.ppm)> <frame2(.ppm)> [<sigma> <alpha> <beta> <gamma> <eta> <fixed pt "
      "iters> <lin solve iters> [<reference flow>]]\n",
      program);
  std::printf(
      "The program reads frame1 and frame2 and computes the Optical Flow using the VEMO "
      "algorithm. It then outputs the flow in .flo format as frame1.ppm.flo. The program takes "
      "2, 9 or 10 arguments.\n");
  std::printf("frame1 - Frame 1 in ppm format (required)\n");
  std::printf("frame2 - Frame 2 in ppm format (required)\n");
  std::printf(
      "sigma - std. deviation for Gaussian filter for presmoothing (optional) - default 0.8\n");
  std::printf("alpha - smoothness of flow field (optional) - default 30\n");
  std::printf("beta  - influence of descriptor matching (optional) - default 300\n");
  std::printf("gamma - influence of gradient constancy assumption (optional) - default 5\n");
  std::printf("eta   - scaling factor (optional) - default 0.95\n");
  std::printf("fixed pt iters - Number of iterations for fixed point loop (optional) - default 5\n");
  std::printf(
      "lin solve iters - Number of iterations for linear solver (Preconditioned conjugate "
      "gradient) (optional) - default 10\n");
  std::printf(
      "reference flow - Groundth truth flow (for computing AAE) in flo format (optional)\n");
}

}  // namespace

int runCommandLine(int argc, char** argv) {
  if (argc <= 2) {
    printUsage(argc >= 1 && argv[0] != nullptr ? argv[0] : "vemo");
    return 0;
  }
  const std::string frame1Name = argv[1];
  const std::string frame2Name = argv[2];
  const std::string method = "VEMO";

  CTensor<float> frame1;
  CTensor<float> frame2;
  frame1.readFromPPM(frame1Name.c_str());
  frame2.readFromPPM(frame2Name.c_str());

  CTensor<float> flow;
  if (argc >= 10) {
    const float sigma = static_cast<float>(std::atof(argv[3]));
    const float alpha = static_cast<float>(std::atof(argv[4]));
    const float beta = static_cast<float>(std::atof(argv[5]));
    const float gamma = static_cast<float>(std::atof(argv[6]));
    const float eta = static_cast<float>(std::atof(argv[7]));
    const int fixedPointIterations = std::atoi(argv[8]);
    const int solverIterations = std::atoi(argv[9]);
    // Any other factor is computed (outside 0..1 without a pyramid); at 1
    // the number of scales is undefined.
    if (eta == 1.0f || !std::isfinite(eta)) {
      std::fprintf(stderr, "%s: eta = %s: the pyramid scaling factor must be a finite number other than 1 "
                   "(the default is 0.95)\n", argv[0], argv[7]);
      return 1;
    }
    runFlowGPU(frame1, frame2, flow, sigma, alpha, beta, gamma, eta, fixedPointIterations,
               solverIterations);
  } else if (argc == 3) {
    runFlowGPU(frame1, frame2, flow, 0.8f, 30.0f, 300.0f, 5.0f, 0.95f, 5, 10);
  } else {
    std::printf("Run %s for usage  \n", argv[0]);
  }

  // The colour coding is part of every run's work; the image is not saved.
  CTensor<float> image(frame1.xSize, frame1.ySize, 3);
  COpticFlow::flowToImage(flow, image, 8.0);

  const std::string outputName = frame1Name + method + ".flo";
  COpticFlow::writeMiddlebury(flow, outputName.c_str());

  if (argc >= 11) {
    CTensor<float> reference;
    COpticFlow::readMiddlebury(argv[9], reference);
    std::printf("AAE = %f \n", static_cast<double>(aae(flow, reference)));
  }
  return 0;
}
