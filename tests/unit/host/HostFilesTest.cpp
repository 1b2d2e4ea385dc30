// The executable directory, whole-file reading and folder listing.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "zelcore/Files.h"

namespace {

namespace fs = std::filesystem;
using zelcore::UTF16ToUTF8;
using zelcore::Wide;
using zelcore::filesupport::DirectoryEntry;
using zelcore::filesupport::DirectoryIterator;
using zelcore::filesupport::File;

// A fresh folder, removed with everything in it at the end of the test.
struct TempDir {
  TempDir() {
    std::string pattern = (fs::temp_directory_path() / "lumora-host-XXXXXX").string();
    if (mkdtemp(pattern.data()) != nullptr) path = pattern;
  }
  ~TempDir() {
    std::error_code ignored;
    if (!path.empty()) fs::remove_all(path, ignored);
  }
  fs::path path;
};

TEST(HostExecutableDir, EnvironmentOverridesTheProgramFolderOnEveryCall) {
  using zelcore::filesupport::commondirs::ExecutableDir;
  unsetenv("LUMORA_EXECUTABLE_DIR");
  const std::string real = UTF16ToUTF8(ExecutableDir());
  EXPECT_EQ(real, fs::read_symlink("/proc/self/exe").parent_path().string());

  setenv("LUMORA_EXECUTABLE_DIR", "/opt/host/bin//", 1);
  EXPECT_EQ(UTF16ToUTF8(ExecutableDir()), "/opt/host/bin");
  setenv("LUMORA_EXECUTABLE_DIR", "", 1);
  EXPECT_EQ(UTF16ToUTF8(ExecutableDir()), real);
  unsetenv("LUMORA_EXECUTABLE_DIR");
}

TEST(HostFiles, ReadsWholeFilesAndListsOneFolderWithTitles) {
  const TempDir temp;
  ASSERT_FALSE(temp.path.empty());
  const fs::path& dir = temp.path;
  const zelcore::UTF16String wideDir = zelcore::UTF8ToUTF16(dir.string());
  std::string content;
  for (int i = 0; i < 100000; ++i) content.push_back(static_cast<char>(i * 7 + i / 256));
  std::ofstream(dir / "Modul\xC3\xA9_NVIDIA.ptx", std::ios::binary) << content;
  for (const char* name : {"archive.tar.gz", ".hidden"}) std::ofstream(dir / name) << "x";
  fs::create_directory(dir / "sub.d");
  std::ofstream(dir / "sub.d" / "nested.txt") << "x";

  File file;
  ASSERT_TRUE(file.Open(File::Join(wideDir, Wide("Modul\xC3\xA9_NVIDIA.ptx"))));
  ASSERT_EQ(file.Size(), content.size());
  std::string read(content.size(), '\0');
  EXPECT_EQ(file.Read(read.data(), read.size()), content.size());
  EXPECT_EQ(read, content);
  char more;
  EXPECT_EQ(file.Read(&more, 1), 0u);
  // A failed open leaves the object closed.
  EXPECT_FALSE(file.Open(File::Join(wideDir, Wide("missing.bin"))));
  EXPECT_FALSE(file.IsOpen());

  std::vector<DirectoryEntry> entries;
  DirectoryIterator iterator(wideDir);
  DirectoryEntry entry;
  while (iterator.Next(entry)) entries.push_back(entry);
  std::sort(entries.begin(), entries.end(),
            [](const DirectoryEntry& a, const DirectoryEntry& b) { return a.name < b.name; });
  const std::vector<std::vector<std::string>> expected{
      {".hidden", ".hidden", "file"},
      {"Modul\xC3\xA9_NVIDIA.ptx", "Modul\xC3\xA9_NVIDIA", "file"},
      {"archive.tar.gz", "archive.tar", "file"},
      {"sub.d", "sub", "folder"}};
  ASSERT_EQ(entries.size(), expected.size());
  for (std::size_t i = 0; i < expected.size(); ++i) {
    EXPECT_EQ(UTF16ToUTF8(entries[i].name), expected[i][0]);
    EXPECT_EQ(UTF16ToUTF8(entries[i].title), expected[i][1]);
    EXPECT_EQ(entries[i].isDirectory, expected[i][2] == "folder") << expected[i][0];
    EXPECT_EQ(UTF16ToUTF8(entries[i].fullPath), (dir / expected[i][0]).string());
  }
  EXPECT_FALSE(DirectoryIterator(File::Join(wideDir, Wide("missing"))).Next(entry));
}

}  // namespace
