#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <fstream>
#include <string>

#include "driver/optic_flow.h"
#include "image/exceptions.h"
#include "support/process.h"

namespace {

using vemotest::exists;
using vemotest::slurp;

std::string tempPath(const std::string& name) {
  return testing::TempDir() + "vemo_flow_" + std::to_string(getpid()) + "_" + name;
}

void writeBytes(const std::string& path, const std::string& bytes) {
  std::ofstream out(path, std::ios::binary);
  out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

std::string le32(uint32_t v) {
  std::string s(4, '\0');
  for (int i = 0; i < 4; ++i) s[i] = static_cast<char>((v >> (8 * i)) & 0xff);
  return s;
}

float fromBits(uint32_t bits) {
  float f;
  std::memcpy(&f, &bits, 4);
  return f;
}

uint32_t bitsOf(float f) {
  uint32_t bits;
  std::memcpy(&bits, &f, 4);
  return bits;
}

std::string leFloat(float f) { return le32(bitsOf(f)); }

}  // namespace

// The file holds little-endian (u, v) pairs row by row after the header, and
// reading it back into a tensor of another shape restores every bit pattern
// (NaN payloads, signed zero, infinity, denormals, the unknown marker).
// Names not ending in exactly ".flo" are warned about on standard output but
// still written.
TEST(FlowFile, LayoutIsInterleavedRowByRowAndRoundTripsEveryBit) {
  CTensor<float> flow(3, 2, 2);
  const uint32_t patterns[12] = {0x7fc00123u, 0xffc00001u, 0x80000000u, 0x7f800000u,
                                 0x4e6e6b28u /* 1e9 */, 0x00000001u, 0x3f800000u, 0xbf000000u,
                                 0x7f7fffffu, 0x12345678u, 0xc2c80000u, 0x00000000u};
  for (int i = 0; i < 12; ++i) flow.data[i] = fromBits(patterns[i]);
  const std::string path = tempPath("roundtrip.flo");
  COpticFlow::writeMiddlebury(flow, path.c_str());
  std::string expected = "PIEH" + le32(3) + le32(2);
  for (int i = 0; i < 6; ++i) expected += le32(patterns[i]) + le32(patterns[6 + i]);
  EXPECT_EQ(slurp(path), expected);

  CTensor<float> back(7, 5, 3, 1.0f);  // old contents of another shape
  COpticFlow::readMiddlebury(path.c_str(), back);
  ASSERT_EQ(back.xSize * 100 + back.ySize * 10 + back.zSize, 322);
  for (int i = 0; i < 12; ++i) EXPECT_EQ(bitsOf(back.data[i]), patterns[i]) << "element " << i;
  std::remove(path.c_str());

  for (const char* name : {"upper.FLO", "backup.flo.bak", "good.flo"}) {
    const std::string named = tempPath(name);
    testing::internal::CaptureStdout();
    COpticFlow::writeMiddlebury(flow, named.c_str());
    const bool good = std::string(name) == "good.flo";
    EXPECT_EQ(testing::internal::GetCapturedStdout(), good ? "" : named + " should have extension '.flo'\n");
    EXPECT_EQ(slurp(named).size(), 12u + 48u) << name;
    std::remove(named.c_str());
  }
}

TEST(FlowFile, ReaderRejectsHeadersPromisingMoreThanTheFileHolds) {
  const std::string path = tempPath("bad.flo");
  const std::string cases[] = {
      "PIEH" + le32(2),                                         // header cut short
      "PIEH" + le32(2) + le32(2) + std::string(31, '\0'),       // one byte missing
      "PIEH" + le32(0x7fffffff) + le32(0x7fffffff),             // huge, no data
      "PIEH" + le32(0xffffffffu) + le32(0xffffffffu),           // -1 x -1: product is positive
      "PIEH" + le32(0xfffffffeu) + le32(3) + std::string(64, '\0'),  // negative width
  };
  for (const std::string& bytes : cases) {
    writeBytes(path, bytes);
    CTensor<float> flow(1, 1, 2, 9.0f);
    testing::internal::CaptureStderr();
    EXPECT_THROW(COpticFlow::readMiddlebury(path.c_str(), flow), EInvalidFileFormat)
        << bytes.size() << " bytes";
    EXPECT_NE(testing::internal::GetCapturedStderr().find(path), std::string::npos);
    // The tensor is left as it was.
    EXPECT_EQ(flow.xSize, 1);
    EXPECT_EQ(flow.data[1], 9.0f);
  }

  // Found by fuzzing: a huge width with zero height holds no vectors, so it
  // is a valid empty field, and must not make the reader allocate a row.
  writeBytes(path, "PIEH" + le32(0x7ffffff0) + le32(0));
  CTensor<float> wide(1, 1, 2, 9.0f);
  COpticFlow::readMiddlebury(path.c_str(), wide);
  EXPECT_EQ(wide.elements(), 0u);
  EXPECT_EQ(wide.data, nullptr);

  // A wrong tag and trailing bytes are accepted silently.
  writeBytes(path, "XXXX" + le32(1) + le32(1) + leFloat(2.5f) + leFloat(-1) + "trailing");
  CTensor<float> flow;
  testing::internal::CaptureStderr();
  testing::internal::CaptureStdout();
  COpticFlow::readMiddlebury(path.c_str(), flow);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  ASSERT_EQ(flow.xSize * flow.ySize * flow.zSize, 2);
  EXPECT_EQ(flow.data[0], 2.5f);
  EXPECT_EQ(flow.data[1], -1.0f);
  std::remove(path.c_str());
}

TEST(FlowFile, FailedWritesThrowAndLeaveNoFileBehind) {
  // A tensor with pixels but one plane has no v to write.
  CTensor<float> onePlane(2, 2, 1, 0.0f);
  const std::string path = tempPath("oneplane.flo");
  testing::internal::CaptureStderr();
  EXPECT_THROW(COpticFlow::writeMiddlebury(onePlane, path.c_str()), ETensorIncompatibleSize);
  EXPECT_NE(testing::internal::GetCapturedStderr(), "");
  EXPECT_FALSE(exists(path));

  // A full device: the data cannot be flushed. The device itself must survive.
  if (!exists("/dev/full")) GTEST_SKIP() << "/dev/full not available";
  CTensor<float> flow(64, 64, 2, 1.0f);
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  EXPECT_THROW(COpticFlow::writeMiddlebury(flow, "/dev/full"), EFileWriteFailed);
  testing::internal::GetCapturedStdout();
  EXPECT_NE(testing::internal::GetCapturedStderr().find("/dev/full"), std::string::npos);
  EXPECT_TRUE(exists("/dev/full"));
}
