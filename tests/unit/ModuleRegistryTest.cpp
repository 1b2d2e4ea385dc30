// The module tables, read through their kernel records without a device. CUDA: the folder a device's table
// comes from, module names from file titles, and which devices share a table (each test runs in its own
// process; a table is built once per class, so a test that lays out a second folder asks only for classes
// not built yet). OpenCL: how registered texts are named, and that a lookup made before the posted rebuild
// has run builds the table itself.
#include <gtest/gtest.h>
#include <zelcore/Debug.h>
#include <zelcore/Files.h>
#include <zelcore/Threads.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <future>
#include <thread>

#include "ExecutableFolder.h"
#include "Lumora/OpenCLModuleLoader.h"
#include "Modules/ModuleRegistry.h"

namespace {

using Names = std::vector<std::string>;

Names CUDAModules(double computeCapability, LM::Vendor vendor = LM::kVendor_NVIDIA) {
  Names names;
  for (const auto& record : LM::GetKernelRecords(LM::kDeviceFramework_CUDA, vendor, computeCapability)) {
    names.push_back(record.moduleName);
  }
  return names;
}

TEST(ModuleFolders, TheLastQualifyingCubinFolderWinsElsePTX) {
  {
    ExecutableFolder folder;
    folder.Write("cubin11/Old.cubin", "image");
    folder.Write("cubin30/Newer.cubin", "image");
    EXPECT_EQ(CUDAModules(1.3), Names{"Newer"});
    EXPECT_TRUE(CUDAModules(4.0).empty()) << "no PTX folder, no modules";
  }
  ExecutableFolder folder;
  folder.Write("cubin11/Old.cubin", "image");
  folder.Write("cubin20/Mid.cubin", "image");
  folder.Write("PTX/Fills_NVIDIA.ptx", "image");
  EXPECT_EQ(CUDAModules(3.0), Names{"Fills"}) << "3 > 3.0 is false";
  EXPECT_EQ(CUDAModules(2.0), Names{"Mid"});
}

TEST(ModuleFolders, TitlesLoseTheLastOccurrenceOfTheVendorSuffix) {
  ExecutableFolder folder;
  for (const char* title : {"A_NVIDIA_NVIDIA", "B_NVIDIA_Half_NVIDIA", "Blur_AMD", "Folder_NVIDIA/x"}) {
    folder.Write(std::string("PTX/") + title + ".ptx", "image");
  }
  folder.Write("PTX/Composite_NVIDIA.ptx", "suffixed");
  folder.Write("PTX/Composite.ptx", "plain");
  std::string later;  // of the two Composite files, the one the folder listing gives later
  zelcore::filesupport::DirectoryIterator files(zelcore::UTF8ToUTF16((folder.Root() / "PTX").string()));
  for (zelcore::filesupport::DirectoryEntry entry; files.Next(entry);) {
    if (zelcore::UTF16ToUTF8(entry.title).rfind("Composite", 0) == 0)
      later = zelcore::UTF16ToUTF8(entry.title);
  }

  EXPECT_EQ(CUDAModules(3.0), (Names{"A_NVIDIA", "B_NVIDIA_Half", "Blur_AMD", "Composite"}));
  std::string image;
  ASSERT_TRUE(LM::LookUpModuleImage(LM::kDeviceFramework_CUDA, LM::kVendor_NVIDIA, 3.0, "Composite", image));
  EXPECT_EQ(image, later == "Composite" ? "plain" : "suffixed");
  EXPECT_EQ(CUDAModules(4.0, LM::kVendor_AMD),
            (Names{"A_NVIDIA_NVIDIA", "B_NVIDIA_Half_NVIDIA", "Blur", "Composite", "Composite_NVIDIA"}));
}

TEST(ModuleFolders, AnEmptyFileGivesNoModuleAndAClassIsBuiltOnce) {
  ExecutableFolder folder;
  folder.Write("PTX/Empty_NVIDIA.ptx", "");
  const auto records = LM::GetKernelRecords(LM::kDeviceFramework_CUDA, LM::kVendor_NVIDIA, 4.0);
  ASSERT_EQ(records.size(), 1u);
  EXPECT_EQ(records[0].imageSize, 0u);
  std::string image = "unchanged";
  ASSERT_TRUE(LM::LookUpModuleImage(LM::kDeviceFramework_CUDA, LM::kVendor_NVIDIA, 4.0, "Empty", image));
  EXPECT_EQ(image, "");

  folder.Write("PTX/Second.ptx", "image");
  EXPECT_EQ(CUDAModules(9.0), Names{"Empty"}) << "4.0 and 9.0 share the table built first";
  EXPECT_EQ(CUDAModules(3.5), (Names{"Empty", "Second"})) << "3.x has a table of its own";
  for (const double noClass : {0.9, std::nan("")}) EXPECT_TRUE(CUDAModules(noClass).empty()) << noClass;
}

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
