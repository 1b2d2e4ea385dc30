// The executable directory, path helpers, file reading and folder listing.
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

std::string Narrow(const zelcore::UTF16String& text) {
  return UTF16ToUTF8(text);
}

class HostFiles : public ::testing::Test {
 protected:
  void SetUp() override {
    std::string pattern = (fs::temp_directory_path() / "lumora-host-XXXXXX").string();
    ASSERT_NE(mkdtemp(pattern.data()), nullptr);
    dir_ = pattern;
  }
  void TearDown() override {
    std::error_code ignored;
    fs::remove_all(dir_, ignored);
  }
  void WriteFile(const std::string& name, const std::string& content) {
    std::ofstream(dir_ / name, std::ios::binary) << content;
  }
  zelcore::UTF16String Dir() const { return zelcore::UTF8ToUTF16(dir_.string()); }

  fs::path dir_;
};

TEST(HostExecutableDir, EnvironmentOverridesTheProgramFolderOnEveryCall) {
  unsetenv("LUMORA_EXECUTABLE_DIR");
  const std::string real = Narrow(zelcore::filesupport::commondirs::ExecutableDir());
  EXPECT_EQ(real, fs::read_symlink("/proc/self/exe").parent_path().string());

  setenv("LUMORA_EXECUTABLE_DIR", "/opt/host/bin//", 1);
  EXPECT_EQ(Narrow(zelcore::filesupport::commondirs::ExecutableDir()), "/opt/host/bin");
  setenv("LUMORA_EXECUTABLE_DIR", "", 1);
  EXPECT_EQ(Narrow(zelcore::filesupport::commondirs::ExecutableDir()), real);
  unsetenv("LUMORA_EXECUTABLE_DIR");
}

TEST(HostPath, FullPathResolvesDotsWithoutTouchingTheDisk) {
  EXPECT_EQ(Narrow(File::FullPath(Wide("/a/./b/../c//d/"))), "/a/c/d");
  EXPECT_EQ(Narrow(File::FullPath(Wide("/../x/.."))), "/");
  EXPECT_EQ(Narrow(File::FullPath(Wide("/no/such/folder/file.txt"))), "/no/such/folder/file.txt");

  const std::string cwd = fs::current_path().string();
  EXPECT_EQ(Narrow(File::FullPath(Wide("sub/../file.txt"))), (fs::path(cwd) / "file.txt").string());
  EXPECT_EQ(Narrow(File::FullPath(zelcore::UTF16String())), cwd);
}

TEST(HostPath, JoinPutsExactlyOneSeparatorBetween) {
  EXPECT_EQ(Narrow(File::Join(Wide("/a"), Wide("b.txt"))), "/a/b.txt");
  EXPECT_EQ(Narrow(File::Join(Wide("/a//"), Wide("/b.txt"))), "/a/b.txt");
  EXPECT_EQ(Narrow(File::Join(Wide("/"), Wide("b"))), "/b");
  EXPECT_EQ(Narrow(File::Join(Wide(""), Wide("b"))), "b");
  EXPECT_EQ(Narrow(File::Join(Wide("/a"), Wide(""))), "/a");
}

TEST_F(HostFiles, ReadsAWholeFileUnderAUnicodeName) {
  std::string content;
  for (int i = 0; i < 100000; ++i) content.push_back(static_cast<char>(i * 7 + i / 256));
  WriteFile("Modul\xC3\xA9_NVIDIA.ptx", content);

  File file;
  ASSERT_TRUE(file.Open(File::Join(Dir(), Wide("Modul\xC3\xA9_NVIDIA.ptx"))));
  EXPECT_TRUE(file.IsOpen());
  ASSERT_EQ(file.Size(), content.size());
  std::string read(content.size(), '\0');
  EXPECT_EQ(file.Read(read.data(), read.size()), content.size());
  EXPECT_EQ(read, content);
  char more;
  EXPECT_EQ(file.Read(&more, 1), 0u);

  file.Close();
  EXPECT_FALSE(file.IsOpen());
  EXPECT_EQ(file.Size(), 0u);
  EXPECT_EQ(file.Read(read.data(), 1), 0u);
}

TEST_F(HostFiles, OpenRefusesMissingFilesAndFoldersAndExistsTellsThemApart) {
  WriteFile("empty.bin", "");
  EXPECT_TRUE(File::DirectoryExists(Dir()));
  EXPECT_TRUE(File::Exists(File::Join(Dir(), Wide("empty.bin"))));
  EXPECT_FALSE(File::DirectoryExists(File::Join(Dir(), Wide("empty.bin"))));
  EXPECT_FALSE(File::Exists(File::Join(Dir(), Wide("missing.bin"))));
  File file;
  EXPECT_FALSE(file.Open(File::Join(Dir(), Wide("missing.bin"))));
  EXPECT_FALSE(file.Open(Dir()));
  EXPECT_FALSE(file.Open(zelcore::UTF16String()));
  ASSERT_TRUE(file.Open(File::Join(Dir(), Wide("empty.bin"))));
  EXPECT_EQ(file.Size(), 0u);
  // Opening again replaces the open file; a failed open leaves the object closed.
  EXPECT_FALSE(file.Open(File::Join(Dir(), Wide("missing.bin"))));
  EXPECT_FALSE(file.IsOpen());
}

TEST_F(HostFiles, IteratesOneFolderWithTitlesAndKinds) {
  WriteFile("Fills_NVIDIA.ptx", "a");
  WriteFile("archive.tar.gz", "b");
  WriteFile(".hidden", "c");
  WriteFile("noext", "d");
  WriteFile("trailing.", "e");
  fs::create_directory(dir_ / "sub.d");
  WriteFile("sub.d/nested.txt", "f");
  fs::create_directory_symlink(dir_ / "sub.d", dir_ / "link");

  std::vector<DirectoryEntry> entries;
  DirectoryIterator iterator(Dir());
  DirectoryEntry entry;
  while (iterator.Next(entry)) entries.push_back(entry);
  std::sort(entries.begin(), entries.end(),
            [](const DirectoryEntry& a, const DirectoryEntry& b) { return a.name < b.name; });

  struct Expected {
    const char* name;
    const char* title;
    bool isDirectory;
  };
  const std::vector<Expected> expected{{".hidden", ".hidden", false},
                                       {"Fills_NVIDIA.ptx", "Fills_NVIDIA", false},
                                       {"archive.tar.gz", "archive.tar", false},
                                       {"link", "link", true},
                                       {"noext", "noext", false},
                                       {"sub.d", "sub", true},
                                       {"trailing.", "trailing", false}};
  ASSERT_EQ(entries.size(), expected.size());
  for (std::size_t i = 0; i < expected.size(); ++i) {
    EXPECT_EQ(Narrow(entries[i].name), expected[i].name);
    EXPECT_EQ(Narrow(entries[i].title), expected[i].title);
    EXPECT_EQ(entries[i].isDirectory, expected[i].isDirectory) << expected[i].name;
    EXPECT_EQ(Narrow(entries[i].fullPath), (dir_ / expected[i].name).string());
  }
  EXPECT_FALSE(iterator.Next(entry));
}

TEST_F(HostFiles, MissingOrEmptyFolderYieldsNothing) {
  DirectoryEntry entry;
  EXPECT_FALSE(DirectoryIterator(File::Join(Dir(), Wide("missing"))).Next(entry));
  EXPECT_FALSE(DirectoryIterator(Dir()).Next(entry));
  EXPECT_FALSE(DirectoryIterator(zelcore::UTF16String()).Next(entry));
}

}  // namespace
