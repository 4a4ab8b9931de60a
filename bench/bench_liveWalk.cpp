// Reads the role, title and frame of every element of one running application through the
// accessibility functions, as the code above the platform layer does, and prints the time per
// read. Run on a live desktop by scripts/bench.sh, which also counts the bus round trips.
//   bench_liveWalk PID [REPEATS]

#include "CFTypeSmartRef.h"
#include "liveBenchArguments.h"
#include "osxUIElementUtils.h"
#include "platformAccessibility.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QTextStream>

#include <cstdio>

namespace {

struct Walk {
    qint64 elements = 0;
    qint64 reads = 0;
};

void walk(AXUIElementRef element, Walk& totals, int depth = 0) {
    UIElementRole(element);
    UIElementTitle(element);
    UIElementRect(element);
    ++totals.elements;
    totals.reads += 3;
    CFTypeSmartRef<CFTypeRef> children;
    if (depth > 64 ||
        AXUIElementCopyAttributeValue(element, CFSTR("AXChildren"), children.out()) != kAXErrorSuccess ||
        children.isNull() || CFGetTypeID(children) != CFArrayGetTypeID())
        return;
    const auto array = static_cast<CFArrayRef>(children.get());
    for (CFIndex i = 0; i < CFArrayGetCount(array); ++i)
        walk(static_cast<AXUIElementRef>(const_cast<void*>(CFArrayGetValueAtIndex(array, i))), totals,
             depth + 1);
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication application(argc, argv);
    pid_t pid = 0;
    int repeats = 0;
    if (!readLiveBenchArguments(application.arguments(), 5, pid, repeats))
        return 2;
    const CFTypeSmartRef<AXUIElementRef> root(AXUIElementCreateApplication(pid));
    Walk totals;
    QElapsedTimer timer;
    timer.start();
    for (int i = 0; i < repeats; ++i)
        walk(root, totals);
    const double elapsedUs = double(timer.nsecsElapsed()) / 1000.0;
    QTextStream(stdout) << "elements " << totals.elements / repeats << " reads " << totals.reads
                        << " us/read " << QString::number(elapsedUs / double(totals.reads), 'f', 1) << '\n';
    return 0;
}
