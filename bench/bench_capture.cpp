// Captures every element with a frame of one running application from a handle, as a user's
// pick does, and asks for each element's two ancestor lists: the climb through verified parents
// (searchBottomUpForElementAndBuildAncestorList), which capture tries first, and the search of the
// whole application from the top (searchTopDownForElementAndBuildAncestorList), which it falls back
// on. Prints the median and longest time, the accessibility calls and, when the D-Bus call counter
// is preloaded, the bus round trips per question. Each question comes 10 ms after the one before,
// longer than the live desktop keeps anything of an element, so that none answers the next.
// Run on a live desktop by scripts/bench.sh.
//   bench_capture PID [REPEATS]

#include "CFTypeSmartRef.h"
#include "UIElement_p.h"
#include "ax/PlatformCallCounters.h"
#include "liveBenchArguments.h"
#include "liveBenchElements.h"
#include "osxUIElementUtils.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QLoggingCategory>
#include <QTextStream>
#include <QThread>

#include <algorithm>

namespace {

struct Cost {
    QList<qint64> ns;
    quint64 platformCalls = 0;
    quint64 roundTrips = 0;
};

quint64 platformCallsSoFar() {
    quint64 total = 0;
    for (quint64 count : platformCallCounts())
        total += count;
    return total;
}

NativeUIElement handleOn(AXUIElementRef element) {
    NativeUIElement handle;
    handle.setOSSpecificElementReference(const_cast<void*>(CFRetain(element)));
    handle.setScreenPosition(UIElementRect(element).center());
    return handle;
}

// Asks once, after the pause, and adds what it took to `cost`.
template <typename Ask> auto measure(Cost& cost, DBusCallCounter counter, Ask ask) {
    QThread::msleep(10);
    const quint64 calls = platformCallsSoFar();
    const quint64 trips = counter ? counter() : 0;
    QElapsedTimer timer;
    timer.start();
    const auto answer = ask();
    cost.ns.append(timer.nsecsElapsed());
    cost.platformCalls += platformCallsSoFar() - calls;
    cost.roundTrips += counter ? counter() - trips : 0;
    return answer;
}

void add(Cost& total, const Cost& more) {
    total.ns += more.ns;
    total.platformCalls += more.platformCalls;
    total.roundTrips += more.roundTrips;
}

void printRow(QTextStream& out, const char* question, Cost cost, bool counted) {
    if (cost.ns.isEmpty())
        return;
    std::sort(cost.ns.begin(), cost.ns.end());
    const double asked = double(cost.ns.size());
    out << qSetFieldWidth(28) << Qt::left << question << qSetFieldWidth(8) << Qt::right << cost.ns.size()
        << qSetFieldWidth(11) << QString::number(double(cost.ns.at(cost.ns.size() / 2)) / 1000.0, 'f', 0)
        << QString::number(double(cost.ns.last()) / 1000.0, 'f', 0) << qSetFieldWidth(10)
        << QString::number(double(cost.platformCalls) / asked, 'f', 1)
        << (counted ? QString::number(double(cost.roundTrips) / asked, 'f', 1) : QStringLiteral("-"))
        << qSetFieldWidth(0) << '\n';
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication application(argc, argv);
    LiveBenchStart start;
    if (!startLiveBench(application.arguments(), start))
        return 2;
    const DBusCallCounter counter = start.counter;
    const int repeats = start.repeats;
    UIElementAncestorList& elements = start.elements;
    elements.erase(std::remove_if(elements.begin(), elements.end(),
                                  [](AXUIElementRef element) { return UIElementRect(element).isNull(); }),
                   elements.end());
    QTextStream out(stdout);
    if (elements.isEmpty()) {
        out << "no element with a frame\n";
        return 1;
    }
    // Once, untimed: the application's name comes from files read once per process.
    { const UIElement_p warmUp(handleOn(elements.first())); }

    Cost fromBelow, fullSearch, bottomUp, notClimbed, topDown, bundleId;
    int degenerate = 0;
    for (int i = 0; i < repeats; ++i) {
        for (const auto& element : std::as_const(elements)) {
            UIElementAncestorList list;
            Cost climb;
            const bool climbed = measure(climb, counter, [&] {
                return searchBottomUpForElementAndBuildAncestorList(element, list, false);
            });
            add(climbed ? bottomUp : notClimbed, climb);
            if (climbed)
                measure(topDown, counter,
                        [&] { return searchTopDownForElementAndBuildAncestorList(element, list); });
            measure(bundleId, counter, [&] { return UIElementBundleId(element); });
            degenerate += measure(climbed ? fromBelow : fullSearch, counter,
                                  [&] { return UIElement_p(handleOn(element)).isDegenerate(); });
        }
    }
    out << "elements with a frame " << elements.size() << ", asked " << repeats
        << " times; climbed to the top " << fromBelow.ns.size() / repeats << ", degenerate "
        << degenerate / repeats << '\n'
        << qSetFieldWidth(28) << Qt::left << "question" << qSetFieldWidth(8) << Qt::right << "asked"
        << qSetFieldWidth(11) << "median us"
        << "max us" << qSetFieldWidth(10) << "AX calls"
        << "D-Bus" << qSetFieldWidth(0) << '\n';
    printRow(out, "capture, climbed", fromBelow, counter);
    printRow(out, "capture, full search", fullSearch, counter);
    printRow(out, "bottom-up list, climbed", bottomUp, counter);
    printRow(out, "top-down list, climbed", topDown, counter);
    printRow(out, "bottom-up list, not climbed", notClimbed, counter);
    // Capture asks it, the process name and the application's name at every level.
    printRow(out, "bundle id of the element", bundleId, counter);
    return 0;
}
