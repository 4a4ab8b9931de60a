#pragma once

// The scripted desktop: applications, windows and element trees held in memory, loaded from a
// JSON fixture (tests/fixtures/README.md) and changeable while the process runs, with faults
// that can be injected per element. It makes every behaviour of the accessibility code testable
// without a real desktop.
//
// Only the platform layer and tests include this header; code above the seam never does.

#include "DesktopModel.h"
#include "ax/AccessibilityProvider.h"
#include "ax/PlatformCallCounters.h"

#include <QByteArray>
#include <QJsonObject>
#include <QMutex>
#include <QString>

#include <atomic>
#include <memory>
#include <optional>

class FixtureFileWatcher;

class VirtualDesktop final : public AccessibilityProvider {
public:
    struct FixtureError {
        QString file;    // the fixture's path, or the source name of a fixture given in code
        QString place;   // a JSON path ("applications[2].windows[0].children[3]"), a line and column, or
                         // empty when the file cannot be read
        QString problem; // empty: no error
    };

    // Without a fixture the desktop is unreachable: every query fails.
    VirtualDesktop();
    ~VirtualDesktop() override;

    // Each load replaces the whole desktop. A fixture that is not a desktop leaves none, and
    // logs its problem. Handles on elements that the new desktop keeps go on naming them;
    // handles on the others answer kAXErrorInvalidUIElement.
    bool load(const QByteArray& json, const QString& source = QStringLiteral("<fixture>"));
    bool load(const QJsonObject& fixture, const QString& source = QStringLiteral("<fixture>"));
    // Loads the file now, and again whenever its content changes, for as long as this desktop lives.
    bool watchFile(const QString& path);
    FixtureError lastError() const;
    // Loads attempted so far, by hand or because the file changed; a test waits on it for a reload.
    quint64 loadCount() const;

    // Busy applications answer at once instead of after their delay (for fuzzing).
    void setDelaysEnabled(bool enabled);

    // For tests: a handle on the element with this "id" in the fixture, NULL when there is none.
    AXUIElementRef copyElement(const QString& fixtureId) const;
    // For tests: the "id" in the fixture of the element a handle names; empty for NULL, for a
    // handle of another provider and for an element without one.
    QString fixtureIdOf(CFTypeRef handle) const;
    // How often the element's action has been performed since the last load.
    int actionCount(const QString& fixtureId, const QString& action) const;
    // How often a process asked for the trust prompt.
    int trustPromptCount() const;

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

private:
    struct WatchLink;
    using Desktop = VirtualDesktopModel::Desktop;

    bool loadLocked(const QByteArray& json, const QString& source);
    void reloadWatchedFile();
    void fail(const FixtureError& error);

    // The steps every element query takes, in this order; each answers the error with which the
    // query ends, or success to go on. busyDelayMs is set when the application is busy: the
    // query ends after that delay, which is waited for without the lock.
    AXError reachDesktop() const;
    AXError reachApplication(pid_t pid, int* busyDelayMs);
    AXError reachNode(int node, PlatformCall call);
    void pause(int delayMs) const;
    // Runs answer(node) for the element, or for -1 when it is the system-wide element.
    template <class Answer> AXError ask(const Element& element, PlatformCall call, Answer&& answer);

    int nodeIndex(const Element& element) const;
    int nodeWithFixtureId(const QString& fixtureId) const;
    // The attribute's value after the read faults of the element.
    AXError read(int node, const QString& attribute, VirtualDesktopModel::Value* value) const;
    void store(int node, const QString& attribute, const VirtualDesktopModel::Value& value);

    mutable QMutex mutex;
    std::optional<Desktop> desktop;
    VirtualDesktopModel::ElementIds ids;
    FixtureError error;
    quint64 loads = 0;
    int trustPrompts = 0;
    std::atomic<bool> delaysEnabled{true};

    QString watchedPath;
    std::optional<QByteArray> watchedBytes; // the file content of the last load from the file
    std::shared_ptr<WatchLink> link;
    FixtureFileWatcher* watcher = nullptr;
};
