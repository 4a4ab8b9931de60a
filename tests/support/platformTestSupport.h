#pragma once

// Pieces shared by the tests of the platform layer and of the code right above it. Header only:
// include it only from tests that link the platform library.

#include "ax/AccessibilityProvider.h"
#include "ax/PlatformCallCounters.h"
#include "cf/CFRuntime.h"
#include "platformCoreFoundation.h"
#include "virtual/VirtualDesktop.h"

#include <QTest>

#include <functional>
#include <memory>

// Owns one reference and releases it on every path out of a test, so that the live-object
// check after each test reports the faults of the code under test, not of the test.
template <class T> class Ref {
public:
    explicit Ref(T object = nullptr) : object(object) {}
    ~Ref() { CFRelease(object); }
    Ref(const Ref&) = delete;
    Ref& operator=(const Ref&) = delete;
    operator T() const { return object; }
    T* out() {
        CFRelease(object);
        object = nullptr;
        return &object;
    }

private:
    T object;
};

// Every CF object that a test function makes must be released by its end: this catches every leak.
class LiveObjectCheck {
protected:
    void noteLiveObjects() { liveAtStart = CFRuntime::liveObjectCount(); }
    void checkLiveObjects() { QCOMPARE(CFRuntime::liveObjectCount(), liveAtStart); }

    CFIndex liveAtStart = 0;
};

// A virtual desktop installed as the process's provider for the length of one test.
class VirtualDesktopTestBase : protected LiveObjectCheck {
protected:
    // From init(): notes the live CF objects before the desktop exists, loads it and installs it.
    bool installDesktop(const std::function<bool(VirtualDesktop&)>& load) {
        noteLiveObjects();
        desktop = std::make_shared<VirtualDesktop>();
        if (!load(*desktop))
            return false;
        setAccessibilityProviderForTesting(desktop);
        resetPlatformCallCounts();
        return true;
    }

    // From cleanup(): with the desktop gone, every CF object the test made must be released.
    void uninstallDesktopAndCheckReferences() {
        setAccessibilityProviderForTesting(nullptr);
        desktop.reset();
        checkLiveObjects();
    }

    // The fixture "id" of the element a handle names: null for NULL, and a text that names no
    // fixture element for one without an id, so that a test cannot take it for "nothing found".
    QString idOf(CFTypeRef element) const {
        if (!element)
            return QString();
        const QString id = desktop->fixtureIdOf(element);
        return id.isEmpty() ? QStringLiteral("<an element without id>") : id;
    }
    // The same for a reference the caller owns, which it releases.
    QString idOfCopy(CFTypeRef owned) const {
        const QString id = idOf(owned);
        if (owned)
            CFRelease(owned);
        return id;
    }

    std::shared_ptr<VirtualDesktop> desktop;
};
