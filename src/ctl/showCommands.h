#pragma once

// ui-element-ctl show and edit: a saved UIElementCollection as a person reads it in the main
// application (each alternative, level by level, with the attribute values under their display
// names), and the edits a person makes there, written back to the file whole or not at all.

#include "inspectorCommands.h"

#include <QString>
#include <QStringList>

// Prints every alternative of the collection saved in the one operand. Status 0, or 2 for bad
// input (no such file, no collection in it, other operands).
int runShow(const InspectorOptions& options, const QStringList& operands);

// operands: FILE, [--alternative K], --level N and the edits (--set NAME=VALUE, --defining A,B,
// --matching builtin|strict|custom, --option KEY=VALUE) in the order they are applied. Writes
// FILE back only when every edit took and the result comes through saving unchanged, and prints
// the new hierarchy description. Status 0, or 2 for bad input, with FILE untouched.
int runEdit(const InspectorOptions& options, const QStringList& operands);
