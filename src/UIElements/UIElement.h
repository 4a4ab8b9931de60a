#pragma once

// The persistable identifiers of on-screen elements: a single UIElement, and a
// UIElementCollection of alternatives in order of preference. Both answer the same find
// operations with the same return codes.

#include "NativeUIElement.h"

#include <QFlags>
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

class UIElementIdentifier : public QObject {
    Q_OBJECT
public:
    using QObject::QObject;

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

class UIElementCollection : public UIElementIdentifier {
    Q_OBJECT
public:
    Q_INVOKABLE explicit UIElementCollection(QObject* parent = nullptr);

    int findUIElementAndCreateOSSpecificRepresentation(NativeUIElement& element,
                                                       QFlags<UIElementSearchOption> options,
                                                       QVariant alternative, bool* abort) const override;
};
