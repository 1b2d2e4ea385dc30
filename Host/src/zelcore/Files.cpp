// File support on POSIX: paths are converted to UTF-8 for the system calls.
#include "zelcore/Files.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace zelcore {
namespace filesupport {
namespace {

constexpr UTF16Char kSeparator = '/';

// Drops trailing separators, except the one that is the root itself.
void TrimTrailingSeparators(UTF16String& path) {
  while (path.size() > 1 && path.back() == kSeparator) path.pop_back();
}

UTF16String CurrentDirectory() {
  char* cwd = getcwd(nullptr, 0);
  if (cwd == nullptr) return UTF16String();
  UTF16String result = UTF8ToUTF16(cwd);
  std::free(cwd);
  return result;
}

bool StatPath(const UTF16String& path, struct stat& info) {
  if (path.empty()) return false;
  return stat(UTF16ToUTF8(path).c_str(), &info) == 0;
}

// The title of a file name: everything before its last '.', unless that dot starts the name.
UTF16String TitleOf(const UTF16String& name) {
  const std::size_t dot = name.rfind('.');
  if (dot == UTF16String::npos || dot == 0) return name;
  return name.substr(0, dot);
}

}  // namespace

namespace commondirs {

UTF16String ExecutableDir() {
  const char* overridden = std::getenv("LUMORA_EXECUTABLE_DIR");
  if (overridden != nullptr && *overridden != '\0') {
    UTF16String dir = UTF8ToUTF16(overridden);
    TrimTrailingSeparators(dir);
    return dir;
  }
  std::vector<char> buffer(4096);
  for (;;) {
    const ssize_t length = readlink("/proc/self/exe", buffer.data(), buffer.size());
    if (length < 0) return UTF16String();
    if (static_cast<std::size_t>(length) < buffer.size()) {
      const std::string program(buffer.data(), static_cast<std::size_t>(length));
      const std::size_t slash = program.rfind('/');
      if (slash == std::string::npos) return UTF16String();
      return UTF8ToUTF16(slash == 0 ? std::string("/") : program.substr(0, slash));
    }
    // Possibly cut off: try again with more room.
    buffer.resize(buffer.size() * 2);
  }
}

}  // namespace commondirs

File::~File() {
  Close();
}

UTF16String File::FullPath(const UTF16String& path) {
  UTF16String absolute = path;
  if (absolute.empty() || absolute.front() != kSeparator) {
    absolute = Join(CurrentDirectory(), absolute);
    if (absolute.empty() || absolute.front() != kSeparator) absolute.insert(absolute.begin(), kSeparator);
  }
  // Resolve "." and ".." segment by segment; ".." at the root stays at the root.
  std::vector<UTF16String> segments;
  std::size_t start = 0;
  while (start <= absolute.size()) {
    std::size_t end = absolute.find(kSeparator, start);
    if (end == UTF16String::npos) end = absolute.size();
    const UTF16String segment = absolute.substr(start, end - start);
    if (segment == Wide("..")) {
      if (!segments.empty()) segments.pop_back();
    } else if (!segment.empty() && segment != Wide(".")) {
      segments.push_back(segment);
    }
    start = end + 1;
  }
  UTF16String result;
  for (const UTF16String& segment : segments) {
    result.push_back(kSeparator);
    result += segment;
  }
  if (result.empty()) result.push_back(kSeparator);
  return result;
}

UTF16String File::Join(const UTF16String& dir, const UTF16String& name) {
  if (dir.empty()) return name;
  if (name.empty()) return dir;
  UTF16String result = dir;
  TrimTrailingSeparators(result);
  std::size_t first = 0;
  while (first < name.size() && name[first] == kSeparator) ++first;
  if (result.back() != kSeparator) result.push_back(kSeparator);
  result.append(name, first, UTF16String::npos);
  return result;
}

bool File::Exists(const UTF16String& path) {
  struct stat info;
  return StatPath(path, info);
}

bool File::DirectoryExists(const UTF16String& path) {
  struct stat info;
  return StatPath(path, info) && S_ISDIR(info.st_mode);
}

bool File::Open(const UTF16String& path) {
  Close();
  if (path.empty()) return false;
  const int fd = open(UTF16ToUTF8(path).c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return false;
  struct stat info;
  if (fstat(fd, &info) != 0 || S_ISDIR(info.st_mode)) {
    close(fd);
    return false;
  }
  fd_ = fd;
  return true;
}

std::uint64_t File::Size() const {
  struct stat info;
  if (fd_ < 0 || fstat(fd_, &info) != 0 || info.st_size < 0) return 0;
  return static_cast<std::uint64_t>(info.st_size);
}

std::size_t File::Read(void* buffer, std::size_t bytes) {
  if (fd_ < 0 || buffer == nullptr) return 0;
  std::size_t done = 0;
  while (done < bytes) {
    const ssize_t got = read(fd_, static_cast<char*>(buffer) + done, bytes - done);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) break;
    done += static_cast<std::size_t>(got);
  }
  return done;
}

void File::Close() {
  if (fd_ >= 0) {
    close(fd_);
    fd_ = -1;
  }
}

struct DirectoryIterator::State {
  DIR* dir = nullptr;
  UTF16String path;
};

DirectoryIterator::DirectoryIterator(const UTF16String& path) : state_(new State()) {
  state_->path = path;
  if (!path.empty()) state_->dir = opendir(UTF16ToUTF8(path).c_str());
}

DirectoryIterator::~DirectoryIterator() {
  if (state_->dir != nullptr) closedir(state_->dir);
}

bool DirectoryIterator::Next(DirectoryEntry& entry) {
  if (state_->dir == nullptr) return false;
  for (;;) {
    const dirent* item = readdir(state_->dir);
    if (item == nullptr) return false;
    if (std::strcmp(item->d_name, ".") == 0 || std::strcmp(item->d_name, "..") == 0) continue;

    entry.name = UTF8ToUTF16(item->d_name);
    entry.title = TitleOf(entry.name);
    entry.fullPath = File::Join(state_->path, entry.name);
    if (item->d_type == DT_DIR) {
      entry.isDirectory = true;
    } else if (item->d_type == DT_UNKNOWN || item->d_type == DT_LNK) {
      struct stat info;
      const std::string fullPath =
          state_->path.empty() ? std::string(item->d_name) : UTF16ToUTF8(state_->path) + "/" + item->d_name;
      entry.isDirectory = stat(fullPath.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
    } else {
      entry.isDirectory = false;
    }
    return true;
  }
}

}  // namespace filesupport
}  // namespace zelcore
