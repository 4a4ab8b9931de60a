#include "DesktopModel.h"

namespace VirtualDesktopModel {

Value stringValue(const QString& text) {
    Value value;
    value.kind = Value::Kind::String;
    value.text = text;
    return value;
}

Value booleanValue(bool boolean) {
    Value value;
    value.kind = Value::Kind::Boolean;
    value.boolean = boolean;
    return value;
}

Value pointValue(const CGPoint& point) {
    Value value;
    value.kind = Value::Kind::Point;
    value.rect.origin = point;
    return value;
}

Value sizeValue(const CGSize& size) {
    Value value;
    value.kind = Value::Kind::Size;
    value.rect.size = size;
    return value;
}

Value elementValue(const Element& element) {
    Value value;
    value.kind = Value::Kind::Element;
    value.element = element;
    return value;
}

namespace {

bool booleanAttribute(const Node& node, const QString& name) {
    const auto it = node.attributes.constFind(name);
    return it != node.attributes.constEnd() && it->kind == Value::Kind::Boolean && it->boolean;
}

bool isOnScreen(const Node& window) {
    return !booleanAttribute(window, QStringLiteral("AXMinimized"));
}

Value arrayOf(const Desktop& desktop, const QList<int>& nodes) {
    Value array;
    array.kind = Value::Kind::Array;
    for (int node : nodes)
        array.items.push_back(elementValue(desktop.nodes[std::size_t(node)]));
    return array;
}

// The windows of a process that its accessibility tree shows, frontmost first.
QList<int> accessibleWindows(const Desktop& desktop, pid_t pid) {
    QList<int> result;
    for (const Window& window : desktop.windows) {
        if (window.accessible && desktop.nodes[std::size_t(window.node)].pid == pid)
            result.append(window.node);
    }
    return result;
}

// The frontmost window on screen of a process, which is what its focused and main window are.
int focusedWindow(const Desktop& desktop, pid_t pid) {
    for (int node : accessibleWindows(desktop, pid)) {
        if (isOnScreen(desktop.nodes[std::size_t(node)]))
            return node;
    }
    return -1;
}

Lookup found(const Value& given, Value* value) {
    *value = given;
    return Lookup::Found;
}

Lookup elementOrNoValue(const Desktop& desktop, int node, Value* value) {
    if (node < 0)
        return Lookup::NoValue;
    return found(elementValue(desktop.nodes[std::size_t(node)]), value);
}

Lookup applicationAttribute(const Desktop& desktop, const Node& node, const QString& name, Value* value) {
    const Application* application = desktop.application(node.pid);
    if (name == QLatin1String("AXChildren"))
        return found(arrayOf(desktop, application->elements + accessibleWindows(desktop, node.pid)), value);
    if (name == QLatin1String("AXWindows"))
        return found(arrayOf(desktop, accessibleWindows(desktop, node.pid)), value);
    if (name == QLatin1String("AXFocusedWindow") || name == QLatin1String("AXMainWindow"))
        return elementOrNoValue(desktop, focusedWindow(desktop, node.pid), value);
    if (name == QLatin1String("AXFocusedUIElement"))
        return Lookup::NoValue;
    return Lookup::Unsupported;
}

Lookup windowAttribute(const Desktop& desktop, int index, const Node& node, const QString& name,
                       Value* value) {
    if (name == QLatin1String("AXMain")) {
        Value main;
        main.kind = Value::Kind::Boolean;
        main.boolean = focusedWindow(desktop, node.pid) == index;
        return found(main, value);
    }
    return Lookup::Unsupported;
}

Lookup treeAttribute(const Desktop& desktop, const Node& node, const QString& name, Value* value) {
    if (name == QLatin1String("AXChildren"))
        return found(arrayOf(desktop, node.children), value);
    if (name == QLatin1String("AXParent"))
        return elementOrNoValue(desktop, node.parent, value);
    const bool inWindow = node.kind == NodeKind::Element && node.window >= 0;
    if (inWindow && (name == QLatin1String("AXWindow") || name == QLatin1String("AXTopLevelUIElement")))
        return elementOrNoValue(desktop, node.window, value);
    return Lookup::Unsupported;
}

} // namespace

const Node* Desktop::node(const Element& element) const {
    const auto it = nodeById.constFind(element.id);
    if (it == nodeById.constEnd())
        return nullptr;
    const Node& candidate = nodes[std::size_t(*it)];
    return candidate.pid == element.pid ? &candidate : nullptr;
}

const Application* Desktop::application(pid_t pid) const {
    const auto it = applicationByPid.constFind(pid);
    return it == applicationByPid.constEnd() ? nullptr : &applications[*it];
}

ElementId ElementIds::idFor(const QString& key) {
    auto it = ids.find(key);
    if (it == ids.end())
        it = ids.insert(key, ElementId(ids.size()) + 1);
    return *it;
}

Value elementValue(const Node& node) {
    return elementValue(Element{node.id, node.pid});
}

Lookup attributeValue(const Desktop& desktop, int index, const QString& name, Value* value) {
    const Node& node = desktop.nodes[std::size_t(index)];
    const auto given = node.attributes.constFind(name);
    if (given != node.attributes.constEnd())
        return found(*given, value);
    switch (node.kind) {
    case NodeKind::Application:
        return applicationAttribute(desktop, node, name, value);
    case NodeKind::Window: {
        const Lookup lookup = windowAttribute(desktop, index, node, name, value);
        return lookup != Lookup::Unsupported ? lookup : treeAttribute(desktop, node, name, value);
    }
    case NodeKind::Element:
        break;
    }
    return treeAttribute(desktop, node, name, value);
}

QStringList attributeNames(const Desktop& desktop, int index) {
    const Node& node = desktop.nodes[std::size_t(index)];
    QStringList names = node.attributes.keys();
    switch (node.kind) {
    case NodeKind::Application:
        names << QStringLiteral("AXChildren") << QStringLiteral("AXWindows")
              << QStringLiteral("AXFocusedWindow") << QStringLiteral("AXMainWindow")
              << QStringLiteral("AXFocusedUIElement");
        break;
    case NodeKind::Window:
        names << QStringLiteral("AXChildren") << QStringLiteral("AXParent") << QStringLiteral("AXMain");
        break;
    case NodeKind::Element:
        names << QStringLiteral("AXChildren") << QStringLiteral("AXParent");
        if (node.window >= 0)
            names << QStringLiteral("AXWindow") << QStringLiteral("AXTopLevelUIElement");
        break;
    }
    names.removeDuplicates();
    names.sort();
    return names;
}

Lookup systemWideAttributeValue(const Desktop& desktop, const QString& name, Value* value) {
    if (name == QLatin1String("AXRole")) {
        Value role;
        role.kind = Value::Kind::String;
        role.text = QStringLiteral("AXSystemWide");
        return found(role, value);
    }
    if (name != QLatin1String("AXFocusedApplication") && name != QLatin1String("AXFocusedUIElement"))
        return Lookup::Unsupported;
    for (const Application& application : desktop.applications) {
        if (!booleanAttribute(desktop.nodes[std::size_t(application.node)], QStringLiteral("AXFrontmost")))
            continue;
        if (name == QLatin1String("AXFocusedApplication"))
            return elementOrNoValue(desktop, application.node, value);
        return attributeValue(desktop, application.node, name, value);
    }
    return Lookup::NoValue;
}

QStringList systemWideAttributeNames() {
    return {QStringLiteral("AXFocusedApplication"), QStringLiteral("AXFocusedUIElement"),
            QStringLiteral("AXRole")};
}

bool frameOf(const Node& node, CGRect* frame) {
    const auto position = node.attributes.constFind(QStringLiteral("AXPosition"));
    const auto size = node.attributes.constFind(QStringLiteral("AXSize"));
    if (position == node.attributes.constEnd() || size == node.attributes.constEnd() ||
        position->kind != Value::Kind::Point || size->kind != Value::Kind::Size)
        return false;
    *frame = CGRect{position->rect.origin, size->rect.size};
    return true;
}

bool contains(const CGRect& rect, const CGPoint& point) {
    return point.x >= rect.origin.x && point.x < rect.origin.x + rect.size.width &&
           point.y >= rect.origin.y && point.y < rect.origin.y + rect.size.height;
}

int windowAt(const Desktop& desktop, const CGPoint& point, pid_t pid) {
    for (int i = 0; i < desktop.windows.size(); ++i) {
        const Node& node = desktop.nodes[std::size_t(desktop.windows[i].node)];
        CGRect frame;
        if ((pid == 0 || node.pid == pid) && isOnScreen(node) && frameOf(node, &frame) &&
            contains(frame, point))
            return i;
    }
    return -1;
}

namespace {

// The child at the point, frontmost first. A child without a frame does not cover anything
// itself, but its children may.
int childAt(const Desktop& desktop, const Node& parent, const CGPoint& point) {
    for (auto it = parent.children.crbegin(); it != parent.children.crend(); ++it) {
        const Node& child = desktop.nodes[std::size_t(*it)];
        CGRect frame;
        if (frameOf(child, &frame)) {
            if (contains(frame, point))
                return *it;
        } else if (const int inside = childAt(desktop, child, point); inside >= 0) {
            return inside;
        }
    }
    return -1;
}

} // namespace

int deepestElementAt(const Desktop& desktop, int windowNode, const CGPoint& point) {
    int current = windowNode;
    while (!desktop.nodes[std::size_t(current)].opaqueToHitTest) {
        const int child = childAt(desktop, desktop.nodes[std::size_t(current)], point);
        if (child < 0)
            break;
        current = child;
    }
    return current;
}

QList<WindowInfo> windowInfos(const Desktop& desktop) {
    QList<WindowInfo> result;
    for (const Window& window : desktop.windows) {
        const Node& node = desktop.nodes[std::size_t(window.node)];
        WindowInfo info;
        info.id = window.id;
        info.owner = node.pid;
        const auto title = node.attributes.constFind(QStringLiteral("AXTitle"));
        if (title != node.attributes.constEnd() && title->kind == Value::Kind::String)
            info.title = title->text;
        frameOf(node, &info.frame);
        info.onScreen = isOnScreen(node);
        result.append(info);
    }
    return result;
}

QList<ApplicationInfo> applicationInfos(const Desktop& desktop) {
    QList<ApplicationInfo> result;
    for (const Application& application : desktop.applications) {
        const Node& node = desktop.nodes[std::size_t(application.node)];
        ApplicationInfo info;
        info.pid = node.pid;
        info.bundleIdentifier = application.bundleIdentifier;
        info.name = application.name;
        info.executablePath = application.executablePath;
        info.active = booleanAttribute(node, QStringLiteral("AXFrontmost"));
        info.regular = application.regular;
        result.append(info);
    }
    return result;
}

void raiseWindow(Desktop& desktop, int windowNode) {
    for (int i = 0; i < desktop.windows.size(); ++i) {
        if (desktop.windows[i].node == windowNode) {
            desktop.windows.move(i, 0);
            return;
        }
    }
}

} // namespace VirtualDesktopModel
