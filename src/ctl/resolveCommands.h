#pragma once

// ui-element-ctl resolve: one resolution of a saved description, as the tool's tick makes it, with
// its return code, the element found and its chain, the time it took and the platform calls it
// made.

#include "inspectorCommands.h"

#include <QString>
#include <QStringList>
#include <QVariant>

#include <optional>

struct ResolveOptions {
    QVariant hint;             // a QPoint, or invalid for none
    std::optional<int> level;  // the level of the first alternative's chain instead of the collection
    bool translations = false; // UIElementSearchMatchTranslations
    int repeat = 1;
    bool explain = false; // trace the first resolution, level by level
};

// Most resolutions that --repeat asks for.
inline constexpr int maximumResolveRepeat = 100000;

// Takes --hint X,Y, --level N, --translations, --repeat N and --explain out of arguments, wherever
// they stand; false, with one line on the error stream, for a value that is missing or bad.
bool takeResolveOptions(QStringList& arguments, ResolveOptions& options);

// Resolves the UIElementCollection saved in filePath and prints the answer, with --explain first the
// deepest level each alternative's walk reached and why it ended there, and last the walk's trace.
// Status 0 when found, 1 for any other return code, 2 for bad input (no such file, no collection in
// it, no such level).
int runResolve(const InspectorOptions& inspector, const ResolveOptions& options, const QString& filePath);
