// The embedded host's small services: the debug database and assertion reports, trace categories, UTF-8 and
// UTF-16 conversions, the suite registry, interface references, the memory recycler and identifiers, the
// executable directory, whole-file reading and folder listing.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <limits>
#include <string>
#include <vector>

#include "OXR/Allocated.h"
#include "OXR/InterfaceRef.h"
#include "TQ/Suites.h"
#include "zelcore/Debug.h"
#include "zelcore/Files.h"
#include "zelcore/Strings.h"
#include "zelcore/Trace.h"
#include "zelcore/Utility.h"

namespace {

namespace fs = std::filesystem;
using zelcore::UTF16String;
using zelcore::UTF16ToUTF8;
using zelcore::UTF8ToUTF16;
using zelcore::debug::DebugDatabase;
using zelcore::utility::Guid;

std::string LookupOr(const std::string& key) {
  std::string value;
  return DebugDatabase::Instance().Lookup(key, value) ? value : "<missing>";
}

TEST(HostDebugDatabase, ParsesEntriesAndSetOverridesTheEnvironmentUntilReload) {
  DebugDatabase& db = DebugDatabase::Instance();
  setenv("LUMORA_DEBUG", " LM.EnableOpenCL = true ;;path=a=b; noEquals ; =orphan;Empty=  ;Dup=1;Dup=2", 1);
  db.Reload();
  for (const auto& [key, value] :
       std::vector<std::pair<std::string, std::string>>{{"LM.EnableOpenCL", "true"},
                                                        {"path", "a=b"},
                                                        {"Empty", ""},
                                                        {"Dup", "2"},
                                                        {"noEquals", "<missing>"},
                                                        {"", "<missing>"}}) {
    EXPECT_EQ(LookupOr(key), value) << key;
  }
  db.Set("New", "n");
  db.SetDefault("New", "other");
  db.SetDefault("Fresh", "f");
  EXPECT_EQ(LookupOr("New") + LookupOr("Fresh"), "nf") << "a default never replaces an entry";
  db.Reload();
  EXPECT_EQ(LookupOr("New"), "<missing>");
  unsetenv("LUMORA_DEBUG");
  db.Reload();
  EXPECT_EQ(LookupOr("path"), "<missing>");
}

// A report is written and counted; a silenced site is dropped entirely; quiet output is still counted.
TEST(HostAssertionReport, CountsWritesAndSilencesReports) {
  using namespace zelcore::debug;
  const unsigned before = AssertionReportCount();
  const auto report = [](bool* silence, const char* function) {
    testing::internal::CaptureStderr();
    EXPECT_FALSE(
        BreakAfterAssertDialog(silence, "result == CUDA_SUCCESS", "cuInit failed", "Device", 42, function));
    return testing::internal::GetCapturedStderr();
  };
  const std::string expected = "Assertion failed: result == CUDA_SUCCESS: cuInit failed (Device:42)";
  EXPECT_EQ(report(nullptr, nullptr), expected + "\n");
  EXPECT_EQ(AssertionReportCount(), before + 1);
  EXPECT_EQ(LastAssertionReport(), expected);
  bool silence = true;
  EXPECT_EQ(report(&silence, "Dropped"), "");
  EXPECT_EQ(AssertionReportCount(), before + 1);
  EXPECT_EQ(LastAssertionReport(), expected);
  SetAssertionOutputQuiet(true);
  EXPECT_EQ(report(nullptr, "Function"), "");
  SetAssertionOutputQuiet(false);
  EXPECT_EQ(AssertionReportCount(), before + 2);
  EXPECT_EQ(LastAssertionReport(),
            "Assertion failed: result == CUDA_SUCCESS: cuInit failed (Device:42 Function)");
}

TEST(HostTrace, CategoriesComeFromTheEnvironmentAtFirstUse) {
  using namespace zelcore::trace;
  // Checked in a freshly started copy of this program, where this is surely the first use.
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  setenv("LUMORA_TRACE", "Lumora; Other", 1);
  const auto enabled = [] {
    return TraceEnabled("Lumora", 0, 1) && TraceEnabled("Other", 3, 0) && !TraceEnabled("lumora", 0, 1) &&
           !TraceEnabled(nullptr, 0, 1);
  };
  EXPECT_EXIT(std::exit(enabled() ? 0 : 1), testing::ExitedWithCode(0), "");
}

TEST(HostTrace, SetTraceCategoriesParsesListsAndMovesTheChangeCounter) {
  using namespace zelcore::trace;
  // A caller caching answers starts with a counter of 0; it must see a difference at once.
  const unsigned first = TraceChangeCounter();
  EXPECT_NE(first, 0u);
  SetTraceCategories(" A ,B;;C ");
  const unsigned second = TraceChangeCounter();
  EXPECT_NE(second, first);
  EXPECT_TRUE(TraceEnabled("A", 0, 0) && TraceEnabled("C", 0, 0));
  EXPECT_FALSE(TraceEnabled("D", 0, 0) || TraceEnabled("", 0, 0));
  SetTraceCategories("*");
  EXPECT_NE(TraceChangeCounter(), second);
  EXPECT_TRUE(TraceEnabled("Anything", 0, 0));
  SetTraceCategories("");
  EXPECT_FALSE(TraceEnabled("Anything", 0, 0));
}

TEST(HostUTF16Conversion, RoundTripsEveryPlaneExactlyAndReplacesInvalidInput) {
  // A, e-acute, euro sign, a CJK ideograph, U+FFFF, then U+10000, U+1F600 and U+10FFFF (surrogate pairs).
  const std::string utf8 =
      "A\xC3\xA9\xE2\x82\xAC\xE4\xB8\xAD\xEF\xBF\xBF\xF0\x90\x80\x80\xF0\x9F\x98\x80\xF4\x8F\xBF\xBF";
  const UTF16String utf16 = UTF8ToUTF16(utf8);
  EXPECT_EQ(utf16, UTF16String(
                       {0x41, 0xE9, 0x20AC, 0x4E2D, 0xFFFF, 0xD800, 0xDC00, 0xD83D, 0xDE00, 0xDBFF, 0xDFFF}));
  EXPECT_EQ(UTF16ToUTF8(utf16), utf8);
  const std::string withNul("a\0b", 3);
  EXPECT_EQ(UTF16ToUTF8(UTF8ToUTF16(withNul)), withNul);

  constexpr zelcore::UTF16Char R = 0xFFFD;
  EXPECT_EQ(UTF8ToUTF16("\x80"), UTF16String({R}));                       // stray continuation byte
  EXPECT_EQ(UTF8ToUTF16("\xE2\x82\x41"), UTF16String({R, 'A'}));          // broken by an 'A', which is kept
  EXPECT_EQ(UTF8ToUTF16("\xC0\xAF"), UTF16String({R, R}));                // overlong '/'
  EXPECT_EQ(UTF8ToUTF16("\xED\xA0\x80"), UTF16String({R, R, R}));         // an encoded surrogate
  EXPECT_EQ(UTF8ToUTF16("\xF4\x90\x80\x80"), UTF16String({R, R, R, R}));  // above U+10FFFF
  EXPECT_EQ(UTF8ToUTF16("a\xF0\x9F\x98\x80\xF0\x9F\x62"),
            UTF16String({'a', 0xD83D, 0xDE00, R, 'b'}));  // 'b' cuts
  // Unpaired surrogates on the way back.
  const std::string r = "\xEF\xBF\xBD";
  EXPECT_EQ(UTF16ToUTF8(UTF16String({0xD83D})), r);
  EXPECT_EQ(UTF16ToUTF8(UTF16String({0xDE00, 0xD83D})), r + r);
  EXPECT_EQ(UTF16ToUTF8(UTF16String({0xD83D, 0xD83D, 0xDE00})), r + "\xF0\x9F\x98\x80");
}

struct CounterSuite {
  std::uint32_t (*twice)(std::uint32_t value);
};

TEST(HostSuiteRegistry, AcquiresACopyOfTheRegisteredTableByNameVersionAndSize) {
  CounterSuite suite{[](std::uint32_t value) { return value * 2; }};
  ASSERT_EQ(TQ::RegisterSuite("Counter Suite", 1, &suite, sizeof suite), 0);
  suite.twice = [](std::uint32_t value) { return value * 3; };  // the registry holds its own copy
  CounterSuite acquired{nullptr};
  ASSERT_TRUE(TQ::AcquireSuite("Counter Suite", 1, &acquired, sizeof acquired));
  EXPECT_EQ(acquired.twice(21), 42u);
  // Re-registration replaces; other versions, names and sizes are refused and leave the output alone.
  ASSERT_EQ(TQ::RegisterSuite("Counter Suite", 1, &suite, sizeof suite), 0);
  ASSERT_TRUE(TQ::AcquireSuite("Counter Suite", 1, &acquired, sizeof acquired));
  EXPECT_EQ(acquired.twice(2), 6u);
  CounterSuite untouched{nullptr};
  EXPECT_FALSE(TQ::AcquireSuite("Counter Suite", 2, &untouched, sizeof untouched));
  EXPECT_FALSE(TQ::AcquireSuite("Unknown", 1, &untouched, sizeof untouched));
  EXPECT_FALSE(TQ::AcquireSuite("Counter Suite", 1, &untouched, sizeof untouched - 1));
  EXPECT_EQ(untouched.twice, nullptr);
  EXPECT_NE(TQ::RegisterSuite("Null", 1, nullptr, 8), 0);
}

class IShape : public OXR::OXRUnknown {
 public:
  virtual int Area() const = 0;
};

// Counts its destructions.
class Square : public IShape {
 public:
  Square(int side, int* destroyed) : side_(side), destroyed_(destroyed) {}
  ~Square() override { ++*destroyed_; }
  int Area() const override { return side_ * side_; }
  int QueryInterface(const Guid&, void** out) override { return *out = nullptr, OXR::kResultNoInterface; }

 private:
  int side_;
  int* destroyed_;
};

TEST(HostInterfaceRef, CountsReferencesThroughCopiesAndDetachAndTheLastReleaseDeletes) {
  using OXR::InterfaceRef;
  int destroyed = 0;
  {
    InterfaceRef<OXR::Allocated<Square>> square;
    square.Attach(OXR::Allocated<Square>::Create(3, &destroyed));  // takes over the creator's reference
    ASSERT_TRUE(square);
    EXPECT_EQ(square->ReferenceCount(), 1u);
    InterfaceRef<OXR::Allocated<Square>> copy = square;
    InterfaceRef<OXR::Allocated<Square>> moved = std::move(copy);
    EXPECT_FALSE(copy);
    InterfaceRef<IShape> base = square;  // derived to base
    base = base;
    EXPECT_EQ(square->ReferenceCount(), 3u);
    EXPECT_EQ(base->Area(), 9);
    moved.Reset();
    base.Reset();
    EXPECT_EQ(square->ReferenceCount(), 1u);
    InterfaceRef<IShape> borrowed(square.Get());  // a raw pointer is borrowed: a reference is added
    EXPECT_EQ(square->ReferenceCount(), 2u);
    IShape* detached = borrowed.Detach();
    EXPECT_FALSE(borrowed);
    EXPECT_EQ(detached->Release(), 1u);
    EXPECT_EQ(destroyed, 0);
  }
  EXPECT_EQ(destroyed, 1);
}

// Blocks come in page classes; a block recycled under its requested size lands in its own class.
TEST(HostMemoryRecycler, ReusesRecycledBlocksByPageClass) {
  using zelcore::utility::MemoryRecycler;
  MemoryRecycler::Trim();
  std::size_t actual = 0, again = 0, other = 0;
  void* block = MemoryRecycler::Allocate(5000, actual);
  ASSERT_NE(block, nullptr);
  EXPECT_EQ(actual, 8192u);
  EXPECT_EQ(reinterpret_cast<std::uintptr_t>(block) % 4096, 0u);
  std::memset(block, 0xAB, actual);
  MemoryRecycler::Recycle(block, actual);
  EXPECT_EQ(MemoryRecycler::CachedBytes(), 8192u);
  EXPECT_EQ(MemoryRecycler::Allocate(8192, again), block);
  EXPECT_EQ(again, 8192u);
  EXPECT_EQ(MemoryRecycler::CachedBytes(), 0u);
  MemoryRecycler::Recycle(block, 5000);
  void* smaller = MemoryRecycler::Allocate(4096, other);
  EXPECT_NE(smaller, block);
  MemoryRecycler::Recycle(smaller, other);
  MemoryRecycler::Trim();
  EXPECT_EQ(MemoryRecycler::Allocate(std::numeric_limits<std::size_t>::max(), actual), nullptr);
  EXPECT_EQ(actual, 0u);
}

TEST(HostGuid, ParsesPrintsOrdersAndRejectsMalformedText) {
  Guid guid;
  ASSERT_TRUE(Guid::Parse("0123ABCD-4567-89ab-CDEF-0011223344FF", guid));
  EXPECT_EQ(guid.ToString(), "0123abcd-4567-89ab-cdef-0011223344ff");
  EXPECT_EQ(guid, Guid(0x0123ABCDu, 0x4567, 0x89AB, 0xCD, 0xEF, 0x00, 0x11, 0x22, 0x33, 0x44, 0xFF));
  const Guid original = Guid::Create();
  for (const char* text : {"", "0123abcd-4567-89ab-cdef-0011223344f", "0123abcd-4567-89ab-cdef-0011223344ff0",
                           "0123abcd-4567-89ab-cdef0-011223344ff", "0123abcg-4567-89ab-cdef-0011223344ff",
                           "{123abcd-4567-89ab-cdef-0011223344ff}"}) {
    Guid out = original;
    EXPECT_FALSE(Guid::Parse(text, out)) << text;
    EXPECT_EQ(out, original);
  }
  // Ordered byte-wise as unsigned.
  Guid a, b, c;
  ASSERT_TRUE(Guid::Parse("7fffffff-ffff-ffff-ffff-ffffffffffff", a));
  ASSERT_TRUE(Guid::Parse("80000000-0000-0000-0000-000000000000", b));
  ASSERT_TRUE(Guid::Parse("80000000-0000-0000-0000-000000000001", c));
  EXPECT_TRUE(a < b && b < c);
  EXPECT_FALSE(c < b || b < b);
}

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
  using namespace zelcore::filesupport;
  std::string pattern = (fs::temp_directory_path() / "lumora-host-XXXXXX").string();
  ASSERT_NE(mkdtemp(pattern.data()), nullptr);
  const fs::path dir = pattern;
  const zelcore::UTF16String wideDir = UTF8ToUTF16(dir.string());
  std::string content;
  for (int i = 0; i < 100000; ++i) content.push_back(static_cast<char>(i * 7 + i / 256));
  std::ofstream(dir / "Modul\xC3\xA9_NVIDIA.ptx", std::ios::binary) << content;
  for (const char* name : {"archive.tar.gz", ".hidden"}) std::ofstream(dir / name) << "x";
  fs::create_directory(dir / "sub.d");
  std::ofstream(dir / "sub.d" / "nested.txt") << "x";

  File file;
  ASSERT_TRUE(file.Open(File::Join(wideDir, zelcore::Wide("Modul\xC3\xA9_NVIDIA.ptx"))));
  ASSERT_EQ(file.Size(), content.size());
  std::string read(content.size(), '\0');
  EXPECT_EQ(file.Read(read.data(), read.size()), content.size());
  EXPECT_EQ(read, content);
  EXPECT_EQ(file.Read(read.data(), 1), 0u);
  EXPECT_FALSE(file.Open(File::Join(wideDir, zelcore::Wide("missing.bin"))));
  EXPECT_FALSE(file.IsOpen()) << "a failed open leaves the object closed";

  std::vector<std::string> entries;
  DirectoryEntry entry;
  for (DirectoryIterator iterator(wideDir); iterator.Next(entry);) {
    EXPECT_EQ(UTF16ToUTF8(entry.fullPath), (dir / UTF16ToUTF8(entry.name)).string());
    entries.push_back(UTF16ToUTF8(entry.name) + " " + UTF16ToUTF8(entry.title) +
                      (entry.isDirectory ? " folder" : ""));
  }
  std::sort(entries.begin(), entries.end());
  EXPECT_EQ(entries,
            (std::vector<std::string>{".hidden .hidden", "Modul\xC3\xA9_NVIDIA.ptx Modul\xC3\xA9_NVIDIA",
                                      "archive.tar.gz archive.tar", "sub.d sub folder"}));
  EXPECT_FALSE(DirectoryIterator(File::Join(wideDir, zelcore::Wide("missing"))).Next(entry));
  fs::remove_all(dir);
}

}  // namespace
