// File support: the program's folder, path helpers, reading files and listing folders. Paths are UTF-16
// strings; they are converted to UTF-8 for the system.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "zelcore/Strings.h"

namespace zelcore {
namespace filesupport {
namespace commondirs {

// The folder of the running program, without a trailing separator. The environment variable
// LUMORA_EXECUTABLE_DIR, when set and not empty, replaces it; it is read on every call. Empty when
// neither can be had.
UTF16String ExecutableDir();

}  // namespace commondirs

class File {
 public:
  File() = default;
  ~File();
  File(const File&) = delete;
  File& operator=(const File&) = delete;

  // The absolute form of `path` (relative paths are taken from the current folder), with "." and ".."
  // resolved by text alone and no repeated or trailing separators. The path need not exist.
  static UTF16String FullPath(const UTF16String& path);
  // `name` inside `dir`, with exactly one separator between them; either may be empty.
  static UTF16String Join(const UTF16String& dir, const UTF16String& name);
  // Whether anything (file, folder, ...) exists at `path`; symbolic links are followed.
  static bool Exists(const UTF16String& path);
  static bool DirectoryExists(const UTF16String& path);

  // Opens an existing file for reading; others may read and write it meanwhile. A file already open is
  // closed first. Folders are refused.
  bool Open(const UTF16String& path);
  bool IsOpen() const { return fd_ >= 0; }
  // Size on disk in bytes; 0 when not open.
  std::uint64_t Size() const;
  // Reads up to `bytes` bytes from the current position; returns how many were read (fewer only at the
  // end of the file or on error; 0 when not open).
  std::size_t Read(void* buffer, std::size_t bytes);
  void Close();

 private:
  int fd_ = -1;
};

struct DirectoryEntry {
  UTF16String name;          // file name, e.g. "Fills_NVIDIA.ptx"
  UTF16String title;         // the name without its last extension, e.g. "Fills_NVIDIA"; a leading dot is
                             // not an extension (".hidden" stays ".hidden")
  UTF16String fullPath;      // the folder joined with the name
  bool isDirectory = false;  // symbolic links count as what they point to
};

// The entries of one folder, not recursive, "." and ".." left out, in the order the system lists them
// (no sorting: callers that need an order sort the names). A missing or unreadable folder yields nothing.
class DirectoryIterator {
 public:
  explicit DirectoryIterator(const UTF16String& path);
  ~DirectoryIterator();
  DirectoryIterator(const DirectoryIterator&) = delete;
  DirectoryIterator& operator=(const DirectoryIterator&) = delete;

  // Fills `entry` with the next entry; false when there are no more.
  bool Next(DirectoryEntry& entry);

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace filesupport
}  // namespace zelcore
