// Replays every input the fuzzers once tripped on. Each file must either be
// read or be rejected with one of the library's exceptions; a crash, a hang
// or a sanitizer report fails the test binary.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "driver/optic_flow.h"
#include "image/read_image.h"
#include "image/tensor.h"
#include "support/process.h"
#include "video/video_error.h"
#include "video/video_reader.h"

namespace fs = std::filesystem;

TEST(FuzzRegressions, EveryKeptInputIsReadOrRejectedCleanly) {
  const fs::path dir = fs::path(VEMO_SOURCE_DIR) / "fuzz" / "regressions";
  ASSERT_TRUE(fs::is_directory(dir));
  int replayed = 0;
  for (const auto& entry : fs::directory_iterator(dir)) {
    const std::string path = entry.path().string();
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    const std::string name = entry.path().filename().string();
    if (name.rfind("img-", 0) == 0) {
      CTensor<float> image;
      try {
        NImageIO::readImage(path, image);
      } catch (const EInvalidFileFormat&) {
      }
    } else if (name.rfind("vid-", 0) == 0) {
      // As the video fuzz target reads it: from memory, a few frames.
      const std::string bytes = vemotest::slurp(path);
      try {
        CVideoReader reader(bytes.data(), bytes.size(), name, size_t(1) << 18);
        CTensor<float> frame;
        for (int n = 0; n < 24 && reader.read(frame); ++n) {
        }
      } catch (const EVideoError&) {
      }
    } else if (path.find("flo-") != std::string::npos) {
      CTensor<float> flow;
      try {
        COpticFlow::readMiddlebury(path.c_str(), flow);
      } catch (const EInvalidFileFormat&) {
      }
    } else {
      CTensor<float> image;
      try {
        image.readFromPPM(path.c_str());
      } catch (const EInvalidFileFormat&) {
      }
    }
    testing::internal::GetCapturedStdout();
    testing::internal::GetCapturedStderr();
    ++replayed;
  }
  EXPECT_GT(replayed, 0);
}
