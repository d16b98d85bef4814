// One start of the whole program at 96 dpi and one at 144 dpi. Both screens say one more, as an X
// server may that rounds to millimetres.

#include "MainWindow.h"
#include "widgets/PressGuard.h"

#include <QApplication>
#include <QTemporaryDir>
#include <QtTest>

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

// main() of src/main.cpp, under another name.
int programMain(int argc, char **argv);

namespace {

struct Seen {
    QString organisation;
    QString title;
    bool isStyled = false;
    bool isGuarded = false;
    qreal scale = 0;
    rlim_t descriptors = 0;
};

Seen seen;

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
                seen = {QCoreApplication::organizationName() + QLatin1Char('/')
                            + QCoreApplication::applicationName(),
                        window->windowTitle(),
                        !qApp->styleSheet().isEmpty(),
                        qApp->findChild<PressGuard *>() != nullptr,
                        window->devicePixelRatioF(),
                        limit.rlim_cur};
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
    QCOMPARE(seen.organisation, QStringLiteral("Velmora/VelmoraNodePatch"));
    QCOMPARE(seen.title, QStringLiteral("VelmoraNodePatch - velmora.example"));
    QVERIFY(seen.isStyled && seen.isGuarded);
    QCOMPARE(seen.scale, qgetenv("QT_FONT_DPI") == "97" ? 1 : 1.5);
    QCOMPARE(seen.descriptors, limit.rlim_max);
    QVERIFY(QFile::exists(home.filePath(QStringLiteral("Velmora/VelmoraNodePatch.conf"))));
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
