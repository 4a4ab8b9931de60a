#pragma once

// Two system-wide event taps on a thread of their own: one that takes keystrokes away from all
// applications and hands them to one receiver, and one that listens to the modifier keys and
// tells any number of subscribers. Delivery to receivers and subscribers is on their own threads.
//
// Here rather than in osxUtilities because the keystrokes are matched by their canonical text
// (keyboard.h), which lives in this library.

#include <QFlags>
#include <QObject>
#include <QPointer>
#include <QSet>
#include <QSharedPointer>
#include <QString>

#include <functional>

// Carries tap events to another thread: a fixed one per tap receives from the tap thread, and one
// per receiver, moved to the receiver's thread, passes them on.
class EventFilteringProxy : public QObject {
    Q_OBJECT
signals:
    void keystrokeEvent(long keycode, Qt::KeyboardModifiers modifiers, qulonglong nativeModifiers);
    void modifierEvent(Qt::KeyboardModifiers modifiers, qulonglong nativeModifiers);
};

// The token of a modifier subscription.
struct ModifierChangedCallbackData {
    QPointer<EventFilteringProxy> proxy;
};

// Starts the tap thread and waits up to 2000 ms for it: true when both taps exist. A second call
// while the thread exists logs and returns false. isArtificialEvent, given a tap's CGEventRef,
// marks the system's own synthetic events, which are passed on and never reported.
bool osxInitializeEventFiltering();
bool osxInitializeEventFiltering(const std::function<bool(void*)>& isArtificialEvent);
void osxDeinitializeEventFiltering();

// Makes receiver the one receiver of keystrokes: key downs of the canonical texts in keys (all
// keys when empty) reach member, a normalized slot signature taking (long, Qt::KeyboardModifiers,
// quint64), and are swallowed with their key ups. The last to begin wins; the receiver's
// destruction ends the interception.
void osxBeginInterceptingKeystrokes(QObject* receiver, const char* member, const QSet<QString>& keys);
void osxEndInterceptingKeystrokes();

// Subscribes to modifier changes, delivered on context's thread (on the caller's thread without
// one) until the subscription is removed or context is destroyed.
QSharedPointer<ModifierChangedCallbackData> osxAddModifierChangedCallback(
    QObject* context, const std::function<void(QFlags<Qt::KeyboardModifier>, unsigned long long)>& callback);
QSharedPointer<ModifierChangedCallbackData> osxAddModifierChangedCallback(
    const std::function<void(QFlags<Qt::KeyboardModifier>, unsigned long long)>& callback);
// A null token is ignored, as is a second removal.
void osxRemoveModifierChangedCallback(QSharedPointer<ModifierChangedCallbackData> data);
