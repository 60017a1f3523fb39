#include <gtest/gtest.h>

#include "image/tensor.h"
#include "image/vector.h"

TEST(Containers, CopiesAreDeepAndSelfAssignmentKeepsData) {
  CTensor<float> a(3, 2, 2, 1.5f);
  CTensor<float> b(a);
  b(1, 1, 1) = 7.0f;
  EXPECT_EQ(a(1, 1, 1), 1.5f);
  const float* before = a.data;
  CTensor<float>& self = a;
  a = self;
  EXPECT_EQ(a.data, before);
  CTensor<float> empty;
  b = empty;
  EXPECT_EQ(b.data, nullptr);
  EXPECT_EQ(b.xSize + b.ySize + b.zSize, 0);
  CVector<double> v(4, 2.0), w;
  w = v;
  w(0) = 1.0;
  EXPECT_EQ(v(0), 2.0);
}

TEST(Containers, GetMatrixRejectsWrongSizeAndLeavesTargetUnchanged) {
  CTensor<float> t(4, 5, 2, 0.0f);
  for (int i = 0; i < 20; ++i) t.data[20 + i] = static_cast<float>(i);
  CMatrix<float> wrong(3, 5, -1.0f);
  testing::internal::CaptureStderr();
  EXPECT_THROW(t.getMatrix(wrong, 1), ETensorIncompatibleSize);
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "Exception ETensorIncompatibleSize: x = 3:4, y = 5:5\n");
  EXPECT_EQ(wrong(0, 0), -1.0f);
  CMatrix<float> right(4, 5);
  t.getMatrix(right, 1);
  EXPECT_EQ(right(3, 4), 19.0f);
}
