#include "NSApplication.h"

#include <atomic>

namespace {

std::atomic<NSApplicationActivationPolicy> policy{NSApplicationActivationPolicyRegular};

} // namespace

NSApplication* NSApplication::sharedApplication() {
    static NSApplication application;
    return &application;
}

NSApplicationActivationPolicy NSApplication::activationPolicy() const {
    return policy;
}

bool NSApplication::setActivationPolicy(NSApplicationActivationPolicy newPolicy) {
    if (newPolicy < NSApplicationActivationPolicyRegular ||
        newPolicy > NSApplicationActivationPolicyProhibited)
        return false;
    policy = newPolicy;
    return true;
}
