// Built-in and strict matching of one level: the attributes select the candidates among the live
// children, then the title, the place among the children of the role and the place among all
// children order the tries. No stage rejects: a candidate in the wrong place is still tried, last.

#include "UIElement_pMatching.h"

#include "ResolutionTrace.h"
#include "osxTranslationMapping.h"
#include "osxUIElementUtils.h"

using namespace UIElementMatching;

namespace {

using Descend = std::function<AXUIElementRef(AXUIElementRef)>;
using Verdict = ResolutionTrace::Verdict;
using Stage = ResolutionTrace::Stage;

void traceStage(ResolutionTrace* trace, Stage stage) {
    if (trace)
        trace->stage(stage);
}

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
    ResolutionTrace* const trace = ResolutionTrace::current();
    QList<AXUIElementRef> matches;
    for (CFIndex i = 0; i < countOf(children); ++i) {
        const AXUIElementRef child = childAt(children, i);
        const QMap<QString, QVariant> live = liveAttributes(description, child, target, compared);
        const bool matching = attributeMapsAreEquivalent(live, target, processOf(child), useTranslations);
        if (matching)
            matches.append(child);
        if (trace)
            trace->candidate(int(i), std::nullopt, live, matching ? Verdict::Matches : Verdict::Differs);
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
    ResolutionTrace* const trace = ResolutionTrace::current();
    if (trace)
        trace->matching(ResolutionTrace::Matching::BuiltIn, target);
    QSet<AXUIElementRef> exact;
    QSet<AXUIElementRef> loose;
    for (CFIndex i = 0; i < countOf(children); ++i) {
        const AXUIElementRef child = childAt(children, i);
        // The role is a hard condition: the loose pass doesn't relax it.
        const QString role = UIElementRole(child);
        if (role != m_role) {
            if (trace)
                trace->candidate(int(i), role, {}, Verdict::RoleDiffers);
            continue;
        }
        const QMap<QString, QVariant> candidate = liveAttributes(*this, child, target, interesting);
        const int pid = processOf(child);
        const bool isExact = attributeMapsAreEquivalent(candidate, target, pid, useTranslations);
        const bool isLoose = !isExact && attributeMapsAreEquivalent(removeKeys(candidate, questionable),
                                                                    looseTarget, pid, useTranslations);
        if (isExact)
            exact.insert(child);
        else if (isLoose)
            loose.insert(child);
        if (trace)
            trace->candidate(int(i), role, candidate,
                             isExact ? Verdict::Exact : (isLoose ? Verdict::Loose : Verdict::Differs));
    }
    // Loose candidates count only when no child matched exactly; the two are never mixed.
    matches = exact.isEmpty() ? loose : exact;
    if (trace)
        trace->candidatesChosen(exact.isEmpty() ? Verdict::Loose : Verdict::Exact);
}

void UIElement_p::findElementsWithStrictMatchingRoleAndAttributes(QSet<AXUIElementRef>& matches,
                                                                  CFArrayRef children,
                                                                  bool useTranslations) const {
    // AXRole and AXTitle are attributes of the strict set like any other.
    if (ResolutionTrace* const trace = ResolutionTrace::current())
        trace->matching(ResolutionTrace::Matching::Strict,
                        comparedAttributes(*this, strictMatchingUIElementAttributes()));
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
    ResolutionTrace* const trace = ResolutionTrace::current();
    // A lone candidate needs no tie-break, and what it leads to is the answer.
    if (matches.size() == 1) {
        traceStage(trace, Stage::LoneCandidate);
        return descend(*matches.cbegin());
    }

    // The first child of all with the title, when it is a candidate.
    if (rolesWhereTitleIdentifiesAnElement().contains(m_role) && !m_title.isEmpty()) {
        const AXUIElementRef hit = findElementWithLocalizedTitle(children, m_title, useTranslations);
        if (trace) {
            trace->titleStage(hit, hit && matches.contains(hit));
            trace->stage(Stage::Title);
        }
        if (hit && matches.contains(hit)) {
            if (const AXUIElementRef result = descend(hit))
                return result;
            matches.remove(hit);
        }
    }
    if (shouldAbort(abort))
        return nullptr;

    // The index stages read no flag inside; the rest stage reads it before each try.
    traceStage(trace, Stage::RoleIndex);
    const QSet<AXUIElementRef> atRoleIndex =
        matches & setOf(getElementsWithMatchingRoleIndices(children, m_role, matchingRoleChildIndexValues()));
    if (const AXUIElementRef result = tryInChildOrder(children, atRoleIndex, matches, descend, nullptr))
        return result;
    if (shouldAbort(abort))
        return nullptr;
    traceStage(trace, Stage::ChildIndex);
    const QSet<AXUIElementRef> atChildIndex =
        matches & setOf(getElementsWithIndices(children, childIndexValues()));
    if (const AXUIElementRef result = tryInChildOrder(children, atChildIndex, matches, descend, nullptr))
        return result;
    traceStage(trace, Stage::Rest);
    return tryInChildOrder(children, matches, matches, descend, abort);
}
