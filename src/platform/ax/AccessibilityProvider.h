#pragma once

// The seam behind the accessibility and window server functions. A provider answers them for
// one kind of desktop: the scripted virtual desktop of the tests, the live desktop over AT-SPI2,
// or none at all. Exactly one provider is active per process. It is chosen once, on the first
// call, from UIET_ACCESSIBILITY ("virtual:<path of a desktop JSON file>" or "atspi", which is
// also the default); tests may install one in code instead.
//
// Code above the seam never sees this header: it calls the functions of
// platformAccessibility.h and platformWindowServer.h, which check their arguments, count the
// call, turn handles into Elements, and ask the active provider.

#include "AXError.h"
#include "AXUIElement.h"
#include "CGBase.h"

#include <QList>
#include <QObject>
#include <QString>
#include <QStringList>
#include <QtGlobal>

#include <functional>
#include <memory>
#include <optional>

// A provider's own name for one element, opaque to everyone else. A provider must give one
// element the same id for as long as it lives, and never give that id to another element, so
// that handles on a vanished element keep failing instead of naming a stranger.
using ElementId = quint64;
inline constexpr ElementId kSystemWideElementId = ~ElementId(0);

// What a handle holds, and what every provider call is given.
struct Element {
    ElementId id = 0;
    pid_t pid = 0; // the owning process; 0 for the system-wide element

    bool isSystemWide() const { return id == kSystemWideElementId; }
};

struct WindowInfo {
    CGWindowID id = kCGNullWindowID;
    pid_t owner = 0;
    QString title;
    CGRect frame{};
    bool onScreen = true; // false while minimized or hidden
};

struct ApplicationInfo {
    pid_t pid = 0;
    QString bundleIdentifier;
    QString name;
    QString executablePath;
    bool active = false;
    // What stands for the application's bundle (a desktop entry's file on Linux); may be empty.
    QString bundlePath;
    // Shown among the applications the user switches between (AppKit's regular activation
    // policy), or an accessory without a place there.
    bool regular = true;
};

struct ScreenInfo {
    CGRect frame{};     // global, top-left origin
    double scale = 1.0; // device pixels per point
    QString name;
    CGSize physicalSize{}; // millimetres; 0 when the display does not tell
};

struct ZoomInfo {
    CGPoint origin{};
    double factor = 1.0;
};

class AccessibilityProvider {
public:
    AccessibilityProvider();
    virtual ~AccessibilityProvider();
    AccessibilityProvider(const AccessibilityProvider&) = delete;
    AccessibilityProvider& operator=(const AccessibilityProvider&) = delete;

    // Elements. Attribute and action names are the platform's ("AXTitle", "AXPress"); values
    // are CoreFoundation objects handed over with one reference (element references among them
    // made with createHandle). A provider answers an element it no longer knows with
    // kAXErrorInvalidUIElement, and any query with kAXErrorAPIDisabled when it is not allowed
    // to ask.
    virtual Element applicationElement(pid_t pid) = 0;
    virtual AXError copyAttributeValue(const Element& element, const QString& attribute,
                                       CFTypeRef* value) = 0;
    virtual AXError copyAttributeNames(const Element& element, QStringList* names) = 0;
    virtual AXError attributeValueCount(const Element& element, const QString& attribute, CFIndex* count) = 0;
    virtual AXError isAttributeSettable(const Element& element, const QString& attribute, bool* settable) = 0;
    virtual AXError setAttributeValue(const Element& element, const QString& attribute, CFTypeRef value) = 0;
    virtual AXError copyActionNames(const Element& element, QStringList* names) = 0;
    virtual AXError copyActionDescription(const Element& element, const QString& action,
                                          QString* description) = 0;
    virtual AXError performAction(const Element& element, const QString& action) = 0;
    // scope is the system-wide element or an application element; the answer is the deepest
    // element at the point, of the application whose window is frontmost there (system-wide) or
    // of that application.
    virtual AXError elementAtPosition(const Element& scope, CGPoint point, Element* hit) = 0;
    virtual AXError windowOfElement(const Element& element, CGWindowID* windowID) = 0;
    // Reads that belong together, made by the calling thread between the two calls (batches
    // nest; the outermost decides): within one, a provider may answer from what it read earlier
    // in the same batch, and read ahead what the walk is going to ask. The defaults do nothing.
    virtual void beginReadBatch() {}
    virtual void endReadBatch() {}

    // The window server's view: every window, frontmost first.
    virtual CGError windowList(QList<WindowInfo>* windows) = 0;

    // The desktop around the elements, for the application, screen and mouse services.
    virtual QList<ApplicationInfo> applications() = 0;
    // The running application of one process, as applications() lists it. The default looks
    // through that list; a desktop where listing every application is dear answers for the one.
    virtual std::optional<ApplicationInfo> application(pid_t pid);
    // An object that calls `changed`, from the calling thread's event loop, when the desktop
    // tells that its applications may have changed (one came to the front, started or quit);
    // its life is the watch's. Null when the desktop tells nothing: then only looking again
    // shows a change.
    virtual std::unique_ptr<QObject> watchApplications(std::function<void()> changed);
    // The screen with the menu bar first; empty when the desktop cannot be reached.
    virtual QList<ScreenInfo> screens() = 0;
    // No zoom (factor 1, origin (0, 0)) when the desktop has none or cannot tell.
    virtual ZoomInfo zoom() = 0;
    // The height of the system's menu bar at the top of the first screen, 0 without one.
    virtual double menuBarHeight() = 0;
    virtual CGPoint mousePosition() = 0;

    // Permissions. prompt: ask the user to grant access when it is not granted.
    virtual bool isProcessTrusted(bool prompt) = 0;
    virtual bool isAPIEnabled() = 0;

    // Handles for values that name elements. A handle remembers its provider: one made by
    // another provider, or by an earlier instance, names no element of this one.
    AXUIElementRef createHandle(const Element& element) const;
    bool elementOfHandle(CFTypeRef handle, Element* element) const;

    // Distinguishes this provider's handles from those of every other provider of the process.
    quint64 serial() const { return serialNumber; }

private:
    const quint64 serialNumber;
};

// The active provider, chosen on first use. Never null.
std::shared_ptr<AccessibilityProvider> activeAccessibilityProvider();

// Makes provider the active one; null goes back to the choice of the environment at the next
// call. Handles of the previous provider answer kAXErrorInvalidUIElement from then on.
void setAccessibilityProviderForTesting(std::shared_ptr<AccessibilityProvider> provider);
