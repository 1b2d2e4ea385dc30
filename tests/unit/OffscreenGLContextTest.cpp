// The hidden OpenGL context: class numbering on every path, and on Linux whatever the installed EGL gives,
// which must be a whole context current on the creating thread or nothing at all.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "Platform/DynamicLibrary.h"
#include "Platform/OffscreenGLContext.h"

namespace {

// Sets an environment variable (a null value leaves it as it is) and restores its earlier state after.
class ScopedEnvironment {
 public:
  ScopedEnvironment(const char* name, const char* value) : name_(name), had_(std::getenv(name) != nullptr) {
    if (had_) earlier_ = std::getenv(name);
    if (value != nullptr) setenv(name, value, 1);
  }
  ~ScopedEnvironment() { had_ ? setenv(name_.c_str(), earlier_.c_str(), 1) : unsetenv(name_.c_str()); }

 private:
  std::string name_, earlier_;
  bool had_;
};

bool AllNull(const LM::OffscreenGLContext& c) {
  return c.window == nullptr && c.deviceContext == nullptr && c.renderingContext == nullptr;
}

// Runs rounds of creation on several threads at once: returns how far the class counter moved.
int CreateConcurrently(int threadCount, int roundsEach, void (*round)()) {
  const int before = LM::LastOffscreenClassNumber();
  std::atomic<bool> start{false};
  std::vector<std::thread> threads;
  for (int t = 0; t < threadCount; ++t) {
    threads.emplace_back([&] {
      while (!start) std::this_thread::yield();
      for (int i = 0; i < roundsEach; ++i) round();
    });
  }
  start = true;
  for (std::thread& thread : threads) thread.join();
  return LM::LastOffscreenClassNumber() - before;
}

TEST(OffscreenGLContextHeadless, GivesNullHandlesAndEachCreationStillTakesTheNextNumber) {
  ScopedEnvironment headless("LUMORA_HEADLESS", "1");
  const int before = LM::LastOffscreenClassNumber();
  LM::OffscreenGLContext first = LM::CreateOffscreenGLContext();
  LM::OffscreenGLContext second = LM::CreateOffscreenGLContext();  // a re-initialised device
  EXPECT_TRUE(AllNull(first) && AllNull(second));
  EXPECT_EQ(LM::LastOffscreenClassNumber(), before + 2);
  LM::ClearCurrentOpenGLContext();
  LM::DestroyOffscreenGLContext(first);
  EXPECT_TRUE(AllNull(first));

  // Every one of many concurrent creations moving the counter by exactly one means no two shared a number.
  EXPECT_EQ(CreateConcurrently(8, 250, [] { LM::CreateOffscreenGLContext(); }), 8 * 250);
}

#if !defined(_WIN32)

// On a machine without a display server Mesa's default (X11) display cannot initialise; its surfaceless
// platform, chosen through EGL_PLATFORM (read once per process), still offers pbuffers, so these tests reach
// the path that makes a context. An EGL_PLATFORM already set is respected. Every check holds whatever EGL
// gives.
class OffscreenGLContextEGL : public testing::Test {
 protected:
  using Query = unsigned (*)(void*, void*, std::int32_t, std::int32_t*);
  struct Probe {  // found the way the library finds its own entry points
    void* library = LM::LoadDynamicLibrary("libEGL.so.1");
    void* (*currentContext)() = Find<void* (*)()>("eglGetCurrentContext");
    void* (*currentSurface)(std::int32_t) = Find<void* (*)(std::int32_t)>("eglGetCurrentSurface");
    Query queryContext = Find<Query>("eglQueryContext");
    Query querySurface = Find<Query>("eglQuerySurface");
    template <typename Function>
    Function Find(const char* name) const {
      return reinterpret_cast<Function>(LM::FindLibrarySymbol(library, name));
    }
  };
  static const Probe& EGL() {
    static const Probe probe;
    return probe;
  }
  static void* Current() { return EGL().currentContext ? EGL().currentContext() : nullptr; }
  static const char* PreferredPlatform() {
    const bool set = std::getenv("EGL_PLATFORM") || std::getenv("DISPLAY") || std::getenv("WAYLAND_DISPLAY");
    return set ? nullptr : "surfaceless";
  }

  // Either all three handles, the context current on this thread on its pbuffer and an OpenGL (not OpenGL ES)
  // context; or nothing at all.
  static void ExpectWholeAndCurrentOrNothing(const LM::OffscreenGLContext& c) {
    if (c.renderingContext == nullptr) {
      EXPECT_TRUE(AllNull(c)) << "handles kept without a context";
      return;
    }
    const Probe& egl = EGL();
    ASSERT_TRUE(egl.currentContext && egl.currentSurface && egl.queryContext) << "made without libEGL.so.1";
    EXPECT_TRUE(c.window != nullptr && c.deviceContext != nullptr);
    EXPECT_EQ(egl.currentContext(), c.renderingContext);
    EXPECT_EQ(egl.currentSurface(0x3059 /* draw */), c.window);
    EXPECT_EQ(egl.currentSurface(0x305A /* read */), c.window);
    std::int32_t clientType = 0;
    egl.queryContext(c.deviceContext, c.renderingContext, 0x3097 /* client type */, &clientType);
    EXPECT_EQ(clientType, 0x30A2 /* OpenGL */);
  }

  // One device's initialisation and shutdown on the calling thread; returns the handles it had.
  static LM::OffscreenGLContext InitialiseAndShutDown() {
    LM::OffscreenGLContext context = LM::CreateOffscreenGLContext();
    const LM::OffscreenGLContext made = context;
    ExpectWholeAndCurrentOrNothing(context);
    LM::ClearCurrentOpenGLContext();
    EXPECT_EQ(Current(), nullptr);
    LM::DestroyOffscreenGLContext(context);
    EXPECT_TRUE(AllNull(context));
    return made;
  }

  ScopedEnvironment withDisplay_{"LUMORA_HEADLESS", "0"};
  ScopedEnvironment platform_{"EGL_PLATFORM", PreferredPlatform()};
};

TEST_F(OffscreenGLContextEGL, AContextIsCurrentUntilClearedReplacedOrDestroyed) {
  LM::ClearCurrentOpenGLContext();  // nothing current yet: harmless
  LM::OffscreenGLContext older = LM::CreateOffscreenGLContext();
  LM::OffscreenGLContext newer = LM::CreateOffscreenGLContext();
  RecordProperty("madeContext", newer.renderingContext != nullptr ? "yes" : "no");
  ExpectWholeAndCurrentOrNothing(newer);

  LM::DestroyOffscreenGLContext(older);  // not current: the newer one stays
  EXPECT_EQ(Current(), newer.renderingContext);
  LM::ClearCurrentOpenGLContext();
  EXPECT_EQ(Current(), nullptr);
  LM::DestroyOffscreenGLContext(newer);
  EXPECT_TRUE(AllNull(older) && AllNull(newer));

  // Destroyed while still current (a device shut down on its own thread): none may stay current.
  LM::OffscreenGLContext current = LM::CreateOffscreenGLContext();
  ExpectWholeAndCurrentOrNothing(current);
  LM::DestroyOffscreenGLContext(current);
  EXPECT_EQ(Current(), nullptr);
  LM::DestroyOffscreenGLContext(current);  // already released: nothing to do
}

// Each thread sees its own context current, whatever the other does meanwhile.
TEST_F(OffscreenGLContextEGL, DevicesInitialisedConcurrentlyTakeDifferentNumbersAndTheirOwnContexts) {
  EXPECT_EQ(CreateConcurrently(2, 5, [] { InitialiseAndShutDown(); }), 2 * 5);
}

// EGL keeps every surface and context in its display's lists, where a forgotten one stays reachable and no
// leak checker sees it; EGL does reject a handle no longer among them, which shows each was really destroyed.
// Run under AddressSanitizer, the rounds also show whether anything else made per context outlives it.
TEST_F(OffscreenGLContextEGL, FiftyCreationsAndDestructionsLeaveNothingBehind) {
  for (int round = 0; round < 50; ++round) {
    const LM::OffscreenGLContext made = InitialiseAndShutDown();
    if (made.renderingContext == nullptr) continue;
    std::int32_t value = 0;
    EXPECT_EQ(EGL().querySurface(made.deviceContext, made.window, 0x3057 /* width */, &value), 0u) << round;
    EXPECT_EQ(EGL().queryContext(made.deviceContext, made.renderingContext, 0x3097, &value), 0u) << round;
  }
}

#endif

}  // namespace
