#include "UIElementType.h"

#include "UIElement.h"
#include "ZRMetaTypeRegistrar.h"

template class ZRMetaTypeObjectRegistrar<UIElementType>;

namespace {
const QString specialKey = QStringLiteral("_special");
}

UIElementType::UIElementType(QObject* parent) : ZREntity(parent) {}

UIElementType::UIElementType(const QMap<QString, QString>& identifiers, const QString& description,
                             QObject* parent)
    : ZREntity(parent) {
    m_identifiers = identifiers;
    m_description = description;
}

bool UIElementType::isNull() const {
    return identifiers().isEmpty();
}

// Through the setter with the whole map, so that listeners see one change of the property.
void UIElementType::addIdentifier(const QString& key, const QString& value) {
    ZRSerializableStringMap changed = identifiers();
    changed.insert(key, value);
    setIdentifiers(changed);
}

QString UIElementType::identifier(const QString& key) const {
    return identifiers().value(key);
}

bool UIElementType::isSpecialElement() const {
    return identifiers().contains(specialKey);
}

QString UIElementType::specialValue() const {
    return identifier(specialKey);
}

void UIElementType::setSpecialValue(const QString& value) {
    addIdentifier(specialKey, value);
}

UIElementType* UIElementType::nullElementType() {
    static UIElementType null;
    return &null;
}

bool UIElementType::matchingElementUnderElement(NativeUIElement& result, int& levelsUp,
                                                const NativeUIElement& start) const {
    int count = 0;
    for (NativeUIElement current = start; !current.isNull(); current = current.parentElement(), ++count) {
        UIElementType found;
        UIElement::copyTypeFromNativeElement(&found, current);
        if (found.identifiers() == identifiers()) {
            levelsUp = count;
            result = current;
            return true;
        }
    }
    return false;
}
