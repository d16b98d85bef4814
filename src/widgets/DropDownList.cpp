#include "widgets/DropDownList.h"

#include <QApplication>
#include <QComboBox>
#include <QMouseEvent>
#include <QPointer>
#include <QScreen>
#include <QStyleOptionComboBox>
#include <QWindow>

namespace {

// Gives a window the mouse until a button is released, as any window has it that is pressed.
class MouseHold final : public QObject {
public:
    explicit MouseHold(QWindow *held)
        : QObject(held)
        , window(held)
    {
        window->setMouseGrabEnabled(true);
        QCoreApplication::instance()->installEventFilter(this);
    }

    bool eventFilter(QObject *watched, QEvent *event) override
    {
        if (event->type() == QEvent::MouseButtonRelease && watched->isWindowType()) {
            window->setMouseGrabEnabled(false);
            QCoreApplication::instance()->removeEventFilter(this);
            deleteLater();
        }
        return false;
    }

private:
    QWindow *window;
};

// Passes a press on to the program's window under the pointer.
void passOn(const QMouseEvent &press)
{
    const QPointer<QWindow> below = QGuiApplication::topLevelAt(press.globalPos());
    const QWidget *modal = QApplication::activeModalWidget();
    if (!below || (modal && modal->windowHandle() != below)) {
        return;
    }
    if (below != QGuiApplication::focusWindow()) {
        below->raise();
        below->requestActivate();
    }
    const QPointF position = below->mapFromGlobal(press.globalPos());
    QMouseEvent event(QEvent::MouseButtonPress, position, position, press.screenPos(),
                      press.button(), press.buttons(), press.modifiers(), press.source());
    event.setTimestamp(press.timestamp());
    QCoreApplication::sendEvent(below, &event);
    // Another pop-up takes the mouse itself.
    if (below && !QApplication::activePopupWidget()) {
        new MouseHold(below);
    }
}

} // namespace

DropDownList::DropDownList(QComboBox *owner)
    : EntryList(owner, nullptr)
{
}

QSize DropDownList::minimumSizeHint() const
{
    const int room = selector->screen()->availableGeometry().right() + 1
        - selector->mapToGlobal(QPoint(0, 0)).x();
    return {qMin(wantedWidth(), room), 0};
}

void DropDownList::rowsInserted(const QModelIndex &parent, int start, int end)
{
    EntryList::rowsInserted(parent, start, end);
    if (!isVisible()) {
        return;
    }
    for (int row = start; row <= end; ++row) {
        setRowHidden(row, true);
    }
    holding = true;
}

void DropDownList::currentChanged(const QModelIndex &current, const QModelIndex &previous)
{
    // Typing also finds hidden rows.
    if (current.isValid() && isRowHidden(current.row())) {
        setCurrentIndex(previous);
        return;
    }
    EntryList::currentChanged(current, previous);
}

// Receives all events of the program while the list is open.
bool DropDownList::eventFilter(QObject *watched, QEvent *event)
{
    if (!watched->isWindowType()
        || (event->type() != QEvent::MouseButtonPress
            && event->type() != QEvent::MouseButtonDblClick)) {
        return EntryList::eventFilter(watched, event);
    }
    const auto *press = static_cast<QMouseEvent *>(event);
    if (!closesOn(press->globalPos())) {
        return false;
    }
    // Under X11 the press is the list's, which has grabbed the mouse. Elsewhere it may come to the
    // window below, which gets it now that the list is closed.
    const bool grabbed = watched == window()->windowHandle();
    selector->hidePopup();
    if (grabbed) {
        passOn(*press);
    }
    return grabbed;
}

bool DropDownList::closesOn(const QPoint &globalPosition) const
{
    QStyleOptionComboBox option;
    option.initFrom(selector);
    option.editable = true;
    option.subControls = QStyle::SC_All;
    const QStyle::SubControl hit = selector->style()->hitTestComplexControl(
        QStyle::CC_ComboBox, &option, selector->mapFromGlobal(globalPosition), selector);
    return hit != QStyle::SC_ComboBoxArrow && !window()->geometry().contains(globalPosition);
}

void DropDownList::focusInEvent(QFocusEvent *event)
{
    EntryList::focusInEvent(event);
    // QAbstractItemView makes the first row current without marking it: Enter would choose it
    // unseen, and Down would leave it out.
    if (!selectionModel()->hasSelection()) {
        selectionModel()->clearCurrentIndex();
    }
}

void DropDownList::showEvent(QShowEvent *event)
{
    EntryList::showEvent(event);
    // On a screen that is too low, QComboBox takes all of the height and cuts a row.
    QRect place = window()->geometry();
    const int excess = height() - heightOf(rowsWithin(height()));
    if (place.top() < selector->mapToGlobal(QPoint(0, 0)).y()) {
        place.setTop(place.top() + excess);
    } else {
        place.setBottom(place.bottom() - excess);
    }
    window()->setGeometry(place);
    QCoreApplication::instance()->installEventFilter(this);
}

void DropDownList::hideEvent(QHideEvent *event)
{
    EntryList::hideEvent(event);
    QCoreApplication::instance()->removeEventFilter(this);
    updateGeometry(); // other entries may come or go before it opens again
    // QComboBox closes the list before it chooses the row.
    QMetaObject::invokeMethod(this, &DropDownList::settle, Qt::QueuedConnection);
}

void DropDownList::settle()
{
    if (isVisible()) {
        return;
    }
    for (int row = 0; holding && row < model()->rowCount(); ++row) {
        setRowHidden(row, false);
    }
    holding = false;
    // Qt does not notice when the pointer leaves the selector while the list is open, and would
    // leave its border blue.
    if (!selector->rect().contains(selector->mapFromGlobal(QCursor::pos()))) {
        QEvent leave(QEvent::Leave);
        QCoreApplication::sendEvent(selector, &leave);
        selector->update();
    }
    emit closed();
}
