// The CUDA module tables: the folder a device's table comes from, module names from file titles, and
// which devices share a table. Each test runs in its own process; a table is built once per class, so a
// test that lays out a second folder asks only for classes not built yet.
#include <gtest/gtest.h>
#include <zelcore/Debug.h>
#include <zelcore/Files.h>

#include <cmath>

#include "ExecutableFolder.h"
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

}  // namespace
