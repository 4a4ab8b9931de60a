#pragma once

// Shared pieces of the test programs: a private temporary directory for every run, so that
// sockets, lock files and codec files of parallel runs never meet, and main() macros that set
// it up before the application object exists.

#include <QCoreApplication>
#include <QGuiApplication>
#include <QString>
#include <QTest>

// Creates a fresh directory below the inherited temporary directory, points TMPDIR at it for
// this process and every process it starts, and removes it again at the end.
class PrivateTempDir {
public:
    PrivateTempDir();
    ~PrivateTempDir();
    PrivateTempDir(const PrivateTempDir&) = delete;
    PrivateTempDir& operator=(const PrivateTempDir&) = delete;

    const QString& path() const { return dir; }

private:
    QString dir;
};

#define UIET_TEST_MAIN_WITH_APP(AppClass, TestObject)                                                        \
    int main(int argc, char** argv) {                                                                        \
        PrivateTempDir privateTempDir;                                                                       \
        AppClass app(argc, argv);                                                                            \
        TestObject tc;                                                                                       \
        QTEST_SET_MAIN_SOURCE_PATH                                                                           \
        return QTest::qExec(&tc, argc, argv);                                                                \
    }

#define UIET_TEST_MAIN(TestObject) UIET_TEST_MAIN_WITH_APP(QCoreApplication, TestObject)
#define UIET_GUI_TEST_MAIN(TestObject) UIET_TEST_MAIN_WITH_APP(QGuiApplication, TestObject)
