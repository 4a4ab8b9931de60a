#include "ZRUIElementToolData.h"

#include <utility>

ZRUIElementToolData::ZRUIElementToolData(QObject* parent) : QObject(parent) {}

const int& ZRUIElementToolData::command() const {
    return m_command;
}

// Setters store and signal without comparing: listeners hear every write.
void ZRUIElementToolData::setCommand(const int& newValue) {
    const int oldValue = std::exchange(m_command, newValue);
    Q_EMIT commandChanged();
    Q_EMIT commandChangedToValue(oldValue, newValue);
}

const qulonglong& ZRUIElementToolData::id() const {
    return m_id;
}

void ZRUIElementToolData::setId(const qulonglong& newValue) {
    const qulonglong oldValue = std::exchange(m_id, newValue);
    Q_EMIT idChanged();
    Q_EMIT idChangedToValue(oldValue, newValue);
}

UIElementCollection* const& ZRUIElementToolData::elements() const {
    return m_elements;
}

void ZRUIElementToolData::setElements(UIElementCollection* const& newValue) {
    UIElementCollection* oldValue = std::exchange(m_elements, newValue);
    Q_EMIT elementsChanged();
    Q_EMIT elementsChangedToValue(oldValue, newValue);
}
