#include "elementTree.h"

#include "CFTypeSmartRef.h"
#include "osxUIElementUtils.h"

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

QStringList elementTreeLines(AXUIElementRef element, int depth) {
    const QString indent(2 * depth, QLatin1Char(' '));
    QStringList lines{indent + elementLine(element)};
    CFTypeSmartRef<CFTypeRef> children;
    if (AXUIElementCopyAttributeValue(element, CFSTR("AXChildren"), children.out()) != kAXErrorSuccess ||
        children.isNull() || CFGetTypeID(children) != CFArrayGetTypeID())
        return lines;
    const auto array = static_cast<CFArrayRef>(children.get());
    if (CFArrayGetCount(array) > 0 && depth + 1 >= elementTreeMaximumDepth) {
        lines << indent + QStringLiteral("  ... (deeper levels left out)");
        return lines;
    }
    for (CFIndex i = 0; i < CFArrayGetCount(array); ++i) {
        const auto child = static_cast<AXUIElementRef>(const_cast<void*>(CFArrayGetValueAtIndex(array, i)));
        if (child && CFGetTypeID(child) == AXUIElementGetTypeID())
            lines << elementTreeLines(child, depth + 1);
    }
    return lines;
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
