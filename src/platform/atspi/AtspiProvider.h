#pragma once

// The live Linux desktop: the accessibility trees of running applications, read over the AT-SPI2
// bus with libatspi and presented in the AX vocabulary (docs/platform-atspi.md), and the window
// server's view of windows, stacking, screens and mouse from X11.
//
// Every answer is read from the applications when it is asked for; nothing is kept between two
// questions but the identity of elements, so a title that changed or a window that closed is
// reported as it is now. All calls are serialized by one lock.

#include "ax/AccessibilityProvider.h"

#include <QByteArray>
#include <QDeadlineTimer>
#include <QHash>
#include <QRecursiveMutex>

#include <memory>
#include <optional>
#include <vector>

#include "AtspiReader.h"
class X11Desktop;
namespace VirtualDesktopModel {
struct Value;
}

class AtspiProvider final : public AccessibilityProvider {
public:
    // After an application lets a call time out, its elements answer kAXErrorCannotComplete at
    // once for this long, so that a hung application costs one time-out a second, not one per
    // question.
    static constexpr int unresponsivePauseMs = 1000;

    // Null when the accessibility bus cannot be reached; `problem` then says why.
    static std::shared_ptr<AtspiProvider> create(QString* problem);
    ~AtspiProvider() override;

    Element applicationElement(pid_t pid) override;
    AXError copyAttributeValue(const Element& element, const QString& attribute, CFTypeRef* value) override;
    AXError copyAttributeNames(const Element& element, QStringList* names) override;
    AXError attributeValueCount(const Element& element, const QString& attribute, CFIndex* count) override;
    AXError isAttributeSettable(const Element& element, const QString& attribute, bool* settable) override;
    AXError setAttributeValue(const Element& element, const QString& attribute, CFTypeRef value) override;
    AXError copyActionNames(const Element& element, QStringList* names) override;
    AXError copyActionDescription(const Element& element, const QString& action,
                                  QString* description) override;
    AXError performAction(const Element& element, const QString& action) override;
    AXError elementAtPosition(const Element& scope, CGPoint point, Element* hit) override;
    AXError windowOfElement(const Element& element, CGWindowID* windowID) override;
    // A child list read in a batch brings along what matching reads of the children
    // (AtspiReadBatch.h).
    void beginReadBatch() override;
    void endReadBatch() override;
    CGError windowList(QList<WindowInfo>* windows) override;
    // The applications on the accessibility bus, in the registry's order, then the processes
    // that show windows without being on the bus, frontmost window first. With a window manager
    // the active one is the owner of its active window (_NET_ACTIVE_WINDOW); without one, the one
    // whose window has the accessibility state "active".
    QList<ApplicationInfo> applications() override;
    std::optional<ApplicationInfo> application(pid_t pid) override;
    // Changes of the root window's _NET_ACTIVE_WINDOW and _NET_CLIENT_LIST: the window manager's
    // word that another window came to the front or a window came or went.
    std::unique_ptr<QObject> watchApplications(std::function<void()> changed) override;
    QList<ScreenInfo> screens() override;
    ZoomInfo zoom() override;
    double menuBarHeight() override;
    CGPoint mousePosition() override;
    bool isProcessTrusted(bool prompt) override;
    bool isAPIEnabled() override;

private:
    AtspiProvider();

    // One element that has been handed out: its accessible (one reference held), its process,
    // and whether it is a child of its application, where that is known from where it was found.
    // A button of the window manager's title bar stands for the window's X11 window: its
    // accessible is the window's, and `windowButton` says which button it is.
    struct Known {
        AtspiAccessible* accessible = nullptr;
        pid_t pid = 0;
        QByteArray key;
        std::optional<bool> topLevel;
        TitleBarButton windowButton = TitleBarButton::None;
    };

    template <typename Work> AXError withReader(const Element& element, Work work);
    AXError readAttribute(AtspiReader& reader, const QString& attribute, VirtualDesktopModel::Value* value);
    QStringList attributeNames(AtspiReader& reader);
    AXError readSystemWideAttribute(const QString& attribute, VirtualDesktopModel::Value* value);
    AXError setWindowAttribute(AtspiReader& reader, const QString& attribute,
                               const VirtualDesktopModel::Value& wanted);
    QStringList actionNames(AtspiReader& reader);
    AXError perform(AtspiReader& reader, const QString& action);

    // The window manager's title-bar buttons, which the window server draws around a window
    // that has none of its own: questions about `button` of the window that `window` reads.
    AXError readWindowButtonAttribute(AtspiReader& window, TitleBarButton button, const QString& attribute,
                                      VirtualDesktopModel::Value* value);
    AXError pressWindowButton(AtspiReader& window, TitleBarButton button);
    // The window's button: the one its toolkit draws, else the window manager's.
    // Nothing without a window server.
    std::optional<Element> titleBarButtonOf(AtspiReader& window, TitleBarButton button);

    // The X11 window that shows an accessible window of process `pid`: the one with the same frame
    // and title, or else the only one with the same title (a minimized window's frame may be
    // reported otherwise by the toolkit and the window server), or else the one it was found to be
    // before, while that lives.
    std::optional<CGWindowID> x11WindowOf(AtspiReader& window, pid_t pid);
    CGWindowID rememberX11Window(const AtspiReader& window, CGWindowID id);
    // Acts on the X11 window of an accessible window with `act`: kAXErrorCannotComplete when there
    // is no window server, no X11 window or the request fails.
    template <typename Act> AXError actOnX11Window(AtspiReader& window, Act act);

    // The accessible of an element, or the error to answer. Null with success for the
    // system-wide element.
    AtspiAccessible* resolve(const Element& element, AXError* error);
    // The element handed out for an accessible, registered on first sight. An application is
    // known by its process, so that its handle equals the one made from the pid.
    Element elementFor(AtspiAccessible* accessible, std::optional<bool> topLevel = std::nullopt,
                       TitleBarButton windowButton = TitleBarButton::None);
    AtspiAccessible* applicationForPid(pid_t pid);
    pid_t pidOf(AtspiAccessible* accessible);
    ElementId idForKey(const QByteArray& key);
    // Forgets an element that its application no longer knows.
    void forget(const Element& element);
    // Whether an application may be asked now, and what its last reader says about that.
    bool mayAsk(const AtspiReader& reader);
    void noteOutcome(const AtspiReader& reader);
    // The running applications that may be asked now.
    std::vector<AccessibleRef> askableApplications();
    // In a batch of reads, the windows of all the applications with their states, at once, for
    // the toolkits' own word on which one is in front.
    void readWindowsAhead(const std::vector<AccessibleRef>& applications);
    AccessibleRef shownPopupAt(AtspiReader& window, CGPoint point);
    // An application on the accessibility bus, described once per bus name; frontmost by the
    // window manager's active window when one runs (managedFront), else by its own active state.
    ApplicationInfo busApplication(AtspiAccessible* application, pid_t pid, std::optional<pid_t> managedFront,
                                   const QHash<QByteArray, ApplicationInfo>& described);

    mutable QRecursiveMutex mutex;
    std::unique_ptr<X11Desktop> x11;
    QHash<QByteArray, ElementId> idsByKey;
    QHash<ElementId, Known> known;
    QHash<pid_t, AtspiAccessible*> applicationsByPid;
    QHash<QByteArray, pid_t> pidsByBusName;
    // What an application on the bus was when first seen: its name, bundle and executable do not
    // change while it runs.
    QHash<QByteArray, ApplicationInfo> applicationsByBusName;
    QHash<QByteArray, QDeadlineTimer> unresponsive;
    // Emptied when it grows past this, so that elements that come and go cannot fill it.
    static constexpr qsizetype maximumCachedInterfaces = 100000;
    AtspiInterfaceCache interfaceCache;
    // The X11 window found for each accessible window, by its key: an accessible window keeps its
    // X11 window for life. Emptied as the interfaces are.
    QHash<QByteArray, CGWindowID> x11WindowsByKey;
    // A frame read for AXSize or AXPosition answers the other of the two for the same element
    // when it is asked within this time, once.
    static constexpr int frameReuseMs = 5;
    struct LastFrame {
        QByteArray key;
        QString attribute;
        std::optional<CGRect> frame;
        QDeadlineTimer expiry;
    };
    LastFrame lastFrame;
    // The window manager's button that the current question is about, with the window's reader
    // (set by withReader).
    TitleBarButton askedWindowButton = TitleBarButton::None;
    ElementId nextId = 1;
};
