// Asks two questions about every element of one running application, through the functions that
// the code above the platform layer uses: its verified ancestor list
// (searchBottomUpForElementAndBuildAncestorList) and its window (copyUIElementWindowRobustly).
// Prints the time and, when the D-Bus call counter is preloaded, the bus round trips per call, for
// the questions asked back to back and one at a time.
// Run on a live desktop by scripts/bench.sh.
//   bench_liveQuestions PID [REPEATS]

#include "CFTypeSmartRef.h"
#include "liveBenchArguments.h"
#include "liveBenchElements.h"
#include "osxUIElementUtils.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QLoggingCategory>
#include <QTextStream>
#include <QThread>

#include <cstdio>
#include <functional>

namespace {

// Asks the question of every element, repeats times. With pauseMs, each question comes that long
// after the one before, as the tool's questions do, so that nothing read for one answers the next.
void measure(const char* question, const UIElementAncestorList& elements, int repeats, int pauseMs,
             DBusCallCounter counter, const std::function<bool(AXUIElementRef)>& ask) {
    const unsigned long long before = counter ? counter() : 0;
    qint64 answered = 0;
    qint64 elapsedNs = 0;
    QElapsedTimer timer;
    for (int i = 0; i < repeats; ++i) {
        for (const auto& element : elements) {
            if (pauseMs > 0)
                QThread::msleep(pauseMs);
            timer.start();
            answered += ask(element) ? 1 : 0;
            elapsedNs += timer.nsecsElapsed();
        }
    }
    const double calls = double(elements.size()) * repeats;
    const double roundTrips = counter ? double(counter() - before) / calls : -1;
    QTextStream(stdout) << question << (pauseMs > 0 ? " one at a time" : " back to back") << " calls "
                        << qint64(calls) << " answered " << answered / repeats << " round-trips/call "
                        << QString::number(roundTrips, 'f', 2) << " us/call "
                        << QString::number(double(elapsedNs) / 1000.0 / calls, 'f', 1) << '\n';
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication application(argc, argv);
    LiveBenchStart start;
    if (!startLiveBench(application.arguments(), start))
        return 2;
    QTextStream(stdout) << "elements " << start.elements.size() << '\n';
    const auto ancestors = [](AXUIElementRef element) {
        UIElementAncestorList list;
        return searchBottomUpForElementAndBuildAncestorList(element, list, false);
    };
    const auto window = [](AXUIElementRef element) {
        return !CFTypeSmartRef<AXUIElementRef>(copyUIElementWindowRobustly(element)).isNull();
    };
    // Longer than anything the live desktop keeps of an element's answers.
    constexpr int pauseMs = 10;
    for (int pause : {0, pauseMs}) {
        measure("ancestors", start.elements, start.repeats, pause, start.counter, ancestors);
        measure("window", start.elements, start.repeats, pause, start.counter, window);
    }
    return 0;
}
