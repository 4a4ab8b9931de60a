#pragma once

// The accessibility result codes by the names of Apple's headers ("kAXErrorCannotComplete"), for
// desktop fixtures and for messages to people. The same on every platform.

#include <QString>

#include <optional>

// Empty for a code that is no AXError.
QString axErrorName(int code);
// The code of a name, kAXErrorSuccess included; nothing for an unknown name.
std::optional<int> axErrorCode(const QString& name);
