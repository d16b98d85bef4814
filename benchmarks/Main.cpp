// Measures what the program does beside something that does the same work, and prints a table. Run
// it with scripts/benchmark, in a network of its own.

#include "Announcer.h"
#include "Application.h"
#include "Comparison.h"
#include "Rows.h"

#include <QApplication>
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
        // The log is left out: what it costs depends on the terminal.
        if (type == QtFatalMsg) {
            std::fprintf(stderr, "%s\n", qPrintable(text));
        }
    });
    Rows::addPatchRows();
    Rows::addIntakeRows();
    Rows::addStartRows();
    Rows::addDiscoveryRows();
    Rows::addEngineRows();
    Rows::addSelectorRows();
    QTimer::singleShot(0, &app, [] { QApplication::exit(Comparison::runAll() ? 0 : 1); });
    return QApplication::exec();
}
