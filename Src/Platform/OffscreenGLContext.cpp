#include "Platform/OffscreenGLContext.h"

#include <atomic>

#include "Platform/DynamicLibrary.h"

#if defined(_WIN32)
#include <windows.h>

#include <cstdio>
#else
#include <HQX/Headless.h>

#include <cstdint>
#endif

namespace LM {

namespace {

// Numbers the window classes, process-wide. The only state shared between threads that create contexts.
std::atomic<int> lastClassNumber{0};

// The first creation takes number 1.
int TakeClassNumber() noexcept {
  return lastClassNumber.fetch_add(1, std::memory_order_relaxed) + 1;
}

}  // namespace

int LastOffscreenClassNumber() noexcept {
  return lastClassNumber.load(std::memory_order_relaxed);
}

#if defined(_WIN32)

namespace {

// opengl32.dll is loaded at run time, like every other driver library, so nothing is added at link time. A
// missing entry point is skipped, which leaves the same null handle a failed call would.
struct WGLEntryPoints {
  HGLRC(WINAPI* createContext)(HDC) = nullptr;
  BOOL(WINAPI* makeCurrent)(HDC, HGLRC) = nullptr;
  BOOL(WINAPI* deleteContext)(HGLRC) = nullptr;
};

template <typename Function>
void Resolve(void* library, const char* name, Function& target) {
  target = reinterpret_cast<Function>(FindLibrarySymbol(library, name));
}

const WGLEntryPoints& WGL() noexcept {
  static const WGLEntryPoints entries = [] {
    void* const library = LoadDynamicLibrary(L"opengl32.dll");
    WGLEntryPoints found;
    Resolve(library, "wglCreateContext", found.createContext);
    Resolve(library, "wglMakeCurrent", found.makeCurrent);
    Resolve(library, "wglDeleteContext", found.deleteContext);
    return found;
  }();
  return entries;
}

LPCWSTR AtomName(ATOM atom) {
  return reinterpret_cast<LPCWSTR>(static_cast<ULONG_PTR>(atom));
}

}  // namespace

OffscreenGLContext CreateOffscreenGLContext() noexcept {
  const int number = TakeClassNumber();

  // The name is formatted as narrow characters and handed unchanged to the wide-character registration, so
  // the registered name is these bytes read as UTF-16. Only its uniqueness within the process matters, and
  // distinct numbers give distinct byte strings and so distinct wide names. The buffer is zero-filled and
  // aligned for wchar_t so that the wide reading finds its terminator whatever the text's length.
  alignas(wchar_t) char className[32] = {};
  std::snprintf(className, sizeof className, "Offscreen%d", number);

  WNDCLASSW windowClass = {};
  windowClass.lpfnWndProc = DefWindowProcW;
  windowClass.lpszClassName = reinterpret_cast<LPCWSTR>(className);
  const ATOM atom = RegisterClassW(&windowClass);

  // A message-only window (parent HWND_MESSAGE): never shown, receives no broadcasts, exists only to carry a
  // device context with an OpenGL pixel format.
  const HWND window =
      CreateWindowExW(0, AtomName(atom), nullptr, WS_DISABLED | WS_CLIPSIBLINGS | WS_CLIPCHILDREN, 0, 0, 1, 1,
                      HWND_MESSAGE, nullptr, nullptr, nullptr);
  static_assert((WS_DISABLED | WS_CLIPSIBLINGS | WS_CLIPCHILDREN) == 0x0E000000, "window style");
  if (window == nullptr) {
    // Results are otherwise not checked, but GetDC(NULL) would be the whole screen's device context, which
    // must not receive a pixel format. A class without a window could never be found again to be
    // unregistered.
    if (atom != 0) UnregisterClassW(AtomName(atom), nullptr);
    return {};
  }
  const HDC deviceContext = GetDC(window);

  PIXELFORMATDESCRIPTOR pixelFormat = {};
  static_assert(sizeof(PIXELFORMATDESCRIPTOR) == 40, "pixel format descriptor size");
  pixelFormat.nSize = sizeof(PIXELFORMATDESCRIPTOR);
  pixelFormat.nVersion = 1;
  pixelFormat.dwFlags = PFD_DRAW_TO_WINDOW | PFD_SUPPORT_OPENGL | PFD_DOUBLEBUFFER;
  pixelFormat.iPixelType = PFD_TYPE_RGBA;
  pixelFormat.cColorBits = 24;
  SetPixelFormat(deviceContext, ChoosePixelFormat(deviceContext, &pixelFormat), &pixelFormat);

  const WGLEntryPoints& wgl = WGL();
  const HGLRC renderingContext = wgl.createContext != nullptr ? wgl.createContext(deviceContext) : nullptr;
  if (wgl.makeCurrent != nullptr) wgl.makeCurrent(deviceContext, renderingContext);

  OffscreenGLContext made;
  made.window = window;
  made.deviceContext = deviceContext;
  made.renderingContext = renderingContext;
  return made;
}

void ClearCurrentOpenGLContext() noexcept {
  const WGLEntryPoints& wgl = WGL();
  if (wgl.makeCurrent != nullptr) wgl.makeCurrent(nullptr, nullptr);
}

// Windows destroys a window only on the thread that created it; called elsewhere, the window (and so its
// class) lives until that thread ends. A rendering context current on another thread is not deleted either.
void DestroyOffscreenGLContext(OffscreenGLContext& context) noexcept {
  const HWND window = static_cast<HWND>(context.window);
  // The class is found through its window: the handles are all a device keeps.
  const ATOM atom = window != nullptr ? static_cast<ATOM>(GetClassLongPtrW(window, GCW_ATOM)) : 0;
  const WGLEntryPoints& wgl = WGL();
  // wglDeleteContext makes the context not current first when it is current on this thread.
  if (context.renderingContext != nullptr && wgl.deleteContext != nullptr)
    wgl.deleteContext(static_cast<HGLRC>(context.renderingContext));
  if (context.deviceContext != nullptr) ReleaseDC(window, static_cast<HDC>(context.deviceContext));
  if (window != nullptr) DestroyWindow(window);
  if (atom != 0) UnregisterClassW(AtomName(atom), nullptr);
  context = OffscreenGLContext();
}

#else

namespace {

// The few EGL types and values used here, declared locally so that building needs no EGL headers and the
// library never links EGL: libEGL.so.1 is loaded at run time, and a machine without it gets null handles.
using EGLBoolean = unsigned int;
using EGLint = std::int32_t;
using EGLenum = unsigned int;
using EGLDisplay = void*;
using EGLConfig = void*;
using EGLSurface = void*;
using EGLContext = void*;

constexpr EGLint kEGLNone = 0x3038;
constexpr EGLint kEGLRedSize = 0x3024;
constexpr EGLint kEGLGreenSize = 0x3023;
constexpr EGLint kEGLBlueSize = 0x3022;
constexpr EGLint kEGLSurfaceType = 0x3033;
constexpr EGLint kEGLPbufferBit = 0x0001;
constexpr EGLint kEGLRenderableType = 0x3040;
constexpr EGLint kEGLOpenGLBit = 0x0008;
constexpr EGLint kEGLWidth = 0x3057;
constexpr EGLint kEGLHeight = 0x3056;
constexpr EGLenum kEGLOpenGLAPI = 0x30A2;

// Only core entry points, found directly in the library (no eglGetProcAddress needed). eglTerminate is left
// out on purpose: it ends the display for the whole process, including every other device's context and any
// the host made on the same display, so the display stays initialised once it has been.
struct EGLEntryPoints {
  EGLDisplay (*getDisplay)(void* nativeDisplay) = nullptr;
  EGLBoolean (*initialize)(EGLDisplay, EGLint* major, EGLint* minor) = nullptr;
  EGLBoolean (*chooseConfig)(EGLDisplay, const EGLint* attributes, EGLConfig* configs, EGLint size,
                             EGLint* count) = nullptr;
  EGLSurface (*createPbufferSurface)(EGLDisplay, EGLConfig, const EGLint* attributes) = nullptr;
  EGLBoolean (*bindAPI)(EGLenum api) = nullptr;
  EGLContext (*createContext)(EGLDisplay, EGLConfig, EGLContext shared, const EGLint* attributes) = nullptr;
  EGLBoolean (*makeCurrent)(EGLDisplay, EGLSurface draw, EGLSurface read, EGLContext) = nullptr;
  EGLBoolean (*destroyContext)(EGLDisplay, EGLContext) = nullptr;
  EGLBoolean (*destroySurface)(EGLDisplay, EGLSurface) = nullptr;
  EGLContext (*getCurrentContext)() = nullptr;
  EGLDisplay (*getCurrentDisplay)() = nullptr;
  bool complete = false;
};

template <typename Function>
bool Resolve(void* library, const char* name, Function& target) {
  target = reinterpret_cast<Function>(FindLibrarySymbol(library, name));
  return target != nullptr;
}

EGLEntryPoints LoadEGL() {
  EGLEntryPoints found;
  void* const library = LoadDynamicLibrary("libEGL.so.1");
  if (library == nullptr) return found;
  found.complete = Resolve(library, "eglGetDisplay", found.getDisplay) &&
                   Resolve(library, "eglInitialize", found.initialize) &&
                   Resolve(library, "eglChooseConfig", found.chooseConfig) &&
                   Resolve(library, "eglCreatePbufferSurface", found.createPbufferSurface) &&
                   Resolve(library, "eglBindAPI", found.bindAPI) &&
                   Resolve(library, "eglCreateContext", found.createContext) &&
                   Resolve(library, "eglMakeCurrent", found.makeCurrent) &&
                   Resolve(library, "eglDestroyContext", found.destroyContext) &&
                   Resolve(library, "eglDestroySurface", found.destroySurface) &&
                   Resolve(library, "eglGetCurrentContext", found.getCurrentContext) &&
                   Resolve(library, "eglGetCurrentDisplay", found.getCurrentDisplay);
  return found;
}

// Set once a creation has asked for EGL. Until then nothing of this library can be current on any thread,
// so clearing and destroying need not load EGL (a headless host never loads it at all).
std::atomic<bool> eglRequested{false};

// The entry points, or null when libEGL.so.1 or one of them is missing. Loads the library when load is true;
// otherwise only returns what an earlier creation loaded.
const EGLEntryPoints* EGL(bool load) noexcept {
  if (load) {
    eglRequested.store(true, std::memory_order_release);
  } else if (!eglRequested.load(std::memory_order_acquire)) {
    return nullptr;
  }
  static const EGLEntryPoints entries = LoadEGL();
  return entries.complete ? &entries : nullptr;
}

}  // namespace

OffscreenGLContext CreateOffscreenGLContext() noexcept {
  // Taken before the headless test so that the numbering is the same on every path and platform: the n-th
  // creation in the process has number n, whether or not it made anything.
  TakeClassNumber();
  if (HQX::GetIsHeadless()) return {};
  const EGLEntryPoints* const egl = EGL(true);
  if (egl == nullptr) return {};

  // The default display is shared by every context of the process. Initialising an initialised display only
  // reports its version again, so each creation initialises it (in case the host terminated it meanwhile).
  const EGLDisplay display = egl->getDisplay(nullptr);
  if (display == nullptr || egl->initialize(display, nullptr, nullptr) == 0) return {};

  // clang-format off
  const EGLint configAttributes[] = {kEGLRedSize, 8, kEGLGreenSize, 8, kEGLBlueSize, 8,
                                     kEGLSurfaceType, kEGLPbufferBit,
                                     kEGLRenderableType, kEGLOpenGLBit,
                                     kEGLNone};
  // clang-format on
  EGLConfig config = nullptr;
  EGLint configCount = 0;
  if (egl->chooseConfig(display, configAttributes, &config, 1, &configCount) == 0 || configCount < 1)
    return {};

  const EGLint surfaceAttributes[] = {kEGLWidth, 1, kEGLHeight, 1, kEGLNone};
  const EGLSurface surface = egl->createPbufferSurface(display, config, surfaceAttributes);
  if (surface == nullptr) return {};

  // The bound API is per thread; contexts created and made current after this are OpenGL ones.
  const EGLint contextAttributes[] = {kEGLNone};
  const EGLContext context = egl->bindAPI(kEGLOpenGLAPI) != 0
                                 ? egl->createContext(display, config, nullptr, contextAttributes)
                                 : nullptr;
  if (context == nullptr || egl->makeCurrent(display, surface, surface, context) == 0) {
    // Either all three handles or none: a context that is not current, or a surface without a context, would
    // only mislead the compute context's sharing.
    if (context != nullptr) egl->destroyContext(display, context);
    egl->destroySurface(display, surface);
    return {};
  }

  OffscreenGLContext made;
  made.window = surface;
  made.deviceContext = display;
  made.renderingContext = context;
  return made;
}

void ClearCurrentOpenGLContext() noexcept {
  const EGLEntryPoints* const egl = EGL(false);
  if (egl == nullptr) return;
  const EGLDisplay display = egl->getCurrentDisplay();
  if (display != nullptr) egl->makeCurrent(display, nullptr, nullptr, nullptr);
}

void DestroyOffscreenGLContext(OffscreenGLContext& context) noexcept {
  const EGLEntryPoints* const egl = context.deviceContext != nullptr ? EGL(false) : nullptr;
  if (egl != nullptr) {
    const EGLDisplay display = context.deviceContext;
    if (context.renderingContext != nullptr) {
      // EGL defers deleting a context until it is no longer current. Released here when it is current on this
      // thread, so that it goes now rather than at this thread's next change of context; one current on
      // another thread goes when that thread releases it.
      if (egl->getCurrentContext() == context.renderingContext)
        egl->makeCurrent(display, nullptr, nullptr, nullptr);
      egl->destroyContext(display, context.renderingContext);
    }
    if (context.window != nullptr) egl->destroySurface(display, context.window);
  }
  context = OffscreenGLContext();
}

#endif

}  // namespace LM
