// The demo tour: does the program's main job through the real main window, tells what the nodes
// report, and leaves a screenshot of each step. Ends with a non-zero status at the first step that
// fails.

#include "Application.h"
#include "MainWindow.h"
#include "WindowDriver.h"
#include "discovery/BrowserWindow.h"

#include <QAbstractButton>
#include <QAbstractItemView>
#include <QApplication>
#include <QClipboard>
#include <QComboBox>
#include <QCommandLineParser>
#include <QDialog>
#include <QDir>
#include <QElapsedTimer>
#include <QFrame>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QListWidget>
#include <QMessageBox>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QScreen>
#include <QTableWidget>
#include <QTimer>
#include <QWindow>

#include <chrono>
#include <cstdio>
#include <functional>

namespace {

const QString connectCommand = QStringLiteral("Connect (Tx->Rx)");
const QString disconnectCommand = QStringLiteral("Disconnect Rx");

void say(const QString &line)
{
    std::printf("%s\n", qPrintable(line));
    std::fflush(stdout);
}

// False when the condition does not hold within the time.
bool waitFor(const std::function<bool()> &condition,
             std::chrono::seconds within = std::chrono::seconds(10))
{
    const auto end = std::chrono::steady_clock::now() + within;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end) {
            return false;
        }
        QCoreApplication::processEvents(QEventLoop::AllEvents | QEventLoop::WaitForMoreEvents, 20);
    }
    return true;
}

// Asks a node directly, not through the program.
QJsonDocument ask(const QString &host, const QString &path)
{
    QNetworkAccessManager manager;
    const QUrl url(QStringLiteral("http://") + host + path);
    QNetworkReply *reply = manager.get(QNetworkRequest(url));
    waitFor([reply] { return reply->isFinished(); });
    return QJsonDocument::fromJson(reply->readAll());
}

// A message box means that a step of the tour has failed. It is closed, so that the tour can end.
class BoxWatch final : public QObject {
public:
    BoxWatch()
    {
        connect(&timer, &QTimer::timeout, this, &BoxWatch::look);
        timer.start(std::chrono::milliseconds(20));
    }

    QString complaint;

private:
    void look()
    {
        if (auto *box = qobject_cast<QMessageBox *>(QApplication::activeModalWidget())) {
            complaint = box->windowTitle() + QStringLiteral(": ") + box->text();
            box->buttons().constFirst()->click();
        }
    }

    QTimer timer;
};

class Tour final {
public:
    Tour(MainWindow *mainWindow, QString transmitter, QString receiver, const QString &directory)
        : window(mainWindow)
        , driver(mainWindow)
        , txHost(std::move(transmitter))
        , rxHost(std::move(receiver))
        , screenshots(directory)
    {
    }

    // discover: the nodes are announced on this network; else their addresses are entered.
    bool run(bool discover)
    {
        say(QStringLiteral("The window is open."));
        shoot(window, QStringLiteral("start"));
        return (discover ? findNodes() : enterAddresses())
            && press(connectCommand, QStringLiteral("connected"), 3) && showSdp()
            && press(disconnectCommand, QStringLiteral("disconnected"), 0) && lookAround()
            && (!discover || browse());
    }

private:
    bool fail(const QString &reason) const
    {
        say(QStringLiteral("FAILED: ") + reason);
        return false;
    }

    void shoot(QWidget *widget, const QString &name)
    {
        activate(widget);
        save(widget->grab(), name);
    }

    // Until a window is active, it shows no focus: the pictures of two tours would differ.
    static void activate(QWidget *widget)
    {
        widget->activateWindow();
        waitFor([widget] { return widget->isActiveWindow(); });
    }

    // The window as it stands on the screen, with what is open above it.
    void shootScreen(const QString &name)
    {
        const QRect area(window->mapToGlobal(QPoint()), window->size());
        save(window->screen()->grabWindow(0, area.x(), area.y(), area.width(), area.height()),
             name);
    }

    void save(const QPixmap &picture, const QString &name)
    {
        const QString path =
            screenshots.filePath(QStringLiteral("%1-%2.png").arg(++shots).arg(name));
        picture.save(path);
        say(QStringLiteral("    screenshot: ") + path);
    }

    // What else can be opened.
    bool lookAround()
    {
        auto *about = window->findChild<QFrame *>(QStringLiteral("aboutPanel"));
        driver.press(QStringLiteral("About"));
        shoot(about, QStringLiteral("about"));
        bool opened = false;
        answerDialog(QStringLiteral("Add Device"), [this, &opened](QDialog *dialog) {
            opened = true;
            shoot(dialog, QStringLiteral("add-device"));
            dialog->reject();
        });
        return opened || fail(QStringLiteral("\"Add Device\" opens no dialog"));
    }

    // Presses a button that opens a modal dialog, and answers it. The button's command returns when
    // the dialog has been closed.
    void answerDialog(const QString &button, const std::function<void(QDialog *)> &answer)
    {
        QTimer timer;
        QObject::connect(&timer, &QTimer::timeout, window, [&answer] {
            auto *dialog = qobject_cast<QDialog *>(QApplication::activeModalWidget());
            if (dialog && !qobject_cast<QMessageBox *>(dialog)) {
                answer(dialog);
            }
        });
        timer.start(std::chrono::milliseconds(100));
        driver.press(button);
    }

    bool enterAddresses()
    {
        say(QStringLiteral("Entering %1 and %2.").arg(txHost, rxHost));
        WindowDriver::enter(driver.tx, txHost);
        WindowDriver::enter(driver.rx, rxHost);
        return lightsAreOn();
    }

    bool findNodes()
    {
        say(QStringLiteral("Waiting for the announced nodes."));
        QElapsedTimer clock;
        clock.start();
        if (!waitFor([this] { return !entryOf(driver.tx, txHost).isEmpty(); })
            || !waitFor([this] { return !entryOf(driver.rx, rxHost).isEmpty(); })) {
            return fail(QStringLiteral("discovery has not found both nodes"));
        }
        const QString sender = entryOf(driver.tx, txHost);
        const QString receiver = entryOf(driver.rx, rxHost);
        say(QStringLiteral("Found after %1 ms: \"%2\" and \"%3\".")
                .arg(QString::number(clock.elapsed()), sender, receiver));
        waitFor([this] {
            return !window->findChild<QFrame *>(QStringLiteral("aboutPanel"))->isVisible();
        });
        driver.tx->showPopup();
        QWidget *list = driver.tx->view()->window();
        waitFor([list] { return list->windowHandle() && list->windowHandle()->isExposed(); });
        shootScreen(QStringLiteral("discovered"));
        driver.tx->hidePopup();
        WindowDriver::choose(driver.tx, sender);
        WindowDriver::choose(driver.rx, receiver);
        return lightsAreOn();
    }

    // The first entry of the node at that host.
    static QString entryOf(const QComboBox *selector, const QString &host)
    {
        const int index = selector->findText(QStringLiteral("(%1-").arg(host), Qt::MatchContains);
        return index < 0 ? QString() : selector->itemText(index);
    }

    bool lightsAreOn()
    {
        if (!WindowDriver::isOn(driver.txLight) || !WindowDriver::isOn(driver.rxLight)) {
            return fail(QStringLiteral("a status light stays off"));
        }
        say(QStringLiteral("Both lights are green."));
        shoot(window, QStringLiteral("chosen"));
        return true;
    }

    bool showSdp()
    {
        say(QStringLiteral("Pressing the transmitter's \"Show SDP…\"."));
        BoxWatch watch;
        answerDialog(QStringLiteral("Transmitter IP: show SDP"), [this](QDialog *dialog) {
            shoot(dialog, QStringLiteral("sdp"));
            WindowDriver::press(dialog, QStringLiteral("Copy SDP"));
            WindowDriver::press(dialog, QStringLiteral("Close"));
        });
        const QString text = QGuiApplication::clipboard()->text();
        const auto essences = text.count(QLatin1String("v=0"));
        say(QStringLiteral("The clipboard holds %1 session descriptions of %2 characters in all.")
                .arg(essences)
                .arg(text.size()));
        return essences == 3
            || fail(QStringLiteral("not the SDP of three essences ") + watch.complaint);
    }

    bool browse()
    {
        say(QStringLiteral("Pressing \"Browse\"."));
        driver.press(QStringLiteral("Browse"));
        QWidget *browser = nullptr;
        const auto widgets = QApplication::topLevelWidgets();
        for (QWidget *widget : widgets) {
            if (qobject_cast<BrowserWindow *>(widget)) {
                browser = widget;
            }
        }
        if (!browser) {
            return fail(QStringLiteral("no browser window"));
        }
        WindowDriver::press(browser, QStringLiteral("Browse"));
        auto *addresses = browser->findChild<QListWidget *>();
        auto lists = browser->findChildren<QListView *>();
        lists.removeOne(addresses);
        QListView *services = lists.constFirst();
        if (!waitFor([services] { return services->model()->rowCount() >= 2; })) {
            return fail(QStringLiteral("the browser window does not list the nodes"));
        }
        // A node does not repeat what it has said within the last second, and QMdnsEngine asks for
        // a host name only once. Selecting the service again asks again.
        using namespace std::chrono_literals;
        const auto resolves = [services, addresses] {
            services->clearSelection();
            services->setCurrentIndex(services->model()->index(0, 0));
            return waitFor([addresses] { return addresses->count() > 0; }, 2s);
        };
        bool resolved = false;
        for (int attempt = 0; attempt < 3 && !resolved; ++attempt) {
            resolved = resolves();
        }
        if (!resolved) {
            return fail(QStringLiteral("the host name of the selected service does not resolve"));
        }
        QStringList shown;
        for (int row = 0; row < addresses->count(); ++row) {
            shown.append(addresses->item(row)->text());
        }
        const auto *attributes = browser->findChild<QTableWidget *>();
        say(QStringLiteral("Selected: %1, at %2, with %3 TXT attributes.")
                .arg(services->currentIndex().data().toString(), shown.join(QStringLiteral(", ")))
                .arg(attributes->rowCount()));
        shoot(browser, QStringLiteral("browser"));
        browser->close();
        return (shown.removeDuplicates() == 0
                || fail(QStringLiteral("an address is shown more than once")))
            && (attributes->rowCount() > 0 || fail(QStringLiteral("no TXT attributes are shown")));
    }

    bool press(const QString &command, const QString &name, int expected)
    {
        say(QStringLiteral("Pressing \"%1\".").arg(command));
        BoxWatch watch;
        driver.press(command);
        if (!watch.complaint.isEmpty()) {
            return fail(watch.complaint);
        }
        shoot(window, name);
        const int connected = report();
        return connected == expected
            || fail(QStringLiteral("%1 receivers are connected, not %2")
                        .arg(connected)
                        .arg(expected));
    }

    // Prints what each receiver of the receiving node reports as active. Returns how many of them
    // have a sender.
    int report() const
    {
        int connected = 0;
        const QJsonArray receivers =
            ask(rxHost, QStringLiteral("/x-nmos/node/v1.3/receivers/")).array();
        for (const QJsonValue &value : receivers) {
            const QJsonObject receiver = value.toObject();
            const QString id = receiver.value(QLatin1String("id")).toString();
            const QJsonObject active =
                ask(rxHost,
                    QStringLiteral("/x-nmos/connection/v1.1/single/receivers/%1/active").arg(id))
                    .object();
            const QString sender = active.value(QLatin1String("sender_id")).toString();
            const bool enabled = active.value(QLatin1String("master_enable")).toBool();
            const QString sdp = active.value(QLatin1String("transport_file"))
                                    .toObject()
                                    .value(QLatin1String("data"))
                                    .toString();
            const bool isConnected = enabled && !sender.isEmpty() && !sdp.isEmpty();
            connected += isConnected ? 1 : 0;
            say(QStringLiteral("    %1: %2")
                    .arg(receiver.value(QLatin1String("label")).toString(),
                         isConnected ? QStringLiteral("sender %1, SDP of %2 lines")
                                           .arg(sender)
                                           .arg(sdp.count(QLatin1Char('\n')))
                                     : QStringLiteral("not connected")));
        }
        return connected;
    }

    MainWindow *window;
    WindowDriver driver;
    QString txHost;
    QString rxHost;
    QDir screenshots;
    int shots = 0;
};

} // namespace

int main(int argc, char *argv[])
{
    const auto application = Application::create(argc, argv);
    QApplication::setCursorFlashTime(0);
    Application::setIdentity();
    Application::setAppearance();

    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("Patches a transmitting node to a receiving node through the main window."));
    parser.addHelpOption();
    const QCommandLineOption discover(
        QStringLiteral("discover"),
        QStringLiteral("find the nodes by mDNS in place of entering their addresses"));
    parser.addOption(discover);
    parser.addPositionalArgument(QStringLiteral("transmitter"), QStringLiteral("address:port"));
    parser.addPositionalArgument(QStringLiteral("receiver"), QStringLiteral("address:port"));
    parser.addPositionalArgument(QStringLiteral("screenshots"), QStringLiteral("a directory"));
    parser.process(*application);
    const QStringList arguments = parser.positionalArguments();
    if (arguments.size() != 3 || !QDir().mkpath(arguments.at(2))) {
        parser.showHelp(2);
    }

    MainWindow window;
    window.show();
    waitFor([&window] { return window.windowHandle() && window.windowHandle()->isExposed(); });
    Tour tour(&window, arguments.at(0), arguments.at(1), arguments.at(2));
    const bool done = tour.run(parser.isSet(discover));
    say(done ? QStringLiteral("The tour is complete.") : QStringLiteral("The tour has failed."));
    return done ? 0 : 1;
}
