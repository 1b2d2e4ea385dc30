// Which CUDA devices qualify: each test at its exact boundary, and the card list's matching rules.
#include <gtest/gtest.h>

#include "ExecutableFolder.h"
#include "FakeDriverBinding.h"
#include "Lumora/Device.h"
#include "Lumora/Qualification.h"

namespace {

constexpr unsigned long long kMemoryUpTo11 = 802160640ull;
constexpr unsigned long long kMemory = 534773760ull;

class Qualification : public testing::Test {
 protected:
  void SetUp() override { fake_ = BindFakeDriver(); }

  // A device of the fake driver with these properties, at `frameworkIndex` among CUDA devices.
  boost::shared_ptr<LM::Device> Make(const char* name, int major, int minor, unsigned long long memory,
                                     int driverVersion = 4000, unsigned int frameworkIndex = 0) {
    fake_->fakecuda_ClearDevices();
    fake_->fakecuda_AddDevice(name, major, minor, memory);
    fake_->fakecuda_SetDriverVersion(driverVersion);
    boost::shared_ptr<LM::Device> device = LM::Device::Create(frameworkIndex, frameworkIndex, 0);
    EXPECT_TRUE(device);
    return device;
  }

  std::unique_ptr<FakeCUDA> fake_;
  ExecutableFolder folder_;
};

TEST_F(Qualification, EveryTestAtItsBoundary) {
  folder_.Write("cuda_supported_cards.txt", "Boundary Card\n");
  EXPECT_TRUE(LM::MeetsMinimumRequirementsForUse(Make("Boundary Card", 1, 1, kMemoryUpTo11, 4000, 3)));

  EXPECT_STREQ(LM::FirstFailedRequirement(Make("Boundary Card", 1, 1, kMemoryUpTo11, 3999)), "driver");
  EXPECT_STREQ(LM::FirstFailedRequirement(Make("Boundary Card", 1, 0, kMemoryUpTo11)), "compute capability");
  EXPECT_STREQ(LM::FirstFailedRequirement(Make("Boundary Card", 1, 1, kMemoryUpTo11 - 1)), "memory");
  EXPECT_STREQ(LM::FirstFailedRequirement(Make("Boundary Card", 9, 0, kMemory * 8, 12000, 4)),
               "device count");
  EXPECT_STREQ(LM::FirstFailedRequirement(Make("Other Card", 9, 0, kMemory * 8, 12000)), "card list");
}

TEST_F(Qualification, LaterCapabilitiesNeedLessMemory) {
  EXPECT_TRUE(LM::MeetsMinimumMemoryRequirementsForUse(Make("Card", 1, 2, kMemory)));
  EXPECT_FALSE(LM::MeetsMinimumMemoryRequirementsForUse(Make("Card", 1, 2, kMemory - 1)));
  EXPECT_FALSE(LM::MeetsMinimumMemoryRequirementsForUse(Make("Card", 1, 1, kMemory)));
}

TEST_F(Qualification, ACardListMatchesWholeLinesExactly) {
  folder_.Write("cuda_supported_cards.txt", "GeForce A\r\nGeForce B \ngeforce c\n\nGeForce D");
  EXPECT_TRUE(LM::MatchesNamedCardList(Make("GeForce A", 7, 5, kMemory * 8)))
      << "carriage returns are stripped";
  EXPECT_FALSE(LM::MatchesNamedCardList(Make("GeForce B", 7, 5, kMemory * 8))) << "a trailing blank is kept";
  EXPECT_FALSE(LM::MatchesNamedCardList(Make("GeForce C", 7, 5, kMemory * 8))) << "case counts";
  EXPECT_FALSE(LM::MatchesNamedCardList(Make("GeForce", 7, 5, kMemory * 8))) << "no prefixes";
  EXPECT_TRUE(LM::MatchesNamedCardList(Make("GeForce D", 7, 5, kMemory * 8)))
      << "the last line needs no newline";
  EXPECT_TRUE(LM::MatchesNamedCardList(Make("", 7, 5, kMemory * 8))) << "a blank line matches an empty name";
}

TEST_F(Qualification, WithoutAListEveryOtherwiseFitCardQualifiesAndAnEmptyListAdmitsNone) {
  EXPECT_TRUE(LM::MeetsMinimumRequirementsForUse(Make("Any Card", 7, 5, kMemory)));
  folder_.Write("cuda_supported_cards.txt", "");
  EXPECT_FALSE(LM::MeetsMinimumRequirementsForUse(Make("Any Card", 7, 5, kMemory)));
  // The OpenCL list does not apply to CUDA devices.
  folder_.Write("cuda_supported_cards.txt", "Any Card\n");
  folder_.Write("opencl_supported_cards.txt", "");
  EXPECT_TRUE(LM::MeetsMinimumRequirementsForUse(Make("Any Card", 7, 5, kMemory)));
}

TEST_F(Qualification, NoDeviceNeverQualifies) {
  const boost::shared_ptr<LM::Device> none;
  EXPECT_FALSE(LM::MeetsMinimumRequirementsForUse(none));
  EXPECT_FALSE(LM::MatchesNamedCardList(none));
  EXPECT_EQ(LM::FirstFailedRequirement(none), nullptr);
}

}  // namespace
