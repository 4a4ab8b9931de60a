#include "UIElement.h"

#include "ZRMetaTypeRegistrar.h"

#include <algorithm>

template class ZRMetaTypeObjectRegistrar<UIElement>;
template class ZRMetaTypeObjectRegistrar<UIElementCollection>;
template class ZRMetaTypeRegistrar<UIElementList>;

UIElement::UIElement(QObject* parent) : UIElementIdentifier(parent), impl(new UIElement_p(this)) {}

UIElement::UIElement(QPoint position, QObject* parent)
    : UIElementIdentifier(parent), impl(new UIElement_p(position, this)) {}

UIElement::UIElement(const NativeUIElement& element, QObject* parent)
    : UIElementIdentifier(parent),
      impl(element.isNull() ? new UIElement_p(this) : new UIElement_p(element, this)) {
    if (element.isNull())
        impl->setNull();
}

UIElement::UIElement(decltype(nullptr), QObject* parent)
    : UIElementIdentifier(parent), impl(new UIElement_p(this)) {
    impl->setNull();
}

void UIElement::setPlatformSpecificEntity(UIElement_p* newImpl) {
    if (newImpl == impl)
        return;
    delete impl;
    impl = newImpl;
    if (impl)
        impl->setParent(this);
}

void UIElement::setNull() {
    impl->setNull();
}

bool UIElement::isNull() const {
    return !impl || impl->isNull();
}

// An element without a description behind it cannot be verified.
int UIElement::findUIElementAndCreateOSSpecificRepresentation(NativeUIElement& element,
                                                              QFlags<UIElementSearchOption> options,
                                                              QVariant alternative, bool* abort) const {
    if (!impl)
        return UIElementNotVerified;
    return impl->findUIElementAndCreateOSSpecificRepresentation(element, alternative, options, abort);
}

UIElementList::UIElementList(const QList<UIElement*>& other) : QList<UIElement*>(other) {}

UIElementList::~UIElementList() = default;

bool UIElementList::isSequentialStructure() const {
    return true;
}

QList<int> UIElementList::keyList() const {
    return indexList(*this);
}

UIElement*& UIElementList::getValueRef(const int& key) {
    return growingElementRef<UIElement*>(*this, key, defaultValue());
}

UIElement* UIElementList::getValue(const int& key) const {
    return at(key);
}

UIElementCollection::UIElementCollection(QObject* parent) : UIElementIdentifier(parent) {}

int UIElementCollection::findUIElementAndCreateOSSpecificRepresentation(NativeUIElement& element,
                                                                        QFlags<UIElementSearchOption> options,
                                                                        QVariant alternative,
                                                                        bool* abort) const {
    const UIElementList alternatives = elements();
    if (alternatives.isEmpty())
        return UIElementNotVerified;
    for (const UIElement* candidate : alternatives) {
        // A gap left by a list loaded with missing indices is no alternative.
        if (!candidate)
            continue;
        const int code =
            candidate->findUIElementAndCreateOSSpecificRepresentation(element, options, alternative, abort);
        if (code != UIElementNotFound)
            return code;
    }
    return UIElementNotFound;
}

bool UIElementCollection::isNull() const {
    return std::all_of(elementList.cbegin(), elementList.cend(),
                       [](const UIElement* element) { return !element || element->isNull(); });
}

const UIElementList& UIElementCollection::elements() const {
    return elementList;
}

void UIElementCollection::setElements(const UIElementList& newElements) {
    for (UIElement* element : newElements) {
        if (element)
            element->setParent(this);
    }
    elementList = newElements;
    Q_EMIT elementsChanged();
}
