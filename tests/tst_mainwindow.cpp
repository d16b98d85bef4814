// The main window, driven as an operator drives it, against real nodes.

#include "Application.h"
#include "SimulatedNode.h"
#include "net/SyncHttp.h"
#include "nmos/NmosClient.h"
#include "support/Boxes.h"
#include "support/TestMain.h"
#include "support/Window.h"
#include "widgets/LightIndicator.h"
#include "widgets/Selector.h"

#include <QAbstractButton>
#include <QComboBox>
#include <QLineEdit>

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

class PaintWatch final : public QObject {
public:
    bool painted = false;

    bool eventFilter(QObject *, QEvent *event) override
    {
        painted = painted || event->type() == QEvent::Paint;
        return false;
    }
};

// Counts the message boxes that are shown, be it for a moment.
class BoxCounter final : public QObject {
public:
    BoxCounter()
    {
        QCoreApplication::instance()->installEventFilter(this);
    }

    bool eventFilter(QObject *watched, QEvent *event) override
    {
        if (event->type() == QEvent::Show && qobject_cast<QMessageBox *>(watched)) {
            ++count;
        }
        return false;
    }

    int count = 0;
};

} // namespace

class TestMainWindow final : public QObject {
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void opensEmpty();
    void paintsTheLight();
    void opensOneBrowser();
    void checksWhatIsTyped();
    void connectsAndDisconnects();
    void patchesExactlyTheChosenEntries();
    void takesTypedTextForWhatItSays();
    void reportsFailures_data();
    void reportsFailures();
    void keepsVideoWhenOthersFail();
    void staysAliveWhileNodesHang();
    void closesWhileRequestsHang();
    void endsWhenARequestFollowsTheClosing();
    void removalHandsNothingOn();
};

void TestMainWindow::initTestCase()
{
    Application::setIdentity();
    Application::setAppearance();
}

void TestMainWindow::init()
{
    settings().clear();
}

void TestMainWindow::opensEmpty()
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
    QVERIFY(!Window::isOn(w.txLight));
    QVERIFY(!Window::isOn(w.rxLight));

    QStringList order;
    const QWidget *widget = w.tx;
    do {
        const auto *button = qobject_cast<const QAbstractButton *>(widget);
        const bool isStop = widget->focusPolicy() != Qt::NoFocus && !widget->focusProxy()
            && widget->parentWidget() != w.tx && widget->parentWidget() != w.rx;
        if (isStop && (button || qobject_cast<const QComboBox *>(widget))) {
            order.append(button ? button->text() : widget->accessibleName());
        }
        widget = widget->nextInFocusChain();
    } while (widget != w.tx);
    QCOMPARE(order.mid(0, 10),
             (QStringList{QStringLiteral("Transmitter IP"), QStringLiteral("Show SDP…"),
                          QStringLiteral("Receiver IP"), QStringLiteral("Show SDP…"),
                          QStringLiteral("Connect (Tx->Rx)"), QStringLiteral("Disconnect Rx"),
                          QStringLiteral("About"), QStringLiteral("Browse"),
                          QStringLiteral("Add Device"), QStringLiteral("Remove Device")}));
}

void TestMainWindow::paintsTheLight()
{
    LightIndicator light;
    light.resize(40, 16);
    QImage image(light.size(), QImage::Format_RGB32);
    const auto paint = [&] {
        image.fill(Qt::black);
        light.render(&image, {}, {}, QWidget::RenderFlags());
    };
    paint();
    QCOMPARE(image.pixelColor(20, 8), QColor(140, 140, 140));
    QCOMPARE(image.pixelColor(11, 8), QColor(Qt::black));
    QCOMPARE(image.pixelColor(28, 8), QColor(Qt::black));
    QVERIFY(image.pixelColor(12, 8) != QColor(Qt::black));
    light.setColor(Qt::blue);
    paint();
    QCOMPARE(image.pixelColor(20, 8), QColor(140, 140, 140));
    light.setOn(true);
    paint();
    QCOMPARE(image.pixelColor(20, 8), QColor(Qt::blue));

    PaintWatch watch;
    light.installEventFilter(&watch);
    light.show();
    QTRY_VERIFY(watch.painted);
    for (const auto &change : {std::function<void()>([&] { light.setOn(false); }),
                               std::function<void()>([&] { light.setColor(Qt::red); })}) {
        watch.painted = false;
        change();
        QTRY_VERIFY(watch.painted);
    }
}

void TestMainWindow::opensOneBrowser()
{
    const auto browsers = [] {
        QList<QWidget *> found;
        const auto windows = QApplication::topLevelWidgets();
        for (QWidget *window : windows) {
            if (window->windowTitle() == QLatin1String("mDNS Browser")) {
                found.append(window);
            }
        }
        return found;
    };
    Window w;
    w.press(QStringLiteral("Browse"));
    const QList<QWidget *> opened = browsers();
    QCOMPARE(opened.size(), 1);
    // The main window leaves it alone when it goes.
    const std::unique_ptr<QWidget> browser(opened.constFirst());
    browser->hide();
    w.press(QStringLiteral("Browse"));
    QCOMPARE(browsers(), opened);
    QVERIFY(browser->isVisible());
}

void TestMainWindow::checksWhatIsTyped()
{
    SimulatedNode node;
    Window w;
    Window::enter(w.tx, QStringLiteral("  ") + node.host() + QStringLiteral(" studio "));
    QVERIFY(Window::isOn(w.txLight));
    QCOMPARE(node.requestLines(), QStringList{QStringLiteral("GET /x-nmos/node/v1.3/senders/")});
    const QString stored = node.host() + QStringLiteral(" studio");
    QCOMPARE(settings().value(QStringLiteral("lastTxIp")).toString(), stored);

    Window::enter(w.rx, node.host());
    QVERIFY(!Window::isOn(w.rxLight));
    QCOMPARE(node.requestLines().constLast(), QStringLiteral("GET /x-nmos/node/v1.3/receivers/"));
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

void TestMainWindow::connectsAndDisconnects()
{
    const SimulatedNode tx;
    const SimulatedNode rx(NodeDescription::receiver());
    Boxes boxes;
    Window w;
    Window::enter(w.tx, tx.host());
    Window::enter(w.rx, rx.host());
    w.press(connectCommand);
    for (const Essence essence : {Essence::Video, Essence::Audio, Essence::Data}) {
        const QString senderId = tx.senderIds(essence).value(0);
        const QJsonObject active = rx.receiverActive(rx.receiverIds(essence).value(0));
        QCOMPARE(active.value(QLatin1String("sender_id")).toString(), senderId);
        QCOMPARE(active.value(QLatin1String("master_enable")).toBool(), true);
        QCOMPARE(active.value(QLatin1String("transport_file"))
                     .toObject()
                     .value(QLatin1String("data"))
                     .toString(),
                 QString::fromUtf8(tx.manifest(senderId)));
    }
    w.press(disconnectCommand);
    const auto receiverIds = rx.receiverIds();
    for (const QString &id : receiverIds) {
        QCOMPARE(rx.receiverActive(id).value(QLatin1String("master_enable")).toBool(), false);
    }
    QVERIFY(Window::isOn(w.txLight));
}

void TestMainWindow::patchesExactlyTheChosenEntries()
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
    QCOMPARE(settings().value(QStringLiteral("lastTxIp")).toString(), QStringLiteral("Output 3"));
    w.press(connectCommand);
    QCOMPARE(activeSender(rx, receiver), sender);
    QCOMPARE(rx.requests(QStringLiteral("PATCH")).size(), 1);

    // Disconnecting goes by the node, not by the entry.
    w.press(disconnectCommand);
    QCOMPARE(rx.requests(QStringLiteral("PATCH")).constLast().path,
             SimulatedNode::receiverStagedPath(rx.receiverIds().at(0)));
}

void TestMainWindow::takesTypedTextForWhatItSays()
{
    const SimulatedNode chosen(NodeDescription::wide(QStringLiteral("Chosen"), 2, 0));
    const SimulatedNode typed(NodeDescription::wide(QStringLiteral("Typed"), 2, 0));
    const SimulatedNode rx(NodeDescription::wide(QStringLiteral("Rx"), 0, 1));
    Boxes boxes;
    Window w;
    // Longer than a line edit takes by itself.
    const QString text = QString(40000, QLatin1Char('x'));
    Selector::of(w.tx)->add({{text, senderEntry(chosen, chosen.senderIds().at(1))}});
    w.tx->setCurrentIndex(0);
    QVERIFY(Selector::of(w.tx)->currentRecord().isValid());
    Window::enter(w.tx, typed.host());
    Window::enter(w.rx, rx.host());
    w.press(connectCommand);
    QCOMPARE(activeSender(rx, rx.receiverIds().at(0)), typed.senderIds().at(0));
}

void TestMainWindow::reportsFailures_data()
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
        << disconnectCommand << QString() << true << QStringLiteral("Patch failed on video:\n%1")
        << QMessageBox::Critical;
}

void TestMainWindow::reportsFailures()
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

void TestMainWindow::keepsVideoWhenOthersFail()
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

void TestMainWindow::staysAliveWhileNodesHang()
{
    SimulatedNode hanging;
    const SimulatedNode healthy;
    const QString path = SimulatedNode::collectionPath(QStringLiteral("senders"));
    hanging.setFault(path, Fault::hang());
    Window w;
    bool wasOn = false;
    QTimer::singleShot(0, &w.window, [&] {
        QTimer::singleShot(0, &w.window, [&] {
            QTimer::singleShot(0, &w.window, [&] {
                Window::enter(w.tx, healthy.host());
                wasOn = Window::isOn(w.txLight);
                hanging.clearFaults();
            });
            Window::enter(w.tx, hanging.host() + QStringLiteral(" 3"));
        });
        Window::enter(w.tx, hanging.host() + QStringLiteral(" 2"));
    });
    Window::enter(w.tx, hanging.host());
    QVERIFY(wasOn);
    QCOMPARE(hanging.requests().size(), 3);
    QCOMPARE(requestActivity().depth, 0);
}

void TestMainWindow::closesWhileRequestsHang()
{
    SimulatedNode node(NodeDescription::receiver());
    const QString video = node.receiverIds(Essence::Video).value(0);
    node.setFault(SimulatedNode::receiverStagedPath(video), Fault::hang().onMethod("PATCH"));
    const QString senders = SimulatedNode::collectionPath(QStringLiteral("senders"));
    node.setFault(senders, Fault::hang());
    const BoxCounter boxes;
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
            if (requestActivity().depth == 2
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
    QCOMPARE(requestActivity().depth, 0);
    QVERIFY(!requestActivity().closing);
    // A patch that the closing ended is no news.
    QCOMPARE(boxes.count, 0);
}

void TestMainWindow::endsWhenARequestFollowsTheClosing()
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

void TestMainWindow::removalHandsNothingOn()
{
    const SimulatedNode node;
    const QString id = node.senderIds().at(0);
    Window w;
    const auto fill = [&] {
        for (const char *text : {"C", "A", "B", "A"}) {
            Selector::of(w.tx)->add(
                {{QLatin1String(text), senderEntry(node, QLatin1String(text) + id)}});
        }
    };
    fill();
    QCOMPARE(w.tx->count(), 3);
    QCOMPARE(w.tx->itemText(0), QStringLiteral("A"));
    const auto hasPrefix = [&id](const char *prefix) {
        return [wanted = QString(QLatin1String(prefix) + id)](const QVariant &record) {
            return record.value<NmosClient::SenderConnection>().id == wanted;
        };
    };
    w.tx->setCurrentIndex(1);
    QCOMPARE(Selector::of(w.tx)->remove(hasPrefix("B")).value<NmosClient::SenderConnection>().id,
             QLatin1String("B") + id);
    QCOMPARE(w.tx->currentText(), QString());
    QCOMPARE(w.tx->currentIndex(), -1);
    QVERIFY(!Window::isOn(w.txLight));

    // What is typed stays, also when the entry chosen before it goes, and when the last one goes.
    w.tx->setCurrentIndex(0);
    Window::enter(w.tx, node.host());
    QVERIFY(!Selector::of(w.tx)->remove(hasPrefix("A")).isValid());
    QCOMPARE(w.tx->currentText(), node.host());
    QVERIFY(!Selector::of(w.tx)->remove([](const QVariant &) { return true; }).isValid());
    QCOMPARE(w.tx->count(), 0);
    QCOMPARE(w.tx->currentText(), node.host());
    QVERIFY(Window::isOn(w.txLight));
}

NODEPATCH_TEST_MAIN(TestMainWindow)
#include "tst_mainwindow.moc"
