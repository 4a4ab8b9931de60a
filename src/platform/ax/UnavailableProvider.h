#pragma once

// The provider of a process that cannot reach any desktop: every query fails, as on a system
// that has not granted this process accessibility access. The process keeps running.

#include "AccessibilityProvider.h"

class UnavailableProvider final : public AccessibilityProvider {
public:
    Element applicationElement(pid_t pid) override;
    AXError copyAttributeValue(const Element& element, const QString& attribute, CFTypeRef* value) override;
    AXError copyAttributeNames(const Element& element, QStringList* names) override;
    AXError attributeValueCount(const Element& element, const QString& attribute, CFIndex* count) override;
    AXError isAttributeSettable(const Element& element, const QString& attribute, bool* settable) override;
    AXError setAttributeValue(const Element& element, const QString& attribute, CFTypeRef value) override;
    AXError copyActionNames(const Element& element, QStringList* names) override;
    AXError copyActionDescription(const Element& element, const QString& action,
                                  QString* description) override;
    AXError performAction(const Element& element, const QString& action) override;
    AXError elementAtPosition(const Element& scope, CGPoint point, Element* hit) override;
    AXError windowOfElement(const Element& element, CGWindowID* windowID) override;
    CGError windowList(QList<WindowInfo>* windows) override;
    QList<ApplicationInfo> applications() override;
    QList<ScreenInfo> screens() override;
    ZoomInfo zoom() override;
    double menuBarHeight() override;
    CGPoint mousePosition() override;
    bool isProcessTrusted(bool prompt) override;
    bool isAPIEnabled() override;
};
