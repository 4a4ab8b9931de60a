#pragma once

// The one NSRunningApplication object of a process of a provider (by its serial), made on first
// sight and kept for the life of the process, so that it can still be handed out after the
// application has quit.

#include "NSRunningApplication.h"
#include "ax/AccessibilityProvider.h"

NSRunningApplication* runningApplicationFor(quint64 providerSerial, const ApplicationInfo& info);
