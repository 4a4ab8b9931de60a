#pragma once

// The persistable identifiers of on-screen elements: a single UIElement, and a
// UIElementCollection of alternatives in order of preference. Both answer the same find
// operations with the same return codes.

#include "NativeUIElement.h"
#include "UIElementSearch.h"
#include "UIElement_p.h"
#include "ZREntity.h"
#include "ZRSerializableStructures.h"

#include <QFlags>
#include <QList>
#include <QObject>
#include <QVariant>

class UIElementIdentifier : public ZREntity {
    Q_OBJECT
public:
    using ZREntity::ZREntity;

    // Resolves the identifier against the live applications and hands the element to `element`.
    // `alternative` is the hint position (invalid for none), `abort` the abort flag (null for none).
    virtual int findUIElementAndCreateOSSpecificRepresentation(NativeUIElement& element,
                                                               QFlags<UIElementSearchOption> options,
                                                               QVariant alternative, bool* abort) const = 0;
    virtual bool isNull() const = 0;
};

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
    void setNull();
    bool isNull() const override;

    int findUIElementAndCreateOSSpecificRepresentation(NativeUIElement& element,
                                                       QFlags<UIElementSearchOption> options,
                                                       QVariant alternative, bool* abort) const override;

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

    // Tries the elements in order. The first answer other than UIElementNotFound ends the search,
    // an error as much as a success; an empty collection can't be asked and answers
    // UIElementNotVerified.
    int findUIElementAndCreateOSSpecificRepresentation(NativeUIElement& element,
                                                       QFlags<UIElementSearchOption> options,
                                                       QVariant alternative, bool* abort) const override;

    virtual const UIElementList& elements() const;
    // True when empty or when every element is null.
    bool isNull() const override;

    // Takes the new elements as children. Elements that leave the list stay children, and only
    // elementsChanged() is emitted.
    virtual void setElements(const UIElementList& newElements);

Q_SIGNALS:
    void elementChanged(int index);

private:
    UIElementList elementList;
};
