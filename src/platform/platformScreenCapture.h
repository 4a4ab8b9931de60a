#pragma once

// The screen capture access of CoreGraphics, which exists only from macOS 10.15 on, and the
// run-time loading through which the system finds it, so that it still starts where it is
// missing. On Apple systems the real loader; elsewhere session/ScreenCapture.cpp, where the
// platform layer itself provides the two functions and the CoreGraphics framework's path opens
// its table of them (any other path goes to the system's dlopen):
//
// - on X11 every client may read the screen: access is granted, and asking grants it;
// - on Wayland reading the screen goes through the desktop portal, which is not supported yet:
//   access is refused.

#include <dlfcn.h>

inline constexpr char kCoreGraphicsFrameworkPath[] =
    "/System/Library/Frameworks/CoreGraphics.framework/CoreGraphics";

#ifdef __APPLE__
inline void* frameworkDlopen(const char* path, int mode) {
    return dlopen(path, mode);
}
inline void* frameworkDlsym(void* handle, const char* symbol) {
    return dlsym(handle, symbol);
}
#else
void* frameworkDlopen(const char* path, int mode);
void* frameworkDlsym(void* handle, const char* symbol);
// Makes a framework's path fail to open, or one of its symbols missing, as on an older system.
void hideFrameworkNameForTesting(const char* pathOrSymbol, bool hidden);

bool CGPreflightScreenCaptureAccess();
bool CGRequestScreenCaptureAccess();
#endif
