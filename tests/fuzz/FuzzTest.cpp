// The bounded fuzz test: a fixed seed draws the calls (FuzzCalls.h), so a failure replays; the test stops
// after kCalls calls or kSeconds seconds, whichever comes first, and checks the guards after every call.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <vector>

#include "EveryDevice.h"
#include "FuzzCalls.h"

namespace {

constexpr std::size_t kCalls = 50000;
constexpr double kSeconds = 30;
constexpr std::size_t kBytesPerCall = 128;

class Fuzz : public EveryDevice {};

TEST_P(Fuzz, EveryExportedFunctionSurvivesRandomArguments) {
  if (device_->GetFramework() != LM::kDeviceFramework_OpenCL)
    GTEST_SKIP() << "guard bytes around device buffers need OpenCL buffers over host memory";
  // LUMORA_FUZZ_SEED draws other calls, to explore beyond the fixed seed.
  const char* seed = std::getenv("LUMORA_FUZZ_SEED");
  std::mt19937_64 random(seed != nullptr ? std::strtoull(seed, nullptr, 10) : 20261123);
  std::vector<std::uint8_t> bytes(kBytesPerCall);
  std::vector<std::size_t> calls(FuzzSession::EntryPointCount());
  const auto start = std::chrono::steady_clock::now();
  std::size_t made = 0;
  {
    FuzzSession session(device_);
    for (; made < kCalls; ++made) {
      for (std::uint8_t& byte : bytes) byte = static_cast<std::uint8_t>(random());
      FuzzBytes input(bytes.data(), bytes.size());
      const char* name = session.CallOne(input);
      const std::string fault = session.Check();
      ASSERT_EQ(fault, "") << "call " << made << " (" << name << ")";
      for (std::size_t i = 0; i < calls.size(); ++i) calls[i] += FuzzSession::EntryPointName(i) == name;
      if (std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count() > kSeconds) break;
    }
    EXPECT_EQ(session.Finish(), "");
  }
  std::printf("%zu calls in %.1f s\n", made,
              std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
  RecordProperty("calls", static_cast<int>(made));
  for (std::size_t i = 0; i < calls.size(); ++i)
    EXPECT_GE(calls[i], 10u) << FuzzSession::EntryPointName(i) << " was hardly called";
}

LM_ON_EVERY_DEVICE(Fuzz);

}  // namespace
