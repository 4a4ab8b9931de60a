#pragma once

// Hiding the mouse cursor for several independent reasons at once. Each reason is an int id; the
// cursor comes back when the last reason is gone or, for reasons that ask for it, at the next real
// mouse activity. A mouse tracking thread listens to the mouse through two event taps, and
// watches with its timers that the cursor stays hidden while some reason wants it so.
//
// hideCursor, showCursor and the queries may be called from any thread; the tap callbacks and
// the timers run on the tracking thread.

#include "platformEvents.h"

#include <QObject>
#include <QSet>
#include <QString>

#include <functional>
#include <memory>

class QElapsedTimer;
class QThread;
class QTimer;

// 1: the hide cursor during touches feature; 1000 and above: a magnifier; others: other reasons.
QString cursorHidingReasonDescription(int reason);
int cursorHidingReasonForMagnifierId(unsigned int magnifierId);
bool cursorHidingReasonIsMagnifier(unsigned int reason);

// Start the tracking thread; always true. The test tells the system's own synthetic events from
// real mouse activity.
bool initializeCursorHiding();
bool initializeCursorHiding(const std::function<bool(__CGEvent*)>& isArtificialEvent);
void deinitializeCursorHiding();

bool isCursorHidingAvailable();
void displayWarningIfCursorHidingIsUnavailable();

void hideCursor(int reason);
void showCursor(int reason);
void showCursor(QSet<int> reasons);
// The reason, hidden or not, ends at the next real mouse activity.
void showCursorOnMouseMovement(int reason);
void updateCursorMovementEventTap();

bool isCursorHidden();
bool isCursorHiddenForOtherReasons(int reason);
bool isCursorHiddenForNonMagnifierReason();

// On the tracking thread: when another process has brought the hidden cursor back, hides it
// again and returns true.
bool checkCursorVisibility();

// The object that runs on the tracking thread: its timers and its event taps.
class MouseTrackingThreadHelper : public QObject {
    Q_OBJECT
public:
    MouseTrackingThreadHelper();
    ~MouseTrackingThreadHelper() override;

    // From any thread.
    void startContinualCursorCheckTimer();
    void stopContinualCursorCheckTimer();
    // On the tracking thread.
    void startPostButtonCursorCheckTimer();
    void stopPostButtonCursorCheckTimer();
    bool createEventTaps();
    void destroyEventTaps();
    void keepTryingToCreateEventTapUntilSuccess();
    void runThread();
    void stopRunLoop();
    // From another thread: whether the thread stopped within the time.
    bool stopThreadWithTimeout(double seconds);

private:
    QTimer* continualCursorCheckTimer;
    QTimer* postButtonCursorCheckTimer;
    QTimer* eventTapRetryTimer;
    std::unique_ptr<QElapsedTimer> postButtonCheckStart;
};

extern QThread* mouseTrackingThread;
extern MouseTrackingThreadHelper* mouseTrackingThreadHelper;
