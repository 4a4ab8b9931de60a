#pragma once
// Some value types can only be built while a QGuiApplication runs: a bitmap, or a pixmap with
// content, aborts any other process. The tool runs without one, yet reads settings text that a
// peer sent, and a value written as "@Variant(...)" builds whatever type its bytes name. These
// checks let a reader refuse such content before QSettings parses it.
#include <QByteArrayView>
#include <QString>

// Pixmaps, bitmaps, cursors, icons, and the values that may hold a pixmap (brushes, pens,
// palettes, text formats). False for everything when a QGuiApplication runs.
bool typeNeedsGuiApplication(int typeId);

// Whether QSettings can read every value of this INI text in this process. False when a value it
// would convert from "@Variant(...)" names a type that needs a QGuiApplication, or one whose stream
// form is unknown here and might hold such a type, or a type registered by the program with stream
// operators of its own, or an easing curve (its stream holds the address of a function); also when it claims
// more items than its bytes could hold (Qt would reserve room for all of them first) or nests variants deeper
// than 64. `problem` then says which.
bool iniTextIsReadableHere(QByteArrayView text, QString* problem = nullptr);
