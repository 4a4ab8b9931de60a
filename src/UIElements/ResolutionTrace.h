#pragma once

// What a resolution saw on its way down, for a person who asks why a description is not found: per
// walk (one per alternative tried), the applications chosen at the top and the hint offsets tried,
// and per level visited the candidates that the matching compared, which of them passed and by
// which stage, and where each descent failed.
//
// A trace records only while a Scope has installed it in the thread that walks; the walk asks
// current() once per step and does nothing more when nobody listens. It is given only values the
// walk has already read: no platform call is made for it.

#include "platformAccessibility.h"

#include <QList>
#include <QMap>
#include <QPoint>
#include <QString>
#include <QStringList>
#include <QVariant>

#include <optional>

class UIElement_p;

class ResolutionTrace {
public:
    // Candidates and descents listed per level visited; the rest are counted.
    static constexpr int listedPerLevel = 10;
    // Levels visited that are kept per walk; a walk that backtracks further is counted only.
    static constexpr int keptVisits = 1000;

    enum class Matching { BuiltIn, Strict, Custom, ApplicationRule };
    // What the attribute comparison said of a child.
    enum class Verdict { RoleDiffers, Differs, Exact, Loose, Matches };
    // Why a descent was tried.
    enum class Stage {
        Application,
        HintPosition,
        LoneCandidate,
        Title,
        RoleIndex,
        ChildIndex,
        Rest,
        ChildOrder,
        ApplicationRule
    };
    // How the top of the chain chose its applications.
    enum class Choice { None, NotAnApplication, AnyApplication, ProcessName, BundleId };
    enum class HintOutcome { NothingThere, NoVerifiableAncestor, RootedInApplication, Searched };
    // Why the walk ended where it did, at its deepest level.
    enum class Reason {
        Found,
        TargetTypeMissing,
        NoApplication,
        NoHint,
        HintFoundNothing,
        ChildrenUnreadable,
        NoChildren,
        NoChildOfRole,
        NoChildMatched,
        FilteredOut,
        RuleChoseNothing,
        Stopped
    };

    struct Candidate {
        int child = -1;                     // place among the parent's children
        std::optional<QString> role, title; // when the matching read them
        QMap<QString, QVariant> attributes; // the compared attributes as read; an unreadable one is absent
        Verdict verdict = Verdict::Differs;
        QString removedBy;   // the custom filter that took it out
        QStringList differs; // compared keys that it lacks or holds another value of
        bool passed = false;
    };
    struct Filter {
        QString key;
        QVariant accepted; // the saved values the filter accepts
        int before = 0, after = 0;
    };
    struct Descent {
        Stage stage = Stage::Rest;
        int child = -1; // place among the parent's children; -1 at the top
        int pid = 0;    // an application at the top
        QPoint offset;  // a hint offset at the top
        HintOutcome hint = HintOutcome::Searched;
        bool found = false;
        int below = -1; // index of the level visited below it, -1 for none
    };
    struct Visit {
        int level = 0;
        QString role, title; // as described
        int parentVisit = -1;
        Matching matching = Matching::BuiltIn;
        QString rule;
        int children = -1; // -1: the children could not be read
        QMap<QString, QVariant> compared;
        QList<Candidate> candidates;
        int candidatesNotListed = 0;
        QMap<QString, int> roles;         // the children's roles, where the matching read them
        int matchedAttributes = 0;        // passed the attribute comparison
        int exact = 0, loose = 0;         // built-in matching's two passes
        int passed = 0;                   // went on to the tries
        std::optional<Candidate> nearest; // the failed candidate with the fewest differences
        QList<Filter> filters;
        std::optional<int> titleHit; // the title stage ran: the child with the title, -1 none
        bool titleHitWasCandidate = false;
        QList<Descent> descents;
        int descentsNotListed = 0;
        bool found = false;
    };
    struct Level {
        QString role, title;
    };
    struct Walk {
        const UIElement_p* description = nullptr; // the alternative, alive while its collection is
        QList<Level> chain;                       // top first
        Choice choice = Choice::None;
        QStringList choiceValues;
        QList<int> pids;         // chosen, in order
        QList<int> applications; // those whose element was made, in order
        std::optional<QPoint> hint;
        bool hintAsked = false; // the walk came to the hint position
        QList<Descent> top;     // applications, then hint offsets
        QList<Visit> visits;
        int visitsNotKept = 0;
        QList<Descent> path; // from the top down to the element found
        bool found = false;
        QString missingTargetType;

        Reason reason() const;
        // The visit of the deepest level the walk got to that tells most; -1 when it never came
        // below the top.
        int deepestVisit() const;
        // The level of that visit; the last level of a walk found at the top, else 0.
        int deepestLevel() const;
        int visitsAtLevel(int level) const;
        // The descents from the visit with this index; from the top for -1.
        QList<Descent>& descentsFrom(int visit) { return visit < 0 ? top : visits[visit].descents; }
    };

    // Installs a trace for the current thread for as long as it lives.
    class Scope {
    public:
        explicit Scope(ResolutionTrace& trace);
        ~Scope();
        Scope(const Scope&) = delete;
        Scope& operator=(const Scope&) = delete;

    private:
        ResolutionTrace* m_previous;
    };

    // The trace of this thread; null when nobody asked for one.
    static ResolutionTrace* current();

    const QList<Walk>& walks() const { return m_walks; }

    // The walk's hooks.
    void beginWalk(const UIElement_p* description, const QList<const UIElement_p*>& chain);
    void endWalk(bool found);
    void targetTypeMissing(const QString& type);
    void applicationsChosen(Choice choice, const QStringList& values, const QList<int>& pids);
    void applicationMade(int pid);
    void hintPosition(std::optional<QPoint> hint);
    void hintOffsetTried(QPoint offset, HintOutcome outcome);
    void beginLevel(const UIElement_p& description, int level);
    void childrenRead(CFArrayRef children);
    void endLevel(bool found);
    void matching(Matching matching, const QMap<QString, QVariant>& compared,
                  const QString& rule = QString());
    void candidate(int child, std::optional<QString> role, const QMap<QString, QVariant>& attributes,
                   Verdict verdict);
    // Built-in matching: exact candidates win, the loose ones count only without any.
    void candidatesChosen(Verdict chosen);
    void filtered(const QString& key, const QVariant& accepted, const QList<AXUIElementRef>& before,
                  const QList<AXUIElementRef>& after);
    void titleStage(AXUIElementRef hit, bool candidate);
    void stage(Stage stage);
    void beginDescent(AXUIElementRef child);
    void endDescent(bool found);

private:
    Walk* walk();
    Visit* openVisit();
    int childIndex(AXUIElementRef child) const;

    QList<Walk> m_walks;
    // The levels open now, innermost last: the index into the walk's visits (-1: not kept), the
    // children while they are open, and the stage whose tries run there.
    struct OpenVisit {
        int index = -1;
        CFArrayRef children = nullptr;
        Stage stage = Stage::Rest;
    };
    QList<OpenVisit> m_openVisits;
    // The descents open now: the visit they leave (-1 the top) and their index in its list (-1:
    // not listed).
    struct OpenDescent {
        int parent = -1;
        int listed = -1;
        Descent descent;
    };
    QList<OpenDescent> m_openDescents;
    Stage m_topStage = Stage::Application;
    QPoint m_hintOffset;
};
