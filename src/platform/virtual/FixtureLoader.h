#pragma once

// Reads a desktop from the JSON of a fixture (tests/fixtures/README.md describes the format).

#include "DesktopModel.h"

#include <QByteArray>
#include <QString>

namespace VirtualDesktopModel {

struct FixtureProblem {
    QString place; // JSON path ("applications[2].windows[0].children[3]"), "line 3, column 7" or "top level"
    QString problem; // what is wrong there
};

// False with the problem when the fixture is not a desktop; desktop is then unspecified.
// ids gives the elements their ids, and keeps them across loads.
bool loadDesktop(const QByteArray& json, ElementIds& ids, Desktop* desktop, FixtureProblem* problem);

} // namespace VirtualDesktopModel
