#pragma once

#include <QApplication>
#include <QSettings>
#include <QTemporaryDir>
#include <QtTest>

// The main function of a test program: a QApplication that needs no display, and a home of its own,
// so that settings and caches of the person who runs the tests are neither read nor changed.
template <typename Test>
int runTest(int argc, char **argv)
{
    const QTemporaryDir home;
    if (!home.isValid()) {
        qFatal("no temporary directory for the settings");
    }
    for (const char *variable : {"HOME", "XDG_CONFIG_HOME", "XDG_DATA_HOME", "XDG_CACHE_HOME"}) {
        qputenv(variable, home.path().toLocal8Bit());
    }
    if (!qEnvironmentVariableIsSet("QT_QPA_PLATFORM")) {
        qputenv("QT_QPA_PLATFORM", "offscreen");
    }
    QApplication app(argc, argv);
    QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope, home.path());
    Test test;
    return QTest::qExec(&test, argc, argv);
}

#define NODEPATCH_TEST_MAIN(Test)                                                                  \
    int main(int argc, char **argv)                                                                \
    {                                                                                              \
        return runTest<Test>(argc, argv);                                                          \
    }
