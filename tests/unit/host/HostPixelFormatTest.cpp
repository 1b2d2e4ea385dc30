// The pixel-format table against the bit fields that Lumora reads and against the format names (expected
// values come from the names and the library's rules, never from the host's own helpers); the reverse
// lookup from a property word and the registration of formats outside the table (each test runs in its own
// process, so registrations do not leak between tests).
#include <gtest/gtest.h>

#include <atomic>
#include <climits>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "zelmediatypes/PixelFormatTable.h"

namespace zmt = zelmediatypes;

namespace {

std::vector<zmt::PixelFormatInfo> Table() {
  std::size_t count = 0;
  const zmt::PixelFormatInfo* table = zmt::PixelFormatTable(count);
  return std::vector<zmt::PixelFormatInfo>(table, table + count);
}

bool Has(const std::string& s, const char* part) {
  return s.find(part) != std::string::npos;
}

// Lumora's bytes per pixel, from the property word alone.
std::size_t LibraryBytesPerPixel(std::uint32_t d) {
  if ((d & 0xC0000u) != 0x40000u) return 0;
  const unsigned kind = (d >> 1) & 7;
  const bool narrow = (d & 0xC00u) != 0;
  if (kind == 0) return narrow ? 2 : 4;
  if (kind == 2 || kind == 3) return 8;
  if (kind == 5) return narrow ? 8 : 16;
  return 0;
}

// Every field that the library reads, checked against what the name says, and the size of the
// four-component formats against the library's bytes per pixel; names, codes and words are each unique.
TEST(HostPixelFormatTable, FieldsAndSizesMatchTheNamesAndEachFormatIsUnique) {
  const std::vector<zmt::PixelFormatInfo> table = Table();
  std::set<std::string> names;
  std::set<std::uint32_t> codes, words;
  for (const auto& info : table) {
    ASSERT_EQ(std::string(info.name).substr(0, 13), "kPixelFormat_");
    const std::string name = std::string(info.name).substr(13);
    const std::uint32_t d = info.format.properties;
    SCOPED_TRACE(name);
    names.insert(name);
    codes.insert(info.format.code);
    words.insert(d);

    const unsigned kind = (d >> 1) & 7, type = (d >> 14) & 15, alpha = (d >> 7) & 7;
    EXPECT_EQ(d & 0xC0000u, 0x40000u) << "class";
    EXPECT_EQ(d & 0xFC003040u, 0u) << "reserved bits";
    EXPECT_EQ((d & 0x20u) != 0, Has(name, "_709"));

    const bool is420 = Has(name, "_420_");
    EXPECT_EQ((d & 1u) != 0, is420);
    EXPECT_EQ(zmt::IsPlanar420Format(info.format), is420);
    EXPECT_EQ(d & 0xC00u, is420 ? 0xC00u : Has(name, "_422_") ? 0x400u : 0u);
    unsigned expectedType = 0;
    if (is420)
      expectedType = Has(name, "MPEG2") ? (Has(name, "FRAME") ? 9 : 10) : (Has(name, "FRAME") ? 11 : 12);
    EXPECT_EQ(type, expectedType);

    // The alpha letter sits in the family: BGR? / VUY? at 4th place, ?RGB at 1st; no alpha otherwise.
    const std::string family = name.substr(name.compare(0, 4, "GPU_") == 0 ? 4 : 0, 4);
    const char letter = Has(name, "_4444_") ? (family[3] == 'B' ? family[0] : family[3]) : 'X';
    EXPECT_EQ(alpha, letter == 'A' ? 1u : letter == 'P' ? 2u : 3u);

    // Kind and float bit: 8u is 8-bit unsigned, 15u 16-bit unsigned, 16f half, 32f float; 10u must
    // have no bytes per pixel.
    const unsigned sample = kind | ((d & 0x10u) ? 8u : 0u);
    if (Has(name, "_10u")) {
      EXPECT_EQ(LibraryBytesPerPixel(d), 0u);
    } else {
      EXPECT_EQ(sample, Has(name, "_8u") ? 0u : Has(name, "_15u") ? 3u : Has(name, "_16f") ? 11u : 13u);
    }
    if ((d & 0xC00u) == 0) {  // four components: the host's size must agree with the library's
      const std::size_t bytes = 4 * (Has(name, "_8u") ? 1 : Has(name, "_32f") ? 4 : 2);
      EXPECT_EQ(LibraryBytesPerPixel(d), bytes);
      EXPECT_EQ(zmt::PixelFormatSize(info.format, 7, 5), bytes * 35);
    }
  }
  EXPECT_EQ(names.size(), table.size());
  EXPECT_EQ(codes.size(), table.size());
  EXPECT_EQ(words.size(), table.size());
  EXPECT_EQ(codes.count(zmt::kPixelFormatName_Bad), 0u);
}

TEST(HostPixelFormatSize, PackedPlanarAndOutOfRangeSizes) {
  EXPECT_EQ(zmt::PixelFormatSize(zmt::kPixelFormat_UYVY_422_8u, 1, 1), 4u);
  EXPECT_EQ(zmt::PixelFormatSize(zmt::kPixelFormat_YUYV_422_8u_709, 3, 2), 16u);
  // v210 rows hold 48 pixels in 128 bytes, rounded up to whole groups.
  const std::pair<int, std::size_t> v210Rows[] = {{1, 128}, {48, 128}, {49, 256}, {1920, 5120}};
  for (const auto& row : v210Rows)
    EXPECT_EQ(zmt::PixelFormatSize(zmt::kPixelFormat_V210_422_10u, row.first, 3), 3 * row.second);
  for (const auto& info : Table()) {
    if (!zmt::IsPlanar420Format(info.format)) continue;
    EXPECT_EQ(zmt::PixelFormatSize(info.format, 1, 1), 3u);
    EXPECT_EQ(zmt::PixelFormatSize(info.format, 5, 3), 15u + 2 * 3 * 2);
    EXPECT_EQ(zmt::PixelFormatSize(info.format, 1920, 1080), 1920u * 1080 * 3 / 2);
  }

  EXPECT_EQ(zmt::PixelFormatSize(zmt::kPixelFormat_BGRA_4444_8u, 0, 4), 0u);
  EXPECT_EQ(zmt::PixelFormatSize(zmt::kPixelFormat_V210_422_10u, 4, INT_MIN), 0u);
  const std::uint64_t m = INT_MAX;
  EXPECT_EQ(zmt::PixelFormatSize(zmt::kPixelFormat_BGRA_4444_8u, INT_MAX, INT_MAX), m * m * 4);
  EXPECT_EQ(zmt::PixelFormatSize(zmt::kPixelFormat_BGRA_4444_32f, INT_MAX, INT_MAX), 0u) << "does not fit";
  EXPECT_EQ(zmt::PixelFormatSize(zmt::kPixelFormat_Invalid, 2, 2), 0u);
}

constexpr std::uint32_t kBad = 0x66646162u;
// A 4:2:2 8-bit word with a component order the table does not use, so only registration can name it.
constexpr std::uint32_t kCustom422 = 0x00800000u | 0x00040000u | 0x400u | 0x180u;  // order 8, 4:2:2, no alpha

TEST(HostPixelFormatGuess, NamesEveryTableWordAndNothingElse) {
  for (const auto& info : Table())
    EXPECT_EQ(zmt::GuessNameForProperties(info.format.properties), info.format.code);

  EXPECT_EQ(zmt::GuessNameForProperties(0), kBad);
  EXPECT_EQ(zmt::GuessNameForProperties(0x00080096u), kBad);
  EXPECT_EQ(zmt::GuessNameForProperties(0x000C0000u), 0u);
  EXPECT_EQ(zmt::GuessNameForProperties(kCustom422), 0u);
}

TEST(HostPixelFormatRegistry, RegistrationRules) {
  // Table formats register as no-ops; a table code or word cannot be taken by another.
  const zmt::PixelFormat gpu = zmt::kPixelFormat_GPU_BGRA_4444_16f, bgra = zmt::kPixelFormat_BGRA_4444_8u;
  EXPECT_TRUE(zmt::RegisterCustomPixelFormatProperties(gpu.code, gpu.properties));
  EXPECT_FALSE(
      zmt::RegisterCustomPixelFormatProperties(bgra.code, zmt::kPixelFormat_BGRA_4444_32f.properties));
  EXPECT_FALSE(
      zmt::RegisterCustomPixelFormatProperties(zmt::MakeFormatCode('n', 'e', 'w', '1'), bgra.properties));
  EXPECT_EQ(zmt::GuessNameForProperties(bgra.properties), bgra.code);

  // Words and codes that cannot name a format.
  const std::uint32_t code = zmt::MakeFormatCode('n', 'e', 'w', '3');
  EXPECT_FALSE(zmt::RegisterCustomPixelFormatProperties(code, zmt::kPixelFormatProperties_Any));
  EXPECT_FALSE(zmt::RegisterCustomPixelFormatProperties(code, kCustom422 & ~0x40000u));
  for (std::uint32_t bad : {0u, kBad})
    EXPECT_FALSE(zmt::RegisterCustomPixelFormatProperties(bad, kCustom422));
  EXPECT_EQ(zmt::GuessNameForProperties(kCustom422), 0u);

  // A registered pair is named and sized; the code and the word are then taken.
  ASSERT_TRUE(zmt::RegisterCustomPixelFormatProperties(code, kCustom422));
  EXPECT_TRUE(zmt::RegisterCustomPixelFormatProperties(code, kCustom422));
  EXPECT_FALSE(zmt::RegisterCustomPixelFormatProperties(code, kCustom422 | 0x20u));
  EXPECT_FALSE(zmt::RegisterCustomPixelFormatProperties(zmt::MakeFormatCode('n', 'e', 'w', '4'), kCustom422));
  EXPECT_EQ(zmt::GuessNameForProperties(kCustom422), code);
  EXPECT_EQ(zmt::PixelFormatSize({code, kCustom422}, 3, 2), 16u) << "4 bytes per pair of pixels";
  EXPECT_EQ(zmt::PixelFormatSize({code, kCustom422 | 0x20u}, 3, 2), 0u) << "not the registered word";
}

TEST(HostPixelFormatRegistry, ConcurrentRegistrationsAllLand) {
  constexpr int kThreads = 8;
  std::atomic<int> failures{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([t, &failures] {
      const std::uint32_t shared = zmt::MakeFormatCode('s', 'h', 'r', 'd');
      for (int i = 0; i < 50; ++i) {
        const std::uint32_t own =
            zmt::MakeFormatCode('c', char('a' + t), char('a' + i % 26), char('a' + i / 26));
        const std::uint32_t word = 0x00040000u | std::uint32_t(t * 50 + i + 1) << 20;
        if (!zmt::RegisterCustomPixelFormatProperties(own, word)) ++failures;
        if (!zmt::RegisterCustomPixelFormatProperties(shared, 0x00040000u | 0x40u)) ++failures;
        if (zmt::GuessNameForProperties(word) != own) ++failures;
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(failures.load(), 0);
}

}  // namespace
