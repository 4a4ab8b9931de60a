#include "ResolutionTrace.h"

#include "UIElement_pMatching.h"

#include <algorithm>

namespace {

thread_local ResolutionTrace* currentTrace = nullptr;

// The compared keys that the child lacks or holds another value of. Each key alone, as the walk
// compares it without translations: the trace reads no catalogue of its own.
QStringList differingKeys(const QMap<QString, QVariant>& compared, const QMap<QString, QVariant>& live) {
    QStringList differs;
    for (auto saved = compared.cbegin(); saved != compared.cend(); ++saved) {
        const auto found = live.constFind(saved.key());
        if (found == live.cend() ||
            !attributeMapsAreEquivalent({{saved.key(), *found}}, {{saved.key(), saved.value()}}, 0, false))
            differs << saved.key();
    }
    return differs;
}

std::optional<QString> stringAttribute(const QMap<QString, QVariant>& attributes, const QString& key) {
    const auto found = attributes.constFind(key);
    return found == attributes.cend() ? std::nullopt : std::optional<QString>(found->toString());
}

} // namespace

ResolutionTrace::Scope::Scope(ResolutionTrace& trace) : m_previous(currentTrace) {
    currentTrace = &trace;
}

ResolutionTrace::Scope::~Scope() {
    currentTrace = m_previous;
}

ResolutionTrace* ResolutionTrace::current() {
    return currentTrace;
}

ResolutionTrace::Walk* ResolutionTrace::walk() {
    return m_walks.isEmpty() ? nullptr : &m_walks.last();
}

ResolutionTrace::Visit* ResolutionTrace::openVisit() {
    Walk* current = walk();
    if (!current || m_openVisits.isEmpty() || m_openVisits.last().index < 0)
        return nullptr;
    return &current->visits[m_openVisits.last().index];
}

int ResolutionTrace::childIndex(AXUIElementRef child) const {
    const CFArrayRef children = m_openVisits.isEmpty() ? nullptr : m_openVisits.last().children;
    for (CFIndex i = 0; i < UIElementMatching::countOf(children); ++i) {
        if (UIElementMatching::childAt(children, i) == child)
            return int(i);
    }
    return -1;
}

void ResolutionTrace::beginWalk(const UIElement_p* description, const QList<const UIElement_p*>& chain) {
    Walk started;
    started.description = description;
    for (const UIElement_p* level : chain)
        started.chain.append(Level{level->role(), level->title()});
    m_walks.append(started);
    m_openVisits.clear();
    m_openDescents.clear();
    m_topStage = Stage::Application;
}

void ResolutionTrace::endWalk(bool found) {
    if (Walk* current = walk())
        current->found = found;
}

void ResolutionTrace::targetTypeMissing(const QString& type) {
    if (Walk* current = walk())
        current->missingTargetType = type;
}

void ResolutionTrace::applicationsChosen(Choice choice, const QStringList& values, const QList<int>& pids) {
    if (Walk* current = walk()) {
        current->choice = choice;
        current->choiceValues = values;
        current->pids = pids;
    }
}

void ResolutionTrace::applicationMade(int pid) {
    if (Walk* current = walk())
        current->applications.append(pid);
}

void ResolutionTrace::hintPosition(std::optional<QPoint> hint) {
    if (Walk* current = walk()) {
        current->hintAsked = true;
        current->hint = hint;
    }
}

void ResolutionTrace::hintOffsetTried(QPoint offset, HintOutcome outcome) {
    Walk* current = walk();
    if (!current)
        return;
    if (outcome == HintOutcome::Searched) {
        // The descent that follows is this offset's.
        m_hintOffset = offset;
        m_topStage = Stage::HintPosition;
        return;
    }
    Descent tried;
    tried.stage = Stage::HintPosition;
    tried.offset = offset;
    tried.hint = outcome;
    current->top.append(tried);
}

void ResolutionTrace::beginLevel(const UIElement_p& description, int level) {
    Walk* current = walk();
    if (!current)
        return;
    Visit visit;
    visit.level = level;
    visit.role = description.role();
    visit.title = description.title();
    visit.parentVisit = m_openVisits.isEmpty() ? -1 : m_openVisits.last().index;
    int index = -1;
    if (current->visits.size() < keptVisits) {
        index = int(current->visits.size());
        current->visits.append(visit);
    } else {
        ++current->visitsNotKept;
    }
    if (index >= 0 && !m_openDescents.isEmpty()) {
        const OpenDescent& open = m_openDescents.last();
        if (open.listed >= 0)
            current->descentsFrom(open.parent)[open.listed].below = index;
    }
    m_openVisits.append(OpenVisit{index});
}

void ResolutionTrace::childrenRead(CFArrayRef children) {
    if (m_openVisits.isEmpty())
        return;
    m_openVisits.last().children = children;
    if (Visit* visit = openVisit())
        visit->children = children ? int(UIElementMatching::countOf(children)) : -1;
}

void ResolutionTrace::endLevel(bool found) {
    if (Visit* visit = openVisit())
        visit->found = found;
    if (!m_openVisits.isEmpty())
        m_openVisits.removeLast();
}

void ResolutionTrace::matching(Matching matching, const QMap<QString, QVariant>& compared,
                               const QString& rule) {
    if (Visit* visit = openVisit()) {
        visit->matching = matching;
        visit->compared = compared;
        visit->rule = rule;
    }
}

void ResolutionTrace::candidate(int child, std::optional<QString> role,
                                const QMap<QString, QVariant>& attributes, Verdict verdict) {
    Visit* visit = openVisit();
    if (!visit)
        return;
    Candidate seen;
    seen.child = child;
    seen.role = role ? role : stringAttribute(attributes, QStringLiteral("AXRole"));
    seen.title = stringAttribute(attributes, QStringLiteral("AXTitle"));
    seen.attributes = attributes;
    seen.verdict = verdict;
    if (verdict == Verdict::Differs || verdict == Verdict::Loose)
        seen.differs = differingKeys(visit->compared, attributes);
    if (verdict == Verdict::Matches) {
        seen.passed = true;
        ++visit->matchedAttributes;
        ++visit->passed;
    }
    if (seen.role)
        ++visit->roles[*seen.role];
    // Differing in fewer keys is nearer; of equals the first in child order.
    if (verdict == Verdict::Differs &&
        (!visit->nearest || seen.differs.size() < visit->nearest->differs.size()))
        visit->nearest = seen;
    if (visit->candidates.size() < listedPerLevel)
        visit->candidates.append(seen);
    else
        ++visit->candidatesNotListed;
    if (verdict == Verdict::Exact)
        ++visit->exact;
    else if (verdict == Verdict::Loose)
        ++visit->loose;
}

void ResolutionTrace::candidatesChosen(Verdict chosen) {
    Visit* visit = openVisit();
    if (!visit)
        return;
    visit->passed = chosen == Verdict::Exact ? visit->exact : visit->loose;
    visit->matchedAttributes = visit->passed;
    for (Candidate& seen : visit->candidates)
        seen.passed = seen.verdict == chosen;
}

void ResolutionTrace::filtered(const QString& key, const QVariant& accepted,
                               const QList<AXUIElementRef>& before, const QList<AXUIElementRef>& after) {
    Visit* visit = openVisit();
    if (!visit)
        return;
    visit->filters.append(Filter{key, accepted, int(before.size()), int(after.size())});
    visit->passed = int(after.size());
    for (const AXUIElementRef element : before) {
        if (after.contains(element))
            continue;
        const int child = childIndex(element);
        for (Candidate& seen : visit->candidates) {
            if (seen.child == child) {
                seen.passed = false;
                seen.removedBy = key;
            }
        }
    }
}

void ResolutionTrace::titleStage(AXUIElementRef hit, bool candidate) {
    if (Visit* visit = openVisit()) {
        visit->titleHit = hit ? childIndex(hit) : -1;
        visit->titleHitWasCandidate = candidate;
    }
}

void ResolutionTrace::stage(Stage stage) {
    (m_openVisits.isEmpty() ? m_topStage : m_openVisits.last().stage) = stage;
}

void ResolutionTrace::beginDescent(AXUIElementRef child) {
    Walk* current = walk();
    if (!current)
        return;
    Descent descent;
    if (m_openVisits.isEmpty()) {
        // At the top: an application chosen for the chain, or the ancestor under a hint offset.
        descent.stage = m_topStage;
        if (m_topStage == Stage::HintPosition) {
            descent.offset = m_hintOffset;
        } else {
            const auto applicationDescents =
                std::count_if(current->top.cbegin(), current->top.cend(),
                              [](const Descent& tried) { return tried.stage == Stage::Application; });
            descent.pid = current->applications.value(applicationDescents);
        }
        m_openDescents.append({-1, int(current->top.size()), descent});
        current->top.append(descent);
        return;
    }
    descent.stage = m_openVisits.last().stage;
    descent.child = childIndex(child);
    const int parent = m_openVisits.last().index;
    int listed = -1;
    if (Visit* visit = openVisit()) {
        if (visit->descents.size() < listedPerLevel) {
            listed = int(visit->descents.size());
            visit->descents.append(descent);
        } else {
            ++visit->descentsNotListed;
        }
    }
    m_openDescents.append({parent, listed, descent});
}

void ResolutionTrace::endDescent(bool found) {
    Walk* current = walk();
    if (!current || m_openDescents.isEmpty())
        return;
    OpenDescent ended = m_openDescents.takeLast();
    ended.descent.found = found;
    if (ended.listed >= 0)
        current->descentsFrom(ended.parent)[ended.listed].found = found;
    if (found)
        current->path.prepend(ended.descent);
}

int ResolutionTrace::Walk::deepestVisit() const {
    // Of the visits of the deepest level, the one whose nearest candidate differs least tells most;
    // of equals, the first.
    const auto tellsMore = [](const Visit& visit, const Visit& than) {
        if (visit.level != than.level)
            return visit.level > than.level;
        if (!visit.nearest || !than.nearest)
            return visit.nearest && !than.nearest;
        return visit.nearest->differs.size() < than.nearest->differs.size();
    };
    int deepest = -1;
    for (int i = 0; i < visits.size(); ++i) {
        if (deepest < 0 || tellsMore(visits.at(i), visits.at(deepest)))
            deepest = i;
    }
    return deepest;
}

int ResolutionTrace::Walk::deepestLevel() const {
    const int deepest = deepestVisit();
    if (deepest >= 0)
        return visits.at(deepest).level;
    return found ? int(chain.size()) - 1 : 0;
}

int ResolutionTrace::Walk::visitsAtLevel(int level) const {
    return int(std::count_if(visits.cbegin(), visits.cend(),
                             [level](const Visit& visit) { return visit.level == level; }));
}

ResolutionTrace::Reason ResolutionTrace::Walk::reason() const {
    if (!missingTargetType.isEmpty())
        return Reason::TargetTypeMissing;
    if (found)
        return Reason::Found;
    const int deepest = deepestVisit();
    if (deepest < 0) {
        if (choice == Choice::NotAnApplication || choice == Choice::None)
            return hint ? Reason::HintFoundNothing : Reason::NoHint;
        return applications.isEmpty() ? Reason::NoApplication : Reason::Stopped;
    }
    const Visit& visit = visits.at(deepest);
    if (visit.children < 0)
        return Reason::ChildrenUnreadable;
    if (visit.children == 0)
        return Reason::NoChildren;
    if (visit.matching == Matching::ApplicationRule)
        return visit.descents.isEmpty() && visit.descentsNotListed == 0 ? Reason::RuleChoseNothing
                                                                        : Reason::Stopped;
    if (visit.passed > 0)
        return Reason::Stopped;
    if (!visit.filters.isEmpty() && visit.matchedAttributes > 0)
        return Reason::FilteredOut;
    if (visit.matching == Matching::BuiltIn && !visit.roles.contains(visit.role))
        return Reason::NoChildOfRole;
    return Reason::NoChildMatched;
}
