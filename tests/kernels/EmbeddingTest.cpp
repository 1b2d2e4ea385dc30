// The OpenCL embedding step on texts of its own: every quoted include at the start of a line is inlined,
// recursively and once, a mention of one elsewhere (in a comment) is left alone, the depfile names every
// header inlined, and an include written so that it would not be inlined stops the build.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>

#include "BuiltPtx.h"

namespace {

namespace fs = std::filesystem;

class Embedding : public testing::Test {
 protected:
  void SetUp() override { fs::create_directories(folder_); }
  void TearDown() override { fs::remove_all(folder_); }
  void Write(const std::string& name, const std::string& text) { std::ofstream(folder_ / name) << text; }
  // Runs the step on A.cl; true when it succeeded.
  bool Embed() {
    const std::string command =
        std::string(LUMORA_CMAKE) + " -DSOURCE=" + (folder_ / "A.cl").string() +
        " -DMODULE=A -DINCLUDE_DIRS=" + folder_.string() + " -DOUTPUT=" + (folder_ / "A.cpp").string() +
        " -DDEPFILE=" + (folder_ / "A.d").string() + " -P " + LUMORA_EMBED_SCRIPT + " >/dev/null 2>&1";
    return std::system(command.c_str()) == 0;
  }
  fs::path folder_ = fs::temp_directory_path() / ("lumora-embed-" + std::to_string(::getpid()));
};

std::size_t Count(const std::string& text, const std::string& part) {
  std::size_t count = 0;
  for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++count;
  return count;
}

TEST_F(Embedding, InlinesQuotedIncludesRecursivelyAndOnceAndListsThem) {
  Write("A.cl", "// module: A\n#include \"B.h\"\n#include \"C.h\"\nkernel body\n");
  Write("B.h", "// B mentions #include \"C.h\" in a comment\n#include \"C.h\"\nB body\n");
  Write("C.h", "C body\n");
  ASSERT_TRUE(Embed());
  const std::string generated = ReadText(folder_ / "A.cpp");
  const std::string text = generated.substr(generated.find("kText[]"));  // the embedded text
  EXPECT_EQ(Count(text, "C body"), 1u) << text;
  EXPECT_EQ(Count(text, "B body"), 1u);
  EXPECT_EQ(Count(text, "\n#include \""), 0u) << text;
  EXPECT_EQ(Count(text, "// B mentions #include \"C.h\" in a comment"), 1u);
  EXPECT_LT(text.find("C body"), text.find("B body")) << "a header's includes come before its own text";
  const std::string dependencies = ReadText(folder_ / "A.d");
  for (const char* header : {"B.h", "C.h"})
    EXPECT_NE(dependencies.find((folder_ / header).string()), std::string::npos) << dependencies;
}

TEST_F(Embedding, AnIncludeThatWouldNotBeInlinedStopsTheBuild) {
  Write("C.h", "C body\n");
  for (const char* text : {"// module: A\n  #include \"C.h\"\n", "// module: A\n#include \"Missing.h\"\n",
                           "// module: B\n"}) {  // indented, not found, a marker naming another module
    Write("A.cl", text);
    EXPECT_FALSE(Embed()) << text;
  }
}

}  // namespace
