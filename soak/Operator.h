#pragma once

#include "Dice.h"
#include "Plant.h"
#include "WindowDriver.h"
#include "net/SyncHttp.h"

#include <QAbstractButton>
#include <QApplication>
#include <QComboBox>
#include <QLineEdit>
#include <QMessageBox>
#include <QTest>
#include <QTimer>

// The operator before the program's windows: types, chooses, presses any button, answers every box
// and dialog, and at the end closes all windows, whatever is going on. Acts about every 30 ms, also
// while a command waits in a nested event loop.
class Operator final : public QObject {
public:
    // Begins as soon as the event loop runs. nextStep is the number of the next step; it is counted
    // up, so that the operators of several windows go through one sequence. What is pointed to must
    // outlive the operator.
    Operator(quint32 theSeed, quint32 *nextStep, QWidget *window, const Plant &thePlant,
             Findings *theFindings)
        : seed(theSeed)
        , step(nextStep)
        , plant(thePlant)
        , findings(theFindings)
        , driver(window)
    {
        QTimer::singleShot(0, this, &Operator::act);
    }
    Q_DISABLE_COPY_MOVE(Operator)

    // Stops acting, and closes all windows, again every 50 ms until the event loop ends.
    void leave()
    {
        leaving = true;
        QTimer::singleShot(50, this, &Operator::leave);
        QApplication::closeAllWindows();
    }

private:
    void act()
    {
        if (leaving) {
            return;
        }
        Dice dice(seed, 2, (*step)++);
        // The next step is arranged first, by a timer of its own: this one may wait in a nested
        // event loop, in which the operator goes on.
        QTimer::singleShot(1 + dice.below(60), this, &Operator::act);
        if (QWidget *popup = QApplication::activePopupWidget()) {
            QTest::keyClick(popup, Qt::Key_Down);
            QTest::keyClick(popup, dice.oneIn(2) ? Qt::Key_Return : Qt::Key_Escape);
        } else if (QWidget *modal = QApplication::activeModalWidget()) {
            answer(modal, dice);
        } else if (requestActivity().levels == 0 || dice.oneIn(4)) {
            QComboBox *selector = dice.oneIn(2) ? driver.tx : driver.rx;
            const QString host = plant.at(dice.below(plant.size())).host();
            const QString text = dice.oneIn(3) ? dice.hostileText() : host;
            const int what = dice.below(9);
            if (what == 0) {
                WindowDriver::enter(selector, text);
            } else if (what == 1) {
                // Until another step changes the field while a check waits.
                selector->lineEdit()->selectAll();
                QString typed;
                while (typed.size() < qMin(text.size(), 20)
                       && (typed.isEmpty() || selector->currentText() == typed)) {
                    const QChar character = text.at(typed.size());
                    typed += character;
                    QTest::sendKeyEvent(QTest::Click, selector->lineEdit(), Qt::Key_unknown,
                                        QString(character), Qt::NoModifier);
                }
            } else if (what < 5) {
                WindowDriver::choose(selector, selector->itemText(dice.below(selector->count())));
            } else {
                driver.press(QLatin1String(dice.pick(
                    QList<const char *>{"Connect (Tx->Rx)", "Connect (Tx->Rx)", "Disconnect Rx",
                                        "Add Device", "About", "Transmitter IP: show SDP",
                                        "Receiver IP: show SDP", "Remove Device", "Browse"})));
            }
        }
    }

    void answer(QWidget *modal, Dice &dice)
    {
        const auto *box = qobject_cast<QMessageBox *>(modal);
        if (box && box->textFormat() != Qt::PlainText) {
            findings->add(QStringLiteral("a box guesses the format of its text: ") + box->text());
        }
        const SimulatedNode &node = plant.at(dice.below(plant.size()));
        const auto edits = modal->findChildren<QLineEdit *>();
        for (QLineEdit *edit : edits) { // the port's takes numbers only
            edit->setText(edit->validator()   ? QString::number(node.port())
                              : dice.oneIn(4) ? dice.hostileText()
                                              : node.address().toString());
        }
        const auto buttons = modal->findChildren<QAbstractButton *>();
        if (buttons.isEmpty() || dice.oneIn(5)) {
            QTest::keyClick(modal, Qt::Key_Escape);
        } else {
            dice.pick(buttons)->click();
        }
    }

    const quint32 seed;
    quint32 *const step;
    const Plant &plant;
    Findings *const findings;
    const WindowDriver driver;
    bool leaving = false;
};
