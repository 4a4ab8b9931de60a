#include "inspectorCommands.h"

#include "CFTypeSmartRef.h"
#include "NativeUIElement.h"
#include "appkit/NSRunningApplication.h"
#include "appkit/NSScreen.h"
#include "axErrorNames.h"
#include "elementTree.h"
#include "osxMisc.h"
#include "osxUIElementUtils.h"
#include "windows.h"

#include <QElapsedTimer>
#include <QJsonArray>
#include <QJsonObject>
#include <QThread>

#include <functional>

namespace {

// How long a window action may take to show on the window: window managers act asynchronously.
constexpr int windowActionWaitMs = 2000;

QJsonObject errorObject(AXError error) {
    return QJsonObject{{"name", axErrorName(error)}, {"code", int(error)}};
}

QString errorText(AXError error) {
    return QStringLiteral("%1 (%2)").arg(axErrorName(error)).arg(int(error));
}

CGWindowID windowIdOf(AXUIElementRef window) {
    CGWindowID id = kCGNullWindowID;
    return _AXUIElementGetWindow(window, &id) == kAXErrorSuccess ? id : kCGNullWindowID;
}

pid_t pidOf(AXUIElementRef element) {
    pid_t pid = 0;
    return element && AXUIElementGetPid(element, &pid) == kAXErrorSuccess ? pid : 0;
}

// One answer: text lines, or the parts of one JSON object.
class Answer {
public:
    explicit Answer(bool json) : json(json) {}

    void add(const QString& key, const QString& line, const QJsonValue& value) {
        lines << line;
        object.insert(key, value);
    }
    void addElement(const QString& key, AXUIElementRef element) {
        QJsonObject value = elementObject(element);
        QString line = key + QStringLiteral(": ") + elementLine(element);
        if (key == QLatin1String("window")) {
            const CGWindowID id = windowIdOf(element);
            value.insert("windowId",
                         id == kCGNullWindowID ? QJsonValue(QJsonValue::Null) : QJsonValue(qint64(id)));
            line += QStringLiteral(" id %1").arg(id);
        }
        add(key, line, value);
    }
    void addApplication(pid_t pid) {
        const QJsonObject application = applicationObject(pid);
        add(QStringLiteral("application"),
            QStringLiteral("application: \"%1\" %2 pid %3")
                .arg(application.value("name").toString(), application.value("bundleId").toString())
                .arg(pid),
            application);
    }
    int print(int status) {
        ctlPrintAnswer(json, lines, object);
        return status;
    }

private:
    bool json;
    QStringList lines;
    QJsonObject object;
};

QString wayText(UIElementHitTestWay way, bool json) {
    switch (way) {
    case UIElementHitTestWay::PlatformAnswer:
        return json ? QStringLiteral("platform") : QStringLiteral("the platform's answer");
    case UIElementHitTestWay::ProToolsSearch:
        return json ? QStringLiteral("proToolsSearch") : QStringLiteral("the Pro Tools search");
    case UIElementHitTestWay::RectangleSearch:
        return json ? QStringLiteral("rectangleSearch") : QStringLiteral("the rectangle search");
    case UIElementHitTestWay::TimedOut:
    case UIElementHitTestWay::Nothing:
        break;
    }
    return QString();
}

// The element at the point: the platform's answer alone (plain), or what the full strategy finds,
// with the way it found it. Null, with the reason printed, when there is none.
AXUIElementRef copyElementAt(const QPoint& point, const QString& pointText, bool plain,
                             UIElementHitTestWay& way) {
    AXError error = kAXErrorSuccess;
    way = UIElementHitTestWay::PlatformAnswer;
    AXUIElementRef hit = plain ? copyUIElementAtPosition(point, &error)
                               : copyUIElementAtPositionEmployingSearchIfNecessary(point, &error, &way);
    if (hit)
        return hit;
    QString why;
    if (error == kAXErrorCannotComplete)
        why = QStringLiteral(": the application did not answer in time (%1)").arg(errorText(error));
    else if (plain)
        why = QStringLiteral(" (%1)").arg(errorText(error));
    else
        why = QStringLiteral(", neither by the platform's answer nor by searching the window's application");
    ctlFail(ctlExitFailure, QStringLiteral("no element at %1%2").arg(pointText, why));
    return nullptr;
}

AXUIElementRef copyWindowAt(const QPoint& point, const QString& pointText) {
    AXUIElementRef window = copyWindowContainingPointRobustly(point);
    if (!window)
        ctlFail(ctlExitFailure, QStringLiteral("no window at %1").arg(pointText));
    return window;
}

enum class Target { Element, Window };

// Reads the point, chooses the desktop and finds the element, or the window, at the point; null,
// with the exit status in status, when the input is bad or nothing is there. way tells how an
// element was found.
CFTypeSmartRef<AXUIElementRef> lookUpAt(const InspectorOptions& options, const QString& pointText,
                                        Target target, int& status, UIElementHitTestWay* way = nullptr) {
    QPoint point;
    if (!readScreenPoint(pointText, point) || !useDesktopFile(options.desktopFile)) {
        status = ctlExitUsage;
        return CFTypeSmartRef<AXUIElementRef>();
    }
    UIElementHitTestWay found = UIElementHitTestWay::Nothing;
    CFTypeSmartRef<AXUIElementRef> element(target == Target::Window
                                               ? copyWindowAt(point, pointText)
                                               : copyElementAt(point, pointText, options.plain, found));
    if (way)
        *way = found;
    status = element ? ctlExitSuccess : ctlExitFailure;
    return element;
}

// An answer that begins with the element, under key, and its application.
Answer answerAbout(bool json, const QString& key, AXUIElementRef element) {
    Answer answer(json);
    answer.addElement(key, element);
    answer.addApplication(pidOf(element));
    return answer;
}

// Waits until the condition holds, for at most windowActionWaitMs.
bool waitFor(const std::function<bool()>& condition) {
    QElapsedTimer timer;
    timer.start();
    while (!condition()) {
        if (timer.elapsed() >= windowActionWaitMs)
            return false;
        QThread::msleep(20);
    }
    return true;
}

bool isMinimized(AXUIElementRef window) {
    return UIElementAttributeValue(window, CFSTR("AXMinimized"), true).toBool();
}

// A window that is closed is gone from the application: the element answers nothing any more, or
// its application no longer lists it.
bool isClosed(AXUIElementRef window) {
    CFTypeSmartRef<CFTypeRef> role;
    if (AXUIElementCopyAttributeValue(window, CFSTR("AXRole"), role.out()) == kAXErrorInvalidUIElement)
        return true;
    const CFTypeSmartRef<AXUIElementRef> application(AXUIElementCreateApplication(pidOf(window)));
    CFTypeSmartRef<CFTypeRef> windows;
    if (AXUIElementCopyAttributeValue(application, CFSTR("AXWindows"), windows.out()) != kAXErrorSuccess ||
        !windows || CFGetTypeID(windows) != CFArrayGetTypeID())
        return false;
    const auto list = static_cast<CFArrayRef>(windows.get());
    return !CFArrayContainsValue(list, CFRangeMake(0, CFArrayGetCount(list)), window);
}

} // namespace

QJsonObject applicationObject(pid_t pid) {
    const NSRunningApplication* application =
        pid ? NSRunningApplication::runningApplicationWithProcessIdentifier(pid) : nullptr;
    return QJsonObject{{"pid", int(pid)},
                       {"bundleId", application ? application->bundleIdentifier() : QString()},
                       {"name", application ? application->localizedName() : QString()}};
}

bool takeInspectorOptions(QStringList& arguments, InspectorOptions& options) {
    for (qsizetype i = 0; i < arguments.size();) {
        if (arguments.at(i) == QLatin1String("--json")) {
            options.json = true;
            arguments.removeAt(i);
        } else if (arguments.at(i) == QLatin1String("--plain")) {
            options.plain = true;
            arguments.removeAt(i);
        } else if (arguments.at(i) == QLatin1String("--desktop")) {
            if (i + 1 >= arguments.size())
                return false;
            options.desktopFile = arguments.at(i + 1);
            arguments.remove(i, 2);
        } else {
            ++i;
        }
    }
    return true;
}

bool isPointVerb(const QString& verb) {
    static const QStringList verbs{"at", "window", "press", "raise", "minimize", "zoom", "close"};
    return verbs.contains(verb);
}

int runAt(const InspectorOptions& options, const QString& pointText) {
    int status = ctlExitSuccess;
    UIElementHitTestWay way = UIElementHitTestWay::Nothing;
    const CFTypeSmartRef<AXUIElementRef> hit = lookUpAt(options, pointText, Target::Element, status, &way);
    if (!hit)
        return status;
    if (options.json) {
        Answer answer = answerAbout(true, QStringLiteral("element"), hit);
        answer.add(QStringLiteral("foundBy"), QString(), wayText(way, true));
        return answer.print(ctlExitSuccess);
    }
    for (const QString& line : elementAncestryLines(hit))
        ctlOut() << line << '\n';
    ctlOut() << "found by " << wayText(way, false) << '\n';
    ctlOut().flush();
    return ctlExitSuccess;
}

int runWindow(const InspectorOptions& options, const QString& pointText) {
    int status = ctlExitSuccess;
    const CFTypeSmartRef<AXUIElementRef> window = lookUpAt(options, pointText, Target::Window, status);
    if (!window)
        return status;
    return answerAbout(options.json, QStringLiteral("window"), window).print(ctlExitSuccess);
}

int runFocused(const InspectorOptions& options) {
    if (!useDesktopFile(options.desktopFile))
        return ctlExitUsage;
    const CFTypeSmartRef<AXUIElementRef> systemWide(AXUIElementCreateSystemWide());
    CFTypeSmartRef<CFTypeRef> focused;
    if (AXUIElementCopyAttributeValue(systemWide, CFSTR("AXFocusedUIElement"), focused.out()) !=
            kAXErrorSuccess ||
        !focused || CFGetTypeID(focused) != AXUIElementGetTypeID())
        focused.reset();
    const auto element = static_cast<AXUIElementRef>(focused.get());
    const CFTypeSmartRef<AXUIElementRef> window(copyFocusedWindow());
    if (!element && !window)
        return ctlFail(ctlExitFailure, QStringLiteral("no element and no window has the focus"));
    Answer answer(options.json);
    if (element)
        answer.addElement(QStringLiteral("element"), element);
    if (window)
        answer.addElement(QStringLiteral("window"), window);
    answer.addApplication(pidOf(element ? element : window.get()));
    return answer.print(ctlExitSuccess);
}

int runPress(const InspectorOptions& options, const QString& pointText) {
    int status = ctlExitSuccess;
    const CFTypeSmartRef<AXUIElementRef> hit = lookUpAt(options, pointText, Target::Element, status);
    if (!hit)
        return status;
    Answer answer(options.json);
    answer.addElement(QStringLiteral("element"), hit);
    const AXError error = AXUIElementPerformAction(hit, CFSTR("AXPress"));
    answer.add(QStringLiteral("result"), QStringLiteral("AXPress: ") + errorText(error), errorObject(error));
    return answer.print(error == kAXErrorSuccess ? ctlExitSuccess : ctlExitFailure);
}

int runWindowAction(const InspectorOptions& options, const QString& verb, const QString& pointText) {
    int status = ctlExitSuccess;
    const CFTypeSmartRef<AXUIElementRef> window = lookUpAt(options, pointText, Target::Window, status);
    if (!window)
        return status;
    Answer answer = answerAbout(options.json, QStringLiteral("window"), window);

    QString outcome;
    bool done = false;
    if (verb == QLatin1String("raise")) {
        int pid = 0;
        const int result = activateWindow(window, pid);
        done = result != 1;
        outcome = result == 2 ? QStringLiteral("already focused")
                              : (done ? QStringLiteral("activated") : QStringLiteral("not activated"));
    } else {
        NativeUIElement handle;
        handle.setOSSpecificElementReference(const_cast<void*>(CFRetain(window)));
        const QRect frameBefore = UIElementRect(window);
        std::function<bool()> shown;
        if (verb == QLatin1String("minimize")) {
            minimizeWindow(handle);
            shown = [&] { return isMinimized(window); };
        } else if (verb == QLatin1String("zoom")) {
            zoomWindow(handle);
            shown = [&] { return UIElementRect(window) != frameBefore; };
        } else {
            closeWindow(handle);
            shown = [&] { return isClosed(window); };
        }
        done = waitFor(shown);
        outcome = done ? QStringLiteral("done")
                       : QStringLiteral("no effect on the window within %1 ms").arg(windowActionWaitMs);
    }
    answer.add(QStringLiteral("result"), verb + QStringLiteral(": ") + outcome,
               QJsonObject{{"verb", verb}, {"done", done}, {"outcome", outcome}});
    return answer.print(done ? ctlExitSuccess : ctlExitFailure);
}

int runScreens(const InspectorOptions& options) {
    if (!useDesktopFile(options.desktopFile))
        return ctlExitUsage;
    const QList<NSScreen*> screens = NSScreen::screens();
    if (screens.isEmpty())
        return ctlFail(ctlExitFailure, QStringLiteral("no screens"));
    QStringList lines;
    QJsonArray list;
    for (int index = 0; index < screens.size(); ++index) {
        const NSScreen* screen = screens.at(index);
        const QRect frame = QRectFromInvertedGlobalNSRect(screen->frame());
        QRect displayRect;
        QSizeF millimetres;
        getDisplayRectAndPhysicalSizeForOnlineDisplayIndex(displayRect, millimetres, index);
        const uint id = screen->deviceDescription().value(QStringLiteral("NSScreenNumber")).toUInt();
        lines << QStringLiteral("screen %1 \"%2\" %3,%4 %5x%6 scale %7 %8x%9 mm")
                     .arg(id)
                     .arg(screen->localizedName())
                     .arg(frame.x())
                     .arg(frame.y())
                     .arg(frame.width())
                     .arg(frame.height())
                     .arg(screen->backingScaleFactor())
                     .arg(millimetres.width(), 0, 'f', 1)
                     .arg(millimetres.height(), 0, 'f', 1);
        list.append(QJsonObject{
            {"id", qint64(id)},
            {"name", screen->localizedName()},
            {"frame",
             QJsonObject{
                 {"x", frame.x()}, {"y", frame.y()}, {"width", frame.width()}, {"height", frame.height()}}},
            {"scale", screen->backingScaleFactor()},
            {"physicalSize", QJsonObject{{"width", millimetres.width()}, {"height", millimetres.height()}}}});
    }
    CGPoint origin{};
    const double factor = getScreenZoomFactorAndOrigin(origin);
    const int menuBar = systemMenuBarHeight();
    lines << QStringLiteral("menu bar %1").arg(menuBar)
          << QStringLiteral("zoom %1 at %2,%3").arg(factor).arg(origin.x).arg(origin.y);
    const QJsonObject answer{
        {"screens", list},
        {"menuBarHeight", menuBar},
        {"zoom", QJsonObject{{"factor", factor}, {"origin", QJsonObject{{"x", origin.x}, {"y", origin.y}}}}}};
    ctlPrintAnswer(options.json, lines, answer);
    return ctlExitSuccess;
}
