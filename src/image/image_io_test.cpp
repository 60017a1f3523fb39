// PNG, JPEG and PGM/PPM input and output, and atomic output files.
#include <gtest/gtest.h>
#include <png.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zlib.h>

#include <cmath>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "image/atomic_file.h"
#include "image/exceptions.h"
#include "image/jpeg_io.h"
#include "image/png_io.h"
#include "image/read_image.h"
#include "image/synthetic.h"
#include "image/write_error.h"
#include "support/process.h"

namespace {

std::string scratch(const std::string& name) {
  static int counter = 0;
  return testing::TempDir() + "vemo_imageio_" + std::to_string(getpid()) + "_" + std::to_string(counter++) + "_" +
         name;
}

std::vector<unsigned char> slurp(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::vector<unsigned char>(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

void spit(const std::string& path, const std::vector<unsigned char>& bytes) {
  std::ofstream out(path, std::ios::binary);
  out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

using vemotest::exists;

// A ramp image with distinct values per plane, whole numbers 0..255.
CTensor<float> ramp(int width, int height, int planes) {
  CTensor<float> image(width, height, planes);
  for (int c = 0; c < planes; ++c)
    for (int y = 0; y < height; ++y)
      for (int x = 0; x < width; ++x) image(x, y, c) = static_cast<float>((x * 7 + y * 13 + c * 50) % 256);
  return image;
}

// Decodes a file quietly (rejection messages captured) and says whether it
// was refused with EInvalidFileFormat.
bool refused(const std::vector<unsigned char>& bytes, std::string* message = nullptr) {
  CTensor<float> image(1, 1, 1, 42.0f);
  testing::internal::CaptureStderr();
  bool threw = false;
  try {
    NImageIO::decodeImage(bytes.data(), bytes.size(), "test", image);
  } catch (const EInvalidFileFormat&) {
    threw = true;
  }
  const std::string err = testing::internal::GetCapturedStderr();
  if (message) *message = err;
  // A refused decode leaves the target untouched.
  if (threw) {
    EXPECT_EQ(image.xSize, 1);
  }
  return threw;
}

}  // namespace

TEST(PngIO, RoundTripKeepsSamplesAt8And16BitsGreyAndColour) {
  for (int planes : {1, 3}) {
    for (int depth : {8, 16}) {
      SCOPED_TRACE("planes " + std::to_string(planes) + ", depth " + std::to_string(depth));
      const CTensor<float> image = ramp(37, 11, planes);
      const std::string path = scratch("rt.png");
      NImageIO::writePNG(image, path.c_str(), depth);
      CTensor<float> back;
      NImageIO::readImage(path, back);
      ASSERT_EQ(back.xSize, 37);
      ASSERT_EQ(back.ySize, 11);
      ASSERT_EQ(back.zSize, 3);
      for (int c = 0; c < 3; ++c)
        for (int y = 0; y < 11; ++y)
          for (int x = 0; x < 37; ++x) {
            // Grey is replicated into all three planes; 16-bit samples come
            // back within rounding of the 8-bit scale.
            const float want = image(x, y, planes == 1 ? 0 : c);
            ASSERT_NEAR(back(x, y, c), want, depth == 8 ? 0.0f : 1e-3f) << x << "," << y << "," << c;
          }
      std::remove(path.c_str());
    }
  }
}

TEST(PngIO, SixteenBitPrecisionAndAlphaAreHandled) {
  // A 3 x 2 16-bit RGBA file written with libpng directly: alpha must be
  // dropped (not blended, not read as a fourth plane) and fractional 8-bit
  // values must survive.
  std::vector<png_uint_16> samples(3 * 2 * 4);
  std::vector<unsigned char> bytes;  // big-endian rows
  for (size_t i = 0; i < samples.size(); ++i) {
    samples[i] = static_cast<png_uint_16>(i % 4 == 3 ? i * 2500 : i * 2000 + 1);  // alpha every fourth
    bytes.insert(bytes.end(), {static_cast<unsigned char>(samples[i] >> 8), static_cast<unsigned char>(samples[i])});
  }
  const std::string path = scratch("rgba16.png");
  FILE* f = std::fopen(path.c_str(), "wb");
  ASSERT_NE(f, nullptr);
  png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
  png_infop info = png_create_info_struct(png);
  png_init_io(png, f);
  png_set_IHDR(png, info, 3, 2, 16, PNG_COLOR_TYPE_RGB_ALPHA, PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT,
               PNG_FILTER_TYPE_DEFAULT);
  png_write_info(png, info);
  for (int y = 0; y < 2; ++y) png_write_row(png, bytes.data() + y * 24);
  png_write_end(png, nullptr);
  png_destroy_write_struct(&png, &info);
  std::fclose(f);

  CTensor<float> image;
  NImageIO::readImage(path, image);
  ASSERT_EQ(image.zSize, 3);
  for (int y = 0; y < 2; ++y)
    for (int x = 0; x < 3; ++x)
      for (int c = 0; c < 3; ++c)
        EXPECT_NEAR(image(x, y, c), samples[(y * 3 + x) * 4 + c] * 255.0f / 65535.0f, 1e-3f);
  std::remove(path.c_str());
}

TEST(JpegIO, DecodesAFileEncodedHereGreyAndColour) {
  CTensor<float> frame1, frame2, flow;
  NSynthetic::makeShiftedPair(48, 40, 0.0f, 0.0f, 3, frame1, frame2, flow);
  for (int planes : {1, 3}) {
    CTensor<float> image = frame1;
    if (planes == 1) {
      image = CTensor<float>(48, 40, 1);
      for (int y = 0; y < 40; ++y)
        for (int x = 0; x < 48; ++x) image(x, y, 0) = frame1(x, y, 1);
    }
    const std::string path = scratch("frame.jpg");
    NImageIO::writeJPEG(image, path.c_str(), 98);
    CTensor<float> back;
    NImageIO::readImage(path, back);
    ASSERT_EQ(back.xSize, 48);
    ASSERT_EQ(back.ySize, 40);
    ASSERT_EQ(back.zSize, 3);
    double error = 0.0;
    for (int c = 0; c < 3; ++c)
      for (int y = 0; y < 40; ++y)
        for (int x = 0; x < 48; ++x) {
          if (planes == 1) {
            ASSERT_EQ(back(x, y, c), back(x, y, 0));  // grey replicated
          }
          error += std::fabs(back(x, y, c) - std::round(image(x, y, planes == 1 ? 0 : c)));
        }
    // Lossy, but a smooth texture at quality 98 stays within a few levels.
    EXPECT_LT(error / (3 * 48 * 40), 3.0) << planes;
    std::remove(path.c_str());
  }
}

TEST(ImageInput, FormatIsTakenFromTheBytesAndPnmVariantsAreScaled) {
  // A PNG named .ppm is still read as PNG.
  const std::string misnamed = scratch("really_png.ppm");
  NImageIO::writePNG(ramp(5, 4, 3), misnamed.c_str());
  CTensor<float> image;
  NImageIO::readImage(misnamed, image);
  EXPECT_EQ(image(4, 3, 2), ramp(5, 4, 3)(4, 3, 2));
  std::remove(misnamed.c_str());

  // P5 with a 16-bit maximal value and a comment; P6 with maxval 255 kept exact.
  const std::string p5 = "P5\n# comment\n2 1\n1000\n";
  std::vector<unsigned char> bytes(p5.begin(), p5.end());
  for (unsigned v : {0u, 1000u}) {
    bytes.push_back(static_cast<unsigned char>(v >> 8));
    bytes.push_back(static_cast<unsigned char>(v & 0xff));
  }
  NImageIO::decodeImage(bytes.data(), bytes.size(), "p5", image);
  ASSERT_EQ(image.xSize, 2);
  EXPECT_FLOAT_EQ(image(0, 0, 2), 0.0f);
  EXPECT_FLOAT_EQ(image(1, 0, 0), 255.0f);
  const std::string p6 = "P6 1 1 255\n";
  bytes.assign(p6.begin(), p6.end());
  bytes.insert(bytes.end(), {7, 200, 255});
  NImageIO::decodeImage(bytes.data(), bytes.size(), "p6", image);
  EXPECT_EQ(image(0, 0, 0), 7.0f);
  EXPECT_EQ(image(0, 0, 1), 200.0f);
}

TEST(ImageInput, BrokenTruncatedAndHugeFilesAreRefusedWithAMessage) {
  const std::string png = scratch("ok.png"), jpg = scratch("ok.jpg");
  NImageIO::writePNG(ramp(40, 30, 3), png.c_str());
  NImageIO::writeJPEG(ramp(40, 30, 3), jpg.c_str());
  const std::vector<unsigned char> pngBytes = slurp(png), jpgBytes = slurp(jpg);
  std::remove(png.c_str());
  std::remove(jpg.c_str());

  std::string message;
  EXPECT_TRUE(refused({}, &message));
  EXPECT_NE(message.find("not a PNG, JPEG"), std::string::npos) << message;
  EXPECT_TRUE(refused({'G', 'I', 'F', '8', '9', 'a'}));
  // Truncation anywhere in the data.
  for (size_t keep : {size_t(8), size_t(20), size_t(40), pngBytes.size() / 2, pngBytes.size() - 13}) {
    EXPECT_TRUE(refused(std::vector<unsigned char>(pngBytes.begin(), pngBytes.begin() + keep))) << keep;
  }
  // A JPEG cut inside its scan decodes with grey rows in libjpeg; it must be
  // refused rather than used as a frame.
  for (size_t keep : {size_t(3), size_t(30), size_t(200), jpgBytes.size() / 2, jpgBytes.size() - 2}) {
    EXPECT_TRUE(refused(std::vector<unsigned char>(jpgBytes.begin(), jpgBytes.begin() + keep))) << keep;
  }
  // A corrupted byte in the compressed PNG data fails its checksum.
  std::vector<unsigned char> flipped = pngBytes;
  flipped[flipped.size() / 2] ^= 0x55;
  EXPECT_TRUE(refused(flipped));

  // A PNG header promising 60000 x 60000 pixels (valid CRC) is refused
  // before its pixels are allocated.
  std::vector<unsigned char> huge(pngBytes.begin(), pngBytes.begin() + 33);
  const unsigned side = 60000;
  for (int at : {16, 20}) {
    huge[at] = side >> 24, huge[at + 1] = (side >> 16) & 0xff, huge[at + 2] = (side >> 8) & 0xff,
    huge[at + 3] = side & 0xff;
  }
  const uLong crc = crc32(crc32(0, nullptr, 0), huge.data() + 12, 17);
  huge[29] = crc >> 24, huge[30] = (crc >> 16) & 0xff, huge[31] = (crc >> 8) & 0xff, huge[32] = crc & 0xff;
  huge.insert(huge.end(), pngBytes.begin() + 33, pngBytes.end());
  EXPECT_TRUE(refused(huge, &message));
  EXPECT_NE(message.find("60000 x 60000"), std::string::npos) << message;

  // PNM: sizes larger than the data, zero maximal value, 70000-wide header.
  for (const std::string& text : {std::string("P6\n4 4\n255\nabc"), std::string("P5\n1 1\n0\nx"),
                                  std::string("P5\n70000 1\n255\n"), std::string("P5\n1 1 255")}) {
    EXPECT_TRUE(refused(std::vector<unsigned char>(text.begin(), text.end()))) << text;
  }

}

TEST(AtomicFile, TargetAppearsOnlyOnCommitAndReplacesTheOldFile) {
  const std::string target = scratch("out.flo");
  spit(target, {'o', 'l', 'd'});
  {
    CAtomicFile file(target);
    EXPECT_NE(std::string(file.tempPath()), target);
    EXPECT_EQ(std::string(file.tempPath()).substr(std::string(file.tempPath()).size() - 4), ".flo");
    spit(file.tempPath(), {'n', 'e', 'w'});
    // Not committed: the old contents stay and the temporary file goes.
  }
  EXPECT_EQ(slurp(target), (std::vector<unsigned char>{'o', 'l', 'd'}));
  std::string temp;
  {
    CAtomicFile file(target);
    temp = file.tempPath();
    spit(temp, {'n', 'e', 'w'});
    file.commit();
  }
  EXPECT_EQ(slurp(target), (std::vector<unsigned char>{'n', 'e', 'w'}));
  EXPECT_FALSE(exists(temp));
  struct stat info;
  ASSERT_EQ(stat(target.c_str(), &info), 0);
  EXPECT_NE(info.st_mode & 0044, 0u) << "committed files get the usual permissions, not 0600";
  std::remove(target.c_str());

  // Missing folders are made; a folder that cannot be (a file is in the
  // way) is refused before anything is written.
  const std::string folder = scratch("new_dir");
  {
    CAtomicFile file(folder + "/deeper/x.png");
    spit(file.tempPath(), {'x'});
    file.commit();
  }
  EXPECT_TRUE(exists(folder + "/deeper/x.png"));
  std::remove((folder + "/deeper/x.png").c_str());
  rmdir((folder + "/deeper").c_str());
  rmdir(folder.c_str());
  const std::string blocker = scratch("blocker");
  spit(blocker, {'b'});
  testing::internal::CaptureStderr();
  EXPECT_THROW(CAtomicFile(blocker + "/x.png"), EFileNotFound);
  EXPECT_THROW(NImageIO::writePNG(ramp(2, 2, 3), (blocker + "/sub/x.png").c_str()), EFileNotFound);
  EXPECT_THROW(NImageIO::writePNG(ramp(2, 2, 2), scratch("two_planes.png").c_str()), ETensorIncompatibleSize);
  testing::internal::GetCapturedStderr();
  std::remove(blocker.c_str());
}
