#pragma once

// The name of a display for people. From macOS 14 on, QScreen::name no longer gives the name
// that the system shows, so it is taken from the NSScreen of the same display.

#include <QString>

class QScreen;

// QScreen::name below macOS 14, and wherever the display's NSScreen cannot be found (with a
// warning, see maybeWarn). Qt's macOS screen class exists only in Apple builds: elsewhere the
// name is always QScreen::name. Empty for a null screen.
QString fixedQScreenName(const QScreen* screen);

// Warns that a display name may be wrong, with the reason at debug level: only the first call
// in the life of the process logs; later ones stay silent whatever the reason. Main thread only.
void maybeWarn(const QString& reason);
