// A press acts on what the screen says, and the screen says that it acts: while nodes answer late,
// and while the operator goes on.

#include "Application.h"
#include "nmos/NmosClient.h"
#include "support/IntakeWindow.h"
#include "support/TestMain.h"

#include <QClipboard>
#include <QDialogButtonBox>
#include <QDir>
#include <QPushButton>
#include <QTcpServer>
#include <QTcpSocket>

namespace {

const QString connectCommand = QStringLiteral("Connect (Tx->Rx)");
const QString disconnectCommand = QStringLiteral("Disconnect Rx");

Qt::CursorShape cursorShape()
{
    const QCursor *cursor = QGuiApplication::overrideCursor();
    return cursor ? cursor->shape() : Qt::ArrowCursor;
}

// A receiving node that refuses every patch in words of its own.
class RefusingNode final : public QTcpServer {
public:
    explicit RefusingNode(const QByteArray &reason)
    {
        listen(QHostAddress::LocalHost);
        connect(this, &QTcpServer::newConnection, this, [this, reason] {
            QTcpSocket *socket = nextPendingConnection();
            connect(socket, &QTcpSocket::readyRead, socket, [socket, reason] {
                const QByteArray request = socket->readAll();
                const QByteArray body =
                    "[{\"id\":\"r\",\"label\":\"R\",\"format\":\"urn:x-nmos:format:video\"}]";
                if (request.startsWith("GET")) {
                    socket->write("HTTP/1.1 200 OK\r\nContent-Length: "
                                  + QByteArray::number(body.size()) + "\r\n\r\n" + body);
                } else if (request.startsWith("PATCH")) {
                    socket->write("HTTP/1.1 400 " + reason + "\r\nContent-Length: 0\r\n\r\n");
                }
            });
        });
    }

    QString host() const
    {
        return QStringLiteral("127.0.0.1:%1").arg(serverPort());
    }
};

} // namespace

class TestOperator final : public QObject {
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void patchesWhatThePressSaid_data();
    void patchesWhatThePressSaid();
    void keepsAnEmptiedFieldDark();
    void isBusyWhileACommandWaits_data();
    void isBusyWhileACommandWaits();
    void staysBusyUntilTheLastCommandEnds();
    void showsWhatANodeSaysInMeasure();
    void givesTheTextOfABoxToTheKeyboard();
    void saysThatADeviceIsNotRemembered();
    void asksForDevicesPlainly();
};

void TestOperator::initTestCase()
{
    Application::setIdentity();
    Application::setAppearance();
}

void TestOperator::init()
{
    settings().clear();
}

void TestOperator::patchesWhatThePressSaid_data()
{
    QTest::addColumn<QString>("typed");
    QTest::addColumn<bool>("isReceiver");
    QTest::newRow("the receiver is cleared while the transmitter answers") << QString() << true;
    QTest::newRow("another receiver is typed") << QStringLiteral("127.0.0.1:1") << true;
    QTest::newRow("the transmitter is cleared while it answers") << QString() << false;
    QTest::newRow("another transmitter is typed") << QStringLiteral("127.0.0.1:1") << false;
}

void TestOperator::patchesWhatThePressSaid()
{
    QFETCH(const QString, typed);
    QFETCH(const bool, isReceiver);
    SimulatedNode tx(NodeDescription::wide(QStringLiteral("Cam"), 3, 0));
    const SimulatedNode rx(NodeDescription::wide(QStringLiteral("Mon"), 0, 3));
    IntakeWindow w;
    w.report(tx, QStringLiteral("Cam"));
    w.report(rx, QStringLiteral("Mon"));
    QVERIFY(Window::choose(w.tx, w.tx->itemText(2)));
    QVERIFY(Window::choose(w.rx, w.rx->itemText(1)));
    tx.setFault(sendersPath, Fault::hang().times(1));
    tx.clearRequests();
    onceAsked(&w.window, tx, sendersPath, [&] {
        Window::enter(isReceiver ? w.rx : w.tx, typed);
        tx.clearFaults();
    });
    w.press(connectCommand);
    QVERIFY(w.boxes.take().isEmpty());
    const auto patches = rx.requests(QStringLiteral("PATCH"));
    QCOMPARE(patches.size(), 1);
    QCOMPARE(patches.at(0).path, SimulatedNode::receiverStagedPath(rx.receiverIds().at(1)));
    QCOMPARE(rx.receiverActive(rx.receiverIds().at(1)).value(QLatin1String("sender_id")).toString(),
             tx.senderIds().at(2));
}

void TestOperator::keepsAnEmptiedFieldDark()
{
    SimulatedNode node(NodeDescription::wide(QStringLiteral("Both"), 1, 1));
    IntakeWindow w;
    for (QComboBox *selector : {w.tx, w.rx}) {
        const QString path = selector == w.tx ? sendersPath : receiversPath;
        node.setFault(path, Fault::hang());
        node.clearRequests();
        onceAsked(&w.window, node, path, [&] {
            selector->setEditText(QStringLiteral(" "));
            node.clearFaults();
        });
        Window::enter(selector, node.host());
        QVERIFY(!Window::isOn(selector == w.tx ? w.txLight : w.rxLight));
        Window::enter(selector, node.host());
        QVERIFY(Window::isOn(selector == w.tx ? w.txLight : w.rxLight));
    }
}

void TestOperator::isBusyWhileACommandWaits_data()
{
    QTest::addColumn<QString>("command");
    QTest::addColumn<QString>("asked");
    QTest::newRow("Connect") << connectCommand << sendersPath;
    QTest::newRow("Disconnect") << disconnectCommand << receiversPath;
    QTest::newRow("Show SDP of the transmitter")
        << QStringLiteral("Transmitter IP: show SDP") << sendersPath;
    QTest::newRow("Show SDP of the receiver")
        << QStringLiteral("Receiver IP: show SDP") << receiversPath;
}

void TestOperator::isBusyWhileACommandWaits()
{
    QFETCH(const QString, command);
    QFETCH(const QString, asked);
    SimulatedNode node(NodeDescription::wide(QStringLiteral("Both"), 1, 1));
    IntakeWindow w;
    Window::enter(w.tx, node.host());
    Window::enter(w.rx, node.host());
    QCOMPARE(cursorShape(), Qt::ArrowCursor);
    node.setFault(asked, Fault::hang());
    node.clearRequests();
    Qt::CursorShape waiting = Qt::ArrowCursor;
    onceAsked(&w.window, node, asked, [&] {
        waiting = cursorShape();
        node.setFault(asked, Fault::status(503));
        node.stop();
    });
    Qt::CursorShape inBox = Qt::BusyCursor;
    w.boxes.inspect = [&](QMessageBox *) {
        inBox = cursorShape();
    };
    w.press(command);
    QCOMPARE(waiting, Qt::BusyCursor);
    QCOMPARE(w.boxes.take().size(), 1);
    QCOMPARE(inBox, Qt::ArrowCursor);
    QCOMPARE(cursorShape(), Qt::ArrowCursor);
}

void TestOperator::staysBusyUntilTheLastCommandEnds()
{
    const SimulatedNode tx;
    SimulatedNode rx(NodeDescription::receiver());
    const QString staged =
        SimulatedNode::receiverStagedPath(rx.receiverIds(Essence::Video).value(0));
    rx.setFault(staged, Fault::hang().onMethod("PATCH"));
    IntakeWindow w;
    Window::enter(w.tx, tx.host());
    Window::enter(w.rx, rx.host());
    Qt::CursorShape inBox = Qt::ArrowCursor;
    w.boxes.inspect = [&](QMessageBox *) {
        inBox = cursorShape();
    };
    onceAsked(&w.window, rx, staged, [&] {
        // Nothing is staged yet: a box says so, while Connect still waits.
        w.press(QStringLiteral("Receiver IP: show SDP"));
        rx.clearFaults();
    });
    w.press(connectCommand);
    QCOMPARE(w.boxes.take().size(), 1);
    QCOMPARE(inBox, Qt::BusyCursor);
    QCOMPARE(cursorShape(), Qt::ArrowCursor);
}

void TestOperator::showsWhatANodeSaysInMeasure()
{
    const QByteArray reason = "<h1>no</h1>" + QByteArray("word ").repeated(800);
    const RefusingNode node(reason);
    IntakeWindow w;
    Window::enter(w.rx, node.host());
    w.press(disconnectCommand);
    const auto shown = w.boxes.take();
    QCOMPARE(shown.size(), 1);
    // As it stands, and a thousand characters of it.
    QVERIFY(shown.at(0).text.contains(QLatin1String("<h1>no</h1>word word")));
    QCOMPARE(shown.at(0).text.size(), QStringLiteral("Patch failed on video:\n").size() + 1001);
    QVERIFY(shown.at(0).text.endsWith(QChar(0x2026)));
}

void TestOperator::givesTheTextOfABoxToTheKeyboard()
{
    IntakeWindow w;
    QStringList copied;
    bool isFocused = false;
    bool hasIcon = true;
    w.boxes.inspect = [&](QMessageBox *box) {
        QApplication::setActiveWindow(box);
        isFocused = box->button(QMessageBox::Ok)->hasFocus();
        hasIcon = !box->button(QMessageBox::Ok)->icon().isNull();
        QTest::keyClick(box, Qt::Key_C, Qt::ControlModifier);
        copied.append(QGuiApplication::clipboard()->text());
    };
    w.press(connectCommand);
    const auto shown = w.boxes.take();
    QCOMPARE(copied, QStringList{shown.value(0).text});
    QVERIFY(isFocused);
    QVERIFY(!hasIcon);
}

void TestOperator::saysThatADeviceIsNotRemembered()
{
    const SimulatedNode node;
    IntakeWindow w;
    w.addDevice(QStringLiteral("127.0.0.1"), 1);
    // A folder where the file belongs: it cannot be written, not even by root.
    const QString file = settings().fileName();
    QVERIFY(QFile::remove(file));
    QVERIFY(QDir().mkpath(file));
    w.addDevice(QStringLiteral("127.0.0.1"), node.port());
    const auto added = w.boxes.take();
    w.removeDevice(0);
    const auto removed = w.boxes.take();
    QVERIFY(QDir().rmdir(file));
    QCOMPARE(added.size(), 1);
    QCOMPARE(added.at(0).title, QStringLiteral("Add Device"));
    QCOMPARE(added.at(0).icon, QMessageBox::Warning);
    QCOMPARE(removed.size(), 1);
    QCOMPARE(removed.at(0).title, QStringLiteral("Remove Device"));
    // It is listed all the same, and the next write that succeeds says nothing.
    QCOMPARE(w.tx->count(), 1);
    w.addDevice(QStringLiteral("127.0.0.1"), 2);
    QVERIFY(w.boxes.take().isEmpty());
}

void TestOperator::asksForDevicesPlainly()
{
    const SimulatedNode node;
    IntakeWindow w;
    QString tip;
    bool hasIcons = false;
    const auto look = [&hasIcons](const QDialog *dialog) {
        const auto buttons = dialog->findChild<QDialogButtonBox *>()->buttons();
        for (const QAbstractButton *button : buttons) {
            hasIcons = hasIcons || !button->icon().isNull();
        }
    };
    w.device = [&](QDialog *dialog) {
        look(dialog);
        tip = dialog->findChild<QLineEdit *>()->toolTip();
        dialog->findChild<QLineEdit *>()->setText(QStringLiteral("127.0.0.1"));
        dialog->findChild<QSpinBox *>()->setValue(node.port());
        dialog->accept();
    };
    w.press(QStringLiteral("Add Device"));
    QVERIFY(tip.contains(QLatin1String("port"), Qt::CaseInsensitive));
    QCOMPARE(w.tx->count(), 1);
    w.device = [&](QDialog *dialog) {
        look(dialog);
        auto *list = dialog->findChild<QListWidget *>();
        const QPoint row = list->visualItemRect(list->item(0)).center();
        QTest::mouseClick(list->viewport(), Qt::LeftButton, {}, row);
        QTest::mouseDClick(list->viewport(), Qt::LeftButton, {}, row);
    };
    w.press(QStringLiteral("Remove Device"));
    QCOMPARE(w.tx->count(), 0);
    QVERIFY(!hasIcons);
}

NODEPATCH_TEST_MAIN(TestOperator)
#include "tst_operator.moc"
