// Measures what the program does beside what does the same work otherwise, and prints a table.
// Meant to run in a network of its own: scripts/benchmark.

#include "Announcer.h"
#include "Application.h"
#include "Comparison.h"
#include "Rows.h"

#include <QApplication>
#include <QMessageBox>
#include <QTemporaryDir>
#include <QTimer>

int main(int argc, char *argv[])
{
    const QTemporaryDir home;
    for (const char *variable :
         {"HOME", "XDG_CONFIG_HOME", "XDG_DATA_HOME", "XDG_CACHE_HOME", "XDG_RUNTIME_DIR"}) {
        qputenv(variable, home.path().toLocal8Bit());
    }
    qputenv("QT_NO_GLIB", "1"); // see LoopTurns.h
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 2;
    }
    QApplication app(argc, argv);
    Application::setIdentity();
    Application::setAppearance();
    Announcer::silenceAvahi();
    qInstallMessageHandler([](QtMsgType type, const QMessageLogContext &, const QString &text) {
        // The program's log costs what the terminal costs that shows it.
        if (type == QtFatalMsg) {
            std::fprintf(stderr, "%s\n", qPrintable(text));
        }
    });
    Rows::addPatchRows();
    Rows::addIntakeRows();
    Rows::addStartRows();
    Rows::addDiscoveryRows();
    Rows::addEngineRows();
    Rows::addBannerRows();
    QTimer::singleShot(0, &app, [] { QApplication::exit(Comparison::runAll() ? 0 : 1); });
    return QApplication::exec();
}
