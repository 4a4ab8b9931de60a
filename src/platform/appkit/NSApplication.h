#pragma once

// The application object under AppKit's name, as far as the services need it: its activation
// policy. On Linux no dock or application switcher reads the policy: it is kept, and answered,
// for the logic that decides on it.

#include "NSRunningApplication.h"

class NSApplication {
public:
    static NSApplication* sharedApplication();

    NSApplicationActivationPolicy activationPolicy() const;
    // False for a value that is no policy.
    bool setActivationPolicy(NSApplicationActivationPolicy policy);

private:
    NSApplication() = default;
};
