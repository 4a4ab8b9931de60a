#pragma once

// The persistable identifiers of on-screen elements: a single UIElement, and a
// UIElementCollection of alternatives in order of preference. Both answer the same find
// operations with the same return codes.

#include "NativeUIElement.h"
#include "UIElementSearch.h"
#include "UIElement_p.h"
#include "ZREntity.h"
#include "ZRSerializableStructures.h"

#include <QDebug>
#include <QFlags>
#include <QList>
#include <QObject>
#include <QPoint>
#include <QPointF>
#include <QRect>
#include <QRectF>
#include <QStringList>
#include <QVariant>

class UIElement;
class UIElementType;

class UIElementIdentifier : public ZREntity {
    Q_OBJECT
public:
    using ZREntity::ZREntity;

    // The find operations resolve the identifier against the live applications and answer a
    // return code of UIElementSearch.h. `alternative` is the hint position (invalid for none),
    // `abort` the abort flag (null for none). A single element writes itself through
    // foundElement first; a collection writes the alternative that ended the search.
    virtual int findUIElementAndGetInteractionPoint(QPoint& point, bool requireHit,
                                                    QFlags<UIElementSearchOption> options,
                                                    QVariant alternative, UIElement** foundElement,
                                                    bool* abort) const = 0;
    virtual int findUIElementAndGetScreenRect(QRect& rect, QFlags<UIElementSearchOption> options,
                                              QVariant alternative, bool* abort) const = 0;
    virtual int findUIElementAndCreateOSSpecificRepresentation(NativeUIElement& element,
                                                               QFlags<UIElementSearchOption> options,
                                                               QVariant alternative, bool* abort) const = 0;
    // Whether start or one of its ancestors is the element described, and how many levels up.
    virtual bool matchingElementUnderElement(NativeUIElement& result, int& levelsUp,
                                             const NativeUIElement& start,
                                             QFlags<UIElementSearchOption> options) = 0;
    virtual QString shortDescription(bool includeRole, bool includeApplication,
                                     bool includeTargetType) const = 0;
    virtual bool isNull() const = 0;
    virtual QStringList actionNames() const = 0;
    virtual QStringList actionDescriptions() const = 0;
    virtual QPoint localInteractionPoint() const = 0;
    virtual QString hierarchyDescription() const = 0;
};

// A facade: the description behind it (`impl`) does the work. Without one, the guarded
// operations give the empty answers that their comments name.
class UIElement : public UIElementIdentifier {
    Q_OBJECT
    // The description itself. Its properties are saved at the element's own path.
    Q_PROPERTY(UIElement_p* impl READ platformSpecificEntity WRITE setPlatformSpecificEntity USER true)
public:
    // With an empty description, for the loader to fill.
    Q_INVOKABLE explicit UIElement(QObject* parent = nullptr);
    // Captures the element at a screen point.
    Q_INVOKABLE explicit UIElement(QPoint position, QObject* parent = nullptr);
    // Captures the element of the handle; a null handle gives a null description.
    Q_INVOKABLE explicit UIElement(const NativeUIElement& element, QObject* parent = nullptr);
    // A null description.
    UIElement(decltype(nullptr), QObject* parent);

    UIElement_p* platformSpecificEntity() const { return impl; }
    // Deletes the old description and takes the new one as a child.
    void setPlatformSpecificEntity(UIElement_p* newImpl);

    // Code 3 without a description.
    int findUIElementAndGetInteractionPoint(QPoint& point, bool requireHit,
                                            QFlags<UIElementSearchOption> options, QVariant alternative,
                                            UIElement** foundElement, bool* abort) const override;
    int findUIElementAndGetScreenRect(QRect& rect, QFlags<UIElementSearchOption> options,
                                      QVariant alternative, bool* abort) const override;
    int findUIElementAndCreateOSSpecificRepresentation(NativeUIElement& element,
                                                       QFlags<UIElementSearchOption> options,
                                                       QVariant alternative, bool* abort) const override;
    int findUIElementAtHierarchyLevelAndGetScreenRect(QRect& rect, int level,
                                                      QFlags<UIElementSearchOption> options,
                                                      QVariant alternative, bool* abort) const;
    // False without a description.
    bool matchingElementUnderElement(NativeUIElement& result, int& levelsUp, const NativeUIElement& start,
                                     QFlags<UIElementSearchOption> options) override;
    // "<uninitialized>" without a description.
    QString shortDescription(bool includeRole, bool includeApplication,
                             bool includeTargetType) const override;
    // True without a description.
    bool isNull() const override;
    QStringList actionNames() const override;
    QStringList actionDescriptions() const override;
    // (0, 0) without a description.
    QPoint localInteractionPoint() const override;
    // "< uninitialized >" without a description.
    QString hierarchyDescription() const override;

    bool isDegenerate() const;
    QRect screenRect() const;
    QPoint screenInteractionPoint() const;
    QString applicationId() const;
    QString debugInfo() const;
    QString htmlHierarchyDescription() const;
    QString shortDescriptionOfElementAtHierarchyLevel(int level, bool includeRole, bool includeApplication,
                                                      bool includeTargetType) const;
    int hierarchySize() const;
    QMap<QString, QVariant> attributeValuesForElementAtHierarchyLevel(int level) const;
    QStringList definingAttributesForElementAtHierarchyLevel(int level) const;
    bool canEditDefiningAttributesAtHierarchyLevel(int level) const;
    bool usesSpecializedMatchingMethodAtHierarchyLevel(int level) const;
    QVariant optionForElementAtHierarchyLevel(int level, const QString& key) const;
    // False also when the other element has no description.
    bool resolvesToSameOSSpecificElement(const UIElement* other, QFlags<UIElementSearchOption> options) const;
    bool isEqualToElement(const UIElement* other) const;
    void copyType(UIElementType* type) const;
    void raiseElement(int mode, QFlags<UIElementSearchOption> options) const;
    void selectDefaultDefiningAttributesForHierarchy();
    void setTargetType(const QString& targetType);

    // These need a description.
    bool canCreateOSSpecificUIElementRepresentation(QFlags<UIElementSearchOption> options) const;
    bool validate(QString& error, QFlags<UIElementSearchOption> options) const;
    int matchingMethod() const;
    void markAsDegenerate();
    // A new element without a parent, holding a deep copy of the parent level; the caller owns it.
    UIElement* copyParentElement() const;
    QVariant readInternalProperty(const char* name) const;
    void setNull();

    static void copyTypeFromNativeElement(UIElementType* type, const NativeUIElement& element);
    static QString attributeDisplayName(const QString& name);
    static bool attributeHasBooleanValue(const QString& name);

public Q_SLOTS:
    void setInteractionPointFromLocalPoint(QPoint newOffset);
    void setInteractionPointFromScreenPoint(QPoint p);
    void setMatchingMethod(int method);
    void setDefiningAttributesForElementAtHierarchyLevel(int level, QStringList newValue);
    void setAttributeValueForElementAtHierarchyLevel(int level, const QString& attributeName,
                                                     const QVariant& value);
    void setAttributeValueForElementAtHierarchyLevel(int level, const QString& attributeName, int value);
    void setAttributeValueForElementAtHierarchyLevel(int level, const QString& attributeName,
                                                     long long value);
    void setAttributeValueForElementAtHierarchyLevel(int level, const QString& attributeName, double value);
    void setAttributeValueForElementAtHierarchyLevel(int level, const QString& attributeName, bool value);
    void setAttributeValueForElementAtHierarchyLevel(int level, const QString& attributeName,
                                                     const QString& value);
    void setAttributeValueForElementAtHierarchyLevel(int level, const QString& attributeName,
                                                     const QRect& value);
    void setAttributeValueForElementAtHierarchyLevel(int level, const QString& attributeName,
                                                     const QRectF& value);
    void setAttributeValueForElementAtHierarchyLevel(int level, const QString& attributeName,
                                                     const QPoint& value);
    void setAttributeValueForElementAtHierarchyLevel(int level, const QString& attributeName,
                                                     const QPointF& value);
    void setAttributeValueForElementAtHierarchyLevel(int level, const QString& attributeName,
                                                     const QList<QString>& value);
    void setAttributeValueForElementAtHierarchyLevel(int level, const QString& attributeName,
                                                     const QList<QVariant>& value);
    void setOptionForElementAtHierarchyLevel(int level, QString key, QVariant val);

private:
    UIElement_p* impl = nullptr;
};

// The alternatives of a collection, in order of preference. It does not own the elements: they
// are children of the object that holds the list.
class UIElementList : public ZRSerializableStructureTemplateBase<int, UIElement*>, public QList<UIElement*> {
    Q_GADGET
    Q_CLASSINFO("__ZRSerializableStructure", "")
public:
    using QList<UIElement*>::QList;
    UIElementList() = default;
    UIElementList(const QList<UIElement*>& other);
    UIElementList(const UIElementList&) = default;
    UIElementList& operator=(const UIElementList&) = default;
    virtual ~UIElementList();

    Q_INVOKABLE bool isSequentialStructure() const override;
    QList<int> keyList() const override;
    UIElement*& getValueRef(const int& key) override;
    UIElement* getValue(const int& key) const override;
};

class UIElementCollection : public UIElementIdentifier {
    Q_OBJECT
    ZR_ENTITY_PROPERTY_NOTIFIERS(UIElementList, elements, setElements)
public:
    Q_INVOKABLE explicit UIElementCollection(QObject* parent = nullptr);

    // One shared empty collection, never to be re-parented or deleted.
    static UIElementCollection* emptyElementCollection();

    // The find operations try the elements in order. The first answer other than
    // UIElementNotFound ends the search, an error as much as a success; an empty collection can't
    // be asked and answers UIElementNotVerified.
    int findUIElementAndGetInteractionPoint(QPoint& point, bool requireHit,
                                            QFlags<UIElementSearchOption> options, QVariant alternative,
                                            UIElement** foundElement, bool* abort) const override;
    int findUIElementAndGetScreenRect(QRect& rect, QFlags<UIElementSearchOption> options,
                                      QVariant alternative, bool* abort) const override;
    int findUIElementAndCreateOSSpecificRepresentation(NativeUIElement& element,
                                                       QFlags<UIElementSearchOption> options,
                                                       QVariant alternative, bool* abort) const override;
    // The first element that matches wins; only then are result and levelsUp written.
    bool matchingElementUnderElement(NativeUIElement& result, int& levelsUp, const NativeUIElement& start,
                                     QFlags<UIElementSearchOption> options) override;
    // "< No UI element >", the one element's, or "< Multiple UI elements >".
    QString shortDescription(bool includeRole, bool includeApplication,
                             bool includeTargetType) const override;
    // True when empty or when every element is null.
    bool isNull() const override;
    // Those of the first element.
    QStringList actionNames() const override;
    QStringList actionDescriptions() const override;
    QPoint localInteractionPoint() const override;
    QString hierarchyDescription() const override;

    virtual const UIElementList& elements() const;
    // Takes the new elements as children. Elements that leave the list stay children, and only
    // elementsChanged() is emitted.
    virtual void setElements(const UIElementList& newElements);

    // Same count, and pairwise in order equal descriptions; an element without one is unequal.
    bool isEqualToElementCollection(const UIElementCollection* other) const;

Q_SIGNALS:
    void elementChanged(int index);

private:
    template <typename Ask, typename Ended> int firstAnswer(Ask ask, Ended ended) const;
    template <typename Describe> QString describe(Describe describe) const;
    const UIElement* firstElement() const;

    UIElementList elementList;
};

QDebug operator<<(QDebug debug, const UIElement& element);
QDebug operator<<(QDebug debug, const UIElement* element);
QDebug operator<<(QDebug debug, const UIElementCollection& collection);
QDebug operator<<(QDebug debug, const UIElementCollection* collection);
