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
#include "Side.h"
#include "Watch.h"
#include "net/Descriptors.h"
#include "net/SyncHttp.h"

#include <QApplication>
#include <QDesktopServices>
#include <QDialog>
#include <QElapsedTimer>
#include <QFile>
#include <QSettings>
#include <QTcpServer>
#include <QTemporaryDir>
#include <QTextStream>
#include <QTimer>

#include <sys/inotify.h>
#include <unistd.h>

namespace {

constexpr int sessionSeconds = 45;
constexpr std::chrono::seconds longestClosing{3};

// What the program must not touch, though nodes name it: a host that it must not connect to, a file
// that it must not open, and all addresses but the banner's, which it must not hand to the desktop.
class Bystanders final : public QObject {
    Q_OBJECT

public:
    Bystanders(const QString &directory, Record *theRecord)
        : file(directory + QStringLiteral("/canary"))
        , record(theRecord)
    {
        QFile canary(file);
        canary.open(QIODevice::WriteOnly);
        canary.close();
        inotify_add_watch(watch, QFile::encodeName(file).constData(), IN_OPEN);
        host.listen(QHostAddress(QStringLiteral("127.0.99.99")));
        connect(&host, &QTcpServer::newConnection, this,
                [this] { record->finding(QStringLiteral("the bystander was connected to")); });
        for (const char *scheme : {"http", "https", "file", "ftp"}) {
            QDesktopServices::setUrlHandler(QLatin1String(scheme), this, "open");
        }
    }
    ~Bystanders() override
    {
        char event[4096];
        if (read(watch, event, sizeof event) > 0) {
            record->finding(QStringLiteral("the canary was opened"));
        }
        close(watch);
    }
    Q_DISABLE_COPY_MOVE(Bystanders)

    const QString file;
    QTcpServer host;

public slots:
    void open(const QUrl &url)
    {
        if (!url.host().endsWith(QLatin1String("velmora.example"))) {
            record->finding(QStringLiteral("opened: ") + url.toString());
        }
    }

private:
    Record *const record;
    const int watch = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
};

// One session of the program, from its start to the closing of its last window.
void runSession(int seconds, quint32 seed, quint32 *step, const Plant &plant, Record *record)
{
    QElapsedTimer closing;
    {
        MainWindow window;
        window.show();
        Operator hands(seed, step, &window, plant, record);
        QTimer::singleShot(std::chrono::seconds(seconds), &hands, [&closing, &hands, record] {
            closing.start();
            hands.leave();
            QTimer::singleShot(longestClosing, &hands, [record] {
                record->finding(QStringLiteral("the program goes on without windows"));
                QCoreApplication::exit();
            });
        });
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
    record->count(QStringLiteral("sessions"));
    if (!closing.isValid() || requestActivity().depth != 0 || requestActivity().closing) {
        record->finding(QStringLiteral("the program ended by itself, or with requests left"));
    }
}

} // namespace

int main(int argc, char **argv)
{
    const QTemporaryDir home;
    for (const char *variable : {"HOME", "XDG_CONFIG_HOME", "XDG_DATA_HOME", "XDG_CACHE_HOME"}) {
        qputenv(variable, home.path().toLocal8Bit());
    }
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
    Record record;
    {
        Bystanders bystanders(home.path(), &record);
        const QString host = QStringLiteral("127.0.99.99:%1").arg(bystanders.host.serverPort());
        const HostilePlant plant(seed, host, bystanders.file, &record);
        const Watch watch(&record);
        QElapsedTimer clock;
        clock.start();
        quint32 step = 0;
        for (qint64 left = seconds; left > 0; left = seconds - clock.elapsed() / 1000) {
            const qint64 most = qMin<qint64>(sessionSeconds, seconds / 2);
            runSession(static_cast<int>(qMin(left, most)), seed, &step, plant.nodes(), &record);
        }
        QTextStream(stdout) << clock.elapsed() / 1000 << " seconds, seed " << seed << ", " << step
                            << " steps of the operator\n";
    }
    record.print();
    return record.isClean() ? 0 : 1;
}

#include "soak.moc"
