// A temporary folder that stands for the host's executable directory (LUMORA_EXECUTABLE_DIR) for one test,
// so card lists and module folders can be laid out per test.
#pragma once

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

class ExecutableFolder {
 public:
  ExecutableFolder()
      : root_(std::filesystem::temp_directory_path() /
              ("lumora-exe-" + std::to_string(getpid()) + "-" + std::to_string(counter_++))) {
    std::filesystem::create_directories(root_);
    setenv("LUMORA_EXECUTABLE_DIR", root_.c_str(), 1);
  }
  ~ExecutableFolder() {
    unsetenv("LUMORA_EXECUTABLE_DIR");
    std::error_code ignored;
    std::filesystem::remove_all(root_, ignored);
  }
  ExecutableFolder(const ExecutableFolder&) = delete;
  ExecutableFolder& operator=(const ExecutableFolder&) = delete;

  void Write(const std::string& relativePath, const std::string& bytes) const {
    const std::filesystem::path path = root_ / relativePath;
    std::filesystem::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << bytes;
  }
  const std::filesystem::path& Root() const { return root_; }

 private:
  static inline int counter_ = 0;
  std::filesystem::path root_;
};
