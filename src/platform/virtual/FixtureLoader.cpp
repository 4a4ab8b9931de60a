#include "FixtureLoader.h"

#include "FixtureReader.h"
#include "ax/PlatformCallCounters.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonParseError>

#include <algorithm>
#include <functional>
#include <limits>

namespace VirtualDesktopModel {

namespace {

constexpr qint64 kLargestPid = 4194304; // PID_MAX_LIMIT of Linux
constexpr qint64 kLargestCount = 1000000000;
constexpr qint64 kLongestDelayMs = 60000;

// The functions that a fault may make fail: those that ask an element's application.
const PlatformCall faultableCalls[] = {
    PlatformCall::AXUIElementCopyElementAtPosition, PlatformCall::AXUIElementCopyAttributeNames,
    PlatformCall::AXUIElementCopyAttributeValue,    PlatformCall::AXUIElementGetAttributeValueCount,
    PlatformCall::AXUIElementIsAttributeSettable,   PlatformCall::AXUIElementSetAttributeValue,
    PlatformCall::AXUIElementCopyActionNames,       PlatformCall::AXUIElementCopyActionDescription,
    PlatformCall::AXUIElementPerformAction,         PlatformCall::_AXUIElementGetWindow,
};

// An explicit id is told apart from the indices that name the elements below it by its length.
QString keyOfId(const QString& id) {
    return QStringLiteral("id:%1:%2").arg(id.size()).arg(id);
}

class DesktopLoader : public FixtureReader {
public:
    DesktopLoader(ElementIds& ids, Desktop& desktop) : ids(ids), desktop(desktop) {}

    bool load(const QJsonObject& root);

private:
    struct StackedWindow {
        qint64 order;
        Window window;
    };
    using ItemReader = std::function<bool(const QJsonValue& item, const QString& place, qsizetype index)>;

    Node& node(int index) { return desktop.nodes[std::size_t(index)]; }

    bool readArray(const QJsonValue& value, const QString& place, const ItemReader& readItem);
    int addNode(NodeKind kind, pid_t pid, const QString& key, const QString& place, int parent,
                const QString& id);
    bool readExplicitId(Fields& fields, QString* id);

    bool readApplication(const QJsonValue& value, const QString& place);
    bool readWindow(const QJsonValue& value, const QString& place, int application);
    bool readElement(const QJsonValue& value, const QString& place, int parent, const QString& key);
    bool readChildren(Fields& fields, int parent, const QString& parentKey);
    bool readCommon(Fields& fields, int nodeIndex);
    bool readAttributeTable(const QJsonValue& value, const QString& place,
                            QList<QPair<QString, Value>>* table);
    bool readSettable(const QJsonValue& value, const QString& place, int nodeIndex);
    bool readAction(const QJsonValue& value, const QString& place, int nodeIndex);
    bool readFaults(const QJsonValue& value, const QString& place, Faults* faults);
    bool readErrorTable(const QJsonValue& value, const QString& place, QHash<QString, AXError>* table);
    bool readCallFaults(const QJsonValue& value, const QString& place, QHash<int, AXError>* table);
    bool readBusy(const QJsonValue& value, const QString& place, Busy* busy);
    bool readScreen(const QJsonValue& value, const QString& place);
    bool readZoom(const QJsonValue& value, const QString& place);

    // A key of the element's own object that stands for an attribute ("title" for "AXTitle").
    bool setShorthand(int nodeIndex, Fields& fields, const char* key, const QString& attribute,
                      const Value& value);
    void setDefault(int nodeIndex, const QString& attribute, const Value& value);
    bool readFrame(Fields& fields, int nodeIndex);
    bool readTextShorthand(Fields& fields, int nodeIndex, const char* key, const QString& attribute);

    bool resolveReferences();
    bool resolve(Value& value, const QString& place);

    ElementIds& ids;
    Desktop& desktop;
    QHash<QString, int> targets; // what references may name: "id:<id>", "app:<pid>", "window:<id>"
    QList<StackedWindow> stacking;
};

bool DesktopLoader::load(const QJsonObject& root) {
    Fields fields(*this, root, QString());
    if (!checkKeys(root, QString(),
                   {"applications", "screens", "zoom", "menuBarHeight", "mouse", "trusted", "apiEnabled"}) ||
        !fields.boolean("trusted", &desktop.trusted) || !fields.boolean("apiEnabled", &desktop.apiEnabled) ||
        !fields.point("mouse", &desktop.mouse) ||
        (fields.has("zoom") && !readZoom(fields.value("zoom"), fields.placeOf("zoom"))) ||
        !fields.number("menuBarHeight", &desktop.menuBarHeight))
        return false;
    if (desktop.menuBarHeight < 0)
        return fail(fields.placeOf("menuBarHeight"), QStringLiteral("the height must not be below 0"));
    const auto screen = [this](const QJsonValue& item, const QString& place, qsizetype) {
        return readScreen(item, place);
    };
    const auto application = [this](const QJsonValue& item, const QString& place, qsizetype) {
        return readApplication(item, place);
    };
    if ((fields.has("screens") && !readArray(fields.value("screens"), fields.placeOf("screens"), screen)) ||
        (fields.has("applications") &&
         !readArray(fields.value("applications"), fields.placeOf("applications"), application)))
        return false;

    int activeApplications = 0;
    for (const Application& each : desktop.applications) {
        const Value frontmost = node(each.node).attributes.value(QStringLiteral("AXFrontmost"));
        activeApplications += frontmost.kind == Value::Kind::Boolean && frontmost.boolean;
        if (activeApplications > 1)
            return fail(node(each.node).place, QStringLiteral("only one application can be active"));
    }
    std::stable_sort(stacking.begin(), stacking.end(),
                     [](const StackedWindow& a, const StackedWindow& b) { return a.order < b.order; });
    for (const StackedWindow& stacked : stacking)
        desktop.windows.append(stacked.window);
    return resolveReferences();
}

bool DesktopLoader::readArray(const QJsonValue& value, const QString& place, const ItemReader& readItem) {
    if (!value.isArray())
        return fail(place, QStringLiteral("expected an array"));
    const QJsonArray array = value.toArray();
    for (qsizetype i = 0; i < array.size(); ++i) {
        if (!readItem(array.at(i), placeOfIndex(place, i), i))
            return false;
    }
    return true;
}

int DesktopLoader::addNode(NodeKind kind, pid_t pid, const QString& key, const QString& place, int parent,
                           const QString& id) {
    Node added;
    added.kind = kind;
    added.id = ids.idFor(key);
    added.pid = pid;
    added.fixtureId = id;
    added.place = place;
    added.parent = parent;
    const int index = int(desktop.nodes.size());
    if (kind == NodeKind::Window)
        added.window = index;
    else if (kind == NodeKind::Element)
        added.window = node(parent).window;
    desktop.nodes.push_back(added);
    desktop.nodeById.insert(added.id, index);
    if (parent >= 0)
        node(parent).children.append(index);
    if (!id.isEmpty())
        targets.insert(QStringLiteral("id:") + id, index);
    return index;
}

bool DesktopLoader::readExplicitId(Fields& fields, QString* id) {
    if (!fields.string("id", id))
        return false;
    if (fields.has("id") && id->isEmpty())
        return fail(fields.placeOf("id"), QStringLiteral("an id must not be empty"));
    if (targets.contains(QStringLiteral("id:") + *id))
        return fail(fields.placeOf("id"), QStringLiteral("the id \"%1\" is used twice").arg(*id));
    return true;
}

bool DesktopLoader::readApplication(const QJsonValue& value, const QString& place) {
    QJsonObject object;
    if (!readObject(value, place, &object) ||
        !checkKeys(object, place,
                   {"pid", "bundleId", "name", "executable", "active", "accessory", "busy", "windows", "id",
                    "attributes", "settable", "actions", "faults", "children"}))
        return false;
    Fields fields(*this, object, place);
    qint64 pid = 0;
    QString id;
    Application application;
    bool accessory = false;
    if (!fields.require("pid") || !fields.integer("pid", 1, kLargestPid, &pid))
        return false;
    const QString key = QStringLiteral("app:") + QString::number(pid);
    if (targets.contains(key))
        return fail(fields.placeOf("pid"), QStringLiteral("the pid %1 is used twice").arg(pid));
    if (!readExplicitId(fields, &id) || !fields.string("bundleId", &application.bundleIdentifier) ||
        !fields.string("name", &application.name) ||
        !fields.string("executable", &application.executablePath) ||
        !fields.boolean("accessory", &accessory) ||
        (fields.has("busy") && !readBusy(fields.value("busy"), fields.placeOf("busy"), &application.busy)))
        return false;

    application.regular = !accessory;
    const int index = addNode(NodeKind::Application, pid_t(pid), key, place, -1, id);
    targets.insert(key, index);
    application.node = index;
    desktop.applicationByPid.insert(pid_t(pid), int(desktop.applications.size()));
    desktop.applications.append(application);
    if (!readCommon(fields, index) || !readTextShorthand(fields, index, "name", QStringLiteral("AXTitle")))
        return false;
    if (fields.has("active")) {
        bool active = false;
        if (!fields.boolean("active", &active) ||
            !setShorthand(index, fields, "active", QStringLiteral("AXFrontmost"), booleanValue(active)))
            return false;
    }
    setDefault(index, QStringLiteral("AXRole"), stringValue(QStringLiteral("AXApplication")));
    setDefault(index, QStringLiteral("AXFrontmost"), booleanValue(false));
    node(index).settable.insert(QStringLiteral("AXFrontmost"));

    if (!readChildren(fields, index, key))
        return false;
    desktop.applications.last().elements = node(index).children;
    const auto window = [this, index](const QJsonValue& item, const QString& itemPlace, qsizetype) {
        return readWindow(item, itemPlace, index);
    };
    return !fields.has("windows") || readArray(fields.value("windows"), fields.placeOf("windows"), window);
}

bool DesktopLoader::readWindow(const QJsonValue& value, const QString& place, int application) {
    QJsonObject object;
    if (!readObject(value, place, &object) ||
        !checkKeys(object, place,
                   {"windowId", "title", "frame", "minimized", "stackingOrder", "accessible", "id",
                    "attributes", "settable", "actions", "faults", "children", "opaqueToHitTest"}))
        return false;
    Fields fields(*this, object, place);
    qint64 windowId = 0;
    QString id;
    StackedWindow stacked{0, Window{}};
    if (!fields.require("windowId") || !fields.require("frame") ||
        !fields.integer("windowId", 1, std::numeric_limits<CGWindowID>::max(), &windowId))
        return false;
    const QString windowKey = QStringLiteral("window:") + QString::number(windowId);
    if (targets.contains(windowKey))
        return fail(fields.placeOf("windowId"),
                    QStringLiteral("the window id %1 is used twice").arg(windowId));
    if (!readExplicitId(fields, &id) ||
        !fields.integer("stackingOrder", -kLargestCount, kLargestCount, &stacked.order) ||
        !fields.boolean("accessible", &stacked.window.accessible))
        return false;

    const QString key = id.isEmpty() ? windowKey : keyOfId(id);
    const int index = addNode(NodeKind::Window, node(application).pid, key, place, application, id);
    targets.insert(windowKey, index);
    desktop.applications.last().windows.append(index);
    stacked.window.id = CGWindowID(windowId);
    stacked.window.node = index;
    stacking.append(stacked);

    if (!readCommon(fields, index) || !readFrame(fields, index) ||
        !readTextShorthand(fields, index, "title", QStringLiteral("AXTitle")))
        return false;
    if (fields.has("minimized")) {
        bool minimized = false;
        if (!fields.boolean("minimized", &minimized) ||
            !setShorthand(index, fields, "minimized", QStringLiteral("AXMinimized"), booleanValue(minimized)))
            return false;
    }
    setDefault(index, QStringLiteral("AXRole"), stringValue(QStringLiteral("AXWindow")));
    setDefault(index, QStringLiteral("AXMinimized"), booleanValue(false));
    node(index).settable +=
        {QStringLiteral("AXPosition"), QStringLiteral("AXSize"), QStringLiteral("AXMinimized")};
    if (!fields.has("actions"))
        node(index).actions.append(Action{QStringLiteral("AXRaise"), QStringLiteral("raise"), {}, 0});
    return readChildren(fields, index, key);
}

bool DesktopLoader::readElement(const QJsonValue& value, const QString& place, int parent,
                                const QString& pathKey) {
    QJsonObject object;
    if (!readObject(value, place, &object) ||
        !checkKeys(object, place,
                   {"id", "role", "title", "frame", "attributes", "settable", "actions", "faults", "children",
                    "opaqueToHitTest"}))
        return false;
    Fields fields(*this, object, place);
    QString id;
    if (!readExplicitId(fields, &id))
        return false;
    const QString key = id.isEmpty() ? pathKey : keyOfId(id);
    const int index = addNode(NodeKind::Element, node(parent).pid, key, place, parent, id);
    return readCommon(fields, index) && readFrame(fields, index) &&
           readTextShorthand(fields, index, "role", QStringLiteral("AXRole")) &&
           readTextShorthand(fields, index, "title", QStringLiteral("AXTitle")) &&
           readChildren(fields, index, key);
}

bool DesktopLoader::readChildren(Fields& fields, int parent, const QString& parentKey) {
    const auto child = [&](const QJsonValue& item, const QString& place, qsizetype index) {
        return readElement(item, place, parent, parentKey + QLatin1Char('/') + QString::number(index));
    };
    return !fields.has("children") || readArray(fields.value("children"), fields.placeOf("children"), child);
}

bool DesktopLoader::readCommon(Fields& fields, int nodeIndex) {
    QList<QPair<QString, Value>> attributes;
    if (fields.has("attributes") &&
        !readAttributeTable(fields.value("attributes"), fields.placeOf("attributes"), &attributes))
        return false;
    for (const QPair<QString, Value>& attribute : attributes)
        node(nodeIndex).attributes.insert(attribute.first, attribute.second);
    const auto action = [this, nodeIndex](const QJsonValue& item, const QString& place, qsizetype) {
        return readAction(item, place, nodeIndex);
    };
    return (!fields.has("settable") ||
            readSettable(fields.value("settable"), fields.placeOf("settable"), nodeIndex)) &&
           (!fields.has("actions") ||
            readArray(fields.value("actions"), fields.placeOf("actions"), action)) &&
           (!fields.has("faults") ||
            readFaults(fields.value("faults"), fields.placeOf("faults"), &node(nodeIndex).faults)) &&
           fields.boolean("opaqueToHitTest", &node(nodeIndex).opaqueToHitTest);
}

bool DesktopLoader::readAttributeTable(const QJsonValue& value, const QString& place,
                                       QList<QPair<QString, Value>>* table) {
    QJsonObject object;
    if (!readObject(value, place, &object))
        return false;
    for (auto it = object.constBegin(); it != object.constEnd(); ++it) {
        if (it.key().isEmpty())
            return fail(place, QStringLiteral("an attribute name must not be empty"));
        Value attribute;
        if (!readValue(it.value(), placeOfKey(place, it.key()), &attribute))
            return false;
        table->append({it.key(), attribute});
    }
    return true;
}

bool DesktopLoader::readSettable(const QJsonValue& value, const QString& place, int nodeIndex) {
    const auto name = [this, nodeIndex](const QJsonValue& item, const QString& itemPlace, qsizetype) {
        QString attribute;
        if (!readString(item, itemPlace, &attribute))
            return false;
        node(nodeIndex).settable.insert(attribute);
        return true;
    };
    return readArray(value, place, name);
}

bool DesktopLoader::readAction(const QJsonValue& value, const QString& place, int nodeIndex) {
    QJsonObject object;
    if (!readObject(value, place, &object) || !checkKeys(object, place, {"name", "description", "sets"}))
        return false;
    Fields fields(*this, object, place);
    Action action;
    if (!fields.require("name") || !fields.string("name", &action.name) ||
        !fields.string("description", &action.description) ||
        (fields.has("sets") &&
         !readAttributeTable(fields.value("sets"), fields.placeOf("sets"), &action.sets)))
        return false;
    if (action.name.isEmpty())
        return fail(fields.placeOf("name"), QStringLiteral("an action name must not be empty"));
    for (const Action& earlier : node(nodeIndex).actions) {
        if (earlier.name == action.name)
            return fail(fields.placeOf("name"),
                        QStringLiteral("the action \"%1\" is given twice").arg(action.name));
    }
    node(nodeIndex).actions.append(action);
    return true;
}

bool DesktopLoader::readFaults(const QJsonValue& value, const QString& place, Faults* faults) {
    QJsonObject object;
    if (!readObject(value, place, &object) ||
        !checkKeys(object, place, {"attributes", "actions", "calls", "diesAfterCalls"}))
        return false;
    Fields fields(*this, object, place);
    qint64 calls = -1;
    if ((fields.has("attributes") &&
         !readErrorTable(fields.value("attributes"), fields.placeOf("attributes"), &faults->attributes)) ||
        (fields.has("actions") &&
         !readErrorTable(fields.value("actions"), fields.placeOf("actions"), &faults->actions)) ||
        (fields.has("calls") &&
         !readCallFaults(fields.value("calls"), fields.placeOf("calls"), &faults->calls)) ||
        !fields.integer("diesAfterCalls", 0, kLargestCount, &calls))
        return false;
    faults->callsBeforeDeath = int(calls);
    return true;
}

bool DesktopLoader::readErrorTable(const QJsonValue& value, const QString& place,
                                   QHash<QString, AXError>* table) {
    QJsonObject object;
    if (!readObject(value, place, &object))
        return false;
    for (auto it = object.constBegin(); it != object.constEnd(); ++it) {
        AXError error = kAXErrorSuccess;
        if (!readError(it.value(), placeOfKey(place, it.key()), &error))
            return false;
        table->insert(it.key(), error);
    }
    return true;
}

bool DesktopLoader::readCallFaults(const QJsonValue& value, const QString& place,
                                   QHash<int, AXError>* table) {
    QHash<QString, AXError> byName;
    if (!readErrorTable(value, place, &byName))
        return false;
    for (auto it = byName.constBegin(); it != byName.constEnd(); ++it) {
        const std::optional<PlatformCall> call = platformCallNamed(it.key());
        const bool faultable = call && std::find(std::begin(faultableCalls), std::end(faultableCalls),
                                                 *call) != std::end(faultableCalls);
        if (!faultable)
            return fail(placeOfKey(place, it.key()), QStringLiteral("not a function that asks an element"));
        table->insert(int(*call), it.value());
    }
    return true;
}

bool DesktopLoader::readBusy(const QJsonValue& value, const QString& place, Busy* busy) {
    QJsonObject object;
    if (!readObject(value, place, &object) || !checkKeys(object, place, {"delayMs", "calls"}))
        return false;
    Fields fields(*this, object, place);
    qint64 delay = 0;
    qint64 calls = -1;
    if (!fields.integer("delayMs", 0, kLongestDelayMs, &delay) ||
        !fields.integer("calls", 1, kLargestCount, &calls))
        return false;
    busy->busy = true;
    busy->delayMs = int(delay);
    busy->callsLeft = int(calls);
    return true;
}

bool DesktopLoader::readScreen(const QJsonValue& value, const QString& place) {
    QJsonObject object;
    if (!readObject(value, place, &object) ||
        !checkKeys(object, place, {"frame", "scale", "name", "physicalSize"}))
        return false;
    Fields fields(*this, object, place);
    ScreenInfo screen;
    if (!fields.require("frame") || !fields.rect("frame", &screen.frame) ||
        !fields.number("scale", &screen.scale) || !fields.string("name", &screen.name) ||
        !fields.size("physicalSize", &screen.physicalSize))
        return false;
    if (screen.scale <= 0)
        return fail(fields.placeOf("scale"), QStringLiteral("the scale must be above 0"));
    desktop.screens.append(screen);
    return true;
}

bool DesktopLoader::readZoom(const QJsonValue& value, const QString& place) {
    QJsonObject object;
    if (!readObject(value, place, &object) || !checkKeys(object, place, {"factor", "origin"}))
        return false;
    Fields fields(*this, object, place);
    if (!fields.point("origin", &desktop.zoom.origin) || !fields.number("factor", &desktop.zoom.factor))
        return false;
    return desktop.zoom.factor > 0 ||
           fail(fields.placeOf("factor"), QStringLiteral("the factor must be above 0"));
}

bool DesktopLoader::setShorthand(int nodeIndex, Fields& fields, const char* key, const QString& attribute,
                                 const Value& value) {
    QMap<QString, Value>& attributes = node(nodeIndex).attributes;
    // Given both ways, it is unclear which one was meant.
    if (attributes.contains(attribute))
        return fail(fields.placeOf(key),
                    QStringLiteral("%1 is given twice, here and in \"attributes\"").arg(attribute));
    attributes.insert(attribute, value);
    return true;
}

void DesktopLoader::setDefault(int nodeIndex, const QString& attribute, const Value& value) {
    QMap<QString, Value>& attributes = node(nodeIndex).attributes;
    if (!attributes.contains(attribute))
        attributes.insert(attribute, value);
}

bool DesktopLoader::readFrame(Fields& fields, int nodeIndex) {
    CGRect frame;
    return !fields.has("frame") ||
           (fields.rect("frame", &frame) &&
            setShorthand(nodeIndex, fields, "frame", QStringLiteral("AXPosition"),
                         pointValue(frame.origin)) &&
            setShorthand(nodeIndex, fields, "frame", QStringLiteral("AXSize"), sizeValue(frame.size)));
}

bool DesktopLoader::readTextShorthand(Fields& fields, int nodeIndex, const char* key,
                                      const QString& attribute) {
    QString text;
    return !fields.has(key) ||
           (fields.string(key, &text) && setShorthand(nodeIndex, fields, key, attribute, stringValue(text)));
}

bool DesktopLoader::resolveReferences() {
    for (Node& each : desktop.nodes) {
        const QString attributesPlace = placeOfKey(each.place, QStringLiteral("attributes"));
        for (auto it = each.attributes.begin(); it != each.attributes.end(); ++it) {
            if (!resolve(*it, placeOfKey(attributesPlace, it.key())))
                return false;
        }
        for (qsizetype i = 0; i < each.actions.size(); ++i) {
            const QString setsPlace = placeOfKey(
                placeOfIndex(placeOfKey(each.place, QStringLiteral("actions")), i), QStringLiteral("sets"));
            for (QPair<QString, Value>& set : each.actions[i].sets) {
                if (!resolve(set.second, placeOfKey(setsPlace, set.first)))
                    return false;
            }
        }
    }
    return true;
}

bool DesktopLoader::resolve(Value& value, const QString& place) {
    for (std::size_t i = 0; i < value.items.size(); ++i) {
        if (!resolve(value.items[i], placeOfIndex(place, qsizetype(i))))
            return false;
    }
    if (value.kind != Value::Kind::Element || value.reference.isEmpty())
        return true;
    const auto target = targets.constFind(value.reference);
    if (target != targets.constEnd()) {
        value = elementValue(node(*target));
        return true;
    }
    const QString kind = value.reference.section(QLatin1Char(':'), 0, 0);
    const QString name = value.reference.section(QLatin1Char(':'), 1);
    const QString problem = kind == QLatin1String("id")    ? QStringLiteral("no element has the id \"%1\"")
                            : kind == QLatin1String("app") ? QStringLiteral("no application has the pid %1")
                                                           : QStringLiteral("no window has the id %1");
    return fail(place, problem.arg(name));
}

} // namespace

bool loadDesktop(const QByteArray& json, ElementIds& ids, Desktop* desktop, FixtureProblem* problem) {
    QJsonParseError parseError;
    const QJsonDocument document = QJsonDocument::fromJson(json, &parseError);
    if (parseError.error != QJsonParseError::NoError) {
        const QByteArray before = json.left(parseError.offset);
        const qsizetype line = before.count('\n') + 1;
        const qsizetype column = parseError.offset - (before.lastIndexOf('\n') + 1) + 1;
        *problem = {QStringLiteral("line %1, column %2").arg(line).arg(column), parseError.errorString()};
        return false;
    }
    *desktop = Desktop();
    DesktopLoader loader(ids, *desktop);
    if (!document.isObject())
        loader.fail(QString(), QStringLiteral("expected an object"));
    else if (loader.load(document.object()))
        return true;
    *problem = {loader.problemPlace(), loader.problem()};
    return false;
}

} // namespace VirtualDesktopModel
