// One start of the whole program, at 144 dpi.

#include "MainWindow.h"
#include "widgets/PressGuard.h"

#include <QApplication>
#include <QTemporaryDir>
#include <QtTest>

#include <sys/resource.h>

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
    qputenv("QT_FONT_DPI", "144");
    rlimit limit{};
    ::getrlimit(RLIMIT_NOFILE, &limit);
    char name[] = "velmora-nodepatch";
    char *arguments[] = {name, nullptr};
    QCOMPARE(programMain(1, arguments), 0);
    QCOMPARE(seen.organisation, QStringLiteral("Velmora/VelmoraNodePatch"));
    QCOMPARE(seen.title, QStringLiteral("VelmoraNodePatch - velmora.example"));
    QVERIFY(seen.isStyled && seen.isGuarded);
    QCOMPARE(seen.scale, 1.5);
    QCOMPARE(seen.descriptors, limit.rlim_max);
    QVERIFY(QFile::exists(home.filePath(QStringLiteral("Velmora/VelmoraNodePatch.conf"))));
}

QTEST_APPLESS_MAIN(TestProgram)
#include "tst_program.moc"
