// Capture: reading a live element and its ancestors into a description, and the choices made
// at capture time (defining attributes, application name, interaction point).

#include "UIElement_pMatching.h"

#include "ZRMetaTypeRegistrar.h"
#include "applications.h"
#include "generalUtilities.h"
#include "osxMisc.h"
#include "osxRunningApplications.h"
#include "osxUIElementUtils.h"

#include <QDebug>

#include <cmath>

template class ZRMetaTypeObjectRegistrar<UIElement_p>;

namespace {

using ElementRef = CFTypeSmartRef<AXUIElementRef>;

int truncated(double value) {
    return static_cast<int>(std::trunc(value));
}

QSet<QString> setOf(std::initializer_list<QString> items) {
    return QSet<QString>(items);
}

} // namespace

const QSet<QString>& interestingUIElementAttributes() {
    static const QSet<QString> attributes =
        setOf({"AXSubrole", "AXFilename", "AXLabelValue", "AXModal", "AXValueIncrement", "AXRoleDescription",
               "AXPlaceholderValue", "AXDescription", "AXDOMIdentifier", "AXDOMClassList"});
    return attributes;
}

const QSet<QString>& importantUIElementAttributes() {
    static const QSet<QString> attributes = interestingUIElementAttributes() | setOf({"AXRole"});
    return attributes;
}

const QSet<QString>& questionableUIElementAttributes() {
    static const QSet<QString> attributes =
        setOf({"AXURL", "AXDescription", "AXPlaceholderValue", "AXRoleDescription"});
    return attributes;
}

const QSet<QString>& strictMatchingUIElementAttributes() {
    static const QSet<QString> attributes =
        interestingUIElementAttributes() | setOf({"AXIdentifier", "AXTitle", "AXHelp", "AXRole"});
    return attributes;
}

const QSet<QString>& rolesWhereTitleIdentifiesAnElement() {
    static const QSet<QString> roles = setOf({"AXMenuItem", "AXMenuBarItem", "AXWindow"});
    return roles;
}

const QSet<QString>& localizedAttributes() {
    static const QSet<QString> attributes = setOf({"AXTitle", "AXDescription", "AXRoleDescription"});
    return attributes;
}

const QSet<QString>& nonAccessibilityAttributes() {
    static const QSet<QString> attributes =
        setOf({"childIndex", "matchingRoleChildIndex", "childCount", "localRect"});
    return attributes;
}

UIElement_p::UIElement_p(QObject* parent) : ZREntity(parent) {
    initialize();
}

UIElement_p::UIElement_p(QPoint screenPoint, QObject* parent) : ZREntity(parent) {
    initialize();
    m_null = true;
    const ElementRef element(copyUIElementAtPosition(screenPoint, nullptr));
    if (element)
        captureElement(element, screenPoint);
}

UIElement_p::UIElement_p(const NativeUIElement& element, QObject* parent) : ZREntity(parent) {
    initialize();
    m_null = true;
    const ElementRef reference(static_cast<AXUIElementRef>(element.copyOSSpecificElementReference()));
    if (reference)
        captureElement(reference, element.screenPosition());
}

UIElement_p::UIElement_p(AXUIElementRef element, QPoint screenPoint,
                         const QList<CFTypeSharedRef<AXUIElementRef>>& ancestors, QObject* parent)
    : ZREntity(parent) {
    initialize();
    m_bundleId = UIElementBundleId(element);
    initializeWithOSXElementAndScreenInteractionPoint(element, screenPoint, ancestors);
}

void UIElement_p::captureElement(AXUIElementRef element, QPoint screenPoint) {
    m_bundleId = UIElementBundleId(element);
    const QList<CFTypeSharedRef<AXUIElementRef>> ancestors = findAncestors(element);
    initializeWithOSXElementAndScreenInteractionPoint(element, screenPoint, ancestors);
}

const int& UIElement_p::matchingMethod() const {
    return m_matchingMethod;
}

void UIElement_p::setMatchingMethod(const int& value) {
    m_matchingMethod = value;
    if (isBeingSerialized() || isBeingDeserialized())
        return;
    if (m_parentElement)
        m_parentElement->setMatchingMethod(value);
    QList<UIElement_p*> chain;
    topDownElementList(chain);
    updateApplicationNameForHierarchy(chain);
}

const QString& UIElement_p::targetType() const {
    return m_targetType;
}

void UIElement_p::setTargetType(const QString& value) {
    m_targetType = value;
    if (m_parentElement)
        m_parentElement->setTargetType(value);
}

void UIElement_p::initialize() {
    m_null = false;
    m_title.clear();
    m_role.clear();
    m_roleDescription.clear();
    m_hasGeometry = false;
    setScreenRect(QRect());
    setScreenInteractionPoint(QPoint());
    setChildIndex(-1);
    setMatchingRoleChildIndex(-1);
    setChildCount(0);
    setLocalRect(QRect());
    setLocalInteractionPoint(QPoint());
    m_bundleId.clear();
    setProcessName(QString());
    m_applicationName.clear();
    m_parentElement = nullptr;
    m_degenerate = false;
    setMatchingMethod(BuiltInMatching);
    m_strictMatching = false;
}

QList<CFTypeSharedRef<AXUIElementRef>> UIElement_p::findAncestors(AXUIElementRef element) {
    QList<CFTypeSharedRef<AXUIElementRef>> list;
    if (searchBottomUpForElementAndBuildAncestorList(element, list, bundleIdIsProTools(m_bundleId)))
        return list;
    qDebug().noquote() << "Note: UI element appears degenerate:" << UIElementDebugInfo(element);
    qDebug().noquote() << "...performing full search of app UI element hierarchy. This could take a while!";
    if (searchTopDownForElementAndBuildAncestorList(element, list))
        qDebug().noquote() << "...full search succeeded. UI element is not degenerate.";
    else
        qDebug().noquote() << "...full search failed. UI element is confirmed degenerate.";
    return list;
}

void UIElement_p::initializeWithOSXElementAndScreenInteractionPoint(
    AXUIElementRef element, QPoint screenPoint, const QList<CFTypeSharedRef<AXUIElementRef>>& ancestors) {
    m_null = false;
    m_title = UIElementTitle(element);
    // The rect is still null here, so both points simply become the given one.
    setInteractionPointFromScreenPoint(screenPoint);
    setInteractionPointFromLocalPoint(screenPoint);

    CGRect platformFrame;
    if (UIElementRect(platformFrame, element)) {
        // Each of the four numbers truncated toward zero, the size on its own.
        const QRect frame = CGRectToQRect(platformFrame);
        m_hasGeometry = true;
        setScreenRect(frame);
        setLocalRect(frame);
        setLocalInteractionPoint(screenInteractionPoint() - frame.topLeft());
        setScreenInteractionPoint(localInteractionPoint() + frame.topLeft());
    }

    m_role = UIElementRole(element);
    m_roleDescription = UIElementGetStringAttribute(element, CFSTR("AXRoleDescription"));
    if (m_roleDescription.isEmpty())
        m_roleDescription = m_role;
    setChildCount(static_cast<int>(UIElementChildrenCount(element)));
    setProcessName(UIElementProcessName(element));
    m_applicationName = determineApplicationName();
    setActionNames(UIElementActionNames(element));
    setActionDescriptions(UIElementActionDescriptions(element));
    populateAttributeMap(m_attributes, element);
    // No level has its parent yet, so every application element counts as the top of a chain.
    selectDefaultDefiningAttributes();

    const bool proTools = bundleIdIsProTools(m_bundleId);
    ElementRef parent;
    if (!ancestors.isEmpty())
        parent.reset(retained(ancestors.last().get()));
    else
        parent.reset(verifyAndCopyUIElementParent(element, proTools));
    if (!parent) {
        if (!isTopLevelElement(element))
            m_degenerate = true;
        return;
    }

    setChildAndMatchingTypeChildIndex(element, parent);
    CGRect parentFrame;
    if (m_hasGeometry && UIElementRect(parentFrame, parent)) {
        setLocalRect(QRect(truncated(screenRect().x() - parentFrame.origin.x),
                           truncated(screenRect().y() - parentFrame.origin.y), screenRect().width(),
                           screenRect().height()));
    }

    QList<CFTypeSharedRef<AXUIElementRef>> above = ancestors;
    if (!above.isEmpty())
        above.removeLast();
    m_parentElement = new UIElement_p(parent, screenPoint, above, this);
    m_parentElement->setTargetType(targetType());
    if (m_parentElement->isDegenerate())
        m_degenerate = true;
    if (m_parentElement->isNull()) {
        delete m_parentElement;
        m_parentElement = nullptr;
        m_null = true;
    }
}

void UIElement_p::setChildAndMatchingTypeChildIndex(AXUIElementRef element, AXUIElementRef parent) {
    const CFTypeSmartRef<CFArrayRef> children(copyUIElementChildrenOrNull(parent));
    if (!children)
        return;
    const bool proTools = bundleIdIsProTools(m_bundleId);
    int index = 0;
    int roleIndex = 0;
    bool found = false;
    const CFIndex count = CFArrayGetCount(children);
    for (CFIndex i = 0; i < count; ++i) {
        const AXUIElementRef child = UIElementMatching::childAt(children, i);
        if (UIElementsAreEqual(child, element, proTools)) {
            found = true;
            break;
        }
        if (UIElementRole(child) == m_role)
            ++roleIndex;
        ++index;
    }
    if (!found) {
        qDebug().noquote() << "Error: didn't find element in its parents own list of children!";
        index = -1;
        roleIndex = -1;
    }
    setChildIndex(index);
    setMatchingRoleChildIndex(roleIndex);
}

namespace {

void addAttributes(QMap<QString, QVariant>& map, AXUIElementRef element, const QStringList& names) {
    map.clear();
    for (const QString& name : names) {
        const QVariant value = UIElementAttributeValue(element, name, true);
        if (!value.metaType().isValid())
            continue;
        // Integers always stand as strings, so that a value compares the same however the
        // platform typed it.
        map.insert(name, isIntegerVariant(value) ? QVariant(value.toString()) : value);
    }
}

} // namespace

void UIElement_p::populateAttributeMap(QMap<QString, QVariant>& map, AXUIElementRef element) const {
    addAttributes(map, element, UIElementAttributes(element));
}

void UIElement_p::populateAttributeMap(QMap<QString, QVariant>& map, AXUIElementRef element,
                                       const QList<QString>& keys) const {
    QSet<QString> names(keys.cbegin(), keys.cend());
    const QStringList reported = UIElementAttributes(element);
    names &= QSet<QString>(reported.cbegin(), reported.cend());
    addAttributes(map, element, QStringList(names.cbegin(), names.cend()));
}

QString UIElement_p::determineApplicationName() {
    if (m_matchingMethod == CustomMatching) {
        if (definingAttributes().contains(QStringLiteral("bundleId"))) {
            m_applicationName = applicationNameForBundleId(m_bundleId);
            if (m_applicationName.isEmpty())
                m_applicationName = applicationNameForIdentifier(m_bundleId, QString(), nullptr);
            return m_applicationName;
        }
        if (definingAttributes().contains(QStringLiteral("processName")))
            return processName();
        return QStringLiteral("*");
    }
    if (!m_bundleId.isEmpty()) {
        m_applicationName = applicationNameForBundleId(m_bundleId);
        if (m_applicationName.isEmpty())
            m_applicationName = applicationNameForIdentifier(m_bundleId, processName(), nullptr);
        return m_applicationName;
    }
    return processName();
}

void UIElement_p::updateApplicationNameForHierarchy(QList<UIElement_p*>& list) {
    if (list.isEmpty())
        return;
    const QString name = list.first()->determineApplicationName();
    for (UIElement_p* element : list)
        element->m_applicationName = name;
}

void UIElement_p::selectDefaultDefiningAttributes() {
    if (!m_parentElement && m_role == kQAXApplicationRole) {
        setDefiningAttributes(
            {m_bundleId.isEmpty() ? QStringLiteral("processName") : QStringLiteral("bundleId")});
        return;
    }
    const QList<QString> keyList = m_attributes.keys();
    const QSet<QString> keys(keyList.cbegin(), keyList.cend());
    QSet<QString> defining = (keys & importantUIElementAttributes()) - questionableUIElementAttributes();
    // An element with no good attribute is defined by everything that it reports.
    if (defining.isEmpty())
        defining = keys;
    if (defining.size() <= 2)
        defining.insert(QStringLiteral("childIndex"));
    // Sorted, so that two captures of one element define it by equal lists.
    QStringList list(defining.cbegin(), defining.cend());
    list.sort();
    setDefiningAttributes(list);
}

void UIElement_p::selectDefaultDefiningAttributesForHierarchy() {
    for (UIElement_p* level = this; level; level = level->m_parentElement)
        level->selectDefaultDefiningAttributes();
}

void UIElement_p::setInteractionPointFromScreenPoint(QPoint point) {
    setScreenInteractionPoint(point);
    setLocalInteractionPoint(point - screenRect().topLeft());
}

void UIElement_p::setInteractionPointFromLocalPoint(QPoint point) {
    setLocalInteractionPoint(point);
    setScreenInteractionPoint(point + screenRect().topLeft());
}

void UIElement_p::topDownElementList(QList<UIElement_p*>& list) {
    if (m_parentElement)
        m_parentElement->topDownElementList(list);
    list.append(this);
}

void UIElement_p::topDownElementList(QList<const UIElement_p*>& list) const {
    if (m_parentElement)
        std::as_const(*m_parentElement).topDownElementList(list);
    list.append(this);
}

int UIElement_p::hierarchySize() const {
    int size = 0;
    for (const UIElement_p* level = this; level; level = level->m_parentElement)
        ++size;
    return size;
}

bool UIElement_p::isTopLevelApplicationElement() const {
    return !m_parentElement && m_role == kQAXApplicationRole;
}

bool UIElement_p::isProToolsElement() const {
    return bundleIdIsProTools(m_bundleId);
}
