// Each device's hidden OpenGL context, made so that its compute context can share objects with OpenGL and so
// that the host can reach it. WGL on a message-only window on Windows; on Linux, EGL loaded at run time with
// a 1 x 1 pbuffer (no display server is needed when the driver offers a surfaceless or device platform).
#pragma once

namespace LM {

// The three handles of a device's hidden OpenGL context. On Windows: the message-only window (HWND), its
// device context (HDC) and the WGL rendering context (HGLRC). On Linux: the EGL pbuffer surface, the
// EGLDisplay and the EGLContext. Any of them null when it could not be made (or when the host is headless).
struct OffscreenGLContext {
  void* window = nullptr;
  void* deviceContext = nullptr;
  void* renderingContext = nullptr;
};

// Makes a new hidden context and leaves it current on the calling thread. Every call, on every platform and
// also when the host is headless, first takes the next window-class number (see LastOffscreenClassNumber).
// Failures are not checked beyond leaving null handles (the compute context is then made without OpenGL
// sharing). On Linux the result is all or nothing: either the three handles are valid and the context is
// current, or all three are null and nothing made along the way is kept.
OffscreenGLContext CreateOffscreenGLContext() noexcept;

// Clears the calling thread's current OpenGL context (wglMakeCurrent(NULL, NULL) / eglMakeCurrent with no
// surfaces and no context).
void ClearCurrentOpenGLContext() noexcept;

// Releases what CreateOffscreenGLContext made (context, surface or window and class) and nulls the handles.
// Safe on a context whose handles are already null.
void DestroyOffscreenGLContext(OffscreenGLContext& context) noexcept;

// The number of the last window class made: 0 before the first creation, then 1, 2, ... ("Offscreen%d" on
// Windows). The counter is process-wide and atomic, so concurrent creations get different numbers.
int LastOffscreenClassNumber() noexcept;

}  // namespace LM
