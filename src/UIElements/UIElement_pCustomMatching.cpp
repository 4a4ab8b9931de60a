// Custom matching of one level: only what the user made defining counts. The defining attributes
// select the candidates, then each defining private key filters them; everything is a hard filter
// and the candidates keep their child order.

#include "UIElement_pMatching.h"

#include "ResolutionTrace.h"
#include "osxUIElementUtils.h"

#include <algorithm>

using namespace UIElementMatching;

namespace {

using Test = std::function<bool(AXUIElementRef)>;

// What a private key accepts: a list in attributes offers each of its values, a single value there
// wins over the property, and without an entry the property alone counts.
template <class T>
QSet<T> acceptedValues(const QMap<QString, QVariant>& attributes, const QString& key, const T& property,
                       T (*convert)(const QVariant&)) {
    const auto entry = attributes.constFind(key);
    if (entry == attributes.cend())
        return {property};
    if (isList(*entry))
        return mapListToSet<T>(entry->toList(), convert);
    return {convert(*entry)};
}

// A text that is no number gives 0, which then means the first child.
int toInt(const QVariant& value) {
    return value.toInt();
}

QRect toRect(const QVariant& value) {
    return value.toRect();
}

Test isAmong(const QList<AXUIElementRef>& elements) {
    return [accepted = setOf(elements)](AXUIElementRef element) { return accepted.contains(element); };
}

// Relative to the parent's position, so that the parent may move on screen. A live element
// without a frame reads as the null rect and is moved like any other; no tolerance.
Test hasLocalRectAmong(const QSet<QRect>& accepted, QPoint origin) {
    return [accepted, origin](AXUIElementRef element) {
        return accepted.contains(UIElementRect(element).translated(-origin));
    };
}

// A defining private key and the test that it turns on, made only when the key is defining.
struct KeyFilter {
    QString key;
    std::function<Test()> make;
};

// The values a filter accepts, as the trace shows them: sorted, one value alone.
template <class T> QVariant acceptedValue(const QSet<T>& values) {
    QList<T> sorted(values.cbegin(), values.cend());
    if constexpr (std::is_same_v<T, int>)
        std::sort(sorted.begin(), sorted.end());
    if (sorted.size() == 1)
        return QVariant::fromValue(sorted.first());
    QVariantList list;
    for (const T& value : std::as_const(sorted))
        list.append(QVariant::fromValue(value));
    return list;
}

QVariant acceptedValuesOf(const UIElement_p& level, const QString& key) {
    if (key == QLatin1String("childIndex"))
        return acceptedValue(level.childIndexValues());
    if (key == QLatin1String("matchingRoleChildIndex"))
        return acceptedValue(level.matchingRoleChildIndexValues());
    if (key == QLatin1String("localRect"))
        return acceptedValue(level.localRectValues());
    // childCount: the property alone.
    return level.childCount();
}

} // namespace

QSet<int> UIElement_p::childIndexValues() const {
    return acceptedValues<int>(m_attributes, QStringLiteral("childIndex"), childIndex(), toInt);
}

QSet<int> UIElement_p::matchingRoleChildIndexValues() const {
    return acceptedValues<int>(m_attributes, QStringLiteral("matchingRoleChildIndex"),
                               matchingRoleChildIndex(), toInt);
}

QSet<QRect> UIElement_p::localRectValues() const {
    return acceptedValues<QRect>(m_attributes, QStringLiteral("localRect"), localRect(), toRect);
}

void UIElement_p::findElementsWithCustomMatchingAttributes(QList<AXUIElementRef>& matches,
                                                           CFArrayRef children, bool useTranslations) const {
    // AXRole counts only when it is defining; a defining key that attributes lack isn't compared.
    const QSet<QString> defining(definingAttributes().cbegin(), definingAttributes().cend());
    if (ResolutionTrace* const trace = ResolutionTrace::current())
        trace->matching(ResolutionTrace::Matching::Custom, comparedAttributes(*this, defining));
    matches = childrenWithEquivalentAttributes(*this, children, defining, useTranslations);
}

AXUIElementRef
UIElement_p::selectMatchesUsingCustomMatching(const std::function<AXUIElementRef(AXUIElementRef)>& descend,
                                              CFArrayRef children, AXUIElementRef parent,
                                              QFlags<UIElementSearchOption> options, bool* abort) const {
    QList<AXUIElementRef> matches;
    findElementsWithCustomMatchingAttributes(matches, children,
                                             options.testFlag(UIElementSearchMatchTranslations));
    if (matches.isEmpty() || shouldAbort(abort))
        return nullptr;

    // In this order, each over the whole list, also when one element is left.
    const KeyFilter filters[] = {
        {QStringLiteral("childIndex"),
         [&] { return isAmong(getElementsWithIndices(children, childIndexValues())); }},
        {QStringLiteral("matchingRoleChildIndex"),
         [&] {
             // By the level's role, whether AXRole is defining or not.
             return isAmong(
                 getElementsWithMatchingRoleIndices(children, m_role, matchingRoleChildIndexValues()));
         }},
        {QStringLiteral("childCount"),
         [&] {
             // The property alone: an entry in attributes reaches it through editing.
             const long wanted = childCount();
             return Test(
                 [wanted](AXUIElementRef element) { return UIElementChildrenCount(element) == wanted; });
         }},
        {QStringLiteral("localRect"),
         [&] {
             return hasLocalRectAmong(localRectValues(), parent ? UIElementPosition(parent) : QPoint(0, 0));
         }},
    };
    ResolutionTrace* const trace = ResolutionTrace::current();
    for (const KeyFilter& filter : filters) {
        if (definingAttributes().contains(filter.key)) {
            QList<AXUIElementRef> passed = filterElements(matches, filter.make());
            if (trace)
                trace->filtered(filter.key, acceptedValuesOf(*this, filter.key), matches, passed);
            matches = std::move(passed);
        }
        if (shouldAbort(abort))
            return nullptr;
    }

    // No flag inside: the first candidate that leads to a complete match wins.
    if (trace)
        trace->stage(ResolutionTrace::Stage::ChildOrder);
    for (const AXUIElementRef element : std::as_const(matches)) {
        if (const AXUIElementRef result = descend(element))
            return result;
    }
    return nullptr;
}
