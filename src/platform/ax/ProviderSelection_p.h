#pragma once

#include "AccessibilityProvider.h"

// The provider that UIET_ACCESSIBILITY names. Logs why when it has to fall back to one that
// answers every query with a failure.
std::shared_ptr<AccessibilityProvider> createProviderFromEnvironment();
