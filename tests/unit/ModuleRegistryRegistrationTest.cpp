// The OpenCL module table, read through its kernel records without a device: how registered texts are
// named, and that a lookup made before the posted rebuild has run builds the table itself.
#include <gtest/gtest.h>
#include <zelcore/Threads.h>

#include <algorithm>
#include <atomic>
#include <future>
#include <thread>

#include "Lumora/OpenCLModuleLoader.h"
#include "Modules/ModuleRegistry.h"

namespace {

using Names = std::vector<std::string>;

// The registered module names, less those in `before` (every test program registers the library's own
// kernel families at start-up).
Names Added(const Names& before) {
  Names names;
  for (const auto& record : LM::GetKernelRecords(LM::kDeviceFramework_OpenCL, LM::kVendor_Unknown, 0)) {
    if (std::find(before.begin(), before.end(), record.moduleName) == before.end()) {
      names.push_back(record.moduleName);
    }
  }
  return names;
}

TEST(OpenCLModuleRegistration, EachTextIsNamedByItsFirstMarkerLine) {
  const Names before = Added({});
  const char* first[] = {"// module: Tint\nkernel void A() {}",
                         "#line 1\n// module:  Blur \r\n// module: Not\n", "kernel void Unnamed() {}",
                         nullptr, "// module: \t\nkernel void NoName() {}"};
  char changing[] = "// module: Tint\n// the later text";
  const char* second[] = {changing};
  LM::OpenCLModuleLoader a(first, 5), b(second, 1), none(nullptr, 2);
  changing[11] = 'X';  // registration copied the text

  EXPECT_EQ(Added(before), (Names{"Blur", "Tint"}));
  std::string image;
  ASSERT_TRUE(LM::LookUpModuleImage(LM::kDeviceFramework_OpenCL, LM::kVendor_Unknown, 0, "Tint", image));
  EXPECT_EQ(image, "// module: Tint\n// the later text") << "a later text of the same name wins";
}

TEST(OpenCLModuleRegistration, ALookupBeforeThePostedRebuildBuildsTheTableItself) {
  const Names before = Added({});
  const char* early[] = {"// module: Early\n"};
  const char* late[] = {"// module: Late\n"};
  LM::OpenCLModuleLoader first(early, 1);
  EXPECT_EQ(Added(before), Names{"Early"});

  // Both threads of the I/O pool are kept busy, so the rebuild stays queued.
  const auto io = zelcore::threads::CreateIOBoundExecutor();
  std::promise<void> release;
  const std::shared_future<void> released = release.get_future().share();
  std::atomic<int> busy{0};
  for (int i = 0; i < 2; ++i)
    io->Post([&busy, released] {
      ++busy;
      released.wait_for(std::chrono::seconds(10));
    });
  while (busy < 2) std::this_thread::yield();

  LM::OpenCLModuleLoader second(late, 1);
  EXPECT_FALSE(LM::IsModuleTableBuilt(LM::kDeviceFramework_OpenCL, 0));
  EXPECT_EQ(Added(before), (Names{"Early", "Late"}));
  release.set_value();
  io->WaitUntilIdle();
  EXPECT_EQ(Added(before), (Names{"Early", "Late"}));
}

}  // namespace
