#pragma once

// What built-in, strict and custom matching share: the attributes that a level compares, taken
// from the description and read from each live child, and the children as borrowed handles.

#include "UIElement_p.h"

namespace UIElementMatching {

// Borrowed from the array, which may be null (no children).
CFIndex countOf(CFArrayRef children);
AXUIElementRef childAt(CFArrayRef children, CFIndex index);

QSet<AXUIElementRef> setOf(const QList<AXUIElementRef>& elements);

// A value that offers several alternatives: a QVariantList or a QStringList.
inline bool isList(const QVariant& value) {
    const int type = value.metaType().id();
    return type == QMetaType::QVariantList || type == QMetaType::QStringList;
}

// The description's attributes among compared, without the private keys: those filter on their
// own, they are never compared as attributes.
QMap<QString, QVariant> comparedAttributes(const UIElement_p& description, const QSet<QString>& compared);

// The child's values of the keys of target, among compared: nothing else is read from it. An
// attribute that cannot be read is absent.
QMap<QString, QVariant> liveAttributes(const UIElement_p& description, AXUIElementRef child,
                                       const QMap<QString, QVariant>& target, const QSet<QString>& compared);

// The process that owns the element, for its translations; 0 when it cannot be told.
int processOf(AXUIElementRef element);

// The children, in child order, whose attributes among compared are equivalent to the
// description's: one pass, no role test of its own.
QList<AXUIElementRef> childrenWithEquivalentAttributes(const UIElement_p& description, CFArrayRef children,
                                                       const QSet<QString>& compared, bool useTranslations);

} // namespace UIElementMatching
