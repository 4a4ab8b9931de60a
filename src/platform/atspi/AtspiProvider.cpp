#include "AtspiProvider.h"

#include "AccessibilityStatus.h"
#include "AtspiReadBatch.h"
#include "AtspiReader.h"
#include "AtspiRoles.h"
#include "GnomeMagnifier.h"
#include "LiveProcesses.h"
#include "LiveScreens.h"
#include "X11Desktop.h"
#include "virtual/ValueConversion.h"

#include <QMutexLocker>
#include <QSet>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <utility>

using VirtualDesktopModel::booleanValue;
using VirtualDesktopModel::elementValue;
using VirtualDesktopModel::stringValue;
using VirtualDesktopModel::Value;

namespace {

// A reader's answer: the value, the reader's error, or `missing` when there is no value.
AXError answer(const AtspiReader& reader, std::optional<Value> found, Value* value,
               AXError missing = kAXErrorNoValue) {
    if (reader.error() != kAXErrorSuccess)
        return reader.error();
    if (!found)
        return missing;
    *value = std::move(*found);
    return kAXErrorSuccess;
}

std::optional<Value> optionalText(const QString& text) {
    return text.isEmpty() ? std::nullopt : std::optional<Value>(stringValue(text));
}

bool frameContains(const CGRect& frame, CGPoint point) {
    return point.x >= frame.origin.x && point.y >= frame.origin.y &&
           point.x < frame.origin.x + frame.size.width && point.y < frame.origin.y + frame.size.height;
}

bool sameFrame(const CGRect& a, const CGRect& b) {
    return a.origin.x == b.origin.x && a.origin.y == b.origin.y && a.size.width == b.size.width &&
           a.size.height == b.size.height;
}

QByteArray applicationKey(pid_t pid) {
    return QByteArray("pid:") + QByteArray::number(pid);
}

} // namespace

std::shared_ptr<AtspiProvider> AtspiProvider::create(QString* problem) {
    // Without an address libdbus would try to start a bus of its own.
    if (qEnvironmentVariableIsEmpty("DBUS_SESSION_BUS_ADDRESS")) {
        *problem = QStringLiteral("no session bus (DBUS_SESSION_BUS_ADDRESS is not set)");
        return nullptr;
    }
    // libatspi keeps names, roles, states and children of elements up to date from the events
    // that it hears; this provider hears them only while it waits for an answer, so nothing it
    // read before may be trusted.
    qputenv("ATSPI_NO_CACHE", "1");
    if (atspi_init() > 1) {
        *problem = QStringLiteral("the accessibility bus cannot be reached");
        return nullptr;
    }
    // Replies are awaited inside each call; no event loop of the process runs libatspi's.
    atspi_set_main_context(g_main_context_new());
    // No grace period for applications that are starting: a hung one must not hold a caller.
    atspi_set_timeout(AtspiReader::replyTimeoutMs, 0);
    return std::shared_ptr<AtspiProvider>(new AtspiProvider());
}

AtspiProvider::AtspiProvider() : x11(X11Desktop::open()) {}

AtspiProvider::~AtspiProvider() {
    for (const Known& element : std::as_const(known))
        g_object_unref(element.accessible);
    for (AtspiAccessible* application : std::as_const(applicationsByPid))
        g_object_unref(application);
}

ElementId AtspiProvider::idForKey(const QByteArray& key) {
    auto found = idsByKey.constFind(key);
    if (found != idsByKey.constEnd())
        return *found;
    const ElementId id = nextId++;
    idsByKey.insert(key, id);
    return id;
}

pid_t AtspiProvider::pidOf(AtspiAccessible* accessible) {
    const QByteArray busName = AtspiReader(accessible).busName();
    auto found = pidsByBusName.constFind(busName);
    if (found != pidsByBusName.constEnd())
        return *found;
    GError* error = nullptr;
    const pid_t pid = pid_t(atspi_accessible_get_process_id(accessible, &error));
    if (error) {
        g_error_free(error);
        return 0;
    }
    pidsByBusName.insert(busName, pid);
    return pid;
}

Element AtspiProvider::elementFor(AtspiAccessible* accessible, std::optional<bool> topLevel,
                                  TitleBarButton windowButton) {
    const pid_t pid = pidOf(accessible);
    AtspiReader reader(accessible);
    if (reader.isApplication())
        return Element{idForKey(applicationKey(pid)), pid};
    QByteArray key = reader.key();
    if (windowButton != TitleBarButton::None)
        key += '\n' + axTitleBarButtonName(windowButton).toLatin1();
    const ElementId id = idForKey(key);
    Known& entry = known[id];
    if (!entry.accessible) {
        entry.accessible = retained(accessible).release();
        entry.pid = pid;
        entry.key = key;
        entry.windowButton = windowButton;
    }
    if (topLevel)
        entry.topLevel = topLevel;
    return Element{id, pid};
}

AtspiAccessible* AtspiProvider::applicationForPid(pid_t pid) {
    if (AtspiAccessible* application = applicationsByPid.value(pid))
        return application;
    AccessibleRef desktop(atspi_get_desktop(0));
    for (AccessibleRef& application : AtspiReader(desktop.get()).children()) {
        const pid_t owner = pidOf(application.get());
        if (owner > 0 && !applicationsByPid.contains(owner))
            applicationsByPid.insert(owner, application.release());
    }
    return applicationsByPid.value(pid);
}

void AtspiProvider::forget(const Element& element) {
    auto found = known.find(element.id);
    if (found != known.end()) {
        interfaceCache.remove(found->key);
        x11WindowsByKey.remove(found->key);
        idsByKey.remove(found->key);
        g_object_unref(found->accessible);
        known.erase(found);
        return;
    }
    // An application: its next question looks for it anew.
    if (AtspiAccessible* application = applicationsByPid.take(element.pid)) {
        pidsByBusName.remove(AtspiReader(application).busName());
        g_object_unref(application);
    }
}

AtspiAccessible* AtspiProvider::resolve(const Element& element, AXError* error) {
    *error = kAXErrorSuccess;
    if (element.isSystemWide())
        return nullptr;
    auto found = known.constFind(element.id);
    if (found != known.constEnd())
        return found->accessible;
    if (idsByKey.value(applicationKey(element.pid)) == element.id) {
        if (AtspiAccessible* application = applicationForPid(element.pid))
            return application;
    }
    *error = kAXErrorInvalidUIElement;
    return nullptr;
}

bool AtspiProvider::mayAsk(const AtspiReader& reader) {
    auto pause = unresponsive.find(reader.busName());
    if (pause == unresponsive.end())
        return true;
    if (!pause->hasExpired())
        return false;
    unresponsive.erase(pause);
    return true;
}

void AtspiProvider::noteOutcome(const AtspiReader& reader) {
    if (reader.error() == kAXErrorCannotComplete)
        unresponsive.insert(reader.busName(), QDeadlineTimer(unresponsivePauseMs));
}

std::vector<AccessibleRef> AtspiProvider::askableApplications() {
    AccessibleRef desktop(atspi_get_desktop(0));
    if (AtspiReadBatch* batch = AtspiReadBatch::current()) {
        // The windows of the applications known from before come with the list, in its round trip.
        std::vector<AtspiAccessible*> lists{desktop.get()};
        for (AtspiAccessible* application : std::as_const(applicationsByPid))
            if (mayAsk(AtspiReader(application)))
                lists.push_back(application);
        batch->readChildLists(lists, nullptr);
    }
    std::vector<AccessibleRef> applications = AtspiReader(desktop.get()).children();
    applications.erase(std::remove_if(applications.begin(), applications.end(),
                                      [&](const AccessibleRef& application) {
                                          return !mayAsk(AtspiReader(application.get()));
                                      }),
                       applications.end());
    return applications;
}

template <typename Work> AXError AtspiProvider::withReader(const Element& element, Work work) {
    QMutexLocker locker(&mutex);
    AXError error = kAXErrorSuccess;
    AtspiAccessible* accessible = resolve(element, &error);
    if (error != kAXErrorSuccess)
        return error;
    if (!accessible)
        return kAXErrorIllegalArgument;
    // libatspi answers some calls to an application that has just quit with empty values and no
    // error; the process table does not. A batch of reads asks it once per process.
    AtspiReadBatch* batch = AtspiReadBatch::current();
    if (element.pid > 0 && !(batch && batch->isKnownAlive(element.pid))) {
        if (::kill(element.pid, 0) != 0 && errno == ESRCH) {
            forget(element);
            return kAXErrorInvalidUIElement;
        }
        if (batch)
            batch->noteAlive(element.pid);
    }
    if (interfaceCache.size() > maximumCachedInterfaces)
        interfaceCache.clear();
    AtspiReader reader(accessible, &interfaceCache);
    const Known* entry = known.contains(element.id) ? &known[element.id] : nullptr;
    if (entry && entry->topLevel)
        reader.markTopLevel(*entry->topLevel);
    if (!mayAsk(reader))
        return kAXErrorCannotComplete;
    const TitleBarButton outerButton =
        std::exchange(askedWindowButton, entry ? entry->windowButton : TitleBarButton::None);
    const AXError result = work(reader);
    askedWindowButton = outerButton;
    noteOutcome(reader);
    if (result == kAXErrorInvalidUIElement)
        forget(element);
    return result;
}

// Of an application's children: whether this one is a window on screen. Toolkits keep closed
// windows for reuse, hidden; a minimized one is still listed.
static bool topLevelWindow(AtspiAccessible* child) {
    AtspiReader reader(child);
    reader.markTopLevel();
    return reader.isWindow() &&
           (reader.hasState(ATSPI_STATE_SHOWING) || reader.hasState(ATSPI_STATE_ICONIFIED));
}

AXError AtspiProvider::readAttribute(AtspiReader& r, const QString& attribute, Value* value) {
    if (askedWindowButton != TitleBarButton::None)
        return readWindowButtonAttribute(r, askedWindowButton, attribute, value);
    const auto unsupported = kAXErrorAttributeUnsupported;
    const auto element = [&](const AccessibleRef& accessible) {
        return accessible ? std::optional<Value>(elementValue(elementFor(accessible.get()))) : std::nullopt;
    };
    const auto elements = [&](const std::vector<AccessibleRef>& accessibles, bool windowsOnly) {
        Value array;
        array.kind = Value::Kind::Array;
        for (const AccessibleRef& accessible : accessibles)
            if (!windowsOnly || topLevelWindow(accessible.get()))
                array.items.push_back(elementValue(elementFor(accessible.get(), r.isApplication())));
        return array;
    };
    if (attribute == QLatin1String("AXRole"))
        return answer(r, stringValue(r.axRole()), value);
    if (attribute == QLatin1String("AXSubrole"))
        return answer(r,
                      optionalText(r.role() == ATSPI_ROLE_PUSH_BUTTON
                                       ? axTitleBarButtonName(r.titleBarButton())
                                       : axSubroleForAtspiRole(r.role())),
                      value, unsupported);
    if (attribute == QLatin1String("AXRoleDescription"))
        return answer(r, stringValue(r.localizedRoleName()), value);
    if (attribute == QLatin1String("AXTitle"))
        return answer(r, stringValue(r.name()), value);
    if (attribute == QLatin1String("AXDescription"))
        return answer(r, stringValue(r.description()), value);
    if (attribute == QLatin1String("AXIdentifier"))
        return answer(r, optionalText(r.accessibleId()), value, unsupported);
    if (attribute == QLatin1String("AXPosition") || attribute == QLatin1String("AXSize")) {
        bool hasComponent = false;
        std::optional<CGRect> frame;
        // The other half of a frame just read for the same element comes from that reading, once:
        // the readers ask for size and position one after the other.
        if (lastFrame.key == r.key() && !lastFrame.expiry.hasExpired() && lastFrame.attribute != attribute) {
            hasComponent = true;
            frame = lastFrame.frame;
            lastFrame = LastFrame();
        } else {
            frame = r.frame(&hasComponent);
            lastFrame = hasComponent && r.error() == kAXErrorSuccess
                            ? LastFrame{r.key(), attribute, frame, QDeadlineTimer(frameReuseMs)}
                            : LastFrame();
        }
        if (!hasComponent && r.error() == kAXErrorSuccess)
            return unsupported;
        return answer(r,
                      frame ? std::optional<Value>(attribute == QLatin1String("AXPosition")
                                                       ? VirtualDesktopModel::pointValue(frame->origin)
                                                       : VirtualDesktopModel::sizeValue(frame->size))
                            : std::nullopt,
                      value);
    }
    if (attribute == QLatin1String("AXValue"))
        return answer(r, r.value(), value, unsupported);
    if (attribute == QLatin1String("AXChildren"))
        // An application's children are its windows on screen or minimized; any other element's
        // the children that are shown.
        return answer(
            r, r.isApplication() ? elements(r.children(), true) : elements(r.shownChildren(), false), value);
    if (attribute == QLatin1String("AXEnabled"))
        return answer(r, booleanValue(r.hasState(ATSPI_STATE_ENABLED) || r.hasState(ATSPI_STATE_SENSITIVE)),
                      value);
    if (attribute == QLatin1String("AXFocused"))
        return answer(r, booleanValue(r.hasState(ATSPI_STATE_FOCUSED)), value);
    if (attribute == QLatin1String("AXSelected"))
        return answer(r, booleanValue(r.hasState(ATSPI_STATE_SELECTED)), value);
    if (r.isApplication()) {
        if (attribute == QLatin1String("AXWindows"))
            return answer(r, elements(r.children(), true), value);
        if (attribute == QLatin1String("AXFocusedWindow") || attribute == QLatin1String("AXMainWindow"))
            return answer(r, element(r.activeWindow()), value);
        if (attribute == QLatin1String("AXFrontmost"))
            return answer(r, booleanValue(r.activeWindow() != nullptr), value);
        if (attribute == QLatin1String("AXFocusedUIElement"))
            return answer(r, element(r.focusedDescendant()), value);
        return unsupported;
    }
    if (attribute == QLatin1String("AXParent"))
        return answer(r, element(r.parent()), value);
    const bool window = r.isWindow();
    if (window && attribute == QLatin1String("AXMain"))
        return answer(r, booleanValue(r.hasState(ATSPI_STATE_ACTIVE)), value);
    if (window && attribute == QLatin1String("AXMinimized"))
        return answer(r, booleanValue(r.hasState(ATSPI_STATE_ICONIFIED)), value);
    if (window) {
        for (TitleBarButton button : titleBarButtons) {
            if (attribute != axTitleBarButtonName(button))
                continue;
            const std::optional<Element> found = titleBarButtonOf(r, button);
            return answer(r, found ? std::optional<Value>(elementValue(*found)) : std::nullopt, value);
        }
    }
    if (!window && attribute == QLatin1String("AXWindow"))
        return answer(r, element(r.window()), value);
    return r.error() != kAXErrorSuccess ? r.error() : unsupported;
}

QStringList AtspiProvider::attributeNames(AtspiReader& r) {
    QStringList names{QStringLiteral("AXRole"),     QStringLiteral("AXRoleDescription"),
                      QStringLiteral("AXTitle"),    QStringLiteral("AXDescription"),
                      QStringLiteral("AXChildren"), QStringLiteral("AXEnabled"),
                      QStringLiteral("AXFocused"),  QStringLiteral("AXSelected")};
    if (r.isApplication())
        return names << QStringLiteral("AXWindows") << QStringLiteral("AXFocusedWindow")
                     << QStringLiteral("AXMainWindow") << QStringLiteral("AXFrontmost")
                     << QStringLiteral("AXFocusedUIElement");
    if (askedWindowButton != TitleBarButton::None)
        return {
            QStringLiteral("AXRole"),    QStringLiteral("AXSubrole"),     QStringLiteral("AXRoleDescription"),
            QStringLiteral("AXTitle"),   QStringLiteral("AXDescription"), QStringLiteral("AXChildren"),
            QStringLiteral("AXEnabled"), QStringLiteral("AXFocused"),     QStringLiteral("AXParent"),
            QStringLiteral("AXWindow")};
    names << QStringLiteral("AXParent");
    if (r.isWindow())
        names << QStringLiteral("AXMain") << QStringLiteral("AXMinimized")
              << QStringLiteral("AXMinimizeButton") << QStringLiteral("AXZoomButton")
              << QStringLiteral("AXCloseButton");
    else
        names << QStringLiteral("AXWindow");
    // The rest where the element has them. A frame and a value are there by the element's role
    // and interfaces; their reading waits until they are asked for.
    Value ignored;
    for (const QString& optional : {QStringLiteral("AXSubrole"), QStringLiteral("AXIdentifier")}) {
        const AXError result = readAttribute(r, optional, &ignored);
        if (result == kAXErrorSuccess || result == kAXErrorNoValue)
            names << optional;
    }
    if (r.hasInterface(kAtspiComponent))
        names << QStringLiteral("AXPosition") << QStringLiteral("AXSize");
    if (r.hasValue())
        names << QStringLiteral("AXValue");
    return names;
}

AXError AtspiProvider::readSystemWideAttribute(const QString& attribute, Value* value) {
    if (attribute == QLatin1String("AXRole")) {
        *value = stringValue(QStringLiteral("AXSystemWide"));
        return kAXErrorSuccess;
    }
    if (attribute != QLatin1String("AXFocusedApplication") &&
        attribute != QLatin1String("AXFocusedUIElement"))
        return kAXErrorAttributeUnsupported;
    for (const AccessibleRef& application : askableApplications()) {
        AtspiReader reader(application.get());
        const bool active = reader.activeWindow() != nullptr;
        noteOutcome(reader);
        if (!active)
            continue;
        if (attribute == QLatin1String("AXFocusedApplication")) {
            *value = elementValue(elementFor(application.get()));
            return kAXErrorSuccess;
        }
        const AccessibleRef focused = reader.focusedDescendant();
        noteOutcome(reader);
        return answer(reader,
                      focused ? std::optional<Value>(elementValue(elementFor(focused.get()))) : std::nullopt,
                      value);
    }
    return kAXErrorNoValue;
}

Element AtspiProvider::applicationElement(pid_t pid) {
    QMutexLocker locker(&mutex);
    return Element{idForKey(applicationKey(pid)), pid};
}

AXError AtspiProvider::copyAttributeValue(const Element& element, const QString& attribute,
                                          CFTypeRef* value) {
    Value found;
    AXError result = kAXErrorSuccess;
    if (element.isSystemWide()) {
        QMutexLocker locker(&mutex);
        result = readSystemWideAttribute(attribute, &found);
    } else {
        result = withReader(element,
                            [&](AtspiReader& reader) { return readAttribute(reader, attribute, &found); });
    }
    if (result == kAXErrorSuccess)
        *value = VirtualDesktopModel::createCFValue(found, *this);
    return result;
}

AXError AtspiProvider::copyAttributeNames(const Element& element, QStringList* names) {
    if (element.isSystemWide()) {
        *names = {QStringLiteral("AXRole"), QStringLiteral("AXFocusedApplication"),
                  QStringLiteral("AXFocusedUIElement")};
        return kAXErrorSuccess;
    }
    return withReader(element, [&](AtspiReader& reader) {
        *names = attributeNames(reader);
        return reader.error();
    });
}

AXError AtspiProvider::attributeValueCount(const Element& element, const QString& attribute, CFIndex* count) {
    if (element.isSystemWide())
        return kAXErrorIllegalArgument;
    return withReader(element, [&](AtspiReader& reader) {
        if (attribute == QLatin1String("AXChildren") && !reader.isApplication() &&
            askedWindowButton == TitleBarButton::None) {
            *count = CFIndex(reader.shownChildren().size());
            return reader.error();
        }
        Value found;
        const AXError result = readAttribute(reader, attribute, &found);
        if (result != kAXErrorSuccess)
            return result;
        if (found.kind != Value::Kind::Array)
            return kAXErrorIllegalArgument;
        *count = CFIndex(found.items.size());
        return kAXErrorSuccess;
    });
}

AXError AtspiProvider::isAttributeSettable(const Element& element, const QString& attribute, bool* settable) {
    if (element.isSystemWide()) {
        *settable = false;
        return kAXErrorSuccess;
    }
    return withReader(element, [&](AtspiReader& reader) {
        if (askedWindowButton != TitleBarButton::None)
            *settable = false;
        else if (attribute == QLatin1String("AXValue"))
            *settable = reader.hasState(ATSPI_STATE_EDITABLE) ||
                        (reader.value() && !reader.hasState(ATSPI_STATE_READ_ONLY) &&
                         reader.value()->kind == Value::Kind::Double);
        else if (attribute == QLatin1String("AXFocused"))
            *settable = reader.hasState(ATSPI_STATE_FOCUSABLE);
        else if (attribute == QLatin1String("AXFrontmost"))
            *settable = reader.isApplication() && x11;
        else if (attribute == QLatin1String("AXMinimized"))
            *settable = !reader.isApplication() && reader.isWindow() && x11;
        else
            *settable = false;
        return reader.error();
    });
}

AXError AtspiProvider::setAttributeValue(const Element& element, const QString& attribute, CFTypeRef value) {
    if (element.isSystemWide())
        return kAXErrorAttributeUnsupported;
    return withReader(element, [&](AtspiReader& reader) -> AXError {
        if (askedWindowButton != TitleBarButton::None)
            return kAXErrorAttributeUnsupported;
        Value wanted;
        const bool valid = VirtualDesktopModel::valueFromCF(value, *this, &wanted);
        if (attribute == QLatin1String("AXFrontmost") || attribute == QLatin1String("AXMinimized"))
            return valid ? setWindowAttribute(reader, attribute, wanted) : kAXErrorIllegalArgument;
        bool done = false;
        if (attribute == QLatin1String("AXValue")) {
            if (!valid)
                return kAXErrorIllegalArgument;
            if (wanted.kind == Value::Kind::String)
                done = reader.setText(wanted.text);
            else if (wanted.kind == Value::Kind::Integer || wanted.kind == Value::Kind::Double)
                done = reader.setNumber(wanted.kind == Value::Kind::Integer ? double(wanted.integer)
                                                                            : wanted.number);
            else
                return kAXErrorIllegalArgument;
        } else if (attribute == QLatin1String("AXFocused")) {
            done = reader.grabFocus();
        } else {
            return kAXErrorAttributeUnsupported;
        }
        if (reader.error() != kAXErrorSuccess)
            return reader.error();
        return done ? kAXErrorSuccess : kAXErrorCannotComplete;
    });
}

AXError AtspiProvider::copyActionNames(const Element& element, QStringList* names) {
    if (element.isSystemWide()) {
        names->clear();
        return kAXErrorSuccess;
    }
    return withReader(element, [&](AtspiReader& reader) {
        *names = actionNames(reader);
        return reader.error();
    });
}

AXError AtspiProvider::copyActionDescription(const Element& element, const QString& action,
                                             QString* description) {
    if (element.isSystemWide())
        return kAXErrorActionUnsupported;
    return withReader(element, [&](AtspiReader& reader) -> AXError {
        // The actions of the window server have the AX descriptions.
        static const QHash<QString, QString> ownDescriptions{
            {QStringLiteral("AXRaise"), QStringLiteral("raise")},
            {QStringLiteral("AXPress"), QStringLiteral("press")},
            {QStringLiteral("AXZoomWindow"), QStringLiteral("zoom")}};
        const bool own = (askedWindowButton != TitleBarButton::None || action == QLatin1String("AXRaise")) &&
                         actionNames(reader).contains(action);
        const int index = own ? -1 : reader.actionIndex(action);
        if (own)
            *description = ownDescriptions.value(action);
        else if (index >= 0)
            *description = reader.actionDescription(index);
        if (reader.error() != kAXErrorSuccess)
            return reader.error();
        return index < 0 && !own ? kAXErrorActionUnsupported : kAXErrorSuccess;
    });
}

AXError AtspiProvider::performAction(const Element& element, const QString& action) {
    if (element.isSystemWide())
        return kAXErrorActionUnsupported;
    return withReader(element, [&](AtspiReader& reader) { return perform(reader, action); });
}

QStringList AtspiProvider::actionNames(AtspiReader& reader) {
    if (askedWindowButton == TitleBarButton::Zoom)
        return {QStringLiteral("AXPress"), QStringLiteral("AXZoomWindow")};
    if (askedWindowButton != TitleBarButton::None)
        return {QStringLiteral("AXPress")};
    QStringList names = axActionNames(reader.toolkitActionNames());
    // Every window can be raised through the window server.
    if (x11 && !reader.isApplication() && reader.isWindow() && !names.contains(QLatin1String("AXRaise")))
        names.prepend(QStringLiteral("AXRaise"));
    return names;
}

AXError AtspiProvider::perform(AtspiReader& reader, const QString& action) {
    if (askedWindowButton != TitleBarButton::None)
        return actionNames(reader).contains(action) ? pressWindowButton(reader, askedWindowButton)
                                                    : kAXErrorActionUnsupported;
    if (x11 && action == QLatin1String("AXRaise") && !reader.isApplication() && reader.isWindow())
        return actOnX11Window(reader, [&](CGWindowID id) { return x11->activate(id); });
    // A title-bar button that the toolkit draws acts on its window through the window server as
    // well: with a window manager that is the request the toolkit's own button would send it, and
    // without one the toolkit's button would do nothing at all.
    if (x11 && action == QLatin1String("AXPress")) {
        if (const TitleBarButton drawn = reader.titleBarButton(); drawn != TitleBarButton::None) {
            const AccessibleRef window = reader.window();
            if (!window)
                return reader.error() != kAXErrorSuccess ? reader.error() : kAXErrorCannotComplete;
            AtspiReader windowReader(window.get(), &interfaceCache);
            const AXError result = pressWindowButton(windowReader, drawn);
            reader.adopt(windowReader);
            return result;
        }
    }
    const int index = reader.actionIndex(action);
    const bool done = index >= 0 && reader.doAction(index);
    if (reader.error() != kAXErrorSuccess)
        return reader.error();
    if (index < 0)
        return kAXErrorActionUnsupported;
    return done ? kAXErrorSuccess : kAXErrorCannotComplete;
}

// The toolkit's child of a window at a point is the first of its children there, but a popover is
// drawn over all of them. GTK 3 lists a popover among its window's children while it names the
// widget it pops from as its parent: a shown child that holds the point and names another parent
// is such an overlay, and the child there. The last one listed lies on top.
AccessibleRef AtspiProvider::shownPopupAt(AtspiReader& window, CGPoint point) {
    std::vector<AccessibleRef> children = window.shownChildren();
    for (auto child = children.rbegin(); child != children.rend(); ++child) {
        AtspiReader candidate(child->get(), &interfaceCache);
        const std::optional<CGRect> frame = candidate.frame();
        if (!frame || !frameContains(*frame, point))
            continue;
        const AccessibleRef parent = candidate.parent();
        if (parent && AtspiReader(parent.get()).key() != window.key())
            return std::move(*child);
    }
    return AccessibleRef();
}

AXError AtspiProvider::elementAtPosition(const Element& scope, CGPoint point, Element* hit) {
    QMutexLocker locker(&mutex);
    const pid_t onlyPid = scope.isSystemWide() ? 0 : scope.pid;
    // The window server tells which window is in front at the point; without one, the active
    // window of the applications wins.
    std::optional<WindowInfo> front;
    if (x11) {
        for (const WindowInfo& window : x11->windows()) {
            if (window.onScreen && frameContains(window.frame, point) &&
                (!onlyPid || window.owner == onlyPid)) {
                front = window;
                break;
            }
        }
        if (!front)
            return kAXErrorNoValue;
    }
    AccessibleRef best;
    bool bestIsExact = false;
    for (const AccessibleRef& application : askableApplications()) {
        const pid_t pid = pidOf(application.get());
        if ((onlyPid && pid != onlyPid) || (front && front->owner && pid != front->owner))
            continue;
        AtspiReader reader(application.get(), &interfaceCache);
        for (AccessibleRef& window : reader.children()) {
            AtspiReader candidate(window.get(), &interfaceCache);
            candidate.markTopLevel();
            if (!candidate.isWindow())
                continue;
            const std::optional<CGRect> frame = candidate.frame();
            if (!frame || !frameContains(*frame, point))
                continue;
            const bool exact = front && sameFrame(*frame, front->frame);
            if (!best || (exact && !bestIsExact) || (!front && candidate.hasState(ATSPI_STATE_ACTIVE))) {
                best = std::move(window);
                bestIsExact = exact;
            }
        }
        noteOutcome(reader);
    }
    if (!best)
        return kAXErrorNoValue;
    // Down from the window, as deep as the toolkit tells children under the point.
    AccessibleRef current = std::move(best);
    for (int depth = 0; depth < 1000; ++depth) {
        AtspiReader reader(current.get(), &interfaceCache);
        AccessibleRef child = depth == 0 ? shownPopupAt(reader, point) : AccessibleRef();
        if (!child)
            child = reader.childAtPoint(point);
        noteOutcome(reader);
        if (reader.error() != kAXErrorSuccess)
            return reader.error();
        if (!child || child.get() == current.get())
            break;
        // Only what is shown: a toolkit may report a hidden child whose last extents hold the point.
        AtspiReader childReader(child.get(), &interfaceCache);
        const bool shown = childReader.hasState(ATSPI_STATE_SHOWING);
        noteOutcome(childReader);
        if (childReader.error() == kAXErrorCannotComplete)
            return childReader.error();
        if (!shown)
            break;
        current = std::move(child);
    }
    *hit = elementFor(current.get());
    return kAXErrorSuccess;
}

void AtspiProvider::beginReadBatch() {
    AtspiReadBatch::open();
}

void AtspiProvider::endReadBatch() {
    // The batch holds references to accessibles; libatspi's objects are not shared by threads.
    QMutexLocker locker(&mutex);
    AtspiReadBatch::close();
}

AXError AtspiProvider::windowOfElement(const Element& element, CGWindowID* windowID) {
    return withReader(element, [&](AtspiReader& reader) -> AXError {
        const AccessibleRef window = reader.window();
        if (reader.error() != kAXErrorSuccess)
            return reader.error();
        if (!window || !x11)
            return kAXErrorNoValue;
        AtspiReader windowReader(window.get(), &interfaceCache);
        const std::optional<CGWindowID> found = x11WindowOf(windowReader, element.pid);
        if (windowReader.error() != kAXErrorSuccess)
            return windowReader.error();
        if (!found)
            return kAXErrorNoValue;
        *windowID = *found;
        return kAXErrorSuccess;
    });
}

std::optional<CGWindowID> AtspiProvider::x11WindowOf(AtspiReader& window, pid_t pid) {
    if (!x11)
        return std::nullopt;
    const std::optional<CGRect> frame = window.frame();
    const QString title = window.name();
    if (window.error() != kAXErrorSuccess)
        return std::nullopt;
    const QList<WindowInfo> candidates = x11->windows();
    std::optional<CGWindowID> sameTitle;
    int sameTitleCount = 0;
    for (const WindowInfo& candidate : candidates) {
        if (candidate.owner != pid)
            continue;
        if (frame && sameFrame(candidate.frame, *frame) && (title.isEmpty() || candidate.title == title))
            return rememberX11Window(window, candidate.id);
        if (!title.isEmpty() && candidate.title == title) {
            sameTitle = candidate.id;
            ++sameTitleCount;
        }
    }
    if (sameTitleCount == 1)
        return rememberX11Window(window, *sameTitle);
    // A minimized window may tell neither its frame nor its title (Qt's loses its name, and a
    // window manager moves it): the X11 window it had while it was shown, where that still lives
    // and is the process's.
    const auto remembered = x11WindowsByKey.constFind(window.key());
    if (remembered == x11WindowsByKey.constEnd())
        return std::nullopt;
    for (const WindowInfo& candidate : candidates) {
        if (candidate.id == *remembered && candidate.owner == pid)
            return candidate.id;
    }
    return std::nullopt;
}

CGWindowID AtspiProvider::rememberX11Window(const AtspiReader& window, CGWindowID id) {
    if (x11WindowsByKey.size() > maximumCachedInterfaces)
        x11WindowsByKey.clear();
    x11WindowsByKey.insert(window.key(), id);
    return id;
}

template <typename Act> AXError AtspiProvider::actOnX11Window(AtspiReader& window, Act act) {
    const std::optional<CGWindowID> id = x11WindowOf(window, pidOf(window.accessible()));
    if (window.error() != kAXErrorSuccess)
        return window.error();
    return id && act(*id) ? kAXErrorSuccess : kAXErrorCannotComplete;
}

AXError AtspiProvider::setWindowAttribute(AtspiReader& reader, const QString& attribute,
                                          const Value& wanted) {
    if (wanted.kind != Value::Kind::Boolean)
        return kAXErrorIllegalArgument;
    if (attribute == QLatin1String("AXMinimized")) {
        if (reader.isApplication() || !reader.isWindow())
            return reader.error() != kAXErrorSuccess ? reader.error() : kAXErrorAttributeUnsupported;
        return actOnX11Window(reader, [&](CGWindowID id) { return x11->setMinimized(id, wanted.boolean); });
    }
    // AXFrontmost: an application comes to the front with its frontmost window on screen. Nothing
    // on this desktop sends an application to the back.
    if (!reader.isApplication())
        return kAXErrorAttributeUnsupported;
    if (!wanted.boolean)
        return kAXErrorIllegalArgument;
    if (!x11)
        return kAXErrorCannotComplete;
    // The X11 windows of its accessible windows on screen; the window server's stacking tells
    // which is in front. Its menus and tooltips are no windows to activate.
    const pid_t pid = pidOf(reader.accessible());
    QList<CGWindowID> candidates;
    for (const AccessibleRef& child : reader.children()) {
        AtspiReader window(child.get(), &interfaceCache);
        window.markTopLevel();
        if (window.isWindow() && window.hasState(ATSPI_STATE_SHOWING))
            if (const std::optional<CGWindowID> id = x11WindowOf(window, pid))
                candidates.append(*id);
        reader.adopt(window);
    }
    if (reader.error() != kAXErrorSuccess)
        return reader.error();
    for (const WindowInfo& window : x11->windows())
        if (window.onScreen && candidates.contains(window.id))
            return x11->activate(window.id) ? kAXErrorSuccess : kAXErrorCannotComplete;
    return kAXErrorCannotComplete;
}

std::optional<Element> AtspiProvider::titleBarButtonOf(AtspiReader& window, TitleBarButton button) {
    if (AccessibleRef drawn = window.drawnTitleBarButton(button))
        return elementFor(drawn.get());
    if (!x11 || window.error() != kAXErrorSuccess)
        return std::nullopt;
    return elementFor(window.accessible(), std::nullopt, button);
}

AXError AtspiProvider::readWindowButtonAttribute(AtspiReader& window, TitleBarButton button,
                                                 const QString& attribute, Value* value) {
    // Asking the window tells whether it is still there.
    const bool shown = window.hasState(ATSPI_STATE_SHOWING);
    std::optional<Value> found;
    if (attribute == QLatin1String("AXRole"))
        found = stringValue(QStringLiteral("AXButton"));
    else if (attribute == QLatin1String("AXSubrole"))
        found = stringValue(axTitleBarButtonName(button));
    else if (attribute == QLatin1String("AXRoleDescription"))
        found = stringValue(QStringLiteral("button"));
    else if (attribute == QLatin1String("AXTitle"))
        found = stringValue(QString());
    else if (attribute == QLatin1String("AXDescription"))
        found = stringValue(button == TitleBarButton::Minimize ? QStringLiteral("minimize")
                            : button == TitleBarButton::Zoom   ? QStringLiteral("zoom")
                                                               : QStringLiteral("close"));
    else if (attribute == QLatin1String("AXChildren")) {
        found = Value();
        found->kind = Value::Kind::Array;
    } else if (attribute == QLatin1String("AXEnabled"))
        found = booleanValue(shown);
    else if (attribute == QLatin1String("AXFocused"))
        found = booleanValue(false);
    else if (attribute == QLatin1String("AXParent") || attribute == QLatin1String("AXWindow"))
        found = elementValue(elementFor(window.accessible()));
    else
        return window.error() != kAXErrorSuccess ? window.error() : kAXErrorAttributeUnsupported;
    return answer(window, found, value);
}

AXError AtspiProvider::pressWindowButton(AtspiReader& window, TitleBarButton button) {
    return actOnX11Window(window, [&](CGWindowID id) {
        switch (button) {
        case TitleBarButton::Minimize:
            return x11->setMinimized(id, true);
        case TitleBarButton::Zoom:
            return x11->setMaximized(id, !x11->isMaximized(id));
        case TitleBarButton::Close:
            return x11->close(id);
        case TitleBarButton::None:
            break;
        }
        return false;
    });
}

CGError AtspiProvider::windowList(QList<WindowInfo>* windows) {
    QMutexLocker locker(&mutex);
    *windows = x11 ? x11->windows() : QList<WindowInfo>();
    return kCGErrorSuccess;
}

namespace {

// A process that has windows but is not on the accessibility bus.
ApplicationInfo windowOwnerApplication(pid_t owner, std::optional<pid_t> managedFront) {
    ApplicationInfo info = describeLiveProcess(owner, QString());
    info.active = managedFront && owner == *managedFront;
    return info;
}

} // namespace

ApplicationInfo AtspiProvider::busApplication(AtspiAccessible* application, pid_t pid,
                                              std::optional<pid_t> managedFront,
                                              const QHash<QByteArray, ApplicationInfo>& described) {
    AtspiReader reader(application);
    const QByteArray busName = reader.busName();
    auto known = described.constFind(busName);
    ApplicationInfo info = known != described.constEnd() ? *known : describeLiveProcess(pid, reader.name());
    info.active = managedFront ? pid == *managedFront : reader.activeWindow() != nullptr;
    noteOutcome(reader);
    applicationsByBusName.insert(busName, info);
    return info;
}

void AtspiProvider::readWindowsAhead(const std::vector<AccessibleRef>& applications) {
    AtspiReadBatch* batch = AtspiReadBatch::current();
    if (!batch)
        return;
    std::vector<AtspiAccessible*> parents;
    for (const AccessibleRef& application : applications)
        parents.push_back(application.get());
    // A hung application shows in its own reader's next question.
    batch->readChildrenAhead(parents, &interfaceCache);
}

QList<ApplicationInfo> AtspiProvider::applications() {
    QMutexLocker locker(&mutex);
    // Without a window manager the toolkits' own "active" state says who is in front.
    const std::optional<pid_t> managedFront = x11 ? x11->activeWindowOwner() : std::nullopt;
    QList<ApplicationInfo> result;
    QSet<pid_t> listed;
    // Only the applications listed now keep their descriptions.
    const QHash<QByteArray, ApplicationInfo> described = std::exchange(applicationsByBusName, {});
    const std::vector<AccessibleRef> running = askableApplications();
    if (!managedFront)
        readWindowsAhead(running);
    for (const AccessibleRef& application : running) {
        const pid_t pid = pidOf(application.get());
        if (pid <= 0 || listed.contains(pid))
            continue;
        listed.insert(pid);
        result.append(busApplication(application.get(), pid, managedFront, described));
    }
    if (x11) {
        for (const pid_t owner : x11->windowOwners()) {
            if (owner <= 0 || listed.contains(owner))
                continue;
            listed.insert(owner);
            result.append(windowOwnerApplication(owner, managedFront));
        }
    }
    return result;
}

// One process's application without listing the others: capture and resolution ask this for
// every element they read.
std::optional<ApplicationInfo> AtspiProvider::application(pid_t pid) {
    QMutexLocker locker(&mutex);
    if (pid <= 0)
        return std::nullopt;
    const std::optional<pid_t> managedFront = x11 ? x11->activeWindowOwner() : std::nullopt;
    const std::vector<AccessibleRef> running = askableApplications();
    if (!managedFront)
        readWindowsAhead(running);
    for (const AccessibleRef& application : running) {
        if (pidOf(application.get()) == pid)
            return busApplication(application.get(), pid, managedFront, applicationsByBusName);
    }
    if (x11 && x11->windowOwners().contains(pid))
        return windowOwnerApplication(pid, managedFront);
    return std::nullopt;
}

std::unique_ptr<QObject> AtspiProvider::watchApplications(std::function<void()> changed) {
    return X11Desktop::watchRootProperties(
        {QStringLiteral("_NET_ACTIVE_WINDOW"), QStringLiteral("_NET_CLIENT_LIST")}, std::move(changed));
}

QList<ScreenInfo> AtspiProvider::screens() {
    QMutexLocker locker(&mutex);
    return liveScreens(x11 ? x11->screens() : QList<ScreenInfo>());
}

// Not under the lock: a magnifier that does not answer holds up no other question.
ZoomInfo AtspiProvider::zoom() {
    return readMagnifierZoom();
}

double AtspiProvider::menuBarHeight() {
    QMutexLocker locker(&mutex);
    return x11 ? toPoints(x11->workAreaTop()) : 0;
}

CGPoint AtspiProvider::mousePosition() {
    QMutexLocker locker(&mutex);
    return x11 ? x11->mousePosition() : CGPoint{};
}

// There is no permission per process: access is on for every client once the desktop's
// accessibility is. The prompt turns it on, as a user would in the settings.
bool AtspiProvider::isProcessTrusted(bool prompt) {
    if (prompt && !accessibilityStatusEnabled().value_or(false))
        enableAccessibilityStatus();
    return isAPIEnabled();
}

// Toolkits told by their own settings to expose their trees do so whatever IsEnabled says: an
// application already on the bus means that access works.
bool AtspiProvider::isAPIEnabled() {
    if (accessibilityStatusEnabled().value_or(false))
        return true;
    QMutexLocker locker(&mutex);
    AccessibleRef desktop(atspi_get_desktop(0));
    return desktop && AtspiReader(desktop.get()).childCount() > 0;
}
