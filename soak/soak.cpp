// Runs the program for some seconds amid nodes that misbehave and under an operator who never
// rests.
//
//   soak [SECONDS [SEED]]
//
// The seed decides what happens and in which order, but not when. The exit status is 1 when there
// is a finding. Run it in a network of its own: scripts/with-network.

#include "Application.h"
#include "HostilePlant.h"
#include "MainWindow.h"
#include "Operator.h"
#include "net/Descriptors.h"
#include "net/SyncHttp.h"

#include <QApplication>
#include <QDialog>
#include <QElapsedTimer>
#include <QSettings>
#include <QTcpServer>
#include <QTemporaryDir>
#include <QTimer>

#include <csignal>
#include <cstdlib>

#include <unistd.h>

namespace {

constexpr int sessionSeconds = 45;
constexpr std::chrono::seconds longestClosing{3};

QElapsedTimer turn; // of the event loop

// Watches the main thread. Findings are a turn of the event loop of more than five seconds, and a
// request that waits for more than a minute: the plant takes every fault back within eight seconds.
// When the event loop does not turn for half a minute, SIGABRT ends the process; the sanitizers
// then print the stack.
void watch(QTimer *heart, Findings *findings)
{
    std::signal(SIGALRM, [](int) { std::abort(); });
    QObject::connect(heart, &QTimer::timeout, heart, [findings] {
        ::alarm(30);
        const qint64 milliseconds = turn.restart();
        if (milliseconds > 5000) {
            findings->add(QStringLiteral("a turn of %1 ms").arg(milliseconds));
        }
        if (requestActivity().levels > 0 && requestActivity().waitTime > std::chrono::minutes(1)) {
            findings->add(QStringLiteral("a request waits without an end"));
        }
    });
    heart->start(10);
}

// One session of the program, from its start to the closing of its last window.
void runSession(int seconds, quint32 seed, quint32 *step, const Plant &plant, Findings *findings)
{
    QElapsedTimer closing;
    {
        MainWindow window;
        window.show();
        Operator hands(seed, step, &window, plant, findings);
        QTimer::singleShot(std::chrono::seconds(seconds), &hands, [&closing, &hands, findings] {
            closing.start();
            hands.leave();
            QTimer::singleShot(longestClosing, &hands, [findings] {
                findings->add(QStringLiteral("the program goes on without windows"));
                QCoreApplication::exit();
            });
        });
        turn.start(); // not with the end of the last window, nor with the making of this one
        QApplication::exec();
    }
    // The browser window lives to the end of the process.
    const QWidgetList windows = QApplication::topLevelWidgets();
    for (QWidget *left : windows) {
        if (qobject_cast<QDialog *>(left) && !left->parent()) {
            delete left;
        }
    }
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    if (!closing.isValid() || requestActivity().levels != 0 || requestActivity().closing) {
        findings->add(QStringLiteral("the program ended by itself, or with requests left"));
    }
}

} // namespace

int main(int argc, char **argv)
{
    const QTemporaryDir home;
    const QApplication app(argc, argv);
    QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope, home.path());
    Application::setIdentity();
    Application::setAppearance();
    Application::endWithLastWindow();
    Descriptors::raiseLimit();
    // The program logs thousands of warnings about these nodes.
    qInstallMessageHandler([](QtMsgType type, const QMessageLogContext &, const QString &text) {
        if (type == QtCriticalMsg || type == QtFatalMsg) {
            QTextStream(stderr) << text << '\n';
        }
    });

    const QStringList arguments = QCoreApplication::arguments();
    const int seconds = arguments.value(1, QStringLiteral("20")).toInt();
    const quint32 seed = arguments.value(2, QStringLiteral("1")).toUInt();
    Findings findings;
    QTcpServer bystander; // which nodes name, and the program must not connect to
    bystander.listen(QHostAddress(QStringLiteral("127.0.99.99")));
    QObject::connect(&bystander, &QTcpServer::newConnection, &bystander,
                     [&] { findings.add(QStringLiteral("the bystander was connected to")); });
    QTimer heart;
    watch(&heart, &findings);
    quint32 step = 0;
    {
        const HostilePlant plant(seed, "127.0.99.99:" + QByteArray::number(bystander.serverPort()),
                                 &findings);
        const int session = qMin(sessionSeconds, (seconds + 1) / 2);
        for (int left = seconds; left > 0; left -= session) {
            runSession(qMin(left, session), seed, &step, plant.nodes(), &findings);
        }
    }
    ::alarm(0);
    QTextStream(stdout) << seconds << " seconds, seed " << seed << ": " << step
                        << " steps of the operator, " << findings.count << " findings\n";
    return findings.count == 0 ? 0 : 1;
}
