// Runs the vemo program as a process and checks exit status, standard
// output and the files it writes.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <limits>
#include <regex>
#include <memory>
#include <string>
#include <vector>

#include "backends/cuda/device_probe.h"
#include "driver/optic_flow.h"
#include "image/ppm_write.h"
#include "image/synthetic.h"
#include "support/process.h"

namespace {

using vemotest::Result;
using vemotest::exists;
using vemotest::quote;
using vemotest::slurp;

const std::string kVemo = VEMO_BINARY_DIR "/vemo";
const int kWidth = 40;
const int kHeight = 32;

// A fresh directory per test holding a small synthetic pair (frame1.ppm,
// frame2.ppm, truth.flo).
class CommandLine : public testing::Test {
 protected:
  void SetUp() override {
    scratch_ = std::make_unique<vemotest::ScratchDir>("vemo_cli_");
    dir_ = scratch_->dir();
    CTensor<float> f1, f2, truth;
    NSynthetic::makeShiftedPair(kWidth, kHeight, 1.5f, -0.5f, 7, f1, f2, truth);
    NImageIO::writePPM(f1, path("frame1.ppm").c_str());
    NImageIO::writePPM(f2, path("frame2.ppm").c_str());
    COpticFlow::writeMiddlebury(truth, path("truth.flo").c_str());
  }

  std::string path(const std::string& name) const { return dir_ + "/" + name; }

  // Runs vemo with the given arguments from the test directory.
  Result run(const std::vector<std::string>& args) const { return scratch_->run(kVemo, args); }

  std::unique_ptr<vemotest::ScratchDir> scratch_;
  std::string dir_;
};

const char* const kUsageBody =
    "The program reads frame1 and frame2 and computes the Optical Flow using the VEMO algorithm. "
    "It then outputs the flow in .flo format as frame1.ppm.flo. The program takes 2, 9 or 10 "
    "arguments.\n"
    "frame1 - Frame 1 in ppm format (required)\n"
    "frame2 - Frame 2 in ppm format (required)\n"
    "sigma - std. deviation for Gaussian filter for presmoothing (optional) - default 0.8\n"
    "alpha - smoothness of flow field (optional) - default 30\n"
    "beta  - influence of descriptor matching (optional) - default 300\n"
    "gamma - influence of gradient constancy assumption (optional) - default 5\n"
    "eta   - scaling factor (optional) - default 0.95\n"
    "fixed pt iters - Number of iterations for fixed point loop (optional) - default 5\n"
    "lin solve iters - Number of iterations for linear solver (Preconditioned conjugate "
    "gradient) (optional) - default 10\n"
    "reference flow - Groundth truth flow (for computing AAE) in flo format (optional)\n";

// The pipeline's five lines end the output of a computing run.
const std::regex kTimingTail(
    R"(Memcpy time = \d+\.\d{6} \nFilter time = \d+\.\d{6} \nHOG time = \d+\.\d{6} \n)"
    R"(Var time = \d+\.\d{6} \nTotal time = \d+\.\d{6} \n$)");

const std::vector<std::string> kSevenParameters = {"0.8", "30", "300", "5", "0.95", "2", "3"};

}  // namespace

TEST_F(CommandLine, UsageForNoOrOneArgumentOpensNoFile) {
  const std::string usageLine =
      "Usage : " + kVemo +
      " <frame1(.ppm)> <frame2(.ppm)> [<sigma> <alpha> <beta> <gamma> <eta> <fixed pt iters> "
      "<lin solve iters> [<reference flow>]]\n";
  for (const auto& args : {std::vector<std::string>{}, std::vector<std::string>{"missing.ppm"}}) {
    const Result r = run(args);
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out, usageLine + kUsageBody);
    EXPECT_EQ(r.err, "");
  }
  EXPECT_FALSE(exists(path("missing.ppmVEMO.flo")));
}

TEST_F(CommandLine, TwoArgumentsWriteFullFlowNamedAfterFrameOne) {
  const Result r = run({"frame1.ppm", "frame2.ppm"});
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_TRUE(std::regex_search(r.out, kTimingTail)) << r.out;
  EXPECT_EQ(r.out.find("AAE"), std::string::npos);
  CTensor<float> flow;
  COpticFlow::readMiddlebury(path("frame1.ppmVEMO.flo").c_str(), flow);
  EXPECT_EQ(flow.xSize, kWidth);
  EXPECT_EQ(flow.ySize, kHeight);
  EXPECT_EQ(flow.zSize, 2);
}

TEST_F(CommandLine, RejectedCountsStillReadFramesAndWriteEmptyFlow) {
  const std::string emptyFlo = std::string("PIEH") + std::string(8, '\0');
  std::vector<std::string> args = {"frame1.ppm", "frame2.ppm"};
  for (int extra = 1; extra <= 6; ++extra) {  // 3 to 8 arguments
    args.push_back(kSevenParameters[extra - 1]);
    std::remove(path("frame1.ppmVEMO.flo").c_str());
    const Result r = run(args);
    EXPECT_EQ(r.status, 0) << args.size() << " arguments";
    EXPECT_EQ(r.out, "Run " + kVemo + " for usage  \n");
    EXPECT_EQ(slurp(path("frame1.ppmVEMO.flo")), emptyFlo);
  }
  // Both frames are read first: a missing frame 2 fails even here.
  const Result r = run({"frame1.ppm", "nothere.ppm", "0.8"});
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find("File not found: nothere.ppm"), std::string::npos) << r.err;
}

TEST_F(CommandLine, ReferenceFlowIsReadFromTheNinthArgument) {
  // All reference vectors unknown: the error is 0 whatever the flow.
  CTensor<float> unknown(kWidth, kHeight, 2, 1e9f);
  COpticFlow::writeMiddlebury(unknown, path("unknown.flo").c_str());
  std::vector<std::string> args = {"frame1.ppm", "frame2.ppm", "0.8", "30", "300", "5", "0.95",
                                   "2", "unknown.flo", "truth.flo"};
  Result r = run(args);
  EXPECT_EQ(r.status, 0) << r.err;
  ASSERT_GE(r.out.size(), 16u);
  EXPECT_EQ(r.out.substr(r.out.size() - 16), "AAE = 0.000000 \n");
  EXPECT_TRUE(std::regex_search(r.out.substr(0, r.out.size() - 16), kTimingTail)) << r.out;

  // The tenth argument is never read; the ninth names a file that is absent.
  args[8] = "10";
  r = run(args);
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.out.find("Could not open 10\n"), std::string::npos) << r.out;
  EXPECT_EQ(r.out.find("AAE"), std::string::npos);

  // A real reference gives a finite error in the expected format.
  args[8] = "truth.flo";
  args[9] = "ignored";
  r = run(args);
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_TRUE(std::regex_search(r.out, std::regex(R"(AAE = \d+\.\d{6} \n$)"))) << r.out;

  // A NaN component is not the unknown-flow marker: its direction, and
  // with it the error, is not a number.
  CTensor<float> withNaN(kWidth, kHeight, 2, 1.0f);
  withNaN(3, 4, 1) = std::numeric_limits<float>::quiet_NaN();
  COpticFlow::writeMiddlebury(withNaN, path("nan.flo").c_str());
  args[8] = "nan.flo";
  r = run(args);
  EXPECT_EQ(r.status, 0) << r.err;
  ASSERT_GE(r.out.size(), 11u);
  EXPECT_EQ(r.out.substr(r.out.size() - 11), "AAE = nan \n");
}

TEST_F(CommandLine, EtaOutsideTheUnitIntervalRunsWithoutPyramidAndOneIsRefusedOnce) {
  std::vector<std::string> args = {"frame1.ppm", "frame2.ppm", "0.8", "30", "300", "5", "-0.5", "2", "3"};
  Result r = run(args);
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.err, "");
  EXPECT_NE(r.out.find("# scales = 0 \n"), std::string::npos) << r.out;
  EXPECT_TRUE(std::regex_search(r.out, kTimingTail)) << r.out;
  args[6] = "1";
  r = run(args);
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.err, kVemo + ": eta = 1: the pyramid scaling factor must be a finite number other than 1 "
                           "(the default is 0.95)\n");
}

TEST_F(CommandLine, UnreadableInputsAndUnwritableOutputFailWithStatusOne) {
  std::ofstream(path("text.ppm")) << "P3\n2 2\n255\n0 0 0 0 0 0 0 0 0 0 0 0\n";
  Result r = run({"text.ppm", "frame2.ppm"});
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find("EInvalidFileFormat"), std::string::npos) << r.err;

  // A directory in place of the output file cannot be opened for writing,
  // even by a privileged user.
  ASSERT_EQ(mkdir(path("frame1.ppmVEMO.flo").c_str(), 0755), 0);
  r = run({"frame1.ppm", "frame2.ppm"});
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.out.find("Could not open frame1.ppmVEMO.flo\n"), std::string::npos) << r.out;
}

// VEMO_DEVICE picks the backend for a program that leaves the choice open; a
// request that cannot be met says so on standard error and the run goes on
// with the same output.
TEST_F(CommandLine, DeviceFromTheEnvironmentIsHonouredOrReported) {
  if (vemo::cudaDeviceUsable()) GTEST_SKIP() << "a usable GPU would take the cuda request";
  const std::string flow = path("frame1.ppmVEMO.flo");
  auto runWith = [&](const std::string& device, std::string& err) {
    const std::string cmd = "cd " + quote(dir_) + " && VEMO_DEVICE=" + device + " " + quote(kVemo) +
                            " frame1.ppm frame2.ppm >/dev/null 2>err.txt";
    const int status = std::system(cmd.c_str());
    err = slurp(path("err.txt"));
    return status;
  };
  std::string err;
  ASSERT_EQ(runWith("cpu", err), 0);
  EXPECT_EQ(err, "");
  const std::string onCpu = slurp(flow);
  ASSERT_EQ(runWith("cuda", err), 0);
  EXPECT_EQ(err, "vemo: running on the CPU: VEMO_DEVICE=cuda, but no usable CUDA GPU was found\n");
  EXPECT_EQ(slurp(flow), onCpu);
  ASSERT_EQ(runWith("gpu", err), 0);
  EXPECT_EQ(err, "vemo: VEMO_DEVICE must be auto, cpu, cuda or cuda:N; ignoring \"gpu\"\n");
}
