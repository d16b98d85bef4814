// One start of the whole program at 96 dpi and one at 144 dpi. Both screens say one more, as an X
// server may that rounds to millimetres.

#include "MainWindow.h"
#include "support/TestMain.h"
#include "widgets/PressGuard.h"

#include <QApplication>
#include <QTemporaryDir>

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

// main() of src/main.cpp, under another name.
int programMain(int argc, char **argv);

namespace {

QStringList seen;

// Runs as soon as the program has made its application object.
void look()
{
    auto *poll = new QTimer(qApp);
    QObject::connect(poll, &QTimer::timeout, qApp, [poll] {
        const auto windows = QApplication::topLevelWidgets();
        for (QWidget *window : windows) {
            if (qobject_cast<MainWindow *>(window) && window->isVisible()) {
                poll->stop();
                rlimit limit{};
                ::getrlimit(RLIMIT_NOFILE, &limit);
                seen = QStringList{
                    QCoreApplication::organizationName(), QCoreApplication::applicationName(),
                    QCoreApplication::organizationDomain(), QGuiApplication::desktopFileName(),
                    window->windowTitle(), QString::number(qApp->styleSheet().size() > 5000),
                    QString::number(qApp->findChildren<PressGuard *>().size()),
                    // not for the programs that this one starts
                    QString::fromLocal8Bit(qgetenv("QT_SCREEN_SCALE_FACTORS")),
                    QString::number(window->devicePixelRatioF()), QString::number(limit.rlim_cur)};
                window->close();
            }
        }
    });
    poll->start(5);
}

} // namespace

Q_COREAPP_STARTUP_FUNCTION(look)

class TestProgram final : public QObject {
    Q_OBJECT

private slots:
    void startsAndEndsWithItsWindow();
};

void TestProgram::startsAndEndsWithItsWindow()
{
    const QTemporaryDir home;
    for (const char *variable : {"HOME", "XDG_CONFIG_HOME", "XDG_CACHE_HOME"}) {
        qputenv(variable, home.path().toLocal8Bit());
    }
    rlimit limit{};
    ::getrlimit(RLIMIT_NOFILE, &limit);
    char name[] = "velmora-nodepatch";
    char *arguments[] = {name, nullptr};
    QCOMPARE(programMain(1, arguments), 0);
    const char *scale = qgetenv("QT_FONT_DPI") == "97" ? "1" : "1.5";
    QCOMPARE(
        seen,
        (QStringList{"Velmora"_s, "VelmoraNodePatch"_s, "velmora.example"_s,
                     "example.velmora.NodePatch"_s, "VelmoraNodePatch - velmora.example"_s, "1"_s,
                     "1"_s, ""_s, QLatin1String(scale), QString::number(limit.rlim_max)}));
    QVERIFY(QFile::exists(home.filePath("Velmora/VelmoraNodePatch.conf"_s)));
}

// Qt reads the resolution once in a process.
int main(int argc, char **argv)
{
    const pid_t child = fork();
    qputenv("QT_FONT_DPI", child == 0 ? "97" : "145");
    TestProgram test;
    const int failed = QTest::qExec(&test, argc, argv);
    int childFailed = child < 0;
    if (child > 0) {
        waitpid(child, &childFailed, 0);
    }
    return failed != 0 || childFailed != 0;
}
#include "tst_program.moc"
