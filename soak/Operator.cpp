#include "Operator.h"

#include "MainWindow.h"
#include "Plant.h"
#include "Side.h"
#include "net/SyncHttp.h"

#include <QAbstractButton>
#include <QAbstractItemView>
#include <QApplication>
#include <QComboBox>
#include <QDialog>
#include <QKeyEvent>
#include <QLineEdit>
#include <QMessageBox>
#include <QMouseEvent>
#include <QPointer>
#include <QSpinBox>
#include <QTimer>

namespace {

void pressKey(const QPointer<QWidget> &widget, int key, const QString &text = {})
{
    for (const QEvent::Type type : {QEvent::KeyPress, QEvent::KeyRelease}) {
        QKeyEvent event(type, key, Qt::NoModifier, text);
        if (widget) {
            QApplication::sendEvent(widget, &event);
        }
    }
}

void clickAny(const QWidget *widget, Dice &dice)
{
    QList<QAbstractButton *> usable;
    const auto buttons = widget->findChildren<QAbstractButton *>();
    std::copy_if(buttons.begin(), buttons.end(), std::back_inserter(usable),
                 [](const QAbstractButton *button) { return button->isVisible(); });
    if (!usable.isEmpty()) {
        dice.pick(usable)->click();
    }
}

} // namespace

Operator::Operator(quint32 theSeed, quint32 *nextStep, MainWindow *theWindow, const Plant &thePlant,
                   Record *theRecord)
    : seed(theSeed)
    , step(nextStep)
    , window(theWindow)
    , plant(thePlant)
    , record(theRecord)
    , driver(theWindow)
{
    QTimer::singleShot(0, this, &Operator::act);
}

void Operator::leave()
{
    leaving = true;
    QTimer::singleShot(50, this, &Operator::leave);
    QApplication::closeAllWindows();
}

void Operator::act()
{
    if (leaving) {
        return;
    }
    Dice dice(seed, 2, (*step)++);
    // The next step is arranged first, by a timer of its own: this one may wait in a nested event
    // loop, in which the operator goes on.
    QTimer::singleShot(1 + dice.below(60), this, &Operator::act);
    if (const QPointer<QWidget> popup = QApplication::activePopupWidget()) {
        pressKey(popup, Qt::Key_Down);
        pressKey(popup, dice.oneIn(2) ? Qt::Key_Return : Qt::Key_Escape);
    } else if (QWidget *modal = QApplication::activeModalWidget()) {
        answer(modal, dice);
    } else if (requestActivity().depth == 0 || dice.oneIn(4)) {
        using Operation = void (Operator::*)(Dice &);
        const QList<Operation> operations{
            &Operator::enter, &Operator::choose,         &Operator::choose, &Operator::press,
            &Operator::press, &Operator::useOtherWindow, &Operator::click,
        };
        (this->*dice.pick(operations))(dice);
    }
}

void Operator::answer(QWidget *modal, Dice &dice)
{
    const QString title = modal->windowTitle();
    record->count(QStringLiteral("answer: ") + title.section(QLatin1Char(' '), 0, 1));
    const auto *box = qobject_cast<QMessageBox *>(modal);
    if (box && box->textFormat() != Qt::PlainText) {
        record->finding(QStringLiteral("a box guesses the format of its text: ") + box->text());
    }
    if (dice.oneIn(5)) {
        pressKey(modal, Qt::Key_Escape);
    } else if (dice.oneIn(5)) {
        modal->close();
    } else {
        fillIn(modal, dice);
        clickAny(modal, dice);
    }
}

void Operator::fillIn(const QWidget *dialog, Dice &dice)
{
    const SimulatedNode &node = plant.at(dice.below(plant.size()));
    const bool isSensible = !dice.oneIn(4);
    const QString text = isSensible ? node.address().toString() : dice.pick(hostileTexts());
    const auto edits = dialog->findChildren<QLineEdit *>();
    for (QLineEdit *edit : edits) {
        if (!qobject_cast<QSpinBox *>(edit->parentWidget())) {
            edit->setText(text);
        }
    }
    const auto boxes = dialog->findChildren<QSpinBox *>();
    for (QSpinBox *box : boxes) {
        box->setValue(isSensible ? node.port() : dice.below(70000));
    }
    const auto views = dialog->findChildren<QAbstractItemView *>();
    for (QAbstractItemView *view : views) {
        const int rows = view->model() ? view->model()->rowCount() : 0;
        if (rows > 0) {
            view->setCurrentIndex(view->model()->index(dice.below(rows), 0));
        }
    }
}

void Operator::enter(Dice &dice)
{
    QComboBox *selector = dice.oneIn(2) ? driver.tx : driver.rx;
    const QString host = plant.at(dice.below(plant.size())).host();
    const QString text = dice.oneIn(3) ? dice.pick(hostileTexts()) : host;
    record->count(QStringLiteral("operator: enter"));
    if (dice.oneIn(2)) {
        WindowDriver::enter(selector, text);
        return;
    }
    selector->lineEdit()->selectAll();
    for (int i = 0; i < qMin(text.size(), 20) && !leaving; ++i) {
        pressKey(selector->lineEdit(), 0, text.at(i));
    }
}

void Operator::choose(Dice &dice)
{
    QComboBox *selector = dice.oneIn(2) ? driver.tx : driver.rx;
    record->count(QStringLiteral("operator: choose"));
    WindowDriver::choose(selector, selector->itemText(dice.below(selector->count())));
}

void Operator::press(Dice &dice)
{
    const QString button = dice.pick(QStringList{
        QStringLiteral("Connect (Tx->Rx)"), QStringLiteral("Connect (Tx->Rx)"),
        QStringLiteral("Disconnect Rx"), QStringLiteral("Transmitter IP: show SDP"),
        QStringLiteral("Receiver IP: show SDP"), QStringLiteral("Add Device"),
        QStringLiteral("Remove Device"), QStringLiteral("Browse"), QStringLiteral("About")});
    record->count(QStringLiteral("operator: ") + button);
    driver.press(button);
}

void Operator::useOtherWindow(Dice &dice)
{
    const QWidgetList all = QApplication::topLevelWidgets();
    for (QWidget *other : all) {
        if (other == window || !other->isVisible()) {
            continue;
        }
        record->count(QStringLiteral("operator: use another window"));
        switch (dice.below(6)) {
        case 0:
            other->close();
            return;
        case 1:
        case 2:
            fillIn(other, dice);
            return;
        default:
            clickAny(other, dice);
            return;
        }
    }
}

void Operator::click(Dice &dice)
{
    record->count(QStringLiteral("operator: click anywhere, resize"));
    const QPoint place(dice.below(window->width()), dice.below(window->height()));
    const QPointer<QWidget> target = window->childAt(place);
    for (const QEvent::Type type : {QEvent::MouseButtonPress, QEvent::MouseButtonRelease}) {
        if (target) {
            QMouseEvent event(type, target->mapFrom(window, place), window->mapToGlobal(place),
                              Qt::LeftButton, Qt::LeftButton, Qt::NoModifier);
            QApplication::sendEvent(target, &event);
        }
    }
    window->resize(600 + dice.below(1000), 200 + dice.below(600));
}
