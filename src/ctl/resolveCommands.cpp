#include "resolveCommands.h"

#include "CFTypeSmartRef.h"
#include "ResolutionTrace.h"
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

// With a trace, the resolution records into it; nothing else differs.
Resolution resolveOnce(const UIElementCollection& collection, const ResolveOptions& options,
                       ResolutionTrace* trace = nullptr) {
    const QFlags<UIElementSearchOption> searchOptions(options.translations ? UIElementSearchMatchTranslations
                                                                           : UIElementSearchOption(0));
    Resolution resolution;
    NativeUIElement found;
    QElapsedTimer timer;
    std::optional<ResolutionTrace::Scope> scope;
    if (trace)
        scope.emplace(*trace);
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
    scope.reset();
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
    ResolutionTrace trace; // of the first, with --explain
    QList<qint64> sortedNanoseconds;
    QMap<int, int> codeCounts; // code to the number of runs that gave it
    bool callsDiffered = false;
};

Runs resolveRepeatedly(const UIElementCollection& collection, const ResolveOptions& options) {
    Runs runs;
    runs.first = resolveOnce(collection, options, options.explain ? &runs.trace : nullptr);
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

// --explain: the trace of the first resolution, as text and as JSON from one pass over it.

using Trace = ResolutionTrace;

// Each enumerator's JSON key and the words that the text uses.
struct Name {
    const char* key;
    const char* text;
};

Name nameOf(Trace::Stage stage) {
    static const Name names[] = {{"application", "application"},
                                 {"hintPosition", "hint position"},
                                 {"loneCandidate", "lone candidate"},
                                 {"title", "title"},
                                 {"roleIndex", "role index"},
                                 {"childIndex", "child index"},
                                 {"rest", "rest"},
                                 {"childOrder", "child order"},
                                 {"applicationRule", "application rule"}};
    return names[int(stage)];
}

Name nameOf(Trace::Verdict verdict) {
    static const Name names[] = {{"roleDiffers", "role differs"},
                                 {"differs", "differs"},
                                 {"exact", "exact"},
                                 {"loose", "loose (questionable attributes left out)"},
                                 {"matches", "matches"}};
    return names[int(verdict)];
}

Name nameOf(Trace::Matching matching) {
    static const Name names[] = {{"builtIn", "built-in matching"},
                                 {"strict", "strict matching"},
                                 {"custom", "custom matching"},
                                 {"applicationRule", "application rule"}};
    return names[int(matching)];
}

Name nameOf(Trace::Choice choice) {
    static const Name names[] = {{"none", "none"},
                                 {"notAnApplication", "none: the top of the chain is no application"},
                                 {"anyApplication", "any application"},
                                 {"processName", "by process name"},
                                 {"bundleId", "by bundle identifier"}};
    return names[int(choice)];
}

Name nameOf(Trace::HintOutcome outcome) {
    static const Name names[] = {{"nothingThere", "no element there"},
                                 {"noVerifiableAncestor", "no ancestor that can be verified"},
                                 {"rootedInApplication", "rooted in its application, left to the walk"},
                                 {"searched", "searched"}};
    return names[int(outcome)];
}

const char* reasonKey(Trace::Reason reason) {
    static const char* keys[] = {"found",       "targetTypeMissing", "noApplication",
                                 "noHint",      "hintFoundNothing",  "childrenUnreadable",
                                 "noChildren",  "noChildOfRole",     "noChildMatched",
                                 "filteredOut", "ruleChoseNothing",  "stopped"};
    return keys[int(reason)];
}

// Far more than a person reads: the rest of a long walk is counted, not shown.
constexpr int shownVisits = 60;

QString describedText(const QString& role, const QString& title) {
    return title.isEmpty() ? role : QStringLiteral("%1 \"%2\"").arg(role, title);
}

QString levelText(const Trace::Walk& walk, int level) {
    const Trace::Level described = walk.chain.value(level);
    return describedText(described.role, described.title);
}

QString attributesText(const QMap<QString, QVariant>& attributes) {
    QStringList parts;
    for (auto it = attributes.cbegin(); it != attributes.cend(); ++it)
        parts << it.key() + QLatin1Char(' ') + valueText(it.value());
    return parts.join(QStringLiteral(", "));
}

QJsonObject attributesJson(const QMap<QString, QVariant>& attributes) {
    QJsonObject object;
    for (auto it = attributes.cbegin(); it != attributes.cend(); ++it)
        object.insert(it.key(), valueJson(it.value()));
    return object;
}

// "AXDescription ("Save" for "Export document")": what the candidate holds where the description
// holds another value.
QString differencesText(const Trace::Candidate& candidate, const QMap<QString, QVariant>& compared) {
    QStringList parts;
    for (const QString& key : candidate.differs) {
        const auto live = candidate.attributes.constFind(key);
        parts << QStringLiteral("%1 (%2, saved %3)")
                     .arg(key,
                          live == candidate.attributes.cend() ? QStringLiteral("unreadable")
                                                              : valueText(*live),
                          valueText(compared.value(key)));
    }
    return parts.join(QStringLiteral(", "));
}

QString candidateName(const Trace::Candidate& candidate) {
    QString name = QStringLiteral("child %1").arg(candidate.child);
    if (candidate.role)
        name += QLatin1Char(' ') + describedText(*candidate.role, candidate.title.value_or(QString()));
    return name;
}

QJsonObject candidateJson(const Trace::Candidate& candidate) {
    QJsonObject object{{"child", candidate.child},
                       {"attributes", attributesJson(candidate.attributes)},
                       {"verdict", nameOf(candidate.verdict).key},
                       {"passed", candidate.passed},
                       {"differs", QJsonArray::fromStringList(candidate.differs)}};
    if (candidate.role)
        object.insert("role", *candidate.role);
    if (candidate.title)
        object.insert("title", *candidate.title);
    if (!candidate.removedBy.isEmpty())
        object.insert("removedBy", candidate.removedBy);
    return object;
}

// Where a descent went: an application, the ancestor under a hint offset, or a child.
QString stepText(const Trace::Descent& step) {
    if (step.stage == Trace::Stage::Application)
        return QStringLiteral("application %1").arg(step.pid);
    if (step.stage == Trace::Stage::HintPosition)
        return QStringLiteral("hint offset %1").arg(coordinatesText(step.offset));
    return QStringLiteral("child %1 (%2)").arg(step.child).arg(nameOf(step.stage).text);
}

QJsonObject stepJson(const Trace::Descent& step) {
    QJsonObject object{{"stage", nameOf(step.stage).key}};
    if (step.stage == Trace::Stage::Application)
        object.insert("pid", step.pid);
    else if (step.stage == Trace::Stage::HintPosition)
        object.insert("offset", pointJson(step.offset));
    else
        object.insert("child", step.child);
    return object;
}

// The one line that says where the walk ended and why.
QString reasonText(const Trace::Walk& walk) {
    const int deepest = walk.deepestVisit();
    const int level = walk.deepestLevel();
    const QString where =
        QStringLiteral("level %1 of %2, %3: ").arg(level).arg(walk.chain.size()).arg(levelText(walk, level));
    const QString values = walk.choiceValues.join(QStringLiteral(", "));
    switch (walk.reason()) {
    case Trace::Reason::Found: {
        QStringList steps;
        for (const Trace::Descent& step : walk.path)
            steps << stepText(step);
        return where + QStringLiteral("found through ") + steps.join(QStringLiteral(" > "));
    }
    case Trace::Reason::TargetTypeMissing:
        return where + QStringLiteral("found, but it has no ancestor of the target type %1")
                           .arg(walk.missingTargetType);
    case Trace::Reason::NoApplication:
        if (walk.choice == Trace::Choice::AnyApplication)
            return where + QStringLiteral("no application is running");
        return where + QStringLiteral("no running application with %1 %2")
                           .arg(walk.choice == Trace::Choice::ProcessName
                                    ? QStringLiteral("the process name")
                                    : QStringLiteral("the bundle identifier"),
                                values);
    case Trace::Reason::NoHint:
        return where +
               QStringLiteral("the chain does not reach its application, and no hint position was given");
    case Trace::Reason::HintFoundNothing:
        return where + QStringLiteral("the chain does not reach its application, and nothing around the hint "
                                      "position %1 could be searched from")
                           .arg(coordinatesText(*walk.hint));
    default:
        break;
    }
    const Trace::Visit& visit = walk.visits.at(deepest);
    const int under = walk.visitsAtLevel(visit.level);
    QString parent = levelText(walk, visit.level - 1);
    if (under > 1)
        parent += QStringLiteral(" (each of the %1 tried)").arg(under);
    switch (walk.reason()) {
    case Trace::Reason::ChildrenUnreadable:
        return where + QStringLiteral("the children of %1 could not be read").arg(parent);
    case Trace::Reason::NoChildren:
        return where + QStringLiteral("%1 has no children").arg(parent);
    case Trace::Reason::RuleChoseNothing:
        return where + QStringLiteral("the application rule %1 chose no child of %2").arg(visit.rule, parent);
    case Trace::Reason::Stopped:
        return where + QStringLiteral("%1 candidates passed, and the walk went no deeper").arg(visit.passed);
    case Trace::Reason::FilteredOut:
        for (const Trace::Filter& filter : visit.filters) {
            if (filter.after == 0)
                return where + QStringLiteral("%1 children of %2 had the defining attributes; the filter %3 "
                                              "(accepts %4) removed the last")
                                   .arg(visit.matchedAttributes)
                                   .arg(parent, filter.key, valueText(filter.accepted));
        }
        break;
    case Trace::Reason::NoChildOfRole: {
        QStringList roles;
        for (auto it = visit.roles.cbegin(); it != visit.roles.cend(); ++it)
            roles << (it.value() > 1 ? QStringLiteral("%1 x%2").arg(it.key()).arg(it.value()) : it.key());
        return where + QStringLiteral("no child of %1 has the role %2 (its children: %3)")
                           .arg(parent, visit.role, roles.join(QStringLiteral(", ")));
    }
    default:
        break;
    }
    // No child matched: the nearest candidate tells which attribute broke the description.
    const std::optional<Trace::Candidate>& nearest = visit.nearest;
    QString text = where;
    if (nearest && nearest->differs.size() == 1)
        text += QStringLiteral("no child of %1 matched %2 %3")
                    .arg(parent, nearest->differs.first(),
                         valueText(visit.compared.value(nearest->differs.first())));
    else
        text += QStringLiteral("no child of %1 matched the compared attributes").arg(parent);
    if (nearest)
        text += QStringLiteral("; nearest candidate, %1, differs in %2")
                    .arg(candidateName(*nearest), differencesText(*nearest, visit.compared));
    return text;
}

// Renders the levels of a walk depth first, each indented below the descent that led to it.
class TraceRenderer {
public:
    TraceRenderer(const Trace::Walk& walk, QStringList& lines) : m_walk(walk), m_lines(lines) {}

    QJsonArray descents(const QList<Trace::Descent>& descents, int depth) {
        QJsonArray array;
        for (const Trace::Descent& descent : descents)
            array.append(this->descent(descent, depth));
        return array;
    }

    int notShown() const { return m_notShown; }

private:
    void line(int depth, const QString& text) { m_lines << QString(2 * depth + 2, QLatin1Char(' ')) + text; }

    QJsonObject descent(const Trace::Descent& descent, int depth) {
        QJsonObject object = stepJson(descent);
        object.insert("found", descent.found);
        if (descent.stage == Trace::Stage::HintPosition) {
            object.insert("outcome", nameOf(descent.hint).key);
            if (descent.hint != Trace::HintOutcome::Searched) {
                line(depth, stepText(descent) + QStringLiteral(": ") + nameOf(descent.hint).text);
                return object;
            }
        }
        line(depth, stepText(descent) +
                        (descent.found ? QStringLiteral(": found") : QStringLiteral(": failed below")));
        object.insert("below",
                      descent.below < 0 ? QJsonValue(QJsonValue::Null) : visit(descent.below, depth + 1));
        return object;
    }

    QJsonValue visit(int index, int depth) {
        if (++m_shown > shownVisits) {
            ++m_notShown;
            return QJsonValue(QJsonValue::Null);
        }
        const Trace::Visit& visit = m_walk.visits.at(index);
        QJsonObject object{{"level", visit.level},
                           {"role", visit.role},
                           {"title", visit.title},
                           {"matching", nameOf(visit.matching).key},
                           {"children", visit.children < 0 ? QJsonValue(QJsonValue::Null) : visit.children},
                           {"compared", attributesJson(visit.compared)},
                           {"passed", visit.passed},
                           {"found", visit.found}};
        QString head = QStringLiteral("level %1, %2, %3")
                           .arg(visit.level)
                           .arg(describedText(visit.role, visit.title), nameOf(visit.matching).text);
        if (visit.matching == Trace::Matching::ApplicationRule) {
            object.insert("rule", visit.rule);
            head += QLatin1Char(' ') + visit.rule;
        } else if (!visit.compared.isEmpty()) {
            head += QStringLiteral(" of ") + attributesText(visit.compared);
        }
        line(depth, head + (visit.children < 0    ? QStringLiteral(": the children could not be read")
                            : visit.children == 1 ? QStringLiteral(": 1 child")
                                                  : QStringLiteral(": %1 children").arg(visit.children)));
        QJsonArray candidates;
        for (const Trace::Candidate& candidate : visit.candidates) {
            QString text = candidateName(candidate);
            if (!candidate.attributes.isEmpty())
                text += QStringLiteral(", ") + attributesText(candidate.attributes);
            text += QStringLiteral(": ") + nameOf(candidate.verdict).text;
            if (!candidate.differs.isEmpty())
                text += QStringLiteral(" in ") + candidate.differs.join(QStringLiteral(", "));
            if (!candidate.removedBy.isEmpty())
                text += QStringLiteral(", removed by ") + candidate.removedBy;
            else if (candidate.passed)
                text += QStringLiteral(", passed");
            line(depth + 1, text);
            candidates.append(candidateJson(candidate));
        }
        if (visit.candidatesNotListed > 0)
            line(depth + 1, QStringLiteral("and %1 more children").arg(visit.candidatesNotListed));
        object.insert("candidates", candidates);
        object.insert("candidatesNotListed", visit.candidatesNotListed);
        QJsonArray filters;
        for (const Trace::Filter& filter : visit.filters) {
            line(depth + 1, QStringLiteral("filter %1 (accepts %2): %3 of %4 kept")
                                .arg(filter.key, valueText(filter.accepted))
                                .arg(filter.after)
                                .arg(filter.before));
            filters.append(QJsonObject{{"key", filter.key},
                                       {"accepts", valueJson(filter.accepted)},
                                       {"before", filter.before},
                                       {"after", filter.after}});
        }
        object.insert("filters", filters);
        if (visit.titleHit) {
            const int hit = *visit.titleHit;
            line(depth + 1,
                 hit < 0 ? QStringLiteral("title stage: no child has the title")
                         : QStringLiteral("title stage: child %1 has the title%2")
                               .arg(hit)
                               .arg(visit.titleHitWasCandidate ? QString()
                                                               : QStringLiteral(", but is no candidate")));
            object.insert("titleStage", QJsonObject{{"child", hit < 0 ? QJsonValue(QJsonValue::Null) : hit},
                                                    {"candidate", visit.titleHitWasCandidate}});
        }
        if (visit.matching != Trace::Matching::ApplicationRule && visit.children > 0)
            line(depth + 1, QStringLiteral("%1 passed").arg(visit.passed));
        object.insert("descents", descents(visit.descents, depth + 1));
        if (visit.descentsNotListed > 0)
            line(depth + 1, QStringLiteral("and %1 more descents").arg(visit.descentsNotListed));
        object.insert("descentsNotListed", visit.descentsNotListed);
        return object;
    }

    const Trace::Walk& m_walk;
    QStringList& m_lines;
    int m_shown = 0;
    int m_notShown = 0;
};

// The alternative that a walk resolved: its place in the collection.
int alternativeOf(const UIElementCollection& collection, const Trace::Walk& walk) {
    const UIElementList& elements = collection.elements();
    for (qsizetype i = 0; i < elements.size(); ++i)
        if (elements.at(i) && elements.at(i)->platformSpecificEntity() == walk.description)
            return int(i);
    return -1;
}

// The summary lines, one per walk, and the trace of each walk after the rest of the answer.
void describeTrace(const Trace& trace, const UIElementCollection& collection, QStringList& summary,
                   QStringList& lines, QJsonObject& answer) {
    const bool several = trace.walks().size() > 1;
    QJsonArray walks;
    if (trace.walks().isEmpty())
        summary << QStringLiteral("explain: no alternative was walked");
    for (const Trace::Walk& walk : trace.walks()) {
        const int alternative = alternativeOf(collection, walk);
        const QString reason = reasonText(walk);
        summary << (several ? QStringLiteral("explain, alternative %1: ").arg(alternative)
                            : QStringLiteral("explain: ")) +
                       reason;
        QStringList chain;
        QJsonArray chainJson;
        for (const Trace::Level& level : walk.chain) {
            chain << describedText(level.role, level.title);
            chainJson.append(QJsonObject{{"role", level.role}, {"title", level.title}});
        }
        lines << QStringLiteral("trace of alternative %1, %2 levels: %3")
                     .arg(alternative)
                     .arg(walk.chain.size())
                     .arg(chain.join(QStringLiteral(" > ")));
        QJsonObject object{{"alternative", alternative},
                           {"levels", int(walk.chain.size())},
                           {"chain", chainJson},
                           {"summary", reason},
                           {"found", walk.found}};
        const int deepest = walk.deepestVisit();
        QJsonObject deepestJson{{"level", walk.deepestLevel()}, {"reason", reasonKey(walk.reason())}};
        const bool hasNearest = deepest >= 0 && walk.visits.at(deepest).nearest;
        deepestJson.insert("nearest", hasNearest ? QJsonValue(candidateJson(*walk.visits.at(deepest).nearest))
                                                 : QJsonValue(QJsonValue::Null));
        object.insert("deepest", deepestJson);
        QJsonArray path;
        for (const Trace::Descent& step : walk.path)
            path.append(stepJson(step));
        object.insert("path", path);

        const QString choice = nameOf(walk.choice).text;
        QStringList pids;
        QJsonArray pidsJson;
        for (const int pid : walk.pids) {
            pids << QString::number(pid);
            pidsJson.append(pid);
        }
        if (walk.choice == Trace::Choice::BundleId || walk.choice == Trace::Choice::ProcessName)
            lines << QStringLiteral("  applications %1 %2: %3")
                         .arg(choice, walk.choiceValues.join(QStringLiteral(", ")),
                              pids.isEmpty() ? QStringLiteral("none running")
                                             : pids.join(QStringLiteral(", ")));
        else
            lines << QStringLiteral("  applications: %1%2")
                         .arg(choice, pids.isEmpty()
                                          ? QString()
                                          : QStringLiteral(": ") + pids.join(QStringLiteral(", ")));
        object.insert("applications", QJsonObject{{"by", nameOf(walk.choice).key},
                                                  {"values", QJsonArray::fromStringList(walk.choiceValues)},
                                                  {"pids", pidsJson}});
        // The applications' descents come first, then those of the hint offsets.
        TraceRenderer renderer(walk, lines);
        QList<Trace::Descent> applications, offsets;
        for (const Trace::Descent& descent : walk.top)
            (descent.stage == Trace::Stage::Application ? applications : offsets).append(descent);
        QJsonArray top = renderer.descents(applications, 1);
        if (walk.hintAsked)
            lines << (walk.hint ? QStringLiteral("  hint position %1:").arg(coordinatesText(*walk.hint))
                                : QStringLiteral("  no hint position"));
        for (const QJsonValue& descent : renderer.descents(offsets, 1))
            top.append(descent);
        object.insert("hint", walk.hint ? QJsonValue(pointJson(*walk.hint)) : QJsonValue(QJsonValue::Null));
        object.insert("top", top);
        const int notShown = renderer.notShown() + walk.visitsNotKept;
        if (notShown > 0)
            lines << QStringLiteral("  and %1 more levels visited, not shown").arg(notShown);
        object.insert("levelsNotShown", notShown);
        walks.append(object);
    }
    answer.insert("explain", QJsonObject{{"listedPerLevel", Trace::listedPerLevel},
                                         {"shownLevels", shownVisits},
                                         {"alternatives", walks}});
}

} // namespace

bool takeResolveOptions(QStringList& arguments, ResolveOptions& options) {
    for (qsizetype i = 0; i < arguments.size();) {
        const QString option = arguments.at(i);
        QString value;
        if (option == QLatin1String("--translations")) {
            options.translations = true;
            arguments.removeAt(i);
        } else if (option == QLatin1String("--explain")) {
            options.explain = true;
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
    if (options.explain) {
        QStringList summary;
        describeTrace(runs.trace, collection, summary, lines, answer);
        lines = summary + lines;
    }
    ctlPrintAnswer(inspector.json, lines, answer);
    if (code != UIElementFound)
        return ctlFail(ctlExitFailure,
                       QStringLiteral("%1 was not resolved: %2").arg(filePath, codeText(code)));
    return ctlExitSuccess;
}
