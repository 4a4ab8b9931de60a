#include "resolveCommands.h"

#include "CFTypeSmartRef.h"
#include "UIElement.h"
#include "UIElement_p.h"
#include "ax/PlatformCallCounters.h"
#include "captureCommands.h"
#include "dataObjectSerialization.h"
#include "elementTree.h"
#include "osxUIElementUtils.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QJsonArray>
#include <QJsonObject>

#include <algorithm>
#include <limits>

namespace {

// Far more than any real hierarchy: a climb that gets there has met a cycle of parents.
constexpr int maximumChainLength = 1000;

QString codeName(int code) {
    switch (code) {
    case UIElementFound:
        return QStringLiteral("UIElementFound");
    case UIElementNotFound:
        return QStringLiteral("UIElementNotFound");
    case UIElementNotReachable:
        return QStringLiteral("UIElementNotReachable");
    case UIElementNotVerified:
        return QStringLiteral("UIElementNotVerified");
    case UIElementSearchAborted:
        return QStringLiteral("UIElementSearchAborted");
    default:
        return QStringLiteral("unknown");
    }
}

QString codeText(int code) {
    return QStringLiteral("%1 %2").arg(code).arg(codeName(code));
}

struct Resolution {
    int code = UIElementNotFound;
    CFTypeSmartRef<AXUIElementRef> element; // set when found
    qint64 nanoseconds = 0;
    QMap<QString, quint64> calls; // only the functions called
};

const UIElement_p* firstDescription(const UIElementCollection& collection) {
    const UIElement* first = collection.elements().value(0);
    return first ? first->platformSpecificEntity() : nullptr;
}

Resolution resolveOnce(const UIElementCollection& collection, const ResolveOptions& options) {
    const QFlags<UIElementSearchOption> searchOptions(options.translations ? UIElementSearchMatchTranslations
                                                                           : UIElementSearchOption(0));
    Resolution resolution;
    NativeUIElement found;
    QElapsedTimer timer;
    resetPlatformCallCounts();
    timer.start();
    if (options.level) {
        resolution.element.reset(firstDescription(collection)
                                     ->createOSSpecificUIElementRepresentationAtHierarchyLevel(
                                         *options.level, options.hint, searchOptions, nullptr));
        resolution.code = resolution.element ? UIElementFound : UIElementNotFound;
    } else {
        resolution.code = collection.findUIElementAndCreateOSSpecificRepresentation(found, searchOptions,
                                                                                    options.hint, nullptr);
    }
    resolution.nanoseconds = timer.nsecsElapsed();
    const QMap<QString, quint64> counts = platformCallCounts();
    for (auto it = counts.cbegin(); it != counts.cend(); ++it)
        if (it.value() > 0)
            resolution.calls.insert(it.key(), it.value());
    if (!options.level && resolution.code == UIElementFound)
        resolution.element.reset(static_cast<AXUIElementRef>(found.copyOSSpecificElementReference()));
    // Each tick of the tool is a pass of its event loop, which ends the caches of one search.
    QCoreApplication::processEvents();
    return resolution;
}

enum class ChainEnd { Application, NoParent, Cut };

// The element and its ancestors up to its application, top first.
QList<CFTypeSharedRef<AXUIElementRef>> climbToApplication(AXUIElementRef element, ChainEnd& end) {
    QList<CFTypeSharedRef<AXUIElementRef>> chain;
    CFTypeSharedRef<AXUIElementRef> current(element);
    for (;;) {
        chain.prepend(current);
        if (UIElementRole(current) == kQAXApplicationRole) {
            end = ChainEnd::Application;
            break;
        }
        if (chain.size() >= maximumChainLength) {
            end = ChainEnd::Cut;
            break;
        }
        const CFTypeSmartRef<AXUIElementRef> parent(copyUIElementParent(current));
        if (!parent) {
            end = ChainEnd::NoParent;
            break;
        }
        current = CFTypeSharedRef<AXUIElementRef>(parent.get());
    }
    return chain;
}

QString chainEndName(ChainEnd end) {
    switch (end) {
    case ChainEnd::Application:
        return QStringLiteral("application");
    case ChainEnd::NoParent:
        return QStringLiteral("noParent");
    case ChainEnd::Cut:
        break;
    }
    return QStringLiteral("cut");
}

QString millisecondsText(double milliseconds) {
    return QString::number(milliseconds, 'f', 3) + QStringLiteral(" ms");
}

// A level of the first alternative's chain must be there to be asked for.
bool checkLevel(const UIElementCollection& collection, int level, const QString& filePath) {
    const UIElement_p* description = firstDescription(collection);
    const int levels = description && !description->isNull() ? description->hierarchySize() : 0;
    if (level < levels)
        return true;
    ctlFail(ctlExitUsage, levels == 0
                              ? QStringLiteral("the first alternative in %1 has no levels: it describes "
                                               "nothing")
                                    .arg(filePath)
                              : QStringLiteral("the first alternative in %1 has no level %2; its chain "
                                               "has the levels 0 to %3")
                                    .arg(filePath)
                                    .arg(level)
                                    .arg(levels - 1));
    return false;
}

// N resolutions: the first is the one shown; the others give the spread of the time and tell
// whether a resolution always does the same.
struct Runs {
    Resolution first;
    QList<qint64> sortedNanoseconds;
    QMap<int, int> codeCounts; // code to the number of runs that gave it
    bool callsDiffered = false;
};

Runs resolveRepeatedly(const UIElementCollection& collection, const ResolveOptions& options) {
    Runs runs;
    runs.first = resolveOnce(collection, options);
    runs.sortedNanoseconds << runs.first.nanoseconds;
    runs.codeCounts[runs.first.code] = 1;
    for (int run = 1; run < options.repeat; ++run) {
        const Resolution next = resolveOnce(collection, options);
        runs.sortedNanoseconds << next.nanoseconds;
        ++runs.codeCounts[next.code];
        runs.callsDiffered = runs.callsDiffered || next.calls != runs.first.calls;
    }
    std::sort(runs.sortedNanoseconds.begin(), runs.sortedNanoseconds.end());
    return runs;
}

// The element found, or none, and its chain up to its application.
void describeElement(AXUIElementRef element, QStringList& lines, QJsonObject& answer) {
    if (!element) {
        lines << QStringLiteral("element: none");
        answer.insert("element", QJsonValue(QJsonValue::Null));
        answer.insert("chain", QJsonArray());
        answer.insert("chainEnd", QJsonValue(QJsonValue::Null));
        return;
    }
    ChainEnd end = ChainEnd::Application;
    const QList<CFTypeSharedRef<AXUIElementRef>> chain = climbToApplication(element, end);
    QJsonArray chainObjects;
    lines << QStringLiteral("element: ") + elementLine(element) << QStringLiteral("chain, from the top:");
    for (qsizetype index = 0; index < chain.size(); ++index) {
        // Indented by depth as far as the element tree is shown: a cycle of parents runs far deeper.
        const qsizetype depth = std::min(index + 1, qsizetype(elementTreeMaximumDepth));
        lines << QString(2 * depth, QLatin1Char(' ')) + elementLine(chain.at(index));
        chainObjects.append(elementObject(chain.at(index)));
    }
    if (end == ChainEnd::NoParent)
        lines << QStringLiteral("the chain ends below any application: the top has no parent");
    else if (end == ChainEnd::Cut)
        lines << QStringLiteral("the chain is cut after %1 levels").arg(maximumChainLength);
    answer.insert("element", elementObject(element));
    answer.insert("chain", chainObjects);
    answer.insert("chainEnd", chainEndName(end));
}

// The time of the runs, the calls of the first, and whether the runs differed.
void describeCost(const Runs& runs, QStringList& lines, QJsonObject& answer) {
    const QList<qint64>& times = runs.sortedNanoseconds;
    const qsizetype middle = times.size() / 2;
    const double median =
        times.size() % 2 ? times.at(middle) : (times.at(middle - 1) + times.at(middle)) / 2.0;
    const double minimumMs = times.first() / 1e6, medianMs = median / 1e6, maximumMs = times.last() / 1e6;
    const bool repeated = times.size() > 1;
    if (repeated)
        lines << QStringLiteral("time over %1 resolutions: min %2, median %3, max %4")
                     .arg(times.size())
                     .arg(millisecondsText(minimumMs), millisecondsText(medianMs),
                          millisecondsText(maximumMs));
    else
        lines << QStringLiteral("time: ") + millisecondsText(minimumMs);
    answer.insert("runs", times.size());
    answer.insert("timeMs", QJsonObject{{"min", minimumMs}, {"median", medianMs}, {"max", maximumMs}});

    lines << (repeated ? QStringLiteral("platform calls of one resolution:")
                       : QStringLiteral("platform calls:"));
    if (runs.first.calls.isEmpty())
        lines << QStringLiteral("  none");
    QJsonObject calls;
    for (auto it = runs.first.calls.cbegin(); it != runs.first.calls.cend(); ++it) {
        lines << QStringLiteral("  %1 %2").arg(it.key()).arg(it.value());
        calls.insert(it.key(), qint64(it.value()));
    }
    answer.insert("platformCalls", calls);

    QJsonObject codes;
    QStringList codeTexts;
    for (auto it = runs.codeCounts.cbegin(); it != runs.codeCounts.cend(); ++it) {
        codes.insert(QString::number(it.key()), it.value());
        codeTexts << QStringLiteral("%1 %2 times").arg(codeText(it.key())).arg(it.value());
    }
    const bool codesDiffered = runs.codeCounts.size() > 1;
    if (codesDiffered)
        lines << QStringLiteral("the return code differed between the resolutions: ") +
                     codeTexts.join(QStringLiteral(", "));
    if (runs.callsDiffered)
        lines << QStringLiteral("the platform calls differed between the resolutions");
    answer.insert("codeCounts", codes);
    answer.insert("codesDiffered", codesDiffered);
    answer.insert("callsDiffered", runs.callsDiffered);
}

} // namespace

bool takeResolveOptions(QStringList& arguments, ResolveOptions& options) {
    for (qsizetype i = 0; i < arguments.size();) {
        const QString option = arguments.at(i);
        QString value;
        if (option == QLatin1String("--translations")) {
            options.translations = true;
            arguments.removeAt(i);
        } else if (option == QLatin1String("--hint")) {
            QPoint hint;
            if (!takeValue(arguments, i, value) || !readScreenPoint(value, hint))
                return false;
            options.hint = QVariant(hint);
        } else if (option == QLatin1String("--level")) {
            int level = 0;
            if (!takeValue(arguments, i, value))
                return false;
            if (!readWholeNumber(value, 0, std::numeric_limits<int>::max(), level)) {
                ctlFail(
                    ctlExitUsage,
                    QStringLiteral("the level must be a whole number from 0 (the top of the chain), not '%1'")
                        .arg(value));
                return false;
            }
            options.level = level;
        } else if (option == QLatin1String("--repeat")) {
            if (!takeValue(arguments, i, value))
                return false;
            if (!readWholeNumber(value, 1, maximumResolveRepeat, options.repeat)) {
                ctlFail(
                    ctlExitUsage,
                    QStringLiteral("the number of resolutions must be a whole number from 1 to %1, not '%2'")
                        .arg(maximumResolveRepeat)
                        .arg(value));
                return false;
            }
        } else {
            ++i;
        }
    }
    return true;
}

int runResolve(const InspectorOptions& inspector, const ResolveOptions& options, const QString& filePath) {
    if (!useDesktopFile(inspector.desktopFile))
        return ctlExitUsage;
    UIElementCollection collection;
    if (!loadCollection(filePath, collection) ||
        (options.level && !checkLevel(collection, *options.level, filePath)))
        return ctlExitUsage;
    const Runs runs = resolveRepeatedly(collection, options);
    const int code = runs.first.code;

    QStringList lines{QStringLiteral("code ") + codeText(code)};
    const QPoint hint = options.hint.toPoint();
    QJsonObject answer{{"file", filePath},
                       {"code", code},
                       {"codeName", codeName(code)},
                       {"hint", options.hint.isValid()
                                    ? QJsonValue(QJsonObject{{"x", hint.x()}, {"y", hint.y()}})
                                    : QJsonValue(QJsonValue::Null)},
                       {"translations", options.translations}};
    if (options.level) {
        QList<const UIElement_p*> described;
        firstDescription(collection)->topDownElementList(described);
        const UIElement_p* level = described.at(*options.level);
        lines << QStringLiteral("level %1 of the first alternative, as described:").arg(*options.level)
              << descriptionLevelLines(*options.level, level);
        answer.insert("level", *options.level);
        answer.insert("described", descriptionLevelObject(level));
    }
    describeElement(runs.first.element, lines, answer);
    describeCost(runs, lines, answer);
    ctlPrintAnswer(inspector.json, lines, answer);
    if (code != UIElementFound)
        return ctlFail(ctlExitFailure,
                       QStringLiteral("%1 was not resolved: %2").arg(filePath, codeText(code)));
    return ctlExitSuccess;
}
