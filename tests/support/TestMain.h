#pragma once

#include <QApplication>
#include <QSettings>
#include <QTemporaryDir>
#include <QtTest>

// Runs a test with a QApplication that needs no display and with a temporary home directory, so
// that the tests neither read nor change the settings and caches of the person who runs them.
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
