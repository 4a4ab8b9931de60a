// The cost of one resolution, as the tool's tick makes it, at every depth of one running
// application: every element with a frame is captured from a handle, as a user's pick does, and
// each sound description (not null, not degenerate) is then resolved from its application down,
// 10 ms after the one before (the tool's ticks are further apart; nothing the provider keeps for a
// few milliseconds reaches from one resolution to the next). A resolution counts as found when it
// gives the captured element. Prints per depth (hierarchySize() - 1): the descriptions, found and
// failed, the median and longest time, the accessibility calls and, when the D-Bus call counter
// is preloaded, the messages sent and the waits for a reply, each per resolution; then per depth
// which accessibility functions and which bus calls those were. Depth 0 is the application alone,
// found from the top level of a description: the part every resolution pays first.
// Run on a live desktop by scripts/bench.sh.
//   bench_resolution PID [REPEATS]

#include "CFTypeSmartRef.h"
#include "UIElement_p.h"
#include "ax/PlatformCallCounters.h"
#include "liveBenchArguments.h"
#include "liveBenchElements.h"
#include "osxUIElementUtils.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QTextStream>
#include <QThread>

#include <algorithm>
#include <functional>
#include <map>
#include <memory>
#include <vector>

namespace {

struct Description {
    std::unique_ptr<UIElement_p> description;
    CFTypeSharedRef<AXUIElementRef> element;
};

struct DepthCost {
    int descriptions = 0;
    int found = 0;
    int failed = 0;
    QList<qint64> ns;
    quint64 messages = 0;
    quint64 waits = 0;
    QMap<QString, quint64> platformCalls; // by function
    QMap<QString, quint64> busCalls;      // by method
};

NativeUIElement liveHandle(AXUIElementRef element) {
    NativeUIElement handle;
    handle.setOSSpecificElementReference(const_cast<void*>(CFRetain(element)));
    handle.setScreenPosition(UIElementRect(element).center());
    return handle;
}

quint64 countOf(DBusCallCounter counter) {
    return counter ? counter() : 0;
}

// Adds what `after` counts beyond `before` to `total`.
void addGrowth(QMap<QString, quint64>& total, const QMap<QString, quint64>& before,
               const QMap<QString, quint64>& after) {
    for (auto it = after.cbegin(); it != after.cend(); ++it) {
        if (it.value() > before.value(it.key()))
            total[it.key()] += it.value() - before.value(it.key());
    }
}

// Resolves once with `find`, after the tick's pause, and adds what it took to `cost`.
void resolve(const std::function<AXUIElementRef()>& find, AXUIElementRef expected,
             const DBusCounters& counters, DepthCost& cost) {
    QThread::msleep(10);
    const QMap<QString, quint64> calls = platformCallCounts();
    const quint64 messages = countOf(counters.messages);
    const quint64 waits = countOf(counters.waits);
    QElapsedTimer timer;
    timer.start();
    const CFTypeSmartRef<AXUIElementRef> found(find());
    cost.ns.append(timer.nsecsElapsed());
    cost.messages += countOf(counters.messages) - messages;
    cost.waits += countOf(counters.waits) - waits;
    addGrowth(cost.platformCalls, calls, platformCallCounts());
    if (!found.isNull() && CFEqual(found, expected))
        ++cost.found;
    else
        ++cost.failed;
}

// Runs the resolutions of one depth and adds the bus calls they made by name.
void measureDepth(DepthCost& cost, const std::function<void()>& resolutions) {
    const QMap<QString, quint64> before = preloadedDBusCallTally();
    resolutions();
    addGrowth(cost.busCalls, before, preloadedDBusCallTally());
}

QString perResolution(quint64 total, const DepthCost& cost) {
    return QString::number(double(total) / double(cost.ns.size()), 'f', 1);
}

// "name count" per resolution, the most frequent first.
QString breakdown(const QMap<QString, quint64>& counts, const DepthCost& cost) {
    QList<std::pair<quint64, QString>> ranked;
    for (auto it = counts.cbegin(); it != counts.cend(); ++it)
        ranked.append({it.value(), it.key()});
    std::sort(ranked.begin(), ranked.end(), [](const auto& a, const auto& b) { return a.first > b.first; });
    QStringList parts;
    for (const auto& [count, name] : ranked)
        parts.append(name + QLatin1Char(' ') + perResolution(count, cost));
    return parts.join(QStringLiteral(", "));
}

void printRow(QTextStream& out, int depth, DepthCost cost, bool counted) {
    std::sort(cost.ns.begin(), cost.ns.end());
    quint64 platformCalls = 0;
    for (quint64 count : std::as_const(cost.platformCalls))
        platformCalls += count;
    out << qSetFieldWidth(6) << depth << qSetFieldWidth(8) << cost.descriptions << cost.found << cost.failed
        << qSetFieldWidth(11) << QString::number(double(cost.ns.at(cost.ns.size() / 2)) / 1000.0, 'f', 0)
        << QString::number(double(cost.ns.last()) / 1000.0, 'f', 0) << qSetFieldWidth(10)
        << perResolution(platformCalls, cost)
        << (counted ? perResolution(cost.messages, cost) : QStringLiteral("-"))
        << (counted ? perResolution(cost.waits, cost) : QStringLiteral("-")) << qSetFieldWidth(0) << '\n';
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication application(argc, argv);
    LiveBenchStart start;
    if (!startLiveBench(application.arguments(), start))
        return 2;
    const DBusCounters counters = preloadedDBusCounters();
    QTextStream out(stdout);

    // Captured once, untimed; grouped by depth.
    std::map<int, std::vector<Description>> byDepth;
    int captured = 0;
    for (const auto& element : std::as_const(start.elements)) {
        if (UIElementRect(element).isNull())
            continue;
        ++captured;
        auto description = std::make_unique<UIElement_p>(liveHandle(element));
        if (description->isNull() || description->isDegenerate())
            continue;
        const int depth = description->hierarchySize() - 1;
        byDepth[depth].push_back({std::move(description), element});
    }
    if (byDepth.empty()) {
        out << "no sound description of an element with a frame\n";
        return 1;
    }

    // Depth 0: the top level of one description alone, the application: what every resolution
    // pays before it matches anything.
    std::map<int, DepthCost> costs;
    const UIElement_p& first = *byDepth.begin()->second.front().description;
    costs[0].descriptions = 1;
    measureDepth(costs[0], [&] {
        for (int i = 0; i < start.repeats; ++i)
            resolve(
                [&] {
                    return first.createOSSpecificUIElementRepresentationAtHierarchyLevel(0, {}, {}, nullptr);
                },
                start.elements.first(), counters, costs[0]);
    });
    for (const auto& [depth, descriptions] : byDepth) {
        DepthCost& cost = costs[depth];
        cost.descriptions = int(descriptions.size());
        measureDepth(cost, [&] {
            for (int i = 0; i < start.repeats; ++i) {
                for (const Description& d : descriptions)
                    resolve(
                        [&] {
                            return d.description->createOSSpecificUIElementRepresentation({}, {}, nullptr);
                        },
                        d.element, counters, cost);
            }
        });
    }

    int sound = 0;
    for (const auto& [depth, descriptions] : byDepth)
        sound += int(descriptions.size());
    const bool counted = counters.messages && counters.waits;
    out << "elements with a frame " << captured << ", sound descriptions " << sound << ", each resolved "
        << start.repeats << " times\n"
        << qSetFieldWidth(6) << "depth" << qSetFieldWidth(8) << "descr"
        << "found"
        << "failed" << qSetFieldWidth(11) << "median us"
        << "max us" << qSetFieldWidth(10) << "AX calls"
        << "D-Bus msg"
        << "waits" << qSetFieldWidth(0) << '\n';
    for (const auto& [depth, cost] : costs)
        printRow(out, depth, cost, counted);
    out << "per resolution, by accessibility function and by bus call:\n";
    for (const auto& [depth, cost] : costs) {
        out << "depth " << depth << ": " << breakdown(cost.platformCalls, cost) << '\n';
        if (!cost.busCalls.isEmpty())
            out << "        " << breakdown(cost.busCalls, cost) << '\n';
    }
    return 0;
}
