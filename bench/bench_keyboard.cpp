// Keyboard translation on layouts compiled from their names: the time to build a layout's table
// of 128 key codes under four modifier sets (what a layout change costs the first time), and one
// forward translation of a key. Run by scripts/bench.sh.
//   bench_keyboard [LAYOUT ...]   (default: us de fr)

#include "CFTypeSmartRef.h"
#include "keyboard.h"
#include "keyboard/XkbLayouts.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QTextStream>

#include <algorithm>
#include <vector>

namespace {

// The median of several runs, in microseconds.
double medianMicroseconds(int runs, const std::function<void()>& work) {
    std::vector<qint64> times;
    for (int i = 0; i < runs; ++i) {
        QElapsedTimer timer;
        timer.start();
        work();
        times.push_back(timer.nsecsElapsed());
    }
    std::nth_element(times.begin(), times.begin() + runs / 2, times.end());
    return double(times[size_t(runs / 2)]) / 1000.0;
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    QStringList layouts = app.arguments().mid(1);
    if (layouts.isEmpty())
        layouts = {QStringLiteral("us"), QStringLiteral("de"), QStringLiteral("fr")};
    QTextStream out(stdout);
    out << "layout  table entries  first table with the keymap's compilation (ms)  table (median of 9, ms)  "
           "one "
           "translation (median of 2000, us)\n";
    for (const QString& name : layouts) {
        const CFTypeSmartRef<CFDataRef> data(createKeyboardLayoutDataFromNames(name.toUtf8().constData()));
        if (!data) {
            out << name << ": no such layout\n";
            continue;
        }
        const auto* layout = reinterpret_cast<const UCKeyboardLayout*>(CFDataGetBytePtr(data));
        qsizetype entries = 0;
        // The first build also compiles the keymap; later ones find it compiled.
        QElapsedTimer first;
        first.start();
        constructKeycodeMap(layout);
        const double firstUs = double(first.nsecsElapsed()) / 1000.0;
        const double buildUs = medianMicroseconds(9, [&] { entries = constructKeycodeMap(layout).size(); });
        int keycode = 0;
        const double translateUs = medianMicroseconds(2000, [&] {
            QString text;
            QFlags<Qt::KeyboardModifier> remaining;
            nativeKeyCodeToStringRepresentation(text, remaining, keycode, Qt::ShiftModifier | Qt::AltModifier,
                                                layout);
            keycode = (keycode + 1) % 36; // the keys that type characters
        });
        out << qSetFieldWidth(8) << Qt::left << name << qSetFieldWidth(0) << entries << "  "
            << QString::number(firstUs / 1000.0, 'f', 2) << "  " << QString::number(buildUs / 1000.0, 'f', 2)
            << "  " << QString::number(translateUs, 'f', 1) << "\n";
    }
    return 0;
}
