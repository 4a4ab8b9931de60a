#include "osxUIElementUtils.h"

#include "appkit/NSRunningApplication.h"

#include <QDebug>

namespace {

using ElementRef = CFTypeSmartRef<AXUIElementRef>;
using ArrayRef = CFTypeSmartRef<CFArrayRef>;

bool isElement(CFTypeRef value) {
    return value && CFGetTypeID(value) == AXUIElementGetTypeID();
}

ElementRef retained(AXUIElementRef element) {
    return ElementRef(element ? static_cast<AXUIElementRef>(CFRetain(element)) : nullptr);
}

AXUIElementRef elementAt(CFArrayRef array, CFIndex index) {
    return static_cast<AXUIElementRef>(CFArrayGetValueAtIndex(array, index));
}

ArrayRef copyChildrenOrNull(AXUIElementRef element) {
    return ArrayRef(copyUIElementChildrenOrNull(element));
}

// The downward walk shared by the searches below a root: every child is offered to match before
// any is entered, and then each child that is not root itself is handed to descend. Equality with
// root is the only guard against a loop. The first non-null answer is the result; null also when
// root's children cannot be read.
ElementRef searchChildrenInTwoPasses(AXUIElementRef root,
                                     const std::function<ElementRef(AXUIElementRef)>& match,
                                     const std::function<ElementRef(AXUIElementRef)>& descend) {
    const ArrayRef children = copyChildrenOrNull(root);
    if (!children)
        return ElementRef();
    const CFIndex count = CFArrayGetCount(children);
    for (CFIndex i = 0; i < count; ++i) {
        if (ElementRef found = match(elementAt(children, i)))
            return found;
    }
    for (CFIndex i = 0; i < count; ++i) {
        const AXUIElementRef child = elementAt(children, i);
        if (CFEqual(child, root))
            continue;
        if (ElementRef found = descend(child))
            return found;
    }
    return ElementRef();
}

// The first element on the chain from element up "AXParent" that passes test; null when a parent
// read fails first. There is no guard against a chain that loops.
AXUIElementRef copyFirstOnChain(AXUIElementRef element, const std::function<bool(AXUIElementRef)>& test) {
    for (ElementRef current = retained(element); current;
         current = ElementRef(copyUIElementParent(current))) {
        if (test(current))
            return current.take();
    }
    return nullptr;
}

// Climbs with step, which gives an owned parent or null, and returns the last element reached;
// reached sees each parent on the way up.
ElementRef copyLastOnChain(AXUIElementRef element, const std::function<AXUIElementRef(AXUIElementRef)>& step,
                           const std::function<void(AXUIElementRef)>& reached = {}) {
    ElementRef current = retained(element);
    while (ElementRef parent{step(current)}) {
        if (reached)
            reached(parent);
        current = std::move(parent);
    }
    return current;
}

std::function<AXUIElementRef(AXUIElementRef)> verifiedParentStep(bool loose) {
    return [loose](AXUIElementRef element) { return verifyAndCopyUIElementParent(element, loose); };
}

bool hasApplicationRole(AXUIElementRef element) {
    return UIElementRole(element) == kQAXApplicationRole;
}

ElementRef searchUpAndDown(AXUIElementRef element, UIElementSearchPredicate predicate, void* context,
                           CFMutableSetRef visited) {
    if (!element || CFSetContainsValue(visited, element))
        return ElementRef();
    CFSetAddValue(visited, element);
    if (predicate(element, context))
        return retained(element);
    const ArrayRef children(copyUIElementChildren(element));
    for (CFIndex i = 0; i < CFArrayGetCount(children); ++i) {
        if (ElementRef found = searchUpAndDown(elementAt(children, i), predicate, context, visited))
            return found;
    }
    const ElementRef parent(copyUIElementParent(element));
    return parent ? searchUpAndDown(parent, predicate, context, visited) : ElementRef();
}

} // namespace

CFArrayRef copyUIElementChildrenOrNull(AXUIElementRef element) {
    CFTypeSmartRef<CFTypeRef> children;
    if (AXUIElementCopyAttributeValue(element, CFSTR("AXChildren"), children.out()) != kAXErrorSuccess ||
        !children || CFGetTypeID(children) != CFArrayGetTypeID())
        return nullptr;
    return static_cast<CFArrayRef>(children.take());
}

CFArrayRef copyUIElementChildren(AXUIElementRef element) {
    if (ArrayRef children = copyChildrenOrNull(element))
        return children.take();
    return CFArrayCreate(kCFAllocatorDefault, nullptr, 0, &kCFTypeArrayCallBacks);
}

AXUIElementRef copyUIElementParent(AXUIElementRef element) {
    CFTypeSmartRef<CFTypeRef> parent;
    if (AXUIElementCopyAttributeValue(element, CFSTR("AXParent"), parent.out()) != kAXErrorSuccess ||
        !isElement(parent))
        return nullptr;
    return static_cast<AXUIElementRef>(parent.take());
}

AXUIElementRef verifyAndCopyUIElementParent(AXUIElementRef element, bool loose) {
    ElementRef parent(copyUIElementParent(element));
    if (!parent)
        return nullptr;
    const ArrayRef children(copyUIElementChildren(parent));
    const CFIndex count = CFArrayGetCount(children);
    for (CFIndex i = 0; i < count; ++i) {
        if (UIElementsAreEqual(elementAt(children, i), element, loose))
            return parent.take();
    }
    // Some applications name as parent the element one level above the one that lists the child.
    for (CFIndex i = 0; i < count; ++i) {
        const AXUIElementRef child = elementAt(children, i);
        const ArrayRef grandchildren(copyUIElementChildren(child));
        for (CFIndex j = 0; j < CFArrayGetCount(grandchildren); ++j) {
            if (UIElementsAreEqual(elementAt(grandchildren, j), element, loose))
                return retained(child).take();
        }
    }
    return nullptr;
}

AXUIElementRef copyUIElementApplication(AXUIElementRef element) {
    const int pid = UIElementPID(element);
    return pid ? AXUIElementCreateApplication(pid) : nullptr;
}

AXUIElementRef copyApplicationWithBundleId(const QString& bundleId) {
    const QList<NSRunningApplication*> applications =
        NSRunningApplication::runningApplicationsWithBundleIdentifier(bundleId);
    return applications.isEmpty() ? nullptr
                                  : AXUIElementCreateApplication(applications.first()->processIdentifier());
}

bool isTopLevelElement(AXUIElementRef element) {
    return hasApplicationRole(element);
}

AXUIElementRef copyAncestorElementOfType(AXUIElementRef element, const QString& type) {
    return copyFirstOnChain(element, [&](AXUIElementRef each) { return UIElementIsOfType(each, type); });
}

AXUIElementRef copyAncestorElementWithRole(AXUIElementRef element, const QString& role) {
    return copyFirstOnChain(element, [&](AXUIElementRef each) { return UIElementRole(each) == role; });
}

AXUIElementRef copyAncestorUIElementWithRole(AXUIElementRef element, CFStringRef role) {
    return copyFirstOnChain(element, [role](AXUIElementRef each) {
        CFTypeSmartRef<CFTypeRef> eachRole;
        return AXUIElementCopyAttributeValue(each, CFSTR("AXRole"), eachRole.out()) == kAXErrorSuccess &&
               eachRole && CFGetTypeID(eachRole) == CFStringGetTypeID() &&
               CFStringCompare(static_cast<CFStringRef>(eachRole.get()), role, 0) == kCFCompareEqualTo;
    });
}

bool UIElementOrAncestorHasRole(AXUIElementRef element, CFStringRef role) {
    return !ElementRef(copyAncestorUIElementWithRole(element, role)).isNull();
}

AXUIElementRef copyAncestorElementWithActions(AXUIElementRef element) {
    return copyFirstOnChain(element,
                            [](AXUIElementRef each) { return !UIElementActionNames(each).isEmpty(); });
}

AXUIElementRef copyAncestorElementWithAction(AXUIElementRef element, const QString& action) {
    return copyFirstOnChain(element,
                            [&](AXUIElementRef each) { return UIElementActionNames(each).contains(action); });
}

bool UIElementIsSameOrAncestor(AXUIElementRef ancestor, AXUIElementRef element) {
    return !ElementRef(copyFirstOnChain(element, [ancestor](AXUIElementRef each) {
                return ancestor && CFEqual(each, ancestor);
            })).isNull();
}

AXUIElementRef copyFarthestAncestor(AXUIElementRef element) {
    return copyLastOnChain(element, copyUIElementParent).take();
}

AXUIElementRef copyFarthestVerifiableAncestor(AXUIElementRef element, bool loose) {
    return copyLastOnChain(element, verifiedParentStep(loose)).take();
}

bool UIElementIsNotRootedInApplication(AXUIElementRef element) {
    return !hasApplicationRole(ElementRef(copyFarthestAncestor(element)));
}

AXUIElementRef recursivelySearchForParentOfElementAndCopy(AXUIElementRef root, AXUIElementRef element) {
    return searchChildrenInTwoPasses(
               root,
               [&](AXUIElementRef child) { return CFEqual(child, element) ? retained(root) : ElementRef(); },
               [&](AXUIElementRef child) {
                   return ElementRef(recursivelySearchForParentOfElementAndCopy(child, element));
               })
        .take();
}

bool elementIsDescendant(AXUIElementRef root, AXUIElementRef element) {
    return !ElementRef(recursivelySearchForParentOfElementAndCopy(root, element)).isNull();
}

bool elementIsReachableFromTop(AXUIElementRef element) {
    const ElementRef parent(copyUIElementParent(element));
    if (!parent)
        return true;
    if (!elementIsDescendant(parent, element))
        return false;
    return elementIsReachableFromTop(parent);
}

AXUIElementRef copyElementInAllDescendantsPassingTest(AXUIElementRef root,
                                                      const std::function<bool(AXUIElementRef)>& test) {
    return searchChildrenInTwoPasses(
               root, [&](AXUIElementRef child) { return test(child) ? retained(child) : ElementRef(); },
               [&](AXUIElementRef child) {
                   return ElementRef(copyElementInAllDescendantsPassingTest(child, test));
               })
        .take();
}

AXUIElementRef searchUpAndDownHierarchyForElementAndCopy(AXUIElementRef start,
                                                         UIElementSearchPredicate predicate, void* context) {
    const CFTypeSmartRef<CFMutableSetRef> visited(
        CFSetCreateMutable(kCFAllocatorDefault, 0, &kCFTypeSetCallBacks));
    return searchUpAndDown(start, predicate, context, visited).take();
}

bool debugRecursivelySearchForElement(AXUIElementRef element, AXUIElementRef root) {
    // The walk answers with the child through which it found the element; the log runs from the
    // element back up to root.
    const ElementRef found = searchChildrenInTwoPasses(
        root,
        [&](AXUIElementRef child) {
            if (!CFEqual(child, element))
                return ElementRef();
            qDebug().noquote() << UIElementDebugInfo(child);
            return retained(child);
        },
        [&](AXUIElementRef child) {
            return debugRecursivelySearchForElement(element, child) ? retained(child) : ElementRef();
        });
    if (!found)
        return false;
    qDebug().noquote() << UIElementDebugInfo(root);
    return true;
}

bool searchTopDownForElementAndBuildAncestorList(AXUIElementRef element, UIElementAncestorList& list) {
    list.clear();
    const ElementRef application(copyUIElementApplication(element));
    return application && searchTopDownForElementAndBuildAncestorListRec(element, application, list, 0);
}

bool searchTopDownForElementAndBuildAncestorListRec(AXUIElementRef target, AXUIElementRef current,
                                                    UIElementAncestorList& list, int depth) {
    if (CFEqual(current, target))
        return true;
    const ArrayRef children(copyUIElementChildren(current));
    for (CFIndex i = 0; i < CFArrayGetCount(children); ++i) {
        if (searchTopDownForElementAndBuildAncestorListRec(target, elementAt(children, i), list, depth + 1)) {
            list.prepend(current);
            return true;
        }
    }
    return false;
}

bool searchBottomUpForElementAndBuildAncestorList(AXUIElementRef element, UIElementAncestorList& list,
                                                  bool loose) {
    list.clear();
    return searchBottomUpForElementAndBuildAncestorListRec(element, list, loose);
}

bool searchBottomUpForElementAndBuildAncestorListRec(AXUIElementRef element, UIElementAncestorList& list,
                                                     bool loose) {
    const ElementRef top = copyLastOnChain(element, verifiedParentStep(loose),
                                           [&](AXUIElementRef parent) { list.prepend(parent); });
    return hasApplicationRole(top);
}

AXUIElementRef findNthElementWithRole(CFArrayRef elements, const QString& role, int n) {
    if (n < 0 || !elements)
        return nullptr;
    for (CFIndex i = 0; i < CFArrayGetCount(elements); ++i) {
        const AXUIElementRef element = elementAt(elements, i);
        if (UIElementRole(element) == role && n-- == 0)
            return element;
    }
    return nullptr;
}

AXUIElementRef copyChildElementWithRole(AXUIElementRef element, const QString& role) {
    const ArrayRef children(copyUIElementChildren(element));
    return retained(findNthElementWithRole(children, role, 0)).take();
}

bool hasChildElementWithRole(AXUIElementRef element, const QString& role) {
    return !ElementRef(copyChildElementWithRole(element, role)).isNull();
}

AXUIElementRef copyUIElementChildBySubrole(AXUIElementRef element, CFStringRef subrole) {
    const ArrayRef children = copyChildrenOrNull(element);
    if (!children)
        return nullptr;
    for (CFIndex i = 0; i < CFArrayGetCount(children); ++i) {
        const AXUIElementRef child = elementAt(children, i);
        if (!isElement(child))
            continue;
        CFTypeSmartRef<CFTypeRef> childSubrole;
        if (AXUIElementCopyAttributeValue(child, CFSTR("AXSubrole"), childSubrole.out()) == kAXErrorSuccess &&
            childSubrole && CFEqual(childSubrole, subrole))
            return retained(child).take();
    }
    return nullptr;
}

bool UIElementsAreFromSameApplication(AXUIElementRef a, AXUIElementRef b) {
    const ElementRef applicationOfA(copyUIElementApplication(a));
    const ElementRef applicationOfB(copyUIElementApplication(b));
    if (!applicationOfA || !applicationOfB) {
        qWarning().noquote() << "Unexpected error in UIElementsAreFromSameApplication(): UI element has no "
                                "application!";
        qWarning().noquote() << "Degenerate UI element:" << UIElementDebugInfo(applicationOfA ? b : a);
        return false;
    }
    return CFEqual(applicationOfA, applicationOfB);
}
