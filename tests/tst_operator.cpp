// Commands use what the fields showed at the press, the cursor is busy meanwhile, and presses and
// keys do what they were meant for.

#include "support/IntakeWindow.h"
#include "support/RawServer.h"
#include "widgets/BusyCursor.h"
#include "widgets/MessageBox.h"

#include <QElapsedTimer>
#include <QPlainTextEdit>
#include <QScreen>
#include <QScrollBar>
#include <QWindow>

#include <memory>

namespace {

bool isBusy()
{
    const QCursor *cursor = QGuiApplication::overrideCursor();
    return cursor && cursor->shape() == Qt::BusyCursor;
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

    void patchesWhatThePressSaid()
    {
        SimulatedNode tx(NodeDescription::wide("Cam"_s, 3, 0));
        SimulatedNode rx(NodeDescription::wide("Mon"_s, 0, 3));
        IntakeWindow w;
        w.report(tx, "Cam"_s);
        w.report(rx, "Mon"_s);
        const QString sender = w.tx->itemText(2);
        const QString receiver = w.rx->itemText(1);
        // While the transmitter answers, either field is cleared, or something else is typed.
        for (int i = 0; i < 4; ++i) {
            QVERIFY(Window::choose(w.tx, sender) && Window::isOn(w.txLight));
            QCOMPARE(settings().value("lastTxIp"_s).toString(), sender);
            QVERIFY(Window::choose(w.rx, receiver));
            tx.setFault(sendersPath, Fault::hang().times(1));
            tx.clearRequests();
            rx.clearRequests();
            w.whenAsked(tx, sendersPath, [&] {
                Window::enter(i < 2 ? w.rx : w.tx, i % 2 == 0 ? QString() : "127.0.0.1:1"_s);
                tx.clearFaults();
            });
            w.press(connectCommand);
            QVERIFY(w.boxes.take().isEmpty());
            const QString id = rx.receiverIds().at(1);
            QCOMPARE(rx.requests("PATCH"_s).size(), 1);
            QCOMPARE(rx.requests("PATCH"_s).at(0).path, SimulatedNode::receiverStagedPath(id));
            QCOMPARE(rx.receiverActive(id).value(QLatin1String("sender_id")).toString(),
                     tx.senderIds().at(2));
            // Disconnecting goes by the node, not by the entry.
            QVERIFY(Window::choose(w.rx, receiver));
            w.press(disconnectCommand);
            QCOMPARE(rx.requests("PATCH"_s).constLast().path,
                     SimulatedNode::receiverStagedPath(rx.receiverIds().at(0)));
        }
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

    void isBusyWhileACommandWaits()
    {
        IntakeWindow w;
        QList<bool> busy;
        w.boxes.inspect = [&busy](QMessageBox *) {
            busy += isBusy();
        };
        for (const QString &command : {connectCommand, disconnectCommand, showTx, showRx}) {
            SimulatedNode node(NodeDescription::wide("Both"_s, 1, 1));
            Window::enter(w.tx, node.host());
            Window::enter(w.rx, node.host());
            busy = {isBusy()};
            const bool isTx = command == connectCommand || command == showTx;
            const QString asked = isTx ? sendersPath : receiversPath;
            node.setFault(asked, Fault::hang());
            node.clearRequests();
            w.whenAsked(node, asked, [&] {
                std::make_unique<BusyCursor>().reset(); // a command that begins and ends meanwhile
                busy += isBusy();
                node.stop();
            });
            w.press(command);
            QCOMPARE(w.boxes.take().size(), 1);
            QCOMPARE(busy << isBusy(), (QList<bool>{false, true, false, false}));
        }
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
        const QString shown = w.boxes.take().join(QLatin1Char('|'));
        // Unchanged, cut at 1,000 characters.
        QVERIFY(shown.contains(QLatin1String("<h1>no</h1>word word")));
        QCOMPARE(shown.size(), "Critical: Disconnect: Patch failed on video:\n"_s.size() + 1001);
        QVERIFY(shown.endsWith(QChar(0x2026)));
        QCOMPARE(shownNodeText(QString(1000, QLatin1Char('x'))).size(), 1000);
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
        QVERIFY(label->textInteractionFlags() & Qt::TextSelectableByKeyboard);
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
        columns<QString, bool>("text", "scrolls");
        row("short words", "ab "_s.repeated(333), false);
        row("one long word", QString(1000, QLatin1Char('w')), true);
        row("line breaks", "a\n"_s.repeated(500), true);
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
        auto *view = box.findChild<QPlainTextEdit *>();
        QTEST(view != nullptr, "scrolls");
        if (view) {
            QCOMPARE(view->toPlainText(), text);
            QVERIFY(view->isVisible() && view->verticalScrollBar()->value() == 0);
            QVERIFY(view->isReadOnly() && view->tabChangesFocus());
            QVERIFY(view->find(text.at(0)));
            QTRY_VERIFY((QTest::keyClick(view, Qt::Key_C, Qt::ControlModifier),
                         QGuiApplication::clipboard()->text() == QString(text.at(0))));
        } else {
            const auto *label = box.findChild<QLabel *>("qt_msgbox_label"_s);
            QVERIFY(label->height() >= label->heightForWidth(label->width()));
            QVERIFY(box.width() >= 2 * box.height() - 80);
        }
    }

    void aDoubleClickPressesOnce_data()
    {
        // Presses: "c" on the button that covers the other one and goes when it is clicked, "b" on
        // the button below, "e" and "l" on two of its edges; each with its time in milliseconds.
        columns<QString, int>("presses", "below"); // how many clicks below
        QTest::newRow("a double click") << "c1000 b1080"_s << 0;
        QTest::newRow("a slow one") << "c1000 b1450"_s << 0;
        QTest::newRow("a triple click") << "c1000 b1450 b1900"_s << 0;
        QTest::newRow("a press after the double-click time") << "c1000 b1700"_s << 1;
        QTest::newRow("a press beside it") << "c1000 e1080"_s << 1;
        QTest::newRow("a press below it") << "c1000 l1080"_s << 1;
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
            const QPoint offset(each.at(0) == QLatin1Char('e') ? 30 : 0,
                                each.at(0) == QLatin1Char('l') ? 15 : 0);
            press(isCover ? *cover : button, each.midRef(1).toInt(), offset);
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
        const EventCounter<QPushButton> presses(&button, QEvent::KeyPress);
        for (QWidget *widget : std::initializer_list<QWidget *>{&button, &field}) {
            widget->show();
            QApplication::setActiveWindow(widget);
            widget->setFocus();
            const auto send = [widget](QEvent::Type type, int key, ulong time, bool repeats) {
                QKeyEvent event(type, key, {}, " "_s, repeats);
                event.setTimestamp(time);
                QCoreApplication::sendEvent(widget->windowHandle(), &event);
            };
            for (const int key : {Qt::Key_Space, Qt::Key_Return, Qt::Key_Enter, Qt::Key_Escape}) {
                // As Qt reports most repetitions under X11. The first is of another key.
                for (const ulong time : {1000UL, 1600UL, 1640UL}) {
                    send(QEvent::KeyRelease, time == 1000 ? Qt::Key_A : key, time, false);
                    send(QEvent::KeyPress, key, time, false);
                }
                send(QEvent::KeyPress, key, 1700, true);
            }
        }
        QCOMPARE(presses.count, 4);
        QCOMPARE(field.text().count(QLatin1Char(' ')), 8);
    }

    void asksForDevicesPlainly()
    {
        const SimulatedNode node;
        IntakeWindow w;
        QStringList seen;
        const auto look = [&seen](const QDialog *dialog) {
            seen += dialog->windowTitle();
            const auto labels = dialog->findChildren<QLabel *>();
            for (const QLabel *label : labels) {
                seen += label->text();
            }
            const auto buttons = dialog->findChild<QDialogButtonBox *>()->buttons();
            for (const QAbstractButton *button : buttons) {
                seen +=
                    button->icon().isNull() ? button->text().remove(QLatin1Char('&')) : "icon"_s;
            }
        };
        w.device = [&](QDialog *dialog) {
            look(dialog);
            auto *address = dialog->findChild<QLineEdit *>();
            QCOMPARE(address->placeholderText(), "e.g. 10.0.0.5 or mydevice.local"_s);
            QVERIFY(address->toolTip().contains(QLatin1String("port"), Qt::CaseInsensitive));
            address->setText("127.0.0.1"_s);
            QCOMPARE(dialog->findChild<QSpinBox *>()->buttonSymbols(), QSpinBox::NoButtons);
            // The click that brings the focus selects the port; the next one places the cursor.
            auto *port = dialog->findChild<QSpinBox *>()->findChild<QLineEdit *>();
            QApplication::setActiveWindow(dialog);
            QTest::mouseClick(port, Qt::LeftButton);
            QCOMPARE(port->selectedText(), "80"_s);
            QTest::mouseClick(port, Qt::LeftButton);
            QVERIFY(!port->hasSelectedText());
            address->setFocus();
            QTest::mouseClick(port, Qt::LeftButton);
            QTest::keyClicks(port, QString::number(node.port()));
            dialog->accept();
        };
        w.press(addCommand);
        QCOMPARE(w.tx->count(), 1);
        w.device = [&](QDialog *dialog) {
            look(dialog);
            auto *list = dialog->findChild<QListWidget *>();
            const QPoint row = list->visualItemRect(list->item(0)).center();
            QTest::mouseClick(list->viewport(), Qt::LeftButton, {}, row);
            QTest::mouseDClick(list->viewport(), Qt::LeftButton, {}, row);
        };
        w.press(removeCommand);
        QCOMPARE(w.tx->count(), 0);
        QCOMPARE(seen.join(QLatin1Char('|')),
                 "Add Device|Address:|Port:|OK|Cancel|"
                 "Remove Device|Select a device to remove:|OK|Cancel"_s);
    }
};

NODEPATCH_TEST_MAIN(TestOperator)
#include "tst_operator.moc"
