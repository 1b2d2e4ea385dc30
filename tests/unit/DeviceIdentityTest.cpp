// How device identity is read from runtime texts and numbers.
#include <gtest/gtest.h>

#include "Devices/DeviceIdentity.h"

namespace {

TEST(DeviceIdentity, VendorsAreClassifiedAppleFirst) {
  EXPECT_EQ(LM::ClassifyVendor("Apple"), LM::kVendor_Apple);
  EXPECT_EQ(LM::ClassifyVendor("Apple (AMD Radeon)"), LM::kVendor_Apple);
  EXPECT_EQ(LM::ClassifyVendor("NVIDIA Corporation, for Apple"), LM::kVendor_Apple);
  EXPECT_EQ(LM::ClassifyVendor("Advanced Micro Devices, Inc."), LM::kVendor_AMD);
  EXPECT_EQ(LM::ClassifyVendor("AMD"), LM::kVendor_AMD);
  EXPECT_EQ(LM::ClassifyVendor("Intel(R) Corporation"), LM::kVendor_Intel);
  EXPECT_EQ(LM::ClassifyVendor("NVIDIA Corporation"), LM::kVendor_NVIDIA);
  EXPECT_EQ(LM::ClassifyVendor("nvidia"), LM::kVendor_Unknown) << "case-sensitive";
  EXPECT_EQ(LM::ClassifyVendor("GenuineIntel"), LM::kVendor_Intel);
  EXPECT_EQ(LM::ClassifyVendor(""), LM::kVendor_Unknown);
}

TEST(DeviceIdentity, CapabilitiesPutTheMinorBehindTheDecimalPoint) {
  EXPECT_DOUBLE_EQ(LM::CapabilityFromVersion(2, 0), 2.0);
  EXPECT_DOUBLE_EQ(LM::CapabilityFromVersion(2, 1), 2.1);
  EXPECT_DOUBLE_EQ(LM::CapabilityFromVersion(1, 3), 1.3);
  EXPECT_DOUBLE_EQ(LM::CapabilityFromVersion(3, 10), 3.1);
  EXPECT_DOUBLE_EQ(LM::CapabilityFromVersion(12, 0), 12.0);
}

TEST(DeviceIdentity, VersionTextsGiveTheirFirstMajorMinorPair) {
  EXPECT_DOUBLE_EQ(LM::ParseVersionText("OpenCL 3.0 PoCL HSTR: pthread-x86_64-pc-linux-gnu-skylake-avx512"),
                   3.0);
  EXPECT_DOUBLE_EQ(LM::ParseVersionText("OpenCL 1.2 CUDA"), 1.2);
  EXPECT_DOUBLE_EQ(LM::ParseVersionText("3.1+debian"), 3.1);
  EXPECT_NEAR(LM::ParseVersionText("535.104.05"), 535.104, 1e-9);
  EXPECT_DOUBLE_EQ(LM::ParseVersionText("OpenCL C 1.2 PoCL"), 1.2);
  EXPECT_DOUBLE_EQ(LM::ParseVersionText("v10"), -1.0);
  EXPECT_DOUBLE_EQ(LM::ParseVersionText("1."), -1.0);
  EXPECT_DOUBLE_EQ(LM::ParseVersionText(""), -1.0);
  EXPECT_DOUBLE_EQ(LM::ParseVersionText("99999999999999999999.5"), -1.0)
      << "an overlong number is no version";
}

}  // namespace
