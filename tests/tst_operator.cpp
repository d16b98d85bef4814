// Commands use what the fields showed at the press, the cursor is busy meanwhile, and presses and
// keys do what they were meant for.

#include "support/IntakeWindow.h"
#include "support/ProgramTest.h"
#include "support/RawServer.h"
#include "support/TestMain.h"
#include "widgets/BusyCursor.h"
#include "widgets/MessageBox.h"

#include <QDialogButtonBox>
#include <QElapsedTimer>
#include <QLabel>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QScreen>
#include <QScrollBar>
#include <QWindow>

#include <memory>

namespace {

const QString connectCommand = "Connect (Tx->Rx)"_s;
const QString disconnectCommand = "Disconnect Rx"_s;

Qt::CursorShape cursorShape()
{
    const QCursor *cursor = QGuiApplication::overrideCursor();
    return cursor ? cursor->shape() : Qt::ArrowCursor;
}

QPushButton *okOf(const QMessageBox &box)
{
    return qobject_cast<QPushButton *>(box.button(QMessageBox::Ok));
}

// A press and its release, as the window system reports them. time is in milliseconds.
void press(const QWidget &widget, int time, const QPoint &offset = {})
{
    QWindow *window = widget.window()->windowHandle();
    const QPoint global = widget.mapToGlobal(widget.rect().center()) + offset;
    const QPoint local = window->mapFromGlobal(global);
    qt_handleMouseEvent(window, local, global, Qt::LeftButton, Qt::LeftButton,
                        QEvent::MouseButtonPress, {}, time);
    qt_handleMouseEvent(window, local, global, Qt::NoButton, Qt::LeftButton,
                        QEvent::MouseButtonRelease, {}, time + 10);
}

} // namespace

class TestOperator final : public ProgramTest {
    Q_OBJECT

private slots:
    void initTestCase()
    {
        ProgramTest::initTestCase();
        // As on a desktop that has icons on its buttons.
        qApp->setStyleSheet(qApp->styleSheet() + "* { dialogbuttonbox-buttons-have-icons: 1 }"_s);
        Application::swallowStrayPresses();
    }

    void patchesWhatThePressSaid_data()
    {
        QTest::addColumn<QString>("typed");
        QTest::addColumn<bool>("isReceiver");
        QTest::newRow("the receiver is cleared while the transmitter answers") << QString() << true;
        QTest::newRow("another receiver is typed") << "127.0.0.1:1"_s << true;
        QTest::newRow("the transmitter is cleared while it answers") << QString() << false;
        QTest::newRow("another transmitter is typed") << "127.0.0.1:1"_s << false;
    }

    void patchesWhatThePressSaid()
    {
        QFETCH(const QString, typed);
        QFETCH(const bool, isReceiver);
        SimulatedNode tx(NodeDescription::wide("Cam"_s, 3, 0));
        const SimulatedNode rx(NodeDescription::wide("Mon"_s, 0, 3));
        IntakeWindow w;
        w.report(tx, "Cam"_s);
        w.report(rx, "Mon"_s);
        QVERIFY(Window::choose(w.tx, w.tx->itemText(2)) && Window::isOn(w.txLight));
        QCOMPARE(settings().value("lastTxIp"_s).toString(), w.tx->itemText(2));
        QVERIFY(Window::choose(w.rx, w.rx->itemText(1)));
        tx.setFault(sendersPath, Fault::hang().times(1));
        tx.clearRequests();
        w.whenAsked(tx, sendersPath, [&] {
            Window::enter(isReceiver ? w.rx : w.tx, typed);
            tx.clearFaults();
        });
        w.press(connectCommand);
        QVERIFY(w.boxes.take().isEmpty());
        const auto patches = rx.requests("PATCH"_s);
        QCOMPARE(patches.size(), 1);
        QCOMPARE(patches.at(0).path, SimulatedNode::receiverStagedPath(rx.receiverIds().at(1)));
        QCOMPARE(
            rx.receiverActive(rx.receiverIds().at(1)).value(QLatin1String("sender_id")).toString(),
            tx.senderIds().at(2));
        // Disconnecting goes by the node, not by the entry.
        QVERIFY(Window::choose(w.rx, w.rx->itemText(1)));
        w.press(disconnectCommand);
        QCOMPARE(rx.requests("PATCH"_s).constLast().path,
                 SimulatedNode::receiverStagedPath(rx.receiverIds().at(0)));
    }

    void keepsAnEmptiedFieldDark()
    {
        SimulatedNode node(NodeDescription::wide("Both"_s, 1, 1));
        IntakeWindow w;
        for (QComboBox *selector : {w.tx, w.rx}) {
            const QString path = selector == w.tx ? sendersPath : receiversPath;
            node.setFault(path, Fault::hang());
            node.clearRequests();
            w.whenAsked(node, path, [&] {
                selector->setEditText(" "_s);
                node.clearFaults();
            });
            Window::enter(selector, node.host());
            QVERIFY(!Window::isOn(selector == w.tx ? w.txLight : w.rxLight));
            Window::enter(selector, node.host());
            QVERIFY(Window::isOn(selector == w.tx ? w.txLight : w.rxLight));
        }
    }

    void isBusyWhileACommandWaits_data()
    {
        QTest::addColumn<QString>("asked");
        QTest::newRow("Connect (Tx->Rx)") << sendersPath;
        QTest::newRow("Disconnect Rx") << receiversPath;
        QTest::newRow("Transmitter IP: show SDP") << sendersPath;
        QTest::newRow("Receiver IP: show SDP") << receiversPath;
    }

    void isBusyWhileACommandWaits()
    {
        QFETCH(const QString, asked);
        SimulatedNode node(NodeDescription::wide("Both"_s, 1, 1));
        IntakeWindow w;
        Window::enter(w.tx, node.host());
        Window::enter(w.rx, node.host());
        QCOMPARE(cursorShape(), Qt::ArrowCursor);
        node.setFault(asked, Fault::hang());
        node.clearRequests();
        Qt::CursorShape waiting = Qt::ArrowCursor;
        w.whenAsked(node, asked, [&] {
            std::make_unique<BusyCursor>().reset(); // a command that begins and ends meanwhile
            waiting = cursorShape();
            node.setFault(asked, Fault::status(503));
            node.stop();
        });
        Qt::CursorShape inBox = Qt::BusyCursor;
        w.boxes.inspect = [&](QMessageBox *) {
            inBox = cursorShape();
        };
        w.press(QLatin1String(QTest::currentDataTag()));
        QCOMPARE(waiting, Qt::BusyCursor);
        QCOMPARE(w.boxes.take().size(), 1);
        QCOMPARE(inBox, Qt::ArrowCursor);
        QCOMPARE(cursorShape(), Qt::ArrowCursor);
    }

    void showsWhatANodeSaysInMeasure()
    {
        const QByteArray reason = "<h1>no</h1>" + QByteArray("word ").repeated(800);
        RawServer node;
        node.answerTo = [&reason](const QByteArray &request) {
            return request.startsWith("GET")
                ? httpAnswer(R"([{"id":"r","label":"R","format":"urn:x-nmos:format:video"}])")
                : httpAnswer({}, "400 " + reason);
        };
        IntakeWindow w;
        bool isPlain = false;
        w.boxes.inspect = [&isPlain](QMessageBox *box) {
            QApplication::setActiveWindow(box);
            isPlain = okOf(*box)->hasFocus() && okOf(*box)->icon().isNull();
        };
        Window::enter(w.rx, node.host());
        w.press(disconnectCommand);
        const auto shown = w.boxes.take();
        QCOMPARE(shown.size(), 1);
        // Unchanged, cut at 1,000 characters.
        QVERIFY(shown.at(0).text.contains(QLatin1String("<h1>no</h1>word word")));
        QCOMPARE(shown.at(0).text.size(), "Patch failed on video:\n"_s.size() + 1001);
        QVERIFY(shown.at(0).text.endsWith(QChar(0x2026)));
        QVERIFY(isPlain);
    }

    void aBoxTakesNoKeyAtFirst()
    {
        MessageBox box({QMessageBox::Critical, {}, "Patch failed\non video\nonce"_s},
                       QMessageBox::Ok, nullptr);
        QClipboard *clipboard = QGuiApplication::clipboard();
        clipboard->setText({});
        okOf(box)->setShortcut(Qt::Key_F2);
        QElapsedTimer sinceShown;
        sinceShown.start();
        box.show();
        QApplication::setActiveWindow(&box);
        for (const auto key :
             {Qt::Key_Escape, Qt::Key_Space, Qt::Key_Return, Qt::Key_Enter, Qt::Key_F2}) {
            QTest::keyClick(okOf(box), key);
        }
        // Returns that repeat do not close it later, either.
        const auto isClosedByHeldKey = [&box] {
            QKeyEvent held(QEvent::KeyPress, Qt::Key_Return, {}, "\r"_s, true);
            QCoreApplication::sendEvent(okOf(box), &held);
            return !box.isVisible();
        };
        const auto copies = [&](const QString &text) {
            QTest::keyClick(QApplication::focusWidget(), Qt::Key_C, Qt::ControlModifier);
            return clipboard->text() == text;
        };
        bool done = false;
        QTRY_VERIFY(done || (done = isClosedByHeldKey() || copies(box.text())));
        QVERIFY(box.isVisible());
        QVERIFY(sinceShown.hasExpired(500));

        auto *label = box.findChild<QLabel *>("qt_msgbox_label"_s);
        label->setSelection(6, 15);
        QVERIFY(copies("failed\non video"_s));
        QTest::mouseClick(label, Qt::LeftButton);
        QTest::keyClick(label, Qt::Key_A, Qt::ControlModifier);
        QVERIFY(label->hasFocus());
        QVERIFY(copies(box.text()));
        QTest::keyClick(&box, Qt::Key_Escape);
        QVERIFY(!box.isVisible());
    }

    void aBoxFitsTheScreen_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<bool>("scrolls");
        QTest::newRow("short words") << "ab "_s.repeated(333) << false;
        QTest::newRow("one long word") << QString(1000, QLatin1Char('w')) << true;
        QTest::newRow("line breaks") << "a\n"_s.repeated(500) << true;
    }

    void aBoxFitsTheScreen()
    {
        QFETCH(const QString, text);
        MessageBox box({QMessageBox::Critical, {}, text}, QMessageBox::Ok, nullptr);
        box.show();
        QCoreApplication::postEvent(&box, new QEvent(QEvent::LayoutRequest));
        QCoreApplication::sendPostedEvents(&box);
        const QRect screen = box.screen()->availableGeometry();
        QVERIFY(screen.contains(box.frameGeometry()));
        QVERIFY(box.rect().contains(okOf(box)->geometry()));
        const auto *view = box.findChild<QPlainTextEdit *>();
        QTEST(view != nullptr, "scrolls");
        if (view) {
            QCOMPARE(view->toPlainText(), text);
            QVERIFY(view->isVisible() && view->verticalScrollBar()->value() == 0);
        } else {
            const auto *label = box.findChild<QLabel *>("qt_msgbox_label"_s);
            QVERIFY(label->height() >= label->heightForWidth(label->width()));
            QVERIFY(box.width() >= 2 * box.height() - 80);
        }
    }

    void aDoubleClickPressesOnce_data()
    {
        // Presses: "c" on the button that covers the other one and goes when it is clicked, "b" on
        // the button below, "e" on its edge; each with its time in milliseconds.
        QTest::addColumn<QString>("presses");
        QTest::addColumn<int>("below"); // how many clicks
        QTest::newRow("a double click") << "c1000 b1080"_s << 0;
        QTest::newRow("a slow one") << "c1000 b1450"_s << 0;
        QTest::newRow("a triple click") << "c1000 b1450 b1900"_s << 0;
        QTest::newRow("a press after the double-click time") << "c1000 b1700"_s << 1;
        QTest::newRow("a press elsewhere") << "c1000 e1080"_s << 1;
        QTest::newRow("a double click on one window") << "b1000 b1080"_s << 2;
        QTest::newRow("a press that the window below gets, too") << "c1000 b1000 b1080"_s << 2;
        QTest::newRow("after the clock's turn") << "c2147483600 b-2147483616"_s << 0;
    }

    void aDoubleClickPressesOnce()
    {
        QFETCH(const QString, presses);
        QPushButton button;
        button.setGeometry(100, 100, 100, 40);
        button.show();
        auto cover = std::make_unique<QPushButton>();
        cover->setGeometry(button.geometry());
        connect(cover.get(), &QPushButton::clicked, this,
                [&cover] { cover.release()->deleteLater(); });
        cover->show();
        const QSignalSpy clicks(&button, &QPushButton::clicked);
        const QStringList all = presses.split(QLatin1Char(' '));
        for (const QString &each : all) {
            const bool isCover = each.at(0) == QLatin1Char('c');
            const int x = each.at(0) == QLatin1Char('e') ? 30 : 0;
            press(isCover ? *cover : button, each.midRef(1).toInt(), {x, 0});
            QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        }
        QTEST(clicks.size(), "below");
        QVERIFY(!button.isDown());
    }

    // A field goes on.
    void aHeldKeyPressesAButtonOnce()
    {
        QPushButton button;
        QLineEdit field;
        const QSignalSpy clicks(&button, &QPushButton::clicked);
        for (QWidget *widget : std::initializer_list<QWidget *>{&button, &field}) {
            widget->show();
            QApplication::setActiveWindow(widget);
            widget->setFocus();
            // As Qt reports most repetitions under X11.
            for (const ulong time : {1000UL, 1600UL, 1640UL, 1680UL}) {
                for (const auto type : {QEvent::KeyRelease, QEvent::KeyPress}) {
                    QKeyEvent key(type, Qt::Key_Space, {}, " "_s);
                    key.setTimestamp(type == QEvent::KeyRelease && time == 1000 ? 900UL : time);
                    QCoreApplication::sendEvent(widget->windowHandle(), &key);
                }
            }
        }
        QCOMPARE(clicks.size(), 1);
        QCOMPARE(field.text(), "    "_s);
    }

    void asksForDevicesPlainly()
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
            dialog->findChild<QLineEdit *>()->setText("127.0.0.1"_s);
            // The click that brings the focus selects the port; the next one places the cursor.
            auto *port = dialog->findChild<QSpinBox *>()->findChild<QLineEdit *>();
            QApplication::setActiveWindow(dialog);
            QTest::mouseClick(port, Qt::LeftButton);
            QCOMPARE(port->selectedText(), "80"_s);
            QTest::mouseClick(port, Qt::LeftButton);
            QVERIFY(!port->hasSelectedText());
            dialog->findChild<QLineEdit *>()->setFocus();
            QTest::mouseClick(port, Qt::LeftButton);
            QTest::keyClicks(port, QString::number(node.port()));
            dialog->accept();
        };
        w.press("Add Device"_s);
        QVERIFY(tip.contains(QLatin1String("port"), Qt::CaseInsensitive));
        QCOMPARE(w.tx->count(), 1);
        w.device = [&](QDialog *dialog) {
            look(dialog);
            auto *list = dialog->findChild<QListWidget *>();
            const QPoint row = list->visualItemRect(list->item(0)).center();
            QTest::mouseClick(list->viewport(), Qt::LeftButton, {}, row);
            QTest::mouseDClick(list->viewport(), Qt::LeftButton, {}, row);
        };
        w.press("Remove Device"_s);
        QCOMPARE(w.tx->count(), 0);
        QVERIFY(!hasIcons);
    }
};

NODEPATCH_TEST_MAIN(TestOperator)
#include "tst_operator.moc"
