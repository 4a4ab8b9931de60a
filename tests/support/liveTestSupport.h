#pragma once

// Pieces shared by the tests of the live desktop: the provider on a private session, and walking
// and searching trees through the accessibility functions. Header only: include it only from
// tests that link osxUtilities and libatspi.

#include "atspi/AtspiProvider.h"
#include "liveDesktopSession.h"
#include "osxUIElementUtils.h"
#include "platformAccessibility.h"
#include "platformCoreFoundation.h"
#include "platformTestSupport.h"

#include <QList>
#include <QString>

// An attribute or action name, owned by the caller.
inline CFStringRef createAXName(const char* name) {
    return CFStringCreateWithQString(QString::fromLatin1(name));
}

// The value of an attribute, owned by the caller; null when the read fails, with its code.
inline CFTypeRef copyAttributeNamed(AXUIElementRef element, const char* name, AXError* error = nullptr) {
    CFStringRef attribute = createAXName(name);
    CFTypeRef value = nullptr;
    const AXError result = AXUIElementCopyAttributeValue(element, attribute, &value);
    CFRelease(attribute);
    if (error)
        *error = result;
    return result == kAXErrorSuccess ? value : nullptr;
}

// Every element below `root`, depth first, each with one reference for the caller.
inline void collectElements(AXUIElementRef root, QList<AXUIElementRef>* elements, int depth = 0) {
    CFTypeRef children = copyAttributeNamed(root, "AXChildren");
    if (!children)
        return;
    const auto array = static_cast<CFArrayRef>(children);
    for (CFIndex i = 0; depth < 64 && i < CFArrayGetCount(array); ++i) {
        auto child = static_cast<AXUIElementRef>(CFRetain(CFArrayGetValueAtIndex(array, i)));
        elements->append(child);
        collectElements(child, elements, depth + 1);
    }
    CFRelease(children);
}

// The first element below `root` that `matches`, owned by the caller; null when there is none.
template <typename Matches> AXUIElementRef findElement(AXUIElementRef root, Matches matches) {
    QList<AXUIElementRef> elements;
    collectElements(root, &elements);
    AXUIElementRef found = nullptr;
    for (AXUIElementRef element : elements) {
        if (!found && matches(element))
            found = static_cast<AXUIElementRef>(CFRetain(element));
        CFRelease(element);
    }
    return found;
}

inline AXUIElementRef findElement(AXUIElementRef root, const QString& role, const QString& title) {
    return findElement(root, [&](AXUIElementRef element) {
        return UIElementRole(element) == role && UIElementTitle(element) == title;
    });
}

// The frame of a test program on the live desktop: a private desktop with the accessibility bus,
// the live provider on it, one application under test, and the leak check of every test function.
class LiveDesktopTestBase : protected LiveObjectCheck {
protected:
    // From initTestCase: false, with the reason to skip, when the desktop cannot start.
    bool openSession(QString* skipReason) {
        session = std::make_unique<LiveDesktopSession>(LiveDesktopSession::Bus::Accessibility);
        *skipReason = session->skipReason();
        return session->isReady();
    }

    // From initTestCase, once the application runs: the live provider, and `application`.
    bool watchApplication(pid_t pid, QString* problem) {
        session->applyToThisProcess();
        std::shared_ptr<AtspiProvider> provider = AtspiProvider::create(problem);
        setAccessibilityProviderForTesting(provider);
        application = AXUIElementCreateApplication(pid);
        return provider != nullptr;
    }

    // From cleanupTestCase.
    void closeSession() {
        if (application)
            CFRelease(application);
        application = nullptr;
        setAccessibilityProviderForTesting(nullptr);
        session.reset();
    }

    AXUIElementRef find(const QString& role, const QString& title) {
        return findElement(application, role, title);
    }

    std::unique_ptr<LiveDesktopSession> session;
    AXUIElementRef application = nullptr;
};
