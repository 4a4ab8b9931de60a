#pragma once

// Pieces shared by the tests of the live desktop: the provider on a private session, and walking
// and searching trees through the accessibility functions. Header only: include it only from
// tests that link osxUtilities and libatspi.

#include "atspi/AtspiProvider.h"
#include "liveDesktopSession.h"
#include "osxUIElementUtils.h"
#include "platformAccessibility.h"
#include "platformCoreFoundation.h"
#include "platformTestSupport.h"

#include <QCoreApplication>
#include <QList>
#include <QProcess>
#include <QProcessEnvironment>
#include <QRegularExpression>
#include <QStandardPaths>

#include <QString>
#include <QTest>
#include <optional>

// An attribute or action name, owned by the caller.
inline CFStringRef createAXName(const char* name) {
    return CFStringCreateWithQString(QString::fromLatin1(name));
}

// The value of an attribute, owned by the caller; null when the read fails, with its code.
inline CFTypeRef copyAttributeNamed(AXUIElementRef element, const char* name, AXError* error = nullptr) {
    CFStringRef attribute = createAXName(name);
    CFTypeRef value = nullptr;
    const AXError result = AXUIElementCopyAttributeValue(element, attribute, &value);
    CFRelease(attribute);
    if (error)
        *error = result;
    return result == kAXErrorSuccess ? value : nullptr;
}

// Every element below `root`, depth first, each with one reference for the caller.
inline void collectElements(AXUIElementRef root, QList<AXUIElementRef>* elements, int depth = 0) {
    CFTypeRef children = copyAttributeNamed(root, "AXChildren");
    if (!children)
        return;
    const auto array = static_cast<CFArrayRef>(children);
    for (CFIndex i = 0; depth < 64 && i < CFArrayGetCount(array); ++i) {
        auto child = static_cast<AXUIElementRef>(CFRetain(CFArrayGetValueAtIndex(array, i)));
        elements->append(child);
        collectElements(child, elements, depth + 1);
    }
    CFRelease(children);
}

// Every element below `root` as matching and resolution read it, one line per element in tree
// order: its answers (value or error) to the attributes they ask, and the names it reports.
// `batched`: all inside one batch of reads, whose walk down the tree reads each child list before
// the attributes of those children, as a resolution does.
inline QStringList describeTree(AXUIElementRef root, bool batched) {
    std::optional<AXReadBatch> batch;
    if (batched)
        batch.emplace();
    static const char* const attributes[] = {
        "AXRole",    "AXSubrole", "AXTitle",  "AXDescription", "AXRoleDescription", "AXIdentifier",
        "AXEnabled", "AXFocused", "AXParent", "AXValue",       "AXPosition",        "AXSize"};
    QList<AXUIElementRef> elements;
    collectElements(root, &elements);
    QStringList lines;
    for (AXUIElementRef element : std::as_const(elements)) {
        QStringList answers;
        for (const char* attribute : attributes) {
            AXError error = kAXErrorSuccess;
            CFTypeRef value = copyAttributeNamed(element, attribute, &error);
            if (value) {
                CFStringRef description = CFCopyDescription(value);
                answers << QStringFromCFString(description);
                CFRelease(description);
                CFRelease(value);
            } else {
                answers << QStringLiteral("error %1").arg(int(error));
            }
        }
        CFArrayRef names = nullptr;
        if (AXUIElementCopyAttributeNames(element, &names) == kAXErrorSuccess && names) {
            for (CFIndex i = 0; i < CFArrayGetCount(names); ++i)
                answers << QStringFromCFString(static_cast<CFStringRef>(CFArrayGetValueAtIndex(names, i)));
            CFRelease(names);
        }
        lines << answers.join(QLatin1Char('|'));
        CFRelease(element);
    }
    return lines;
}

// The first element below `root` that `matches`, owned by the caller; null when there is none.
template <typename Matches> AXUIElementRef findElement(AXUIElementRef root, Matches matches) {
    QList<AXUIElementRef> elements;
    collectElements(root, &elements);
    AXUIElementRef found = nullptr;
    for (AXUIElementRef element : elements) {
        if (!found && matches(element))
            found = static_cast<AXUIElementRef>(CFRetain(element));
        CFRelease(element);
    }
    return found;
}

inline AXUIElementRef findElement(AXUIElementRef root, const QString& role, const QString& title) {
    return findElement(root, [&](AXUIElementRef element) {
        return UIElementRole(element) == role && UIElementTitle(element) == title;
    });
}

// An application's environment that shows gettext's texts in this language. LANGUAGE counts with
// any locale but "C"; C.UTF-8 is always there.
inline QProcessEnvironment environmentInLanguage(const QString& language) {
    QProcessEnvironment environment;
    environment.insert(QStringLiteral("LANGUAGE"), language);
    environment.insert(QStringLiteral("LANG"), QStringLiteral("C.UTF-8"));
    return environment;
}

// The frame of a test program on the live desktop: a private desktop with the accessibility bus,
// the live provider on it, one application under test, and the leak check of every test function.
class LiveDesktopTestBase : protected LiveObjectCheck {
protected:
    // From initTestCase: false, with the reason to skip, when the desktop cannot start.
    bool
    openSession(QString* skipReason,
                LiveDesktopSession::WindowManager windowManager = LiveDesktopSession::WindowManager::None) {
        session = std::make_unique<LiveDesktopSession>(LiveDesktopSession::Bus::Accessibility, windowManager);
        *skipReason = session->skipReason();
        return session->isReady();
    }
    // The same for the tests of gtk3-widget-factory, which are skipped where it is not installed.
    bool openSessionForWidgetFactory(QString* skipReason, LiveDesktopSession::WindowManager windowManager =
                                                              LiveDesktopSession::WindowManager::None) {
        if (QStandardPaths::findExecutable(QStringLiteral("gtk3-widget-factory")).isEmpty()) {
            *skipReason =
                QStringLiteral("gtk3-widget-factory is not installed (Debian package gtk-3-examples)");
            return false;
        }
        return openSession(skipReason, windowManager);
    }

    // From initTestCase, once the application runs: the live provider, and `application`.
    bool watchApplication(pid_t pid, QString* problem) {
        session->applyToThisProcess();
        std::shared_ptr<AtspiProvider> provider = AtspiProvider::create(problem);
        setAccessibilityProviderForTesting(provider);
        application = AXUIElementCreateApplication(pid);
        return provider != nullptr;
    }

    // A toolkit application on a busy machine may take this long to show its content on the bus.
    static constexpr int applicationStartTimeoutMs = 40000;

    // From initTestCase, after openSession: starts the program on the session, makes it
    // `application`, and waits until its element of this role and title is on the bus. Null, with
    // the problem, when it does not come up.
    QProcess* startWatchedApplication(const QString& program, const QString& role, const QString& title,
                                      QString* problem, const QProcessEnvironment& extra = {}) {
        QProcess* process = session->startApplication(program, {}, extra);
        if (!process || !process->waitForStarted()) {
            *problem = QStringLiteral("%1 does not start").arg(program);
            return nullptr;
        }
        if (!watchApplication(pid_t(process->processId()), problem))
            return nullptr;
        if (!LiveDesktopSession::waitUntil(
                [&] {
                    CFTypeRef element = find(role, title);
                    if (element)
                        CFRelease(element);
                    return element != nullptr;
                },
                applicationStartTimeoutMs)) {
            *problem = QStringLiteral("%1 shows no %2 \"%3\"").arg(program, role, title);
            return nullptr;
        }
        return process;
    }

    // From cleanupTestCase.
    void closeSession() {
        if (application)
            CFRelease(application);
        application = nullptr;
        setAccessibilityProviderForTesting(nullptr);
        session.reset();
    }

    AXUIElementRef find(const QString& role, const QString& title) {
        return findElement(application, role, title);
    }

    std::unique_ptr<LiveDesktopSession> session;
    AXUIElementRef application = nullptr;
};

// The window actions of a live test program run twice: on the bare X server, and again in a
// second run of the same program with a window manager (openbox), chosen by this variable.
// libatspi starts once per process, so the second desktop needs a process of its own.
inline constexpr const char* liveWindowManagerVariable = "UIET_LIVE_WINDOW_MANAGER";

inline bool underOpenbox() {
    return qgetenv(liveWindowManagerVariable) == "openbox";
}

inline LiveDesktopSession::WindowManager liveWindowManager() {
    return underOpenbox() ? LiveDesktopSession::WindowManager::Openbox
                          : LiveDesktopSession::WindowManager::None;
}

// From the run without a window manager: runs the test functions again in a run with one, and
// fails unless they all pass there; skips when no window manager can start.
inline void runAgainWithAWindowManager(const QStringList& testFunctions) {
    if (underOpenbox())
        QSKIP("this run is the one with the window manager");
    QProcess run;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QString::fromLatin1(liveWindowManagerVariable), QStringLiteral("openbox"));
    run.setProcessEnvironment(environment);
    run.setProcessChannelMode(QProcess::MergedChannels);
    run.start(QCoreApplication::applicationFilePath(), testFunctions);
    QVERIFY(run.waitForFinished(300000));
    const QByteArray output = run.readAll();
    static const QRegularExpression initSkipped(QStringLiteral("^SKIP   : \\S+::initTestCase\\(\\)"),
                                                QRegularExpression::MultilineOption);
    if (initSkipped.match(QString::fromUtf8(output)).hasMatch())
        QSKIP(qPrintable(QStringLiteral("no window manager: ") + QString::fromUtf8(output)));
    QVERIFY2(run.exitStatus() == QProcess::NormalExit && run.exitCode() == 0, output.constData());
    // initTestCase and cleanupTestCase pass besides the functions asked for.
    const QByteArray totals =
        QStringLiteral("Totals: %1 passed, 0 failed").arg(testFunctions.size() + 2).toUtf8();
    QVERIFY2(output.contains(totals), output.constData());
}
