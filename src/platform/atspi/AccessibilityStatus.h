#pragma once

// Whether the desktop's accessibility is on: the property IsEnabled of org.a11y.Status on the
// accessibility bus launcher (org.a11y.Bus at /org/a11y/bus on the session bus). The toolkits
// read it when an application starts and watch it afterwards: while it is false they expose no
// trees, unless told to by their own settings (QT_LINUX_ACCESSIBILITY_ALWAYS_ON, a screen reader).

#include <optional>

inline constexpr int accessibilityStatusTimeoutMs = 1000;

// Nullopt when the session bus or the launcher cannot be reached.
std::optional<bool> accessibilityStatusEnabled(int timeoutMs = accessibilityStatusTimeoutMs);
// Sets IsEnabled to true; the toolkits then expose their trees. False when it could not be set.
bool enableAccessibilityStatus(int timeoutMs = accessibilityStatusTimeoutMs);
