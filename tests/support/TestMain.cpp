#include "support/TestMain.h"

#include <QApplication>
#include <QSettings>
#include <QTemporaryDir>

int runTest(int argc, char **argv, const std::function<int()> &test)
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
    const QApplication app(argc, argv);
    QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope, home.path());
    return test();
}
