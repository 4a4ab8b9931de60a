#pragma once

// The vocabulary of every search for an element: its options, its return codes, the abort flag
// and the matching methods of a level.

#include <QFlags>

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

// The abort flag of a search: a pointer that may be null, only ever read.
inline bool shouldAbort(const bool* abort) {
    return abort && *abort;
}

// Matching methods of a level.
inline constexpr int BuiltInMatching = 0;
inline constexpr int StrictMatching = 1;
inline constexpr int CustomMatching = 2;
