#include "elementTree.h"

#include "CFTypeSmartRef.h"
#include "osxUIElementUtils.h"

#include <QJsonArray>

QString elementLine(AXUIElementRef element) {
    const QRect frame = UIElementRect(element);
    const QString frameText = frame.isNull() ? QStringLiteral("no frame")
                                             : QStringLiteral("%1,%2 %3x%4")
                                                   .arg(frame.left())
                                                   .arg(frame.top())
                                                   .arg(frame.width())
                                                   .arg(frame.height());
    return QStringLiteral("%1 \"%2\" %3").arg(UIElementRole(element), UIElementTitle(element), frameText);
}

namespace {

// Calls visit on each child element; false when there are children but depth is the deepest level
// that may be shown.
template <class Visit> bool forEachChild(AXUIElementRef element, int depth, Visit visit) {
    CFTypeSmartRef<CFTypeRef> children;
    if (AXUIElementCopyAttributeValue(element, CFSTR("AXChildren"), children.out()) != kAXErrorSuccess ||
        children.isNull() || CFGetTypeID(children) != CFArrayGetTypeID())
        return true;
    const auto array = static_cast<CFArrayRef>(children.get());
    if (CFArrayGetCount(array) > 0 && depth + 1 >= elementTreeMaximumDepth)
        return false;
    for (CFIndex i = 0; i < CFArrayGetCount(array); ++i) {
        const auto child = static_cast<AXUIElementRef>(const_cast<void*>(CFArrayGetValueAtIndex(array, i)));
        if (child && CFGetTypeID(child) == AXUIElementGetTypeID())
            visit(child);
    }
    return true;
}

} // namespace

QStringList elementTreeLines(AXUIElementRef element, int depth) {
    const QString indent(2 * depth, QLatin1Char(' '));
    QStringList lines{indent + elementLine(element)};
    if (!forEachChild(element, depth,
                      [&](AXUIElementRef child) { lines << elementTreeLines(child, depth + 1); }))
        lines << indent + QStringLiteral("  ... (deeper levels left out)");
    return lines;
}

QJsonObject elementObject(AXUIElementRef element) {
    const QRect frame = UIElementRect(element);
    QJsonObject object{{"role", UIElementRole(element)}, {"title", UIElementTitle(element)}};
    object.insert("frame", frame.isNull() ? QJsonValue(QJsonValue::Null)
                                          : QJsonObject{{"x", frame.x()},
                                                        {"y", frame.y()},
                                                        {"width", frame.width()},
                                                        {"height", frame.height()}});
    const QString subrole = UIElementGetStringAttribute(element, CFSTR("AXSubrole"));
    if (!subrole.isEmpty())
        object.insert("subrole", subrole);
    return object;
}

QJsonObject elementTreeObject(AXUIElementRef element, int depth) {
    QJsonObject object = elementObject(element);
    QJsonArray children;
    if (!forEachChild(element, depth,
                      [&](AXUIElementRef child) { children.append(elementTreeObject(child, depth + 1)); }))
        object.insert("deeperLevelsLeftOut", true);
    if (!children.isEmpty())
        object.insert("children", children);
    return object;
}

QStringList elementAncestryLines(AXUIElementRef element) {
    QStringList lines;
    CFTypeSmartRef<CFTypeRef> current(CFRetain(element));
    for (int depth = 0; !current.isNull() && depth < elementTreeMaximumDepth; ++depth) {
        const auto node = static_cast<AXUIElementRef>(current.get());
        lines.prepend(elementLine(node));
        CFTypeSmartRef<CFTypeRef> parent;
        if (AXUIElementCopyAttributeValue(node, CFSTR("AXParent"), parent.out()) != kAXErrorSuccess ||
            parent.isNull() || CFGetTypeID(parent) != AXUIElementGetTypeID())
            break;
        current = std::move(parent);
    }
    for (qsizetype i = 0; i < lines.size(); ++i)
        lines[i].prepend(QString(2 * int(i), QLatin1Char(' ')));
    return lines;
}
