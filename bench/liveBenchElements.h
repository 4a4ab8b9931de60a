#pragma once

// What the live desktop benchmarks share besides their arguments: the elements of an application,
// and the running count of the D-Bus call counter (dbusCallCounter.cpp) when it is preloaded.

#include "CFTypeSmartRef.h"
#include "liveBenchArguments.h"
#include "osxUIElementUtils.h"

#include <QByteArray>
#include <QLoggingCategory>
#include <QMap>
#include <QString>

#include <dlfcn.h>

// The element and every element shown below it, depth first.
inline void collectLiveElements(AXUIElementRef element, UIElementAncestorList& elements, int depth = 0) {
    elements.append(CFTypeSharedRef<AXUIElementRef>(element));
    const CFTypeSmartRef<CFArrayRef> children(copyUIElementChildren(element));
    for (CFIndex i = 0; depth < 64 && i < CFArrayGetCount(children); ++i)
        collectLiveElements(static_cast<AXUIElementRef>(CFArrayGetValueAtIndex(children, i)), elements,
                            depth + 1);
}

using DBusCallCounter = unsigned long long (*)();

// Null when the counter is not preloaded.
inline DBusCallCounter preloadedDBusCallCounter() {
    return reinterpret_cast<DBusCallCounter>(dlsym(RTLD_DEFAULT, "dbusCallCount"));
}

// The preloaded counter's other two counts; each null when it is not preloaded.
struct DBusCounters {
    DBusCallCounter messages = nullptr; // every message sent
    DBusCallCounter waits = nullptr;    // calls that block until their reply is in
};

inline DBusCounters preloadedDBusCounters() {
    return {reinterpret_cast<DBusCallCounter>(dlsym(RTLD_DEFAULT, "dbusMessageCount")),
            reinterpret_cast<DBusCallCounter>(dlsym(RTLD_DEFAULT, "dbusWaitCount"))};
}

// The preloaded counter's round trips so far by method name (a property read as
// "Get Interface.Property"); empty when it is not preloaded.
inline QMap<QString, quint64> preloadedDBusCallTally() {
    using Tally = size_t (*)(char*, size_t);
    QMap<QString, quint64> counts;
    const auto tally = reinterpret_cast<Tally>(dlsym(RTLD_DEFAULT, "dbusCallTally"));
    if (!tally)
        return counts;
    QByteArray text(int(tally(nullptr, 0)) + 1, '\0');
    tally(text.data(), size_t(text.size()));
    for (const QByteArray& line : text.left(text.indexOf('\0')).split('\n')) {
        const int space = line.indexOf(' ');
        if (space > 0)
            counts.insert(QString::fromUtf8(line.mid(space + 1)), line.left(space).toULongLong());
    }
    return counts;
}

// What the benchmarks over every element of one application start from: its arguments
// (PID [REPEATS]), the debug lines of the code asked turned off (the notes it logs on elements it
// cannot place are not the benchmark's business), the D-Bus counter and the elements.
struct LiveBenchStart {
    pid_t pid = 0;
    int repeats = 0;
    DBusCallCounter counter = nullptr;
    UIElementAncestorList elements;
};

// False, with the usage printed, on bad arguments.
inline bool startLiveBench(const QStringList& arguments, LiveBenchStart& start) {
    if (!readLiveBenchArguments(arguments, 3, start.pid, start.repeats))
        return false;
    QLoggingCategory::setFilterRules(QStringLiteral("*.debug=false"));
    start.counter = preloadedDBusCallCounter();
    const CFTypeSmartRef<AXUIElementRef> root(AXUIElementCreateApplication(start.pid));
    collectLiveElements(root, start.elements);
    return true;
}
