// The start of a process, until its main window has been painted for the first time.

#include "Comparison.h"
#include "MainWindow.h"
#include "Rows.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>

#include <cstdio>

namespace {

struct Start {
    double milliseconds = 0;
    double mebibytes = 0;
};

Start startOf(const QString &program)
{
    const QString command = QStringLiteral("exec %1/%2 2>/dev/null")
                                .arg(QCoreApplication::applicationDirPath(), program);
    const long long begin = monotonicNanoseconds();
    std::FILE *output = ::popen(QFile::encodeName(command).constData(), "re");
    long long end = 0;
    double kibibytes = 0;
    if (!output || std::fscanf(output, "%lld %lf", &end, &kibibytes) != 2) {
        qFatal("%s painted nothing", qPrintable(program));
    }
    ::pclose(output);
    return {static_cast<double>(end - begin) / 1e6, kibibytes / 1024};
}

// main() sets a home directory that this run alone uses.
void forgetSettings()
{
    QDir(qEnvironmentVariable("XDG_CONFIG_HOME") + QStringLiteral("/Velmora")).removeRecursively();
}

enum class Beside { BareWindow, WindowWithIcon };

Comparison::Result measure(benchmark::State &state, bool cold, double Start::*figure, Beside beside)
{
    const QString sources = QStringLiteral(SOURCES);
    const QSize size = MainWindow().sizeHint();
    QString empty =
        QStringLiteral("nodepatch-empty-window %1 %2 %3/src/styles/DarkBlue.qss")
            .arg(QString::number(size.width()), QString::number(size.height()), sources);
    if (beside == Beside::WindowWithIcon) {
        empty += QStringLiteral(" %1/img/NodePatch_Icon_*.png").arg(sources);
    }
    return Comparison::compare(
        state,
        [=] {
            if (cold) {
                forgetSettings();
            }
            return startOf(QStringLiteral("nodepatch-start")).*figure;
        },
        [=] { return startOf(empty).*figure; });
}

} // namespace

void Rows::addStartRows()
{
    using Comparison::addRow;
    const char bare[] = "empty QMainWindow, same style sheet";
    addRow({"Start to first paint, no settings yet", bare, "ms", 1.5, 21}, [](auto &state) {
        return measure(state, true, &Start::milliseconds, Beside::BareWindow);
    });
    addRow({"Start to first paint, settings of an earlier run", bare, "ms", 1.5, 21},
           [](auto &state) {
               return measure(state, false, &Start::milliseconds, Beside::BareWindow);
           });
    addRow({"The same", "with the same window icon, too", "ms", 1.5, 21}, [](auto &state) {
        return measure(state, false, &Start::milliseconds, Beside::WindowWithIcon);
    });
    addRow({"Resident memory then", bare, "MiB", 1.5, 5}, [](auto &state) {
        return measure(state, false, &Start::mebibytes, Beside::BareWindow);
    });
}
