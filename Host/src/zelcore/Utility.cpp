// Physical memory size and identifiers.
#include "zelcore/Utility.h"

#include <sys/random.h>
#include <unistd.h>

#include <cerrno>
#include <random>

namespace zelcore {
namespace utility {
namespace {

// Fills `bytes` from the system's random source; false if it cannot deliver.
bool SystemRandom(std::uint8_t* bytes, std::size_t size) {
  std::size_t done = 0;
  while (done < size) {
    const ssize_t got = getrandom(bytes + done, size - done, 0);
    if (got < 0) {
      if (errno == EINTR) continue;
      return false;
    }
    done += static_cast<std::size_t>(got);
  }
  return true;
}

int HexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

bool IsDashPosition(std::size_t i) {
  return i == 8 || i == 13 || i == 18 || i == 23;
}

}  // namespace

std::uint64_t TotalPhysicalMemory() {
  const long pages = sysconf(_SC_PHYS_PAGES);
  const long pageSize = sysconf(_SC_PAGE_SIZE);
  if (pages <= 0 || pageSize <= 0) return 0;
  return static_cast<std::uint64_t>(pages) * static_cast<std::uint64_t>(pageSize);
}

Guid Guid::Create() {
  Bytes bytes{};
  if (!SystemRandom(bytes.data(), bytes.size())) {
    std::random_device device;
    for (std::uint8_t& b : bytes) b = static_cast<std::uint8_t>(device());
  }
  bytes[6] = static_cast<std::uint8_t>((bytes[6] & 0x0F) | 0x40);  // version 4: random
  bytes[8] = static_cast<std::uint8_t>((bytes[8] & 0x3F) | 0x80);  // the standard variant
  return Guid(bytes);
}

bool Guid::Parse(const std::string& text, Guid& out) {
  if (text.size() != 36) return false;
  Bytes bytes{};
  std::size_t byte = 0;
  for (std::size_t i = 0; i < text.size();) {
    if (IsDashPosition(i)) {
      if (text[i] != '-') return false;
      ++i;
      continue;
    }
    const int high = HexValue(text[i]);
    const int low = HexValue(text[i + 1]);
    if (high < 0 || low < 0) return false;
    bytes[byte++] = static_cast<std::uint8_t>(high * 16 + low);
    i += 2;
  }
  out = Guid(bytes);
  return true;
}

std::string Guid::ToString() const {
  static const char kDigits[] = "0123456789abcdef";
  std::string text;
  text.reserve(36);
  for (std::size_t i = 0; i < bytes_.size(); ++i) {
    if (i == 4 || i == 6 || i == 8 || i == 10) text.push_back('-');
    text.push_back(kDigits[bytes_[i] >> 4]);
    text.push_back(kDigits[bytes_[i] & 0x0F]);
  }
  return text;
}

}  // namespace utility
}  // namespace zelcore
