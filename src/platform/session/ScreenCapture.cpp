#include "platformScreenCapture.h"

#include "x11/X11Connection.h"

#include <QByteArray>
#include <QDebug>
#include <QMutex>
#include <QMutexLocker>
#include <QSet>

#include <cstring>

namespace {

QMutex hiddenMutex;
QSet<QByteArray> hiddenNames;

bool isHidden(const char* name) {
    QMutexLocker locker(&hiddenMutex);
    return hiddenNames.contains(QByteArray(name));
}

// The handle of the platform layer's own CoreGraphics: an address no library has.
char coreGraphics;

struct Symbol {
    const char* name;
    void* function;
};

const Symbol coreGraphicsSymbols[] = {
    {"CGPreflightScreenCaptureAccess", reinterpret_cast<void*>(&CGPreflightScreenCaptureAccess)},
    {"CGRequestScreenCaptureAccess", reinterpret_cast<void*>(&CGRequestScreenCaptureAccess)},
};

bool isWaylandSession() {
    return qEnvironmentVariable("XDG_SESSION_TYPE") == QLatin1String("wayland") ||
           !qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY");
}

bool xDisplayReachable() {
    return X11Connection::open() != nullptr;
}

} // namespace

void* frameworkDlopen(const char* path, int mode) {
    if (!path || isHidden(path))
        return nullptr;
    if (std::strcmp(path, kCoreGraphicsFrameworkPath) == 0)
        return &coreGraphics;
    return dlopen(path, mode);
}

void* frameworkDlsym(void* handle, const char* symbol) {
    if (!symbol || isHidden(symbol))
        return nullptr;
    if (handle != &coreGraphics)
        return dlsym(handle, symbol);
    for (const Symbol& entry : coreGraphicsSymbols) {
        if (std::strcmp(entry.name, symbol) == 0)
            return entry.function;
    }
    return nullptr;
}

void hideFrameworkNameForTesting(const char* pathOrSymbol, bool hidden) {
    QMutexLocker locker(&hiddenMutex);
    if (hidden)
        hiddenNames.insert(QByteArray(pathOrSymbol));
    else
        hiddenNames.remove(QByteArray(pathOrSymbol));
}

bool CGPreflightScreenCaptureAccess() {
    return !isWaylandSession() && xDisplayReachable();
}

bool CGRequestScreenCaptureAccess() {
    if (isWaylandSession())
        qDebug().noquote() << "Note: reading the screen of a Wayland session is not supported";
    return CGPreflightScreenCaptureAccess();
}
