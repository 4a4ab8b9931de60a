// The Pro Tools search against the rectangle search, on generated Pro Tools Mix and Edit windows
// of 8, 64, 512 and 4096 tracks on the virtual desktop: attribute reads per hit test (the
// platform call counters; each read is a round trip to Pro Tools on a real desktop) and time per
// hit test, for points spread over the window. Run by scripts/bench.sh.
//   bench_hitTesting [TRACKS ...]

#include "CFTypeSmartRef.h"
#include "osxProToolsUtils.h"
#include "osxUIElementUtils.h"
#include "proToolsDesktop.h"
#include "virtual/VirtualDesktop.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QLoggingCategory>
#include <QTextStream>

#include <cstdio>
#include <functional>
#include <memory>

namespace {

constexpr int pointsPerAxis = 12; // 144 points over the window

struct Figures {
    double readsPerHit = 0;
    double microsecondsPerHit = 0;
};

quint64 reads() {
    return platformCallCount(PlatformCall::AXUIElementCopyAttributeValue) +
           platformCallCount(PlatformCall::AXUIElementGetAttributeValueCount);
}

// Each hit test starts with an empty Pro Tools cache, as each of the tool's hit tests does: the
// cache lives for one pass of the event loop.
Figures measure(const QRect& area, const std::function<AXUIElementRef(const QPoint&)>& hitTest) {
    quint64 readCount = 0;
    qint64 elapsedNs = 0;
    int hits = 0;
    QElapsedTimer timer;
    for (int i = 0; i < pointsPerAxis; ++i) {
        for (int j = 0; j < pointsPerAxis; ++j) {
            const QPoint point(area.left() + (2 * i + 1) * area.width() / (2 * pointsPerAxis),
                               area.top() + (2 * j + 1) * area.height() / (2 * pointsPerAxis));
            QCoreApplication::processEvents();
            const quint64 before = reads();
            timer.start();
            const CFTypeSmartRef<AXUIElementRef> found(hitTest(point));
            elapsedNs += timer.nsecsElapsed();
            readCount += reads() - before;
            ++hits;
        }
    }
    return Figures{double(readCount) / hits, double(elapsedNs) / 1000.0 / hits};
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication application(argc, argv);
    QList<int> trackCounts;
    for (const QString& argument : application.arguments().mid(1)) {
        bool ok = false;
        const int count = argument.toInt(&ok);
        if (!ok || count < 1 || count > 100000) {
            std::fprintf(stderr, "usage: bench_hitTesting [TRACKS ...]\n");
            return 2;
        }
        trackCounts << count;
    }
    if (trackCounts.isEmpty())
        trackCounts = {8, 64, 512, 4096};
    // The searches log their progress at debug level: not the benchmark's business.
    QLoggingCategory::setFilterRules(QStringLiteral("*.debug=false"));

    QTextStream out(stdout);
    out << "window  tracks  Pro Tools search: reads/hit  us/hit   rectangle search: reads/hit  us/hit\n";
    for (const auto kind : {ProToolsDesktop::WindowKind::Mix, ProToolsDesktop::WindowKind::Edit}) {
        for (int tracks : trackCounts) {
            ProToolsDesktop::Options options;
            options.trackCount = tracks;
            const ProToolsDesktop::Window window = kind == ProToolsDesktop::WindowKind::Mix
                                                       ? ProToolsDesktop::mixWindow(options)
                                                       : ProToolsDesktop::editWindow(options);
            auto desktop = std::make_shared<VirtualDesktop>();
            if (!desktop->load(ProToolsDesktop::desktop(window), QStringLiteral("bench"))) {
                std::fprintf(stderr, "the generated desktop does not load\n");
                return 1;
            }
            setAccessibilityProviderForTesting(desktop);
            const CFTypeSmartRef<AXUIElementRef> proTools(
                AXUIElementCreateApplication(ProToolsDesktop::kPid));
            const CFTypeSmartRef<AXUIElementRef> windowElement(
                desktop->copyElement(QStringLiteral("window")));
            const QRect area = window.frame;
            const Figures proToolsSearch = measure(area, [&](const QPoint& point) {
                return copyUIElementAtPositionBySearchingProTools(windowElement, point);
            });
            const Figures rectangleSearch = measure(area, [&](const QPoint& point) {
                return copyUIElementAtPositionBySearchingApplication(proTools, point);
            });
            out << QString("%1  %2  %3  %4   %5  %6\n")
                       .arg(kind == ProToolsDesktop::WindowKind::Mix ? "Mix " : "Edit")
                       .arg(tracks, 6)
                       .arg(proToolsSearch.readsPerHit, 27, 'f', 1)
                       .arg(proToolsSearch.microsecondsPerHit, 7, 'f', 1)
                       .arg(rectangleSearch.readsPerHit, 27, 'f', 1)
                       .arg(rectangleSearch.microsecondsPerHit, 7, 'f', 1);
            out.flush();
            setAccessibilityProviderForTesting(nullptr);
        }
    }
    return 0;
}
