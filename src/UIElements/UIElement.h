#pragma once

// The persistable identifiers of on-screen elements: a single UIElement, and a
// UIElementCollection of alternatives in order of preference. Both answer the same find
// operations with the same return codes.

#include "NativeUIElement.h"
#include "ZREntity.h"
#include "ZRSerializableStructures.h"

#include <QFlags>
#include <QList>
#include <QObject>
#include <QVariant>

enum UIElementSearchOption {
    // Localized titles and attribute values also match through the application's translations.
    UIElementSearchMatchTranslations = 1
};
Q_DECLARE_FLAGS(UIElementSearchOptions, UIElementSearchOption)
Q_DECLARE_OPERATORS_FOR_FLAGS(UIElementSearchOptions)

// Return codes of the find operations. Below UIElementNotVerified the question was answered;
// only UIElementNotFound lets a collection try its next alternative.
inline constexpr int UIElementFound = 0;
inline constexpr int UIElementNotFound = 1;
inline constexpr int UIElementNotReachable = 2;
inline constexpr int UIElementNotVerified = 3;
inline constexpr int UIElementSearchAborted = 5;

class UIElementIdentifier : public ZREntity {
    Q_OBJECT
public:
    using ZREntity::ZREntity;

    // Resolves the identifier against the live applications and hands the element to `element`.
    // `alternative` is the hint position (invalid for none), `abort` the abort flag (null for none).
    virtual int findUIElementAndCreateOSSpecificRepresentation(NativeUIElement& element,
                                                               QFlags<UIElementSearchOption> options,
                                                               QVariant alternative, bool* abort) const = 0;
};

class UIElement : public UIElementIdentifier {
    Q_OBJECT
public:
    Q_INVOKABLE explicit UIElement(QObject* parent = nullptr);

    int findUIElementAndCreateOSSpecificRepresentation(NativeUIElement& element,
                                                       QFlags<UIElementSearchOption> options,
                                                       QVariant alternative, bool* abort) const override;
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

    // Tries the elements in order. The first answer other than UIElementNotFound ends the search,
    // an error as much as a success; an empty collection can't be asked and answers
    // UIElementNotVerified.
    int findUIElementAndCreateOSSpecificRepresentation(NativeUIElement& element,
                                                       QFlags<UIElementSearchOption> options,
                                                       QVariant alternative, bool* abort) const override;

    virtual const UIElementList& elements() const;
    // Takes the new elements as children. Elements that leave the list stay children, and only
    // elementsChanged() is emitted.
    virtual void setElements(const UIElementList& newElements);

Q_SIGNALS:
    void elementChanged(int index);

private:
    UIElementList elementList;
};
