// Built-in and strict matching of one level: the attributes select the candidates among the live
// children, then the title, the place among the children of the role and the place among all
// children order the tries. No stage rejects: a candidate in the wrong place is still tried, last.

#include "UIElement_pMatching.h"

#include "osxTranslationMapping.h"
#include "osxUIElementUtils.h"

using namespace UIElementMatching;

namespace {

using Descend = std::function<AXUIElementRef(AXUIElementRef)>;

// Tries the candidates in child order, each once, and takes each that leads nowhere out of
// matches. Where abort is given, the flag is read before each try.
AXUIElementRef tryInChildOrder(CFArrayRef children, QSet<AXUIElementRef> candidates,
                               QSet<AXUIElementRef>& matches, const Descend& descend, const bool* abort) {
    for (CFIndex i = 0; i < countOf(children) && !candidates.isEmpty(); ++i) {
        const AXUIElementRef child = childAt(children, i);
        if (!candidates.remove(child))
            continue;
        if (shouldAbort(abort))
            return nullptr;
        if (const AXUIElementRef result = descend(child))
            return result;
        matches.remove(child);
    }
    return nullptr;
}

} // namespace

namespace UIElementMatching {

CFIndex countOf(CFArrayRef children) {
    return children ? CFArrayGetCount(children) : 0;
}

AXUIElementRef childAt(CFArrayRef children, CFIndex index) {
    return static_cast<AXUIElementRef>(const_cast<void*>(CFArrayGetValueAtIndex(children, index)));
}

QSet<AXUIElementRef> setOf(const QList<AXUIElementRef>& elements) {
    return QSet<AXUIElementRef>(elements.cbegin(), elements.cend());
}

QMap<QString, QVariant> comparedAttributes(const UIElement_p& description, const QSet<QString>& compared) {
    return removeKeys(removeOtherKeys(description.attributes(), compared), nonAccessibilityAttributes());
}

QMap<QString, QVariant> liveAttributes(const UIElement_p& description, AXUIElementRef child,
                                       const QMap<QString, QVariant>& target, const QSet<QString>& compared) {
    QMap<QString, QVariant> candidate;
    description.populateAttributeMap(candidate, child, target.keys());
    return removeOtherKeys(candidate, compared);
}

int processOf(AXUIElementRef element) {
    pid_t pid = 0;
    AXUIElementGetPid(element, &pid);
    return pid;
}

QList<AXUIElementRef> childrenWithEquivalentAttributes(const UIElement_p& description, CFArrayRef children,
                                                       const QSet<QString>& compared, bool useTranslations) {
    const QMap<QString, QVariant> target = comparedAttributes(description, compared);
    QList<AXUIElementRef> matches;
    for (CFIndex i = 0; i < countOf(children); ++i) {
        const AXUIElementRef child = childAt(children, i);
        if (attributeMapsAreEquivalent(liveAttributes(description, child, target, compared), target,
                                       processOf(child), useTranslations))
            matches.append(child);
    }
    return matches;
}

} // namespace UIElementMatching

QList<AXUIElementRef> getElementsWithIndices(CFArrayRef children, QSet<int> indices) {
    QList<AXUIElementRef> elements;
    const CFIndex count = countOf(children);
    for (const int index : indices) {
        if (index >= 0 && index < count)
            elements.append(childAt(children, index));
    }
    return elements;
}

QList<AXUIElementRef> getElementsWithMatchingRoleIndices(CFArrayRef children, const QString& role,
                                                         QSet<int> indices) {
    QList<AXUIElementRef> elements;
    if (indices.isEmpty())
        return elements;
    // Counts the children of the role only, as the matching role child index does at capture.
    int roleIndex = 0;
    for (CFIndex i = 0; i < countOf(children); ++i) {
        const AXUIElementRef child = childAt(children, i);
        if (UIElementRole(child) != role)
            continue;
        if (indices.contains(roleIndex))
            elements.append(child);
        if (elements.size() == indices.size())
            break;
        ++roleIndex;
    }
    return elements;
}

QList<AXUIElementRef> filterElements(const QList<AXUIElementRef>& elements,
                                     const std::function<bool(AXUIElementRef)>& test) {
    QList<AXUIElementRef> passed;
    for (const AXUIElementRef element : elements) {
        if (test(element))
            passed.append(element);
    }
    return passed;
}

bool UIElement_p::osxElementIsMatchForThis(AXUIElementRef element) const {
    return UIElementRole(element) == m_role && UIElementTitle(element) == m_title;
}

void UIElement_p::findElementsWithMatchingRoleAndAttributes(QSet<AXUIElementRef>& matches,
                                                            CFArrayRef children, bool useTranslations) const {
    matches.clear();
    const QSet<QString>& interesting = interestingUIElementAttributes();
    const QSet<QString>& questionable = questionableUIElementAttributes();
    const QMap<QString, QVariant> target = comparedAttributes(*this, interesting);
    const QMap<QString, QVariant> looseTarget = removeKeys(target, questionable);
    QSet<AXUIElementRef> exact;
    QSet<AXUIElementRef> loose;
    for (CFIndex i = 0; i < countOf(children); ++i) {
        const AXUIElementRef child = childAt(children, i);
        // The role is a hard condition: the loose pass doesn't relax it.
        if (UIElementRole(child) != m_role)
            continue;
        const QMap<QString, QVariant> candidate = liveAttributes(*this, child, target, interesting);
        const int pid = processOf(child);
        if (attributeMapsAreEquivalent(candidate, target, pid, useTranslations))
            exact.insert(child);
        else if (attributeMapsAreEquivalent(removeKeys(candidate, questionable), looseTarget, pid,
                                            useTranslations))
            loose.insert(child);
    }
    // Loose candidates count only when no child matched exactly; the two are never mixed.
    matches = exact.isEmpty() ? loose : exact;
}

void UIElement_p::findElementsWithStrictMatchingRoleAndAttributes(QSet<AXUIElementRef>& matches,
                                                                  CFArrayRef children,
                                                                  bool useTranslations) const {
    // AXRole and AXTitle are attributes of the strict set like any other.
    matches = setOf(childrenWithEquivalentAttributes(*this, children, strictMatchingUIElementAttributes(),
                                                     useTranslations));
}

AXUIElementRef
UIElement_p::selectMatchesUsingBuiltInMatching(const std::function<AXUIElementRef(AXUIElementRef)>& descend,
                                               CFArrayRef children, QFlags<UIElementSearchOption> options,
                                               bool* abort) const {
    const bool useTranslations = options.testFlag(UIElementSearchMatchTranslations);
    QSet<AXUIElementRef> matches;
    if (matchingMethod() == StrictMatching)
        findElementsWithStrictMatchingRoleAndAttributes(matches, children, useTranslations);
    else
        findElementsWithMatchingRoleAndAttributes(matches, children, useTranslations);
    if (matches.isEmpty() || shouldAbort(abort))
        return nullptr;
    // A lone candidate needs no tie-break, and what it leads to is the answer.
    if (matches.size() == 1)
        return descend(*matches.cbegin());

    // The first child of all with the title, when it is a candidate.
    if (rolesWhereTitleIdentifiesAnElement().contains(m_role) && !m_title.isEmpty()) {
        const AXUIElementRef hit = findElementWithLocalizedTitle(children, m_title, useTranslations);
        if (hit && matches.contains(hit)) {
            if (const AXUIElementRef result = descend(hit))
                return result;
            matches.remove(hit);
        }
    }
    if (shouldAbort(abort))
        return nullptr;

    // The index stages read no flag inside; the rest stage reads it before each try.
    const QSet<AXUIElementRef> atRoleIndex =
        matches & setOf(getElementsWithMatchingRoleIndices(children, m_role, matchingRoleChildIndexValues()));
    if (const AXUIElementRef result = tryInChildOrder(children, atRoleIndex, matches, descend, nullptr))
        return result;
    if (shouldAbort(abort))
        return nullptr;
    const QSet<AXUIElementRef> atChildIndex =
        matches & setOf(getElementsWithIndices(children, childIndexValues()));
    if (const AXUIElementRef result = tryInChildOrder(children, atChildIndex, matches, descend, nullptr))
        return result;
    return tryInChildOrder(children, matches, matches, descend, abort);
}
