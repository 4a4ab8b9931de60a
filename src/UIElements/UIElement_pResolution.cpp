// Resolution: from a saved chain back to the live element. The walk starts at the applications
// that the top of the chain names and goes down one level of the chain at a time, selecting at
// each level the children of the current live element that match it, and backtracks into the
// next candidate when one leads nowhere below. A degenerate chain, which does not reach its
// application, is searched from the topmost ancestor of the element under the hint position.

#include "UIElement_pMatching.h"

#include "ResolutionTrace.h"
#include "applications.h"
#include "generalUtilities.h"
#include "osxProcesses.h"
#include "osxRunningApplications.h"
#include "osxUIElementUtils.h"

namespace {

using ElementRef = CFTypeSmartRef<AXUIElementRef>;
using ArrayRef = CFTypeSmartRef<CFArrayRef>;

// A failed resolution says only whether it was stopped.
int codeOfFailure(bool* abort) {
    return shouldAbort(abort) ? UIElementSearchAborted : UIElementNotFound;
}

// Takes over the reference that a resolution gave: its frame into rect, or the failure's code.
int frameOfResolved(AXUIElementRef resolved, QRect& rect, bool* abort) {
    const ElementRef element(resolved);
    if (!element)
        return codeOfFailure(abort);
    rect = UIElementRect(element);
    return UIElementFound;
}

// The value of a private key: the list in attributes when a user edited one in, else the field.
QStringList valuesOf(const QMap<QString, QVariant>& attributes, const QString& key, const QString& field) {
    return attributes.contains(key) ? attributes.value(key).toStringList() : QStringList{field};
}

// A descent into child, told to the trace when there is one.
template <class Descend> AXUIElementRef traced(AXUIElementRef child, const Descend& descend) {
    ResolutionTrace* const trace = ResolutionTrace::current();
    if (!trace)
        return descend();
    trace->beginDescent(child);
    const AXUIElementRef result = descend();
    trace->endDescent(result != nullptr);
    return result;
}

// The applications chosen for the top of a chain, and by what.
void traceApplications(ResolutionTrace& trace, bool byBundleId, bool byProcessName,
                       const QStringList& bundleIds, const QStringList& processNames,
                       const QList<int>& pids) {
    using Choice = ResolutionTrace::Choice;
    if (byBundleId)
        trace.applicationsChosen(Choice::BundleId, bundleIds, pids);
    else if (byProcessName)
        trace.applicationsChosen(Choice::ProcessName, processNames, pids);
    else
        trace.applicationsChosen(Choice::AnyApplication, {}, pids);
}

} // namespace

AXUIElementRef UIElement_p::createOSSpecificUIElementRepresentation(QVariant alternative,
                                                                    QFlags<UIElementSearchOption> options,
                                                                    bool* abort) const {
    // The walk's reads of one level feed the next: the platform may fetch them together.
    const AXReadBatch batch;
    QList<const UIElement_p*> list;
    topDownElementList(list);
    ResolutionTrace* const trace = ResolutionTrace::current();
    if (trace)
        trace->beginWalk(this, list);
    const UIElement_p* top = list.takeFirst();
    ElementRef result(top->findOSXElementForThis(nullptr, list, 0, alternative, options, abort));
    if (trace)
        trace->endWalk(!result.isNull());
    // A target type means the nearest ancestor of that type, the element itself included.
    if (result && !targetType().isEmpty()) {
        result.reset(copyAncestorElementOfType(result, targetType()));
        if (trace && !result)
            trace->targetTypeMissing(targetType());
    }
    return result.take();
}

AXUIElementRef UIElement_p::createOSSpecificUIElementRepresentation(QFlags<UIElementSearchOption> options,
                                                                    bool* abort) const {
    return createOSSpecificUIElementRepresentation(QVariant(), options, abort);
}

AXUIElementRef UIElement_p::createOSSpecificUIElementRepresentationAtHierarchyLevel(
    int level, QVariant alternative, QFlags<UIElementSearchOption> options, bool* abort) const {
    // A level before the top names nothing.
    if (level < 0)
        return nullptr;
    QList<const UIElement_p*> list;
    topDownElementList(list);
    if (level + 1 < list.size())
        list = list.mid(0, level + 1);
    const AXReadBatch batch;
    ResolutionTrace* const trace = ResolutionTrace::current();
    if (trace)
        trace->beginWalk(this, list);
    const UIElement_p* top = list.takeFirst();
    const AXUIElementRef result = top->findOSXElementForThis(nullptr, list, 0, alternative, options, abort);
    if (trace)
        trace->endWalk(result != nullptr);
    return result;
}

bool UIElement_p::canCreateOSSpecificUIElementRepresentation(QFlags<UIElementSearchOption> options) const {
    return !ElementRef(createOSSpecificUIElementRepresentation(QVariant(), options, nullptr)).isNull();
}

int UIElement_p::findUIElementAndGetInteractionPoint(QPoint& point, bool requireHit, QVariant alternative,
                                                     QFlags<UIElementSearchOption> options,
                                                     bool* abort) const {
    const ElementRef element(createOSSpecificUIElementRepresentation(alternative, options, abort));
    if (!element)
        return codeOfFailure(abort);
    const QRect rect = UIElementRect(element);
    if (rect.width() == 0 || rect.height() == 0)
        return UIElementNotReachable;
    if (requireHit) {
        // Something else may cover the element: what lies at its centre must be of its window.
        const QPoint centre((rect.left() + rect.right()) / 2, (rect.top() + rect.bottom()) / 2);
        const ElementRef hit(copyUIElementAtPositionEmployingSearchIfNecessary(centre, nullptr));
        if (!hit)
            return pointIsOffScreen(centre) ? UIElementNotReachable : UIElementNotVerified;
        const int sameWindow = UIElementsHaveSameWindow(element, hit);
        if (sameWindow == 0 || (sameWindow == 2 && !UIElementsAreFromSameApplication(element, hit)))
            return UIElementNotReachable;
    }
    // The saved offset inside the element, wherever the element now is.
    point = rect.topLeft() + localInteractionPoint();
    return UIElementFound;
}

int UIElement_p::findUIElementAndGetScreenRect(QRect& rect, QVariant alternative,
                                               QFlags<UIElementSearchOption> options, bool* abort) const {
    return frameOfResolved(createOSSpecificUIElementRepresentation(alternative, options, abort), rect, abort);
}

int UIElement_p::findUIElementAtHierarchyLevelAndGetScreenRect(QRect& rect, int level, QVariant alternative,
                                                               QFlags<UIElementSearchOption> options,
                                                               bool* abort) const {
    return frameOfResolved(
        createOSSpecificUIElementRepresentationAtHierarchyLevel(level, alternative, options, abort), rect,
        abort);
}

int UIElement_p::findUIElementAndCreateOSSpecificRepresentation(NativeUIElement& element,
                                                                QVariant alternative,
                                                                QFlags<UIElementSearchOption> options,
                                                                bool* abort) const {
    AXUIElementRef found = createOSSpecificUIElementRepresentation(alternative, options, abort);
    if (!found)
        return codeOfFailure(abort);
    // The handle takes over the reference.
    element.setOSSpecificElementReference(const_cast<void*>(static_cast<const void*>(found)));
    return UIElementFound;
}

void UIElement_p::raiseElement(int mode, QFlags<UIElementSearchOption> options) const {
    const ElementRef element(createOSSpecificUIElementRepresentation(QVariant(), options, nullptr));
    if (!element)
        return;
    bool raised = false;
    if (mode < 2) {
        const ElementRef window(copyUIElementWindowRobustly(element));
        if (window) {
            AXUIElementPerformAction(window, CFSTR("AXRaise"));
            raised = true;
        }
    }
    if (mode > 1 || !raised)
        makeElementApplicationFrontmost(element);
}

bool UIElement_p::resolvesToSameOSSpecificElement(const UIElement_p* other,
                                                  QFlags<UIElementSearchOption> options) const {
    if (!other)
        return false;
    const ElementRef mine(createOSSpecificUIElementRepresentation(QVariant(), options, nullptr));
    const ElementRef theirs(other->createOSSpecificUIElementRepresentation(QVariant(), options, nullptr));
    return mine && theirs && CFEqual(mine, theirs);
}

bool UIElement_p::validate(QString& error, QFlags<UIElementSearchOption> options) const {
    if (isNull())
        return true;
    if (canCreateOSSpecificUIElementRepresentation(options))
        return true;
    error = tr("This UI element is degenerate and cannot be found by searching the application's UI element "
               "hierarchy. In order for actions to be performed on it, there must be a previous action that "
               "clicks or move the mouse cursor over the portion of the screen occupied by this UI element.");
    return false;
}

bool UIElement_p::isElementMatching(AXUIElementRef element, QFlags<UIElementSearchOption> options) const {
    if (!element)
        return false;
    if (!isTopLevelElement(element)) {
        // The walk's own matching, application rules included, over the element alone.
        const ElementRef parent(copyUIElementParent(element));
        const void* values[] = {element};
        const ArrayRef alone(CFArrayCreate(kCFAllocatorDefault, values, 1, &kCFTypeArrayCallBacks));
        const ElementRef matched(selectMatches(retained<AXUIElementRef>, alone, parent, options, nullptr));
        return !matched.isNull();
    }
    return !m_parentElement && m_role == kQAXApplicationRole && m_bundleId == UIElementBundleId(element);
}

bool UIElement_p::doesElementMatchHierarchy(AXUIElementRef element,
                                            QFlags<UIElementSearchOption> options) const {
    if (!isElementMatching(element, options))
        return false;
    const ElementRef parent(copyUIElementParent(element));
    // The live chain and the description must end together.
    if (m_parentElement)
        return m_parentElement->doesElementMatchHierarchy(parent, options);
    return parent.isNull();
}

bool UIElement_p::matchingElementUnderElement(NativeUIElement& result, int& levelsUp,
                                              const NativeUIElement& start,
                                              QFlags<UIElementSearchOption> options) const {
    NativeUIElement current = start;
    bool applicationChecked = false;
    for (int count = 0; !current.isNull(); ++count) {
        const ElementRef element(static_cast<AXUIElementRef>(current.copyOSSpecificElementReference()));
        if (element) {
            if (!applicationChecked) {
                applicationChecked = true;
                if (UIElementBundleId(element) != m_bundleId)
                    return false;
            }
            if (doesElementMatchHierarchy(element, options)) {
                result = current;
                levelsUp = count;
                return true;
            }
        }
        current = current.parentElement();
    }
    return false;
}

AXUIElementRef UIElement_p::findOSXElementForThis(AXUIElementRef parent,
                                                  const QList<const UIElement_p*>& list, int level,
                                                  QVariant alternative, QFlags<UIElementSearchOption> options,
                                                  bool* abort) const {
    if (shouldAbort(abort))
        return nullptr;
    if (parent)
        return findOSXElementForThisInParentsChildren(parent, list, level, options, abort);
    // At the top no matching is done: an application is accepted for being chosen.
    const ArrayRef applications(createTopLevelApplicationOSXElementsForThis());
    ResolutionTrace* const trace = ResolutionTrace::current();
    if (trace)
        trace->stage(ResolutionTrace::Stage::Application);
    for (CFIndex i = 0; i < UIElementMatching::countOf(applications); ++i) {
        const AXUIElementRef application = UIElementMatching::childAt(applications, i);
        if (AXUIElementRef result = traced(application, [&] {
                return findOSXElementForNextChild(application, list, level, options, abort);
            }))
            return result;
    }
    if (!alternative.metaType().isValid()) {
        if (trace)
            trace->hintPosition(std::nullopt);
        return nullptr;
    }
    if (trace)
        trace->hintPosition(alternative.toPoint());
    return findOSXElementForThisUsingAltTopLevelElement(list, level, alternative.toPoint(), options, abort);
}

CFArrayRef UIElement_p::createTopLevelApplicationOSXElementsForThis() const {
    ResolutionTrace* const trace = ResolutionTrace::current();
    // The top of a degenerate chain names no application.
    if (m_role != kQAXApplicationRole) {
        if (trace)
            trace->applicationsChosen(ResolutionTrace::Choice::NotAnApplication, {}, {});
        return nullptr;
    }
    const QStringList bundleIds = valuesOf(m_attributes, QStringLiteral("bundleId"), m_bundleId);
    const QStringList processNames = valuesOf(m_attributes, QStringLiteral("processName"), processName());
    const bool byBundleId = definingAttributes().contains(QStringLiteral("bundleId"));
    const bool byProcessName = definingAttributes().contains(QStringLiteral("processName"));
    QList<int> pids;
    if (!byBundleId && !byProcessName) {
        // Any application.
        pids = allRunningGUIApplicationsPids();
    } else if (!byBundleId) {
        for (const QString& name : processNames) {
            QList<int> found;
            getAllPIDsForProcessNameRunByCurrentUser(found, name.toLocal8Bit().constData());
            pids += found;
        }
    } else {
        for (const QString& bundleId : bundleIds)
            pids += applicationPidsForBundleId(bundleId);
        if (pids.isEmpty() && bundleIdIsProTools(m_bundleId)) {
            // Each edition of Pro Tools has an identifier of its own.
            for (const char* edition :
                 {"com.avid.ProTools", "com.avid.ProToolsFirst", "com.avid.ProToolsUltimate"}) {
                const int pid = applicationPidForBundleId(QString::fromLatin1(edition));
                if (pid != 0) {
                    pids.append(pid);
                    break;
                }
            }
        }
    }
    if (trace)
        traceApplications(*trace, byBundleId, byProcessName, bundleIds, processNames, pids);
    CFMutableArrayRef applications = CFArrayCreateMutable(kCFAllocatorDefault, 0, &kCFTypeArrayCallBacks);
    for (int pid : pids) {
        const ElementRef application(AXUIElementCreateApplication(pid));
        if (!application)
            continue;
        CFArrayAppendValue(applications, application.get());
        if (trace)
            trace->applicationMade(pid);
    }
    return applications;
}

AXUIElementRef UIElement_p::findOSXElementForThisUsingAltTopLevelElement(
    const QList<const UIElement_p*>& list, int level, QPoint position, QFlags<UIElementSearchOption> options,
    bool* abort) const {
    // Around the hint position, which may lie just off the element: an earlier click near it.
    static const QPoint offsets[] = {{0, 0}, {0, 24}, {0, 64}, {0, -24}, {24, 0}, {-24, 0}};
    using HintOutcome = ResolutionTrace::HintOutcome;
    const bool proTools = bundleIdIsProTools(m_bundleId);
    ResolutionTrace* const trace = ResolutionTrace::current();
    for (const QPoint& offset : offsets) {
        const ElementRef hit(copyUIElementAtPosition(position + offset, nullptr));
        if (!hit) {
            if (trace)
                trace->hintOffsetTried(offset, HintOutcome::NothingThere);
            continue;
        }
        const ElementRef ancestor(copyFarthestVerifiableAncestor(hit, proTools));
        // An element rooted in its application is no alternative top: the regular walk had its
        // chance there.
        if (!ancestor || isTopLevelElement(ancestor)) {
            if (trace)
                trace->hintOffsetTried(offset, ancestor ? HintOutcome::RootedInApplication
                                                        : HintOutcome::NoVerifiableAncestor);
            continue;
        }
        if (trace)
            trace->hintOffsetTried(offset, HintOutcome::Searched);
        if (AXUIElementRef result = traced(
                ancestor, [&] { return findOSXElementForNextChild(ancestor, list, level, options, abort); }))
            return result;
        if (shouldAbort(abort))
            return nullptr;
    }
    return nullptr;
}

AXUIElementRef UIElement_p::findOSXElementForNextChild(AXUIElementRef parent,
                                                       const QList<const UIElement_p*>& list, int level,
                                                       QFlags<UIElementSearchOption> options,
                                                       bool* abort) const {
    if (!parent || shouldAbort(abort))
        return nullptr;
    // The chain is used up: the only place where the walk succeeds.
    if (list.isEmpty())
        return retained(parent);
    QList<const UIElement_p*> rest = list;
    const UIElement_p* next = rest.takeFirst();
    if (shouldAbort(abort))
        return nullptr;
    return next->findOSXElementForThisInParentsChildren(parent, rest, level + 1, options, abort);
}

AXUIElementRef UIElement_p::findOSXElementForThisInParentsChildren(AXUIElementRef parent,
                                                                   const QList<const UIElement_p*>& list,
                                                                   int level,
                                                                   QFlags<UIElementSearchOption> options,
                                                                   bool* abort) const {
    const auto descend = [&](AXUIElementRef child) {
        return traced(child, [&] { return findOSXElementForNextChild(child, list, level, options, abort); });
    };
    ResolutionTrace* const trace = ResolutionTrace::current();
    if (trace)
        trace->beginLevel(*this, level);
    const ArrayRef children(extensivelyFindCandidateChildrenForParentElement(parent));
    if (trace)
        trace->childrenRead(children);
    const AXUIElementRef result =
        children ? selectMatches(descend, children, parent, options, abort) : nullptr;
    if (trace)
        trace->endLevel(result != nullptr);
    return result;
}

CFArrayRef UIElement_p::extensivelyFindCandidateChildrenForParentElement(AXUIElementRef parent) const {
    ArrayRef children(copyUIElementChildren(parent));
    if (!children)
        return nullptr;
    // A Pro Tools menu may report no children while its items are on screen: the item right of
    // the menu's frame is asked for its grandparent, which must be the menu.
    if (bundleIdIsProTools(m_bundleId) && CFArrayGetCount(children) == 0 && m_role == kQAXMenuRole) {
        const QRect rect = UIElementRect(parent);
        if (rect.isNull())
            return nullptr;
        const ElementRef hit(
            copyUIElementAtPosition(QPoint(rect.right() + 10, (rect.top() + rect.bottom()) / 2), nullptr));
        if (!hit)
            return nullptr;
        const ElementRef itemParent(copyUIElementParent(hit));
        if (!itemParent)
            return nullptr;
        const ElementRef grandparent(copyUIElementParent(itemParent));
        if (!grandparent)
            return nullptr;
        return UIElementsAreEqual(grandparent, parent, true) ? copyUIElementChildren(grandparent) : nullptr;
    }
    return children.take();
}

AXUIElementRef UIElement_p::selectMatches(const std::function<AXUIElementRef(AXUIElementRef)>& descend,
                                          CFArrayRef children, AXUIElementRef parent,
                                          QFlags<UIElementSearchOption> searchOptions, bool* abort) const {
    // The application rules stand before the matching method.
    const ZRSerializableVariantMap& levelOptions = options();
    ResolutionTrace* const trace = ResolutionTrace::current();
    // The rule's choice is its own: the trace sees its tries only.
    const auto traceRule = [trace](const QString& rule) {
        if (trace) {
            trace->matching(ResolutionTrace::Matching::ApplicationRule, {}, rule);
            trace->stage(ResolutionTrace::Stage::ApplicationRule);
        }
    };
    if (levelOptions.value(kSyncToProToolsSelectedTrackOption).toBool()) {
        traceRule(kSyncToProToolsSelectedTrackOption);
        return selectProToolsSelectedInstrumentGroup(descend, children, parent, searchOptions, abort);
    }
    if (levelOptions.value(kLogicProSelectFirstEmptyPluginSlotOption).toBool()) {
        traceRule(kLogicProSelectFirstEmptyPluginSlotOption);
        return selectLogicProNextEmptyPluginSlot(descend, children, abort);
    }
    if (matchingMethod() != CustomMatching)
        return selectMatchesUsingBuiltInMatching(descend, children, searchOptions, abort);
    return selectMatchesUsingCustomMatching(descend, children, parent, searchOptions, abort);
}
