#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <string>

#include "image/exceptions.h"
#include "image/tensor.h"

namespace {

// Writes `bytes` to a fresh file in the test temporary directory.
std::string writeFile(const std::string& bytes) {
  static int counter = 0;
  const std::string path = testing::TempDir() + "vemo_ppm_" + std::to_string(getpid()) + "_" +
                           std::to_string(counter++) + ".ppm";
  FILE* f = std::fopen(path.c_str(), "wb");
  EXPECT_NE(f, nullptr);
  std::fwrite(bytes.data(), 1, bytes.size(), f);
  std::fclose(f);
  return path;
}

// Pixel bytes of a w x h image whose sample (i, channel) is (i * 3 + channel
// + offset) mod 256, so that values above 127 occur.
std::string pixels(int w, int h, int offset = 0) {
  std::string s;
  for (int i = 0; i < w * h * 3; ++i) s.push_back(static_cast<char>((i + offset) & 255));
  return s;
}

void expectPixels(const CTensor<float>& t, int w, int h, int offset = 0) {
  ASSERT_EQ(t.xSize, w);
  ASSERT_EQ(t.ySize, h);
  ASSERT_EQ(t.zSize, 3);
  const int plane = w * h;
  for (int i = 0; i < plane; ++i)
    for (int c = 0; c < 3; ++c)
      ASSERT_EQ(t.data[c * plane + i], static_cast<float>((i * 3 + c + offset) & 255))
          << "pixel " << i << " channel " << c;
}

// Reads `bytes` and expects a refusal: EInvalidFileFormat, a message on
// standard error containing `needle` (and the file name), and the tensor
// untouched.
void expectRefused(const std::string& bytes, const std::string& needle) {
  const std::string path = writeFile(bytes);
  CTensor<float> t(2, 1, 1, 9.0f);
  testing::internal::CaptureStderr();
  EXPECT_THROW(t.readFromPPM(path.c_str()), EInvalidFileFormat) << needle;
  const std::string err = testing::internal::GetCapturedStderr();
  EXPECT_NE(err.find(needle), std::string::npos) << err;
  EXPECT_NE(err.find(path), std::string::npos) << err;
  EXPECT_EQ(err.back(), '\n');
  EXPECT_EQ(t.xSize * 100 + t.ySize * 10 + t.zSize, 211);
  EXPECT_EQ(t.data[0] + t.data[1], 18.0f);
  std::remove(path.c_str());
}

}  // namespace

// Header layouts the reader must accept: comment lines, blank lines, a
// carriage return before the line feed, bytes before the magic, the maximal
// value on the size line. Samples above 127 must not come out negative
// (signed-byte fault) and the planes must hold red, green, blue in row-major
// order. Reading into a tensor that already holds data replaces sizes and
// data; bytes after the pixel data are ignored.
TEST(PpmReader, AcceptsHeaderVariantsAndStoresPlanarUnsignedSamples) {
  const std::string headers[] = {
      "P6\n3 2\n255\n",
      "P6\n# a comment\n# another one\n3 2\n255\n",
      "P6\n\n\n3 2\n255\n",
      "P6 raw\n3   2   trailing words\n255\n",
      "P6\r\n3 2\r\n255\r\n",
      "junk before P6\n3\n2\n255\n",
      "P6\n3 2 255\n",
      "P6\n3 2\n# comment before the maximal value\n255\n",
  };
  CTensor<float> t(7, 5, 2, -3.0f);
  for (const std::string& header : headers) {
    SCOPED_TRACE(header);
    const std::string path = writeFile(header + pixels(3, 2, 200) + "trailing");
    t.readFromPPM(path.c_str());
    expectPixels(t, 3, 2, 200);
    std::remove(path.c_str());
  }
}

// A missing file and a wrong magic number have fixed messages.
TEST(PpmReader, MissingFileAndWrongMagicPrintExactMessages) {
  const std::string missing = testing::TempDir() + "vemo_no_such_file.ppm";
  CTensor<float> t;
  testing::internal::CaptureStderr();
  EXPECT_THROW(t.readFromPPM(missing.c_str()), EFileNotFound);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "File not found: " + missing + "\n");

  const std::string p3 = writeFile("P3\n2 1\n255\n1 2 3 4 5 6\n");
  testing::internal::CaptureStderr();
  EXPECT_THROW(t.readFromPPM(p3.c_str()), EInvalidFileFormat);
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "Exception EInvalidFileFormat: File is not in PPM format\n");
  EXPECT_EQ(t.data, nullptr);
  std::remove(p3.c_str());

  // A directory opens but cannot be read.
  testing::internal::CaptureStderr();
  EXPECT_THROW(t.readFromPPM(testing::TempDir().c_str()), EFileNotFound);
  EXPECT_FALSE(testing::internal::GetCapturedStderr().empty());
}

// Hostile or broken headers must be refused with a message, never loop,
// read past the end of the file or allocate what the file cannot fill.
TEST(PpmReader, RefusesHostileHeadersWithoutHangingOrAllocating) {
  expectRefused("", "no magic number");
  expectRefused("no magic here at all\n", "no magic number");
  expectRefused("P6", "ends after the magic");
  expectRefused("P6\n# unterminated comment", "inside a comment");
  expectRefused("P6\n0 5\n255\n", "zero");
  expectRefused("P6\n5 0\n255\n", "zero");
  expectRefused("P6\n-5 4\n255\n" + pixels(5, 4), "negative");
  expectRefused("P6\n5 -4\n255\n" + pixels(5, 4), "negative");
  expectRefused("P6\nabc 4\n255\n", "width is not a number");
  expectRefused("P6\n5\n", "height is missing");
  expectRefused("P6\n99999999999 2\n255\n", "width is too large");
  expectRefused("P6\n2 99999999999\n255\n", "height is too large");
  expectRefused("P6\n3 2", "ends after the height");
  expectRefused("P6\n3 2\n", "before the pixel data");
  expectRefused("P6\n3 2\n65535\n" + pixels(6, 2), "one byte per sample");
  expectRefused("P6\n3 2\n255\n" + pixels(3, 2).substr(1), "truncated");
  expectRefused("P6\n50000 50000\n255\n", "too large");

  // The size claim is checked against the bytes present before anything is
  // allocated: a tiny file claiming a huge image is refused as truncated.
  expectRefused("P6\n20000 20000\n255\nxx", "truncated");
}
