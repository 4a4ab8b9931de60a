#include "VirtualDesktop.h"

#include "FixtureFileWatcher.h"
#include "FixtureLoader.h"
#include "ValueConversion.h"

#include <QCoreApplication>
#include <QDebug>
#include <QFile>
#include <QJsonDocument>
#include <QThread>

using namespace VirtualDesktopModel;

// The watcher lives in the thread of the event loop that delivers its signals, and may outlive
// the desktop there for a moment; it reaches the desktop only through this link.
struct VirtualDesktop::WatchLink {
    QMutex mutex;
    VirtualDesktop* desktop = nullptr;
};

VirtualDesktop::VirtualDesktop() = default;

VirtualDesktop::~VirtualDesktop() {
    if (!link)
        return;
    {
        QMutexLocker locker(&link->mutex);
        link->desktop = nullptr;
    }
    if (watcher->thread() == QThread::currentThread())
        delete watcher;
    else
        watcher->deleteLater();
}

bool VirtualDesktop::load(const QByteArray& json, const QString& source) {
    QMutexLocker locker(&mutex);
    return loadLocked(json, source);
}

bool VirtualDesktop::load(const QJsonObject& fixture, const QString& source) {
    return load(QJsonDocument(fixture).toJson(QJsonDocument::Compact), source);
}

bool VirtualDesktop::loadLocked(const QByteArray& json, const QString& source) {
    ++loads;
    Desktop loaded;
    FixtureProblem problem;
    if (!loadDesktop(json, ids, &loaded, &problem)) {
        fail(FixtureError{source, problem.place, problem.problem});
        return false;
    }
    desktop = std::move(loaded);
    error = FixtureError();
    return true;
}

void VirtualDesktop::fail(const FixtureError& problem) {
    desktop.reset();
    error = problem;
    if (problem.place.isEmpty())
        qWarning().noquote().nospace()
            << "Error: desktop fixture " << problem.file << ": " << problem.problem;
    else
        qWarning().noquote().nospace() << "Error: bad desktop fixture " << problem.file << " at "
                                       << problem.place << ": " << problem.problem;
}

bool VirtualDesktop::watchFile(const QString& path) {
    {
        QMutexLocker locker(&mutex);
        if (link)
            return false; // one file per desktop
        if (path.isEmpty()) {
            ++loads;
            fail(FixtureError{path, QString(), QStringLiteral("no file given")});
            return false;
        }
        watchedPath = path;
        link = std::make_shared<WatchLink>();
        link->desktop = this;
    }
    reloadWatchedFile();
    watcher = new FixtureFileWatcher(path, [link = link] {
        QMutexLocker locker(&link->mutex);
        if (link->desktop)
            link->desktop->reloadWatchedFile();
    });
    // The first query may come from any thread; changes are delivered by the main event loop.
    if (QCoreApplication::instance() && QCoreApplication::instance()->thread() != QThread::currentThread())
        watcher->moveToThread(QCoreApplication::instance()->thread());
    QMutexLocker locker(&mutex);
    return desktop.has_value();
}

void VirtualDesktop::reloadWatchedFile() {
    QFile file(watchedPath);
    const bool opened = file.open(QIODevice::ReadOnly);
    const QByteArray bytes = opened ? file.readAll() : QByteArray();
    QMutexLocker locker(&mutex);
    if (!opened) {
        ++loads;
        watchedBytes.reset();
        fail(FixtureError{watchedPath, QString(), QStringLiteral("cannot be read: ") + file.errorString()});
        return;
    }
    // The directory also changes when other files in it do; the desktop, with what has been
    // done to it since, stays as it is unless this file changed.
    if (watchedBytes == bytes)
        return;
    watchedBytes = bytes;
    loadLocked(bytes, watchedPath);
}

VirtualDesktop::FixtureError VirtualDesktop::lastError() const {
    QMutexLocker locker(&mutex);
    return error;
}

quint64 VirtualDesktop::loadCount() const {
    QMutexLocker locker(&mutex);
    return loads;
}

void VirtualDesktop::setDelaysEnabled(bool enabled) {
    delaysEnabled = enabled;
}

AXUIElementRef VirtualDesktop::copyElement(const QString& fixtureId) const {
    QMutexLocker locker(&mutex);
    const int node = nodeWithFixtureId(fixtureId);
    if (node < 0)
        return nullptr;
    const Node& found = desktop->nodes[std::size_t(node)];
    return createHandle(Element{found.id, found.pid});
}

QString VirtualDesktop::fixtureIdOf(CFTypeRef handle) const {
    Element element;
    if (!handle || !elementOfHandle(handle, &element))
        return QString();
    QMutexLocker locker(&mutex);
    const int node = desktop ? nodeIndex(element) : -1;
    return node < 0 ? QString() : desktop->nodes[std::size_t(node)].fixtureId;
}

int VirtualDesktop::actionCount(const QString& fixtureId, const QString& action) const {
    QMutexLocker locker(&mutex);
    const int node = nodeWithFixtureId(fixtureId);
    if (node < 0)
        return 0;
    for (const Action& each : desktop->nodes[std::size_t(node)].actions) {
        if (each.name == action)
            return each.performed;
    }
    return 0;
}

int VirtualDesktop::trustPromptCount() const {
    QMutexLocker locker(&mutex);
    return trustPrompts;
}

int VirtualDesktop::nodeIndex(const Element& element) const {
    return desktop->node(element) ? desktop->nodeById.value(element.id) : -1;
}

int VirtualDesktop::nodeWithFixtureId(const QString& fixtureId) const {
    if (!desktop || fixtureId.isEmpty())
        return -1;
    for (std::size_t i = 0; i < desktop->nodes.size(); ++i) {
        if (desktop->nodes[i].fixtureId == fixtureId)
            return int(i);
    }
    return -1;
}

AXError VirtualDesktop::reachDesktop() const {
    if (!desktop)
        return kAXErrorCannotComplete;
    if (!desktop->trusted || !desktop->apiEnabled)
        return kAXErrorAPIDisabled;
    return kAXErrorSuccess;
}

AXError VirtualDesktop::reachApplication(pid_t pid, int* busyDelayMs) {
    const auto found = desktop->applicationByPid.constFind(pid);
    // As for a process that has gone: the message finds no one to answer it.
    if (found == desktop->applicationByPid.constEnd())
        return kAXErrorCannotComplete;
    Busy& busy = desktop->applications[*found].busy;
    if (!busy.busy || busy.callsLeft == 0)
        return kAXErrorSuccess;
    if (busy.callsLeft > 0)
        --busy.callsLeft;
    *busyDelayMs = busy.delayMs;
    return kAXErrorCannotComplete;
}

AXError VirtualDesktop::reachNode(int node, PlatformCall call) {
    Faults& faults = desktop->nodes[std::size_t(node)].faults;
    if (faults.callsBeforeDeath == 0)
        return kAXErrorInvalidUIElement;
    if (faults.callsBeforeDeath > 0)
        --faults.callsBeforeDeath;
    return faults.calls.value(int(call), kAXErrorSuccess);
}

void VirtualDesktop::pause(int delayMs) const {
    if (delaysEnabled && delayMs > 0)
        QThread::msleep(ulong(delayMs));
}

template <class Answer>
AXError VirtualDesktop::ask(const Element& element, PlatformCall call, Answer&& answer) {
    QMutexLocker locker(&mutex);
    if (const AXError result = reachDesktop())
        return result;
    if (element.isSystemWide())
        return answer(-1);
    int busyDelayMs = -1;
    if (const AXError result = reachApplication(element.pid, &busyDelayMs)) {
        if (busyDelayMs > 0) {
            locker.unlock();
            pause(busyDelayMs);
        }
        return result;
    }
    const int node = nodeIndex(element);
    if (node < 0)
        return kAXErrorInvalidUIElement;
    if (const AXError result = reachNode(node, call))
        return result;
    return answer(node);
}

AXError VirtualDesktop::read(int node, const QString& attribute, Value* value) const {
    const Lookup lookup = node < 0 ? systemWideAttributeValue(*desktop, attribute, value)
                                   : attributeValue(*desktop, node, attribute, value);
    if (node >= 0) {
        const auto fault = desktop->nodes[std::size_t(node)].faults.attributes.constFind(attribute);
        if (fault != desktop->nodes[std::size_t(node)].faults.attributes.constEnd())
            return *fault;
    }
    switch (lookup) {
    case Lookup::Found:
        return kAXErrorSuccess;
    case Lookup::NoValue:
        return kAXErrorNoValue;
    case Lookup::Unsupported:
        break;
    }
    return kAXErrorAttributeUnsupported;
}

void VirtualDesktop::store(int node, const QString& attribute, const Value& value) {
    Node& target = desktop->nodes[std::size_t(node)];
    target.attributes.insert(attribute, value);
    // One application is frontmost at a time.
    const bool nowFrontmost = target.kind == NodeKind::Application &&
                              attribute == QLatin1String("AXFrontmost") &&
                              value.kind == Value::Kind::Boolean && value.boolean;
    if (!nowFrontmost)
        return;
    Value notFrontmost;
    notFrontmost.kind = Value::Kind::Boolean;
    for (const Application& application : desktop->applications) {
        if (application.node != node)
            desktop->nodes[std::size_t(application.node)].attributes.insert(QStringLiteral("AXFrontmost"),
                                                                            notFrontmost);
    }
}

Element VirtualDesktop::applicationElement(pid_t pid) {
    QMutexLocker locker(&mutex);
    return Element{ids.idFor(QStringLiteral("app:") + QString::number(pid)), pid};
}

AXError VirtualDesktop::copyAttributeValue(const Element& element, const QString& attribute,
                                           CFTypeRef* value) {
    return ask(element, PlatformCall::AXUIElementCopyAttributeValue, [&](int node) {
        Value found;
        const AXError result = read(node, attribute, &found);
        if (result == kAXErrorSuccess)
            *value = createCFValue(found, *this);
        return result;
    });
}

AXError VirtualDesktop::copyAttributeNames(const Element& element, QStringList* names) {
    return ask(element, PlatformCall::AXUIElementCopyAttributeNames, [&](int node) {
        *names = node < 0 ? systemWideAttributeNames() : attributeNames(*desktop, node);
        return kAXErrorSuccess;
    });
}

AXError VirtualDesktop::attributeValueCount(const Element& element, const QString& attribute,
                                            CFIndex* count) {
    return ask(element, PlatformCall::AXUIElementGetAttributeValueCount, [&](int node) {
        Value found;
        const AXError result = read(node, attribute, &found);
        if (result != kAXErrorSuccess)
            return result;
        if (found.kind != Value::Kind::Array)
            return kAXErrorIllegalArgument;
        *count = CFIndex(found.items.size());
        return kAXErrorSuccess;
    });
}

AXError VirtualDesktop::isAttributeSettable(const Element& element, const QString& attribute,
                                            bool* settable) {
    return ask(element, PlatformCall::AXUIElementIsAttributeSettable, [&](int node) {
        Value ignored;
        const Lookup lookup = node < 0 ? systemWideAttributeValue(*desktop, attribute, &ignored)
                                       : attributeValue(*desktop, node, attribute, &ignored);
        if (lookup == Lookup::Unsupported)
            return kAXErrorAttributeUnsupported;
        *settable = node >= 0 && desktop->nodes[std::size_t(node)].settable.contains(attribute);
        return kAXErrorSuccess;
    });
}

AXError VirtualDesktop::setAttributeValue(const Element& element, const QString& attribute, CFTypeRef value) {
    return ask(element, PlatformCall::AXUIElementSetAttributeValue, [&](int node) {
        if (node < 0 || !desktop->nodes[std::size_t(node)].settable.contains(attribute))
            return kAXErrorAttributeUnsupported;
        Value converted;
        if (!valueFromCF(value, *this, &converted))
            return kAXErrorIllegalArgument;
        store(node, attribute, converted);
        return kAXErrorSuccess;
    });
}

AXError VirtualDesktop::copyActionNames(const Element& element, QStringList* names) {
    return ask(element, PlatformCall::AXUIElementCopyActionNames, [&](int node) {
        names->clear();
        if (node >= 0) {
            for (const Action& action : desktop->nodes[std::size_t(node)].actions)
                names->append(action.name);
        }
        return kAXErrorSuccess;
    });
}

AXError VirtualDesktop::copyActionDescription(const Element& element, const QString& action,
                                              QString* description) {
    return ask(element, PlatformCall::AXUIElementCopyActionDescription, [&](int node) {
        if (node >= 0) {
            for (const Action& each : desktop->nodes[std::size_t(node)].actions) {
                if (each.name == action) {
                    *description = each.description;
                    return kAXErrorSuccess;
                }
            }
        }
        return kAXErrorActionUnsupported;
    });
}

AXError VirtualDesktop::performAction(const Element& element, const QString& action) {
    return ask(element, PlatformCall::AXUIElementPerformAction, [&](int node) {
        if (node < 0)
            return kAXErrorActionUnsupported;
        Node& target = desktop->nodes[std::size_t(node)];
        const auto fault = target.faults.actions.constFind(action);
        if (fault != target.faults.actions.constEnd())
            return *fault;
        for (Action& each : target.actions) {
            if (each.name != action)
                continue;
            ++each.performed;
            const QList<QPair<QString, Value>> sets = each.sets;
            for (const QPair<QString, Value>& set : sets)
                store(node, set.first, set.second);
            if (target.kind == NodeKind::Window && action == QLatin1String("AXRaise"))
                raiseWindow(*desktop, node);
            return kAXErrorSuccess;
        }
        return kAXErrorActionUnsupported;
    });
}

AXError VirtualDesktop::elementAtPosition(const Element& scope, CGPoint point, Element* hit) {
    QMutexLocker locker(&mutex);
    if (const AXError result = reachDesktop())
        return result;
    const int window = windowAt(*desktop, point, scope.isSystemWide() ? 0 : scope.pid);
    if (scope.isSystemWide() && window < 0)
        return kAXErrorNoValue;
    // The application answers: the one whose window is at the point, or the one asked.
    const pid_t pid =
        scope.isSystemWide() ? desktop->nodes[std::size_t(desktop->windows[window].node)].pid : scope.pid;
    int busyDelayMs = -1;
    if (const AXError result = reachApplication(pid, &busyDelayMs)) {
        if (busyDelayMs > 0) {
            locker.unlock();
            pause(busyDelayMs);
        }
        return result;
    }
    const int application = desktop->application(pid)->node;
    if (!scope.isSystemWide() && nodeIndex(scope) != application)
        return nodeIndex(scope) < 0 ? kAXErrorInvalidUIElement : kAXErrorIllegalArgument;
    if (const AXError result = reachNode(application, PlatformCall::AXUIElementCopyElementAtPosition))
        return result;
    if (window < 0 || !desktop->windows[window].accessible)
        return kAXErrorNoValue;
    const Node& found =
        desktop->nodes[std::size_t(deepestElementAt(*desktop, desktop->windows[window].node, point))];
    *hit = Element{found.id, found.pid};
    return kAXErrorSuccess;
}

AXError VirtualDesktop::windowOfElement(const Element& element, CGWindowID* windowID) {
    return ask(element, PlatformCall::_AXUIElementGetWindow, [&](int node) {
        if (node < 0)
            return kAXErrorIllegalArgument;
        const int window = desktop->nodes[std::size_t(node)].window;
        for (const Window& each : desktop->windows) {
            if (window >= 0 && each.node == window) {
                *windowID = each.id;
                return kAXErrorSuccess;
            }
        }
        return kAXErrorNoValue;
    });
}

CGError VirtualDesktop::windowList(QList<WindowInfo>* windows) {
    QMutexLocker locker(&mutex);
    if (!desktop)
        return kCGErrorCannotComplete;
    *windows = windowInfos(*desktop);
    return kCGErrorSuccess;
}

QList<ApplicationInfo> VirtualDesktop::applications() {
    QMutexLocker locker(&mutex);
    return desktop ? applicationInfos(*desktop) : QList<ApplicationInfo>();
}

QList<ScreenInfo> VirtualDesktop::screens() {
    QMutexLocker locker(&mutex);
    return desktop ? desktop->screens : QList<ScreenInfo>();
}

ZoomInfo VirtualDesktop::zoom() {
    QMutexLocker locker(&mutex);
    return desktop ? desktop->zoom : ZoomInfo();
}

double VirtualDesktop::menuBarHeight() {
    QMutexLocker locker(&mutex);
    return desktop ? desktop->menuBarHeight : 0;
}

CGPoint VirtualDesktop::mousePosition() {
    QMutexLocker locker(&mutex);
    return desktop ? desktop->mouse : CGPoint{};
}

bool VirtualDesktop::isProcessTrusted(bool prompt) {
    QMutexLocker locker(&mutex);
    const bool trusted = desktop && desktop->trusted;
    if (prompt && !trusted)
        ++trustPrompts;
    return trusted;
}

bool VirtualDesktop::isAPIEnabled() {
    QMutexLocker locker(&mutex);
    return desktop && desktop->apiEnabled;
}
