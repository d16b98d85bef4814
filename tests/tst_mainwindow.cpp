// The main window, driven as an operator drives it, against real nodes.

#include "support/IntakeWindow.h"
#include "widgets/LightIndicator.h"

#include <QRegularExpression>

#include <algorithm>
#include <iterator>
#include <memory>

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

        w.window.resize(1300, 600);
        const auto place = [&w](const QWidget *part) {
            return QRect(part->mapTo(&w.window, QPoint()), part->size());
        };
        auto buttons = w.window.findChildren<QPushButton *>();
        std::sort(buttons.begin(), buttons.end(), [&place](auto *one, auto *other) {
            const QPoint from = place(one).topLeft() - place(other).topLeft();
            return from.y() != 0 ? from.y() < 0 : from.x() < 0;
        });
        QStringList order;
        for (const QPushButton *button : qAsConst(buttons)) {
            order.append(button->text());
        }
        QCOMPARE(order,
                 (QStringList{"Show SDP…"_s, "Show SDP…"_s, "Add Device"_s, "Remove Device"_s,
                              connectCommand, disconnectCommand, "Browse"_s, "About"_s}));
        const auto titles = w.window.centralWidget()->findChildren<QLabel *>();
        for (int i = 0; i < 2; ++i) {
            const QWidget *row[] = {titles.at(i), i == 0 ? w.tx : w.rx,
                                    i == 0 ? w.txLight : w.rxLight, buttons.at(i)};
            QCOMPARE(titles.at(i)->buddy(), row[1]);
            QCOMPARE(place(row[0]).left(), 16);
            for (int k = 1; k < 4; ++k) {
                QCOMPARE(place(row[k]).left(), place(row[k - 1]).right() + 9);
            }
            QCOMPARE(place(row[3]).right() + 17, 1300);
            QCOMPARE(place(row[1]).left(), place(w.tx).left());
            QVERIFY(row[1]->minimumWidth() == 660 && row[1]->width() > 900);
        }
        QCOMPARE(place(buttons.at(2)).topLeft(), QPoint(16, place(w.rx).bottom() + 1 + 12 + 8));
        QCOMPARE(place(w.window.findChild<QWidget *>("productAdRotator"_s)).bottom() + 17, 600);
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
        light.resize(41, 16);
        // The colour in the middle, and where there is all, some or none of it.
        const auto disc = [&light] {
            QImage image(light.size(), QImage::Format_RGB32);
            image.fill(Qt::white);
            light.render(&image, {}, {}, QWidget::RenderFlags());
            const QColor middle = image.pixelColor(20, 8);
            QString seen = middle.name();
            for (const int x : {11, 12, 14, 27, 28}) {
                const QColor colour = image.pixelColor(x, 8);
                seen += colour == middle ? "#"_s : colour == QColor(Qt::white) ? "."_s : "+"_s;
            }
            return seen;
        };
        light.setOn(true);
        QCOMPARE(disc(), "#00a000.+#+."_s);
        light.setColor(Qt::blue);
        QCOMPARE(disc(), "#0000ff.+#+."_s);
        QCOMPARE(light.sizeHint(), QSize(16, 16));
        QCOMPARE(light.minimumSize(), QSize(16, 16));

        EventCounter<LightIndicator> paints(&light, QEvent::Paint);
        light.show();
        QTRY_VERIFY(paints.count > 0);
        paints.count = 0;
        light.setOn(false);
        QTRY_COMPARE(paints.count, 1);
        QCOMPARE(disc(), "#8c8c8c.+#+."_s);
        light.setOn(false);
        QCoreApplication::processEvents();
        QCOMPARE(paints.count, 2); // of disc()
        for (int i = 3; i < 5; ++i) { // always, and also while it is off
            light.setColor(Qt::red);
            QTRY_COMPARE(paints.count, i);
        }
    }

    void opensOneBrowser()
    {
        Window w;
        w.press("Browse"_s);
        QTRY_VERIFY(QApplication::activeWindow() && !w.window.isActiveWindow());
        const std::unique_ptr<QWidget> browser(QApplication::activeWindow());
        QCOMPARE(browser->windowTitle(), "mDNS Browser"_s);
        QVERIFY(!browser->parent()); // so that it stays when the main window goes
        const EventCounter<QWidget> raised(browser.get(), QEvent::ZOrderChange);
        for (const bool open : {true, false}) {
            browser->setVisible(open);
            w.window.activateWindow();
            QTRY_COMPARE(QApplication::activeWindow(), &w.window);
            w.press("Browse"_s);
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
        QCOMPARE(settings().value("lastRxIp"_s).toString(), node.host());
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
            const QString shown = boxes.take().join(QLatin1Char('|'));
            const QRegularExpression wanted(
                "^Information: %1: Patch failed on audio:\n(.+\n)Patch failed on ancillary:\n\\1$"_s
                    .arg(command.section(QLatin1Char(' '), 0, 0)));
            QVERIFY2(wanted.match(shown).hasMatch(), qPrintable(shown));
            QCOMPARE(rx.receiverActive(video).value(QLatin1String("master_enable")).toBool(),
                     command == connectCommand);
        }
    }

    void quittingEndsACommand()
    {
        SimulatedNode node;
        node.setFault("*"_s, Fault::hang());
        const EventCounter<QDialog> dialogs(qApp, QEvent::Show);
        Window w;
        QTimer::singleShot(0, &w.window, [&w, &node] {
            node.setRequestObserver([](const LoggedRequest &) {
                QMetaObject::invokeMethod(qApp, &QCoreApplication::quit, Qt::QueuedConnection);
            });
            Window::enter(w.tx, node.host());
            w.press(connectCommand);
        });
        QApplication::exec();
        QCOMPARE(dialogs.count, 0);
        QCOMPARE(node.requests().size(), 1);
        node.setRequestObserver({});
        node.clearFaults();
        Window::enter(w.tx, node.host() + " "_s);
        QVERIFY(Window::isOn(w.txLight));
    }
};

NODEPATCH_TEST_MAIN(TestMainWindow)
#include "tst_mainwindow.moc"
