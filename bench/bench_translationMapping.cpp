// The translation catalogs of GTK 3 (gtk30, every installed language) and of Qt (qtbase): the
// time to read a family into its mapping, the memory the mapping takes, and one lookup, the
// first (a walk through the whole index) and a repeat (the cache). Run by scripts/bench.sh.
//   bench_translationMapping [FAMILY ...]   (default: gettext:gtk30 and Qt's qtbase)

#include "catalogTranslations.h"
#include "osxTranslationMapping.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QLibraryInfo>
#include <QLoggingCategory>
#include <QMutexLocker>
#include <QTextStream>

#include <unistd.h>

namespace {

// Resident memory in kilobytes.
qint64 residentKilobytes() {
    QFile statm(QStringLiteral("/proc/self/statm"));
    if (!statm.open(QIODevice::ReadOnly))
        return 0;
    const QList<QByteArray> fields = statm.readAll().split(' ');
    return fields.value(1).toLongLong() * sysconf(_SC_PAGESIZE) / 1024;
}

// The fastest of several runs, in microseconds.
double fastestMicroseconds(int runs, const std::function<void()>& work) {
    qint64 best = std::numeric_limits<qint64>::max();
    for (int i = 0; i < runs; ++i) {
        QElapsedTimer timer;
        timer.start();
        work();
        best = std::min(best, timer.nsecsElapsed());
    }
    return double(best) / 1000.0;
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication application(argc, argv);
    QLoggingCategory::setFilterRules(QStringLiteral("*.debug=false"));
    QStringList families = application.arguments().mid(1);
    if (families.isEmpty())
        families << QStringLiteral("gettext:gtk30")
                 << QStringLiteral("qt:") + QLibraryInfo::path(QLibraryInfo::TranslationsPath) +
                        QStringLiteral("/qtbase");
    QTextStream out(stdout);
    QMutexLocker locker(&translationMappingMutex());
    for (const QString& family : families) {
        const qint64 before = residentKilobytes();
        QElapsedTimer timer;
        timer.start();
        TranslationMapping* mapping = catalogTranslationMapping(family);
        const double buildMs = double(timer.nsecsElapsed()) / 1e6;
        const qint64 after = residentKilobytes();
        // A text of every catalog of the family: the source of its first string.
        const QString text =
            mapping->allStrings().value(kCatalogSourceLocale).value(family).cbegin()->cbegin().value();
        timer.restart();
        const QStringList first = mapping->translationsForString(text);
        const double firstUs = double(timer.nsecsElapsed()) / 1000.0;
        const double cachedUs = fastestMicroseconds(1000, [&] { mapping->translationsForString(text); });
        const double uncachedUs =
            fastestMicroseconds(20, [&] { mapping->translationsForStringWithLocales(text); });
        out << family << ": " << mapping->allStrings().size() << " locales, " << mapping->stringCount()
            << " strings; read in " << QString::number(buildMs, 'f', 1) << " ms, index "
            << (after - before) / 1024 << " MB resident\n"
            << "  \"" << text << "\": " << first.size() << " translations; first lookup "
            << QString::number(firstUs, 'f', 0) << " us, uncached walk "
            << QString::number(uncachedUs, 'f', 0) << " us, cached " << QString::number(cachedUs, 'f', 2)
            << " us\n";
        out.flush();
    }
    return 0;
}
