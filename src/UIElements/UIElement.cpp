#include "UIElement.h"

UIElement::UIElement(QObject* parent) : UIElementIdentifier(parent) {}

// An element without an implementation behind it cannot be verified.
int UIElement::findUIElementAndCreateOSSpecificRepresentation(NativeUIElement&, QFlags<UIElementSearchOption>,
                                                              QVariant, bool*) const {
    return UIElementNotVerified;
}

UIElementCollection::UIElementCollection(QObject* parent) : UIElementIdentifier(parent) {}

// A collection with no alternatives cannot be verified.
int UIElementCollection::findUIElementAndCreateOSSpecificRepresentation(NativeUIElement&,
                                                                        QFlags<UIElementSearchOption>,
                                                                        QVariant, bool*) const {
    return UIElementNotVerified;
}
