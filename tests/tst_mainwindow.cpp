// The main window, driven as an operator drives it, against real nodes.

#include "SimulatedNode.h"
#include "support/Boxes.h"
#include "support/EventCounter.h"
#include "support/ProgramTest.h"
#include "support/TestMain.h"
#include "support/Window.h"
#include "widgets/LightIndicator.h"

#include <QComboBox>
#include <QLineEdit>
#include <QPushButton>
#include <QRegularExpression>

#include <algorithm>
#include <iterator>
#include <memory>

namespace {

const QString connectCommand = "Connect (Tx->Rx)"_s;
const QString disconnectCommand = "Disconnect Rx"_s;

} // namespace

class TestMainWindow final : public ProgramTest {
    Q_OBJECT

private slots:
    void opensEmpty()
    {
        store("lastTxIp"_s, "127.0.0.1:1"_s);
        Window w;
        QCOMPARE(w.window.windowTitle(), "VelmoraNodePatch - velmora.example"_s);
        QCOMPARE(QApplication::windowIcon().availableSizes().size(), 4);
        for (const QComboBox *selector : {w.tx, w.rx}) {
            QCOMPARE(selector->currentText(), QString());
            QCOMPARE(selector->lineEdit()->placeholderText(), "e.g. 10.0.0.2"_s);
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
                QKeyEvent held(QEvent::KeyPress, Qt::Key_Return, {}, "\r"_s, true);
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
        QCOMPARE(order,
                 (QStringList{"Transmitter IP"_s, "Show SDP…"_s, "Receiver IP"_s, "Show SDP…"_s,
                              connectCommand, disconnectCommand, "About"_s, "Browse"_s,
                              "Add Device"_s, "Remove Device"_s}));
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
        paints.count = 0;
        light.setOn(false);
        QTRY_COMPARE(paints.count, 1);
        light.setColor(Qt::red);
        QTRY_COMPARE(paints.count, 2);
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
        w.press("Browse"_s);
        const QList<QWidget *> opened = browsers();
        QCOMPARE(opened.size(), 1);
        // The main window leaves it alone when it goes.
        const std::unique_ptr<QWidget> browser(opened.constFirst());
        const EventCounter<QWidget> raised(browser.get(), QEvent::ZOrderChange);
        for (const bool open : {true, false}) {
            browser->setVisible(open);
            w.window.activateWindow();
            QTRY_COMPARE(QApplication::activeWindow(), &w.window);
            w.press("Browse"_s);
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
        Window::enter(w.tx, "  "_s + node.host() + " studio "_s);
        QVERIFY(Window::isOn(w.txLight));
        QCOMPARE(node.requestLines(), QStringList{"GET /x-nmos/node/v1.3/senders/"_s});
        const QString stored = node.host() + " studio"_s;
        QCOMPARE(settings().value("lastTxIp"_s).toString(), stored);

        Window::enter(w.rx, node.host());
        QVERIFY(!Window::isOn(w.rxLight));
        QCOMPARE(node.requestLines().constLast(), "GET /x-nmos/node/v1.3/receivers/"_s);
        QVERIFY(!settings().contains("lastRxIp"_s));

        node.clearRequests();
        w.tx->clearEditText();
        QVERIFY(!Window::isOn(w.txLight));
        QVERIFY(node.requests().isEmpty());
        QCOMPARE(settings().value("lastTxIp"_s).toString(), stored);

        // Enter keeps the text out of the list.
        Window::enter(w.tx, node.host());
        QTest::keyClick(w.tx->lineEdit(), Qt::Key_Return);
        QCOMPARE(w.tx->count(), 0);
        node.setCollection("senders"_s, "[]");
        emit w.tx->activated(0);
        QVERIFY(!Window::isOn(w.txLight));
        node.setCollection("receivers"_s, R"([{"id": "r", "label": "R"}])");
        emit w.rx->activated(0);
        QVERIFY(Window::isOn(w.rxLight));
    }

    void reportsFailures_data()
    {
        QTest::addColumn<QString>("command");
        QTest::addColumn<bool>("refuse");
        QTest::newRow("a host with a trailing word is nobody's") << connectCommand << false;
        QTest::newRow("a refused patch tells why") << connectCommand << true;
        QTest::newRow("a refused disconnection tells why") << disconnectCommand << true;
    }

    void reportsFailures()
    {
        QFETCH(const QString, command);
        QFETCH(const bool, refuse);
        const SimulatedNode tx;
        SimulatedNode rx(NodeDescription::receiver());
        const QString video = rx.receiverIds(Essence::Video).value(0);
        if (refuse) {
            rx.setFault(SimulatedNode::receiverStagedPath(video), Fault::status(423));
        }
        Boxes boxes;
        Window w;
        Window::enter(w.tx, tx.host() + (refuse ? ""_s : " studio"_s));
        Window::enter(w.rx, rx.host());
        QVERIFY(Window::isOn(w.txLight));
        w.press(command);
        const auto shown = boxes.take();
        QCOMPARE(shown.size(), 1);
        QCOMPARE(shown.at(0).title, command.section(QLatin1Char(' '), 0, 0));
        QCOMPARE(shown.at(0).icon, refuse ? QMessageBox::Critical : QMessageBox::Warning);
        const QString text = refuse ? "Patch failed on video:\nError transferring "_s
                                    : "No video sender found on transmitter node."_s;
        QCOMPARE(shown.at(0).text.left(text.size()), text);
        QCOMPARE(rx.requests("PATCH"_s).size(), refuse ? 1 : 0);
    }

    void keepsVideoWhenOthersFail()
    {
        const SimulatedNode tx;
        SimulatedNode rx(NodeDescription::receiver());
        const QString video = rx.receiverIds(Essence::Video).value(0);
        const QString audio = rx.receiverIds(Essence::Audio).value(0);
        const QString data = rx.receiverIds(Essence::Data).value(0);
        // A redirect sets no error text, so the earlier one is shown again.
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
            const QRegularExpression wanted(
                "^Patch failed on audio:\n(.+\n)Patch failed on ancillary:\n\\1$"_s);
            QVERIFY2(wanted.match(shown.at(0).text).hasMatch(), qPrintable(shown.at(0).text));
            QCOMPARE(rx.receiverActive(video).value(QLatin1String("master_enable")).toBool(),
                     command == connectCommand);
        }
    }

    void endsWhenARequestFollowsTheClosing()
    {
        SimulatedNode node;
        node.setFault("*"_s, Fault::hang());
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
