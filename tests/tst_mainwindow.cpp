// The main window, driven as an operator drives it, against real nodes.

#include "Application.h"
#include "SimulatedNode.h"
#include "net/SyncHttp.h"
#include "nmos/NmosClient.h"
#include "support/Boxes.h"
#include "support/EventCounter.h"
#include "support/TestMain.h"
#include "support/Window.h"
#include "widgets/LightIndicator.h"
#include "widgets/Selector.h"

#include <QComboBox>
#include <QLineEdit>
#include <QPushButton>

#include <algorithm>
#include <iterator>
#include <memory>

namespace {

const QString connectCommand = QStringLiteral("Connect (Tx->Rx)");
const QString disconnectCommand = QStringLiteral("Disconnect Rx");

QVariant senderEntry(const SimulatedNode &node, const QString &id)
{
    return QVariant::fromValue(NmosClient::SenderConnection{
        id, QStringLiteral("label"), {}, node.host(), QStringLiteral("entry")});
}

QVariant receiverEntry(const SimulatedNode &node, const QString &id)
{
    return QVariant::fromValue(NmosClient::ReceiverConnection{
        id, QStringLiteral("label"), node.host(), QStringLiteral("entry")});
}

QString activeSender(const SimulatedNode &node, const QString &receiverId)
{
    return node.receiverActive(receiverId).value(QLatin1String("sender_id")).toString();
}

} // namespace

class TestMainWindow final : public QObject {
    Q_OBJECT

private slots:
    void initTestCase()
    {
        Application::setIdentity();
        Application::setAppearance();
    }

    void init()
    {
        settings().clear();
    }

    void opensEmpty()
    {
        store(QStringLiteral("lastTxIp"), QStringLiteral("127.0.0.1:1"));
        Window w;
        QCOMPARE(w.window.windowTitle(), QStringLiteral("VelmoraNodePatch - velmora.example"));
        QCOMPARE(QApplication::windowIcon().availableSizes().size(), 4);
        for (const QComboBox *selector : {w.tx, w.rx}) {
            QCOMPARE(selector->currentText(), QString());
            QCOMPARE(selector->lineEdit()->placeholderText(), QStringLiteral("e.g. 10.0.0.2"));
            // Not in the colour of an address that stands there.
            QCOMPARE(selector->lineEdit()->palette().placeholderText().color(), QColor(0x8b949e));
        }
        QVERIFY(!Window::isOn(w.txLight) && !Window::isOn(w.rxLight));
        QCOMPARE(w.tx->mapTo(&w.window, QPoint()).x(), w.rx->mapTo(&w.window, QPoint()).x());
    }

    void worksByKeyboard()
    {
        Boxes boxes;
        Window w;
        QApplication::setActiveWindow(&w.window);
        QStringList order;
        w.tx->setFocus();
        do {
            QWidget *focus = QApplication::focusWidget();
            const auto *button = qobject_cast<QPushButton *>(focus);
            order.append(button ? button->text() : focus->accessibleName());
            if (order.constLast() == connectCommand) {
                QKeyEvent held(QEvent::KeyPress, Qt::Key_Return, {}, QStringLiteral("\r"), true);
                QCoreApplication::sendEvent(focus, &held);
                QVERIFY(boxes.take().isEmpty());
                for (const Qt::Key key : {Qt::Key_Space, Qt::Key_Return, Qt::Key_Enter}) {
                    QTest::keyClick(w.window.windowHandle(), key);
                    QCOMPARE(boxes.take().size(), 1);
                    QApplication::setActiveWindow(&w.window);
                }
            }
            QTest::keyClick(focus, Qt::Key_Tab);
        } while (!w.tx->hasFocus());
        QCOMPARE(
            order,
            (QStringList{QStringLiteral("Transmitter IP"), QStringLiteral("Show SDP…"),
                         QStringLiteral("Receiver IP"), QStringLiteral("Show SDP…"), connectCommand,
                         disconnectCommand, QStringLiteral("About"), QStringLiteral("Browse"),
                         QStringLiteral("Add Device"), QStringLiteral("Remove Device")}));
    }

    void paintsTheLight()
    {
        LightIndicator light;
        light.resize(40, 16);
        const auto colours = [&] {
            QImage image(light.size(), QImage::Format_RGB32);
            image.fill(Qt::black);
            light.render(&image, {}, {}, QWidget::RenderFlags());
            return QList<QColor>{image.pixelColor(11, 8), image.pixelColor(20, 8),
                                 image.pixelColor(28, 8)};
        };
        const auto disc = [](const QColor &colour) {
            return QList<QColor>{Qt::black, colour, Qt::black};
        };
        light.setColor(Qt::blue);
        QCOMPARE(colours(), disc(QColor(140, 140, 140)));
        light.setOn(true);
        QCOMPARE(colours(), disc(Qt::blue));

        EventCounter<LightIndicator> paints(&light, QEvent::Paint);
        light.show();
        QTRY_VERIFY(paints.count > 0);
        for (const auto &change : {std::function<void()>([&] { light.setOn(false); }),
                                   std::function<void()>([&] { light.setColor(Qt::red); })}) {
            paints.count = 0;
            change();
            QTRY_VERIFY(paints.count > 0);
        }
    }

    void opensOneBrowser()
    {
        const auto browsers = [] {
            QList<QWidget *> found;
            const auto windows = QApplication::topLevelWidgets();
            std::copy_if(windows.begin(), windows.end(), std::back_inserter(found), [](QWidget *w) {
                return w->windowTitle() == QLatin1String("mDNS Browser");
            });
            return found;
        };
        Window w;
        w.press(QStringLiteral("Browse"));
        const QList<QWidget *> opened = browsers();
        QCOMPARE(opened.size(), 1);
        // The main window leaves it alone when it goes.
        const std::unique_ptr<QWidget> browser(opened.constFirst());
        const EventCounter<QWidget> raised(browser.get(), QEvent::ZOrderChange);
        for (const bool open : {true, false}) {
            browser->setVisible(open);
            QApplication::setActiveWindow(&w.window);
            w.press(QStringLiteral("Browse"));
            QCOMPARE(browsers(), opened);
            QVERIFY(browser->isVisible());
            QTRY_COMPARE(QApplication::activeWindow(), browser.get());
        }
        QCOMPARE(raised.count, 2);
    }

    void checksWhatIsTyped()
    {
        SimulatedNode node;
        Window w;
        Window::enter(w.tx, QStringLiteral("  ") + node.host() + QStringLiteral(" studio "));
        QVERIFY(Window::isOn(w.txLight));
        QCOMPARE(node.requestLines(),
                 QStringList{QStringLiteral("GET /x-nmos/node/v1.3/senders/")});
        const QString stored = node.host() + QStringLiteral(" studio");
        QCOMPARE(settings().value(QStringLiteral("lastTxIp")).toString(), stored);

        Window::enter(w.rx, node.host());
        QVERIFY(!Window::isOn(w.rxLight));
        QCOMPARE(node.requestLines().constLast(),
                 QStringLiteral("GET /x-nmos/node/v1.3/receivers/"));
        QVERIFY(!settings().contains(QStringLiteral("lastRxIp")));

        node.clearRequests();
        w.tx->clearEditText();
        QVERIFY(!Window::isOn(w.txLight));
        QVERIFY(node.requests().isEmpty());
        QCOMPARE(settings().value(QStringLiteral("lastTxIp")).toString(), stored);

        // Enter keeps the text out of the list.
        Window::enter(w.tx, node.host());
        QTest::keyClick(w.tx->lineEdit(), Qt::Key_Return);
        QCOMPARE(w.tx->count(), 0);
        node.setCollection(QStringLiteral("senders"), "[]");
        emit w.tx->activated(0);
        QVERIFY(!Window::isOn(w.txLight));
        node.setCollection(QStringLiteral("receivers"), R"([{"id": "r", "label": "R"}])");
        emit w.rx->activated(0);
        QVERIFY(Window::isOn(w.rxLight));
    }

    void patchesExactlyTheChosenEntries()
    {
        const SimulatedNode tx(NodeDescription::wide(QStringLiteral("Wide"), 3, 0));
        const SimulatedNode rx(NodeDescription::wide(QStringLiteral("Wide"), 0, 3));
        const QString sender = tx.senderIds().at(2);
        const QString receiver = rx.receiverIds().at(1);
        Boxes boxes;
        Window w;
        Selector::of(w.tx)->add({{QStringLiteral("Output 3"), senderEntry(tx, sender)}});
        Selector::of(w.rx)->add({{QStringLiteral("Input 2"), receiverEntry(rx, receiver)}});
        QCOMPARE(w.tx->currentText(), QString());
        w.tx->setCurrentIndex(0);
        w.rx->setCurrentIndex(0);
        QVERIFY(Window::isOn(w.txLight));
        QCOMPARE(settings().value(QStringLiteral("lastTxIp")).toString(),
                 QStringLiteral("Output 3"));
        w.press(connectCommand);
        QCOMPARE(activeSender(rx, receiver), sender);
        QCOMPARE(rx.requests(QStringLiteral("PATCH")).size(), 1);

        // Disconnecting goes by the node, not by the entry.
        w.press(disconnectCommand);
        QCOMPARE(rx.requests(QStringLiteral("PATCH")).constLast().path,
                 SimulatedNode::receiverStagedPath(rx.receiverIds().at(0)));
    }

    void reportsFailures_data()
    {
        QTest::addColumn<QString>("command");
        QTest::addColumn<QString>("txSuffix");
        QTest::addColumn<bool>("refuse");
        QTest::addColumn<QString>("text");
        QTest::addColumn<QMessageBox::Icon>("icon");
        QTest::newRow("a host with a trailing word is nobody's")
            << connectCommand << QStringLiteral(" studio") << false
            << QStringLiteral("No video sender found on transmitter node.") << QMessageBox::Warning;
        QTest::newRow("a refused patch tells why")
            << connectCommand << QString() << true << QStringLiteral("Patch failed on video:\n%1")
            << QMessageBox::Critical;
        QTest::newRow("a refused disconnection tells why")
            << disconnectCommand << QString() << true
            << QStringLiteral("Patch failed on video:\n%1") << QMessageBox::Critical;
    }

    void reportsFailures()
    {
        QFETCH(const QString, command);
        QFETCH(const QString, txSuffix);
        QFETCH(const bool, refuse);
        QFETCH(const QString, text);
        QFETCH(const QMessageBox::Icon, icon);
        const SimulatedNode tx;
        SimulatedNode rx(NodeDescription::receiver());
        const QString staged =
            SimulatedNode::receiverStagedPath(rx.receiverIds(Essence::Video).value(0));
        if (refuse) {
            rx.setFault(staged, Fault::status(423));
        }
        Boxes boxes;
        Window w;
        Window::enter(w.tx, tx.host() + txSuffix);
        Window::enter(w.rx, rx.host());
        QVERIFY(Window::isOn(w.txLight));
        w.press(command);
        const auto shown = boxes.take();
        QCOMPARE(shown.size(), 1);
        QCOMPARE(shown.at(0).title, command.section(QLatin1Char(' '), 0, 0));
        QCOMPARE(shown.at(0).icon, icon);
        QVERIFY(shown.at(0).text.startsWith(text.section(QStringLiteral("%1"), 0, 0)));
        QCOMPARE(shown.at(0).text.size() > text.size(), refuse);
        QCOMPARE(rx.requests(QStringLiteral("PATCH")).size(), refuse ? 1 : 0);
    }

    void keepsVideoWhenOthersFail()
    {
        const SimulatedNode tx;
        SimulatedNode rx(NodeDescription::receiver());
        const QString video = rx.receiverIds(Essence::Video).value(0);
        const QString audio = rx.receiverIds(Essence::Audio).value(0);
        const QString data = rx.receiverIds(Essence::Data).value(0);
        // A redirect is no reply error, so it leaves the reason of the patch before it standing.
        rx.setFault(SimulatedNode::receiverStagedPath(audio), Fault::status(500));
        rx.setFault(SimulatedNode::receiverStagedPath(data), Fault::redirect("/elsewhere"));
        Boxes boxes;
        Window w;
        Window::enter(w.tx, tx.host());
        Window::enter(w.rx, rx.host());
        for (const QString &command : {connectCommand, disconnectCommand}) {
            w.press(command);
            const auto shown = boxes.take();
            QCOMPARE(shown.size(), 1);
            QCOMPARE(shown.at(0).icon, QMessageBox::Information);
            const QStringList lines = shown.at(0).text.split(QLatin1Char('\n'));
            QCOMPARE(lines.size(), 5);
            QCOMPARE(lines.at(0), QStringLiteral("Patch failed on audio:"));
            QVERIFY(!lines.at(1).isEmpty());
            QCOMPARE(lines.at(2), QStringLiteral("Patch failed on ancillary:"));
            QCOMPARE(lines.at(3), lines.at(1));
            QCOMPARE(rx.receiverActive(video).value(QLatin1String("master_enable")).toBool(),
                     command == connectCommand);
        }
    }

    void closesWhileRequestsHang()
    {
        SimulatedNode node(NodeDescription::receiver());
        const QString video = node.receiverIds(Essence::Video).value(0);
        node.setFault(SimulatedNode::receiverStagedPath(video), Fault::hang().onMethod("PATCH"));
        const QString senders = SimulatedNode::collectionPath(QStringLiteral("senders"));
        node.setFault(senders, Fault::hang());
        const EventCounter<QMessageBox> boxes(qApp, QEvent::Show);
        const int sent = [&node, &senders] {
            Window w;
            Window::enter(w.rx, node.host());
            QTimer::singleShot(0, &w.window, [&w] { w.press(disconnectCommand); });
            // Two timers: the slot of one that waits in a request is not entered again.
            QTimer onPatch;
            QObject::connect(&onPatch, &QTimer::timeout, &w.window, [&w, &node] {
                if (!node.requests(QStringLiteral("PATCH")).isEmpty()) {
                    Window::enter(w.tx, node.host());
                }
            });
            QTimer onCheck;
            // Not before the node has them: what is still on its way would be counted later.
            QObject::connect(&onCheck, &QTimer::timeout, &w.window, [&w, &node, &senders] {
                if (requestActivity().levels == 2
                    && node.requestLines().contains(QStringLiteral("GET ") + senders)) {
                    w.window.close();
                }
            });
            onPatch.start(5);
            onCheck.start(5);
            QApplication::exec();
            return node.requests().size();
        }();
        // Neither of them went on to its next request.
        QCOMPARE(node.requests().size(), sent);
        QCOMPARE(node.requests(QStringLiteral("PATCH")).size(), 1);
        QCOMPARE(requestActivity().levels, 0);
        QVERIFY(!requestActivity().closing);
        // A patch that the closing ended is no news.
        QCOMPARE(boxes.count, 0);
    }

    void endsWhenARequestFollowsTheClosing()
    {
        SimulatedNode node;
        node.setFault(QStringLiteral("*"), Fault::hang());
        Application::endWithLastWindow();
        Window w;
        bool ended = true;
        QTimer::singleShot(0, &w.window, [&w, &node] {
            // Its turn comes before that of anything that the closing posts.
            QMetaObject::invokeMethod(
                &w.window, [&w, &node] { Window::enter(w.tx, node.host()); }, Qt::QueuedConnection);
            w.window.close();
        });
        QTimer::singleShot(10000, &w.window, [&ended, &node] {
            ended = false;
            node.clearFaults();
            QCoreApplication::quit();
        });
        QApplication::exec();
        QVERIFY(ended);
        QVERIFY(node.requests().isEmpty());
    }
};

NODEPATCH_TEST_MAIN(TestMainWindow)
#include "tst_mainwindow.moc"
