#pragma once

// The description of one on-screen element as it was when it was captured, and of its ancestors:
// each level owns the level of its parent, so that a description is a chain from the element up
// to its application. The chain is what gets saved, and what a search later walks down from the
// application to find the live element again.

#include "CFTypeSmartRef.h"
#include "NativeUIElement.h"
#include "UIElementSearch.h"
#include "ZREntity.h"
#include "ZRSerializableStructures.h"
#include "platformAccessibility.h"

#include <QList>
#include <QMap>
#include <QPoint>
#include <QRect>
#include <QSet>
#include <QString>
#include <QStringList>
#include <QVariant>

#include <functional>

Q_DECLARE_OPAQUE_POINTER(AXUIElementRef)

class UIElementType;

class UIElement_p : public ZREntity {
    Q_OBJECT
    // Capture found no element: the description stands for nothing.
    Q_PROPERTY(bool null MEMBER m_null)
    Q_PROPERTY(QString title MEMBER m_title)
    Q_PROPERTY(QString role MEMBER m_role)
    // "AXRoleDescription", or the role when the element gives none.
    Q_PROPERTY(QString roleDescription MEMBER m_roleDescription)
    // The element reported a frame when it was captured.
    Q_PROPERTY(bool hasGeometry MEMBER m_hasGeometry)
    ZR_ENTITY_PROPERTY(QRect, screenRect, setScreenRect)
    ZR_ENTITY_PROPERTY(QPoint, screenInteractionPoint, setScreenInteractionPoint)
    // Position among all children of the parent, and among those with the same role; -1 unknown.
    ZR_ENTITY_PROPERTY(int, childIndex, setChildIndex)
    ZR_ENTITY_PROPERTY(int, matchingRoleChildIndex, setMatchingRoleChildIndex)
    ZR_ENTITY_PROPERTY(int, childCount, setChildCount)
    // The frame relative to the top-left corner of the parent's frame.
    ZR_ENTITY_PROPERTY(QRect, localRect, setLocalRect)
    // Relative to the element's own top-left corner.
    ZR_ENTITY_PROPERTY(QPoint, localInteractionPoint, setLocalInteractionPoint)
    // The same at every level of a chain.
    Q_PROPERTY(QString bundleId MEMBER m_bundleId)
    ZR_ENTITY_PROPERTY(QString, processName, setProcessName)
    // The name shown for the application; "*" stands for any application.
    Q_PROPERTY(QString applicationName MEMBER m_applicationName)
    // As read from the live element, integers as strings; also the private keys a user edited.
    Q_PROPERTY(ZRSerializableVariantMap attributes MEMBER m_attributes)
    ZR_ENTITY_PROPERTY(ZRSerializableStringList, actionNames, setActionNames)
    ZR_ENTITY_PROPERTY(ZRSerializableStringList, actionDescriptions, setActionDescriptions)
    Q_PROPERTY(UIElement_p* parentElement MEMBER m_parentElement)
    // The chain does not reach the application element.
    Q_PROPERTY(bool degenerate MEMBER m_degenerate)
    // Written by hand below: it carries the value up the chain and sends no signal.
    ZR_ENTITY_PROPERTY_NOTIFIERS(int, matchingMethod, setMatchingMethod)
    ZR_ENTITY_PROPERTY(QStringList, definingAttributes, setDefiningAttributes)
    ZR_ENTITY_PROPERTY_NOTIFIERS(QString, targetType, setTargetType)
    // Per-level matching options, among them the application rules' keys.
    ZR_ENTITY_PROPERTY(ZRSerializableVariantMap, options, setOptions)
    // Stored and loaded only: nothing matches by it, and equality ignores it.
    Q_PROPERTY(bool strictMatching MEMBER m_strictMatching)

public:
    // An empty description, for the loader to fill.
    Q_INVOKABLE explicit UIElement_p(QObject* parent = nullptr);
    // Captures the element at a screen point.
    Q_INVOKABLE explicit UIElement_p(QPoint screenPoint, QObject* parent = nullptr);
    // Captures the element of the handle, with the handle's screen position as interaction point.
    Q_INVOKABLE explicit UIElement_p(const NativeUIElement& element, QObject* parent = nullptr);
    // One parent link of a chain: ancestors run from the top down to this element's parent.
    Q_INVOKABLE UIElement_p(AXUIElementRef element, QPoint screenPoint,
                            const QList<CFTypeSharedRef<AXUIElementRef>>& ancestors,
                            QObject* parent = nullptr);

    virtual const int& matchingMethod() const;
    // Unless data is being restored, the whole chain above takes the value too, and the chain's
    // application name is worked out anew.
    virtual void setMatchingMethod(const int& value);
    virtual const QString& targetType() const;
    virtual void setTargetType(const QString& value);

    // Resets every field to its initial value; the lists and maps keep what they hold.
    void initialize();

    QList<CFTypeSharedRef<AXUIElementRef>> findAncestors(AXUIElementRef element);
    void initializeWithOSXElementAndScreenInteractionPoint(
        AXUIElementRef element, QPoint screenPoint, const QList<CFTypeSharedRef<AXUIElementRef>>& ancestors);
    void setChildAndMatchingTypeChildIndex(AXUIElementRef element, AXUIElementRef parent);
    void populateAttributeMap(QMap<QString, QVariant>& map, AXUIElementRef element) const;
    void populateAttributeMap(QMap<QString, QVariant>& map, AXUIElementRef element,
                              const QList<QString>& keys) const;

    // Also stores the name in applicationName, except on the branches that answer a process name
    // or "*".
    QString determineApplicationName();
    // The name that the top of the chain (the list's first element) determines, for every level.
    static void updateApplicationNameForHierarchy(QList<UIElement_p*>& list);

    void selectDefaultDefiningAttributes();
    void selectDefaultDefiningAttributesForHierarchy();

    void setInteractionPointFromScreenPoint(QPoint point);
    void setInteractionPointFromLocalPoint(QPoint point);

    void markAsDegenerate() { m_degenerate = true; }
    void setNull() { m_null = true; }
    bool isNull() const { return m_null; }
    bool isDegenerate() const { return m_degenerate; }

    // The chain, top first and this element last; a hierarchy level is an index into it.
    void topDownElementList(QList<UIElement_p*>& list);
    void topDownElementList(QList<const UIElement_p*>& list) const;
    int hierarchySize() const;
    bool isTopLevelApplicationElement() const;
    bool isProToolsElement() const;

    // Equal in every stored property but the interaction points and strictMatching, the whole
    // chain above included.
    bool isEqualToElement(const UIElement_p* other) const;

    // Resolution: the live element that the description stands for, found by walking down from
    // the applications that the top of the chain names, level by level, with backtracking; at the
    // top, a degenerate chain is searched from the element under the hint position
    // (`alternative`, a QPoint; invalid for none). Owned results; nothing is kept between calls.
    AXUIElementRef createOSSpecificUIElementRepresentation(QVariant alternative,
                                                           QFlags<UIElementSearchOption> options,
                                                           bool* abort) const;
    AXUIElementRef createOSSpecificUIElementRepresentation(QFlags<UIElementSearchOption> options,
                                                           bool* abort) const;
    // The element of a level of the chain (0 the top); the target type plays no part.
    AXUIElementRef createOSSpecificUIElementRepresentationAtHierarchyLevel(
        int level, QVariant alternative, QFlags<UIElementSearchOption> options, bool* abort) const;
    bool canCreateOSSpecificUIElementRepresentation(QFlags<UIElementSearchOption> options) const;
    // Return codes as UIElementSearch.h names them.
    int findUIElementAndGetInteractionPoint(QPoint& point, bool requireHit, QVariant alternative,
                                            QFlags<UIElementSearchOption> options, bool* abort) const;
    int findUIElementAndGetScreenRect(QRect& rect, QVariant alternative,
                                      QFlags<UIElementSearchOption> options, bool* abort) const;
    int findUIElementAtHierarchyLevelAndGetScreenRect(QRect& rect, int level, QVariant alternative,
                                                      QFlags<UIElementSearchOption> options,
                                                      bool* abort) const;
    int findUIElementAndCreateOSSpecificRepresentation(NativeUIElement& element, QVariant alternative,
                                                       QFlags<UIElementSearchOption> options,
                                                       bool* abort) const;
    // Below 2: raises the element's window, else (or when it has none) makes its application
    // frontmost.
    void raiseElement(int mode, QFlags<UIElementSearchOption> options) const;
    bool resolvesToSameOSSpecificElement(const UIElement_p* other,
                                         QFlags<UIElementSearchOption> options) const;
    // A null description is valid; another is valid when it resolves now.
    bool validate(QString& error, QFlags<UIElementSearchOption> options) const;
    // The other way round: whether a live element is the one this level describes.
    bool isElementMatching(AXUIElementRef element, QFlags<UIElementSearchOption> options) const;
    bool doesElementMatchHierarchy(AXUIElementRef element, QFlags<UIElementSearchOption> options) const;
    bool matchingElementUnderElement(NativeUIElement& result, int& levelsUp, const NativeUIElement& start,
                                     QFlags<UIElementSearchOption> options) const;

    // The steps of the walk. `list` is the part of the chain below the level the step runs on,
    // top first; `level` is the depth, carried down for nobody in particular.
    AXUIElementRef findOSXElementForThis(AXUIElementRef parent, const QList<const UIElement_p*>& list,
                                         int level, QVariant alternative,
                                         QFlags<UIElementSearchOption> options, bool* abort) const;
    CFArrayRef createTopLevelApplicationOSXElementsForThis() const;
    AXUIElementRef findOSXElementForThisUsingAltTopLevelElement(const QList<const UIElement_p*>& list,
                                                                int level, QPoint position,
                                                                QFlags<UIElementSearchOption> options,
                                                                bool* abort) const;
    AXUIElementRef findOSXElementForNextChild(AXUIElementRef parent, const QList<const UIElement_p*>& list,
                                              int level, QFlags<UIElementSearchOption> options,
                                              bool* abort) const;
    AXUIElementRef findOSXElementForThisInParentsChildren(AXUIElementRef parent,
                                                          const QList<const UIElement_p*>& list, int level,
                                                          QFlags<UIElementSearchOption> options,
                                                          bool* abort) const;
    CFArrayRef extensivelyFindCandidateChildrenForParentElement(AXUIElementRef parent) const;
    // The matching of this level: the application rules first, then the matching method.
    // `descend` takes a borrowed child and answers an owned element when the rest of the chain
    // resolves below it, else null.
    AXUIElementRef selectMatches(const std::function<AXUIElementRef(AXUIElementRef)>& descend,
                                 CFArrayRef children, AXUIElementRef parent,
                                 QFlags<UIElementSearchOption> options, bool* abort) const;

    // Built-in and strict matching: attributes select the candidates, then title, role index and
    // child index order the tries; no stage rejects.
    AXUIElementRef
    selectMatchesUsingBuiltInMatching(const std::function<AXUIElementRef(AXUIElementRef)>& descend,
                                      CFArrayRef children, QFlags<UIElementSearchOption> options,
                                      bool* abort) const;
    void findElementsWithMatchingRoleAndAttributes(QSet<AXUIElementRef>& matches, CFArrayRef children,
                                                   bool useTranslations) const;
    void findElementsWithStrictMatchingRoleAndAttributes(QSet<AXUIElementRef>& matches, CFArrayRef children,
                                                         bool useTranslations) const;
    bool osxElementIsMatchForThis(AXUIElementRef element) const;

    // Custom matching: the defining attributes, then each defining private key as a hard filter.
    AXUIElementRef
    selectMatchesUsingCustomMatching(const std::function<AXUIElementRef(AXUIElementRef)>& descend,
                                     CFArrayRef children, AXUIElementRef parent,
                                     QFlags<UIElementSearchOption> options, bool* abort) const;
    void findElementsWithCustomMatchingAttributes(QList<AXUIElementRef>& matches, CFArrayRef children,
                                                  bool useTranslations) const;
    // The values a private key accepts: a list in attributes, a single value there, or the property.
    QSet<int> childIndexValues() const;
    QSet<int> matchingRoleChildIndexValues() const;
    QSet<QRect> localRectValues() const;

    // The application rules that a level's options turn on. Each returns what descend returned
    // for the child it chose, or null.
    AXUIElementRef
    selectProToolsSelectedInstrumentGroup(const std::function<AXUIElementRef(AXUIElementRef)>& descend,
                                          CFArrayRef children, AXUIElementRef parent,
                                          QFlags<UIElementSearchOption> options, bool* abort) const;
    AXUIElementRef
    selectLogicProNextEmptyPluginSlot(const std::function<AXUIElementRef(AXUIElementRef)>& descend,
                                      CFArrayRef children, bool* abort) const;

    // Presentation and editing, for people. A hierarchy level is an index into
    // topDownElementList(); a level outside the chain does nothing or gives the empty value.
    // The readable name of an attribute key, translated; an unknown key shows as itself.
    static QString attributeDisplayName(const QString& name);
    static bool attributeHasBooleanValue(const QString& name);
    // The kind of a live element; a null handle leaves type as it is.
    static void copyTypeFromNativeElement(UIElementType* type, const NativeUIElement& element);
    QMap<QString, QVariant> attributeValuesForElementAtHierarchyLevel(int level) const;
    void setAttributeValueForElementAtHierarchyLevel(int level, const QString& name, const QVariant& value);
    QStringList definingAttributesForElementAtHierarchyLevel(int level) const;
    void setDefiningAttributesForElementAtHierarchyLevel(int level, const QList<QString>& attributes);
    bool canEditDefiningAttributesAtHierarchyLevel(int level) const;
    // An application rule, not attribute matching, selects at that level.
    bool usesSpecializedMatchingMethodAtHierarchyLevel(int level) const;
    QVariant optionForElementAtHierarchyLevel(int level, const QString& key) const;
    void setOptionForElementAtHierarchyLevel(int level, const QString& key, QVariant value);
    QString shortDescription(bool includeRole, bool includeApplication, bool includeTargetType) const;
    QString shortDescriptionOfElementAtHierarchyLevel(int level, bool includeRole, bool includeApplication,
                                                      bool includeTargetType) const;
    void hierarchyDescriptionParts(QList<QString>& parts) const;
    QString hierarchyDescription() const;
    QString htmlHierarchyDescription() const;
    QString debugInfo() const;
    // The kind of the saved element, with no live element.
    void copyType(UIElementType* type) const;

    const QString& title() const { return m_title; }
    const QString& role() const { return m_role; }
    const QString& roleDescription() const { return m_roleDescription; }
    bool hasGeometry() const { return m_hasGeometry; }
    const QString& bundleId() const { return m_bundleId; }
    QString applicationId() const { return m_bundleId; }
    const QString& applicationName() const { return m_applicationName; }
    const ZRSerializableVariantMap& attributes() const { return m_attributes; }
    UIElement_p* parentElement() const { return m_parentElement; }
    bool strictMatching() const { return m_strictMatching; }

private:
    void captureElement(AXUIElementRef element, QPoint screenPoint);

    bool m_null = false;
    QString m_title;
    QString m_role;
    QString m_roleDescription;
    bool m_hasGeometry = false;
    QString m_bundleId;
    QString m_applicationName;
    ZRSerializableVariantMap m_attributes;
    UIElement_p* m_parentElement = nullptr;
    bool m_degenerate = false;
    int m_matchingMethod = BuiltInMatching;
    QString m_targetType;
    bool m_strictMatching = false;
};

// The option keys of a level that hand its matching to an application rule.
inline const QString kSyncToProToolsSelectedTrackOption = QStringLiteral("syncToProToolsSelectedTrack");
inline const QString kLogicProSelectFirstEmptyPluginSlotOption =
    QStringLiteral("logicProSelectFirstEmptyPluginSlot");

// The attribute catalogues, each filled on first use and kept for the life of the process.
// Built-in matching compares the interesting attributes; AXTitle is not among them.
const QSet<QString>& interestingUIElementAttributes();
// Those that define an element by default, unless questionable.
const QSet<QString>& importantUIElementAttributes();
const QSet<QString>& questionableUIElementAttributes();
const QSet<QString>& strictMatchingUIElementAttributes();
// Roles, not attributes.
const QSet<QString>& rolesWhereTitleIdentifiesAnElement();
// Texts that follow the application's language.
const QSet<QString>& localizedAttributes();
// The private keys that are read from the description's own properties.
const QSet<QString>& nonAccessibilityAttributes();

// Whether a live element's attributes (first) are those of a description (second): exactly the
// same keys, and per key the same value, where a list offers alternatives and, with
// useTranslations, a localized text may stand in any of its translations in the process pid.
bool attributeMapsAreEquivalent(const QMap<QString, QVariant>& first, const QMap<QString, QVariant>& second,
                                int pid, bool useTranslations);
QMap<QString, QVariant> removeKeys(QMap<QString, QVariant> map, const QSet<QString>& keys);
QMap<QString, QVariant> removeOtherKeys(QMap<QString, QVariant> map, const QSet<QString>& keys);

// Borrowed from children: those at the indices, in the set's order; indices outside are skipped.
QList<AXUIElementRef> getElementsWithIndices(CFArrayRef children, QSet<int> indices);
// Borrowed from children: those whose place among the children of the role is in indices.
QList<AXUIElementRef> getElementsWithMatchingRoleIndices(CFArrayRef children, const QString& role,
                                                         QSet<int> indices);
QList<AXUIElementRef> filterElements(const QList<AXUIElementRef>& elements,
                                     const std::function<bool(AXUIElementRef)>& test);

template <class T>
QSet<T> mapListToSet(const QList<QVariant>& list, const std::function<T(const QVariant&)>& convert) {
    QSet<T> set;
    for (const QVariant& value : list)
        set.insert(convert(value));
    return set;
}
