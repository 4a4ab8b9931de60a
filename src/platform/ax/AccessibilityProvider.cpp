#include "AccessibilityProvider.h"

#include "ElementHandle_p.h"
#include "ProviderSelection_p.h"

#include <QMutex>

#include <atomic>

namespace {

quint64 nextSerial() {
    static std::atomic<quint64> last{0};
    return ++last;
}

QBasicMutex activeProviderMutex;

// Never destroyed: the provider must outlive every static that may still make a call while the
// process ends.
std::shared_ptr<AccessibilityProvider>& activeProviderSlot() {
    static auto* slot = new std::shared_ptr<AccessibilityProvider>;
    return *slot;
}

} // namespace

AccessibilityProvider::AccessibilityProvider() : serialNumber(nextSerial()) {}

AccessibilityProvider::~AccessibilityProvider() = default;

std::optional<ApplicationInfo> AccessibilityProvider::application(pid_t pid) {
    for (const ApplicationInfo& info : applications()) {
        if (info.pid == pid)
            return info;
    }
    return std::nullopt;
}

std::unique_ptr<QObject> AccessibilityProvider::watchApplications(std::function<void()>) {
    return nullptr;
}

AXUIElementRef AccessibilityProvider::createHandle(const Element& element) const {
    return ElementHandle::create(serialNumber, element);
}

bool AccessibilityProvider::elementOfHandle(CFTypeRef handle, Element* element) const {
    quint64 serial = 0;
    return ElementHandle::read(handle, &serial, element) && serial == serialNumber;
}

std::shared_ptr<AccessibilityProvider> activeAccessibilityProvider() {
    QMutexLocker locker(&activeProviderMutex);
    std::shared_ptr<AccessibilityProvider>& slot = activeProviderSlot();
    if (!slot)
        slot = createProviderFromEnvironment();
    return slot;
}

void setAccessibilityProviderForTesting(std::shared_ptr<AccessibilityProvider> provider) {
    {
        QMutexLocker locker(&activeProviderMutex);
        activeProviderSlot().swap(provider);
    }
    // The previous provider, if this was its last owner, goes here, outside the lock.
}
