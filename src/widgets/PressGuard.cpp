#include "widgets/PressGuard.h"

#include <QAbstractButton>
#include <QApplication>
#include <QKeyEvent>
#include <QMouseEvent>
#include <QStyleHints>
#include <QWindow>

namespace {

// Milliseconds. Where nothing is set, Qt takes 400 for a double click; many are slower.
constexpr int leastInterval = 500;

// A native child window belongs to the window that it is in.
QWindow *topLevel(QWindow *window)
{
    while (window->parent()) {
        window = window->parent();
    }
    return window;
}

} // namespace

PressGuard::PressGuard(QObject *parent)
    : QObject(parent)
{
    qApp->installEventFilter(this);
}

bool PressGuard::eventFilter(QObject *watched, QEvent *event)
{
    if (!watched->isWindowType()) {
        return false;
    }
    switch (event->type()) {
    case QEvent::MouseButtonPress:
        swallowing =
            isStray(topLevel(static_cast<QWindow *>(watched)), *static_cast<QMouseEvent *>(event));
        return swallowing;
    case QEvent::MouseButtonDblClick: // the window has had the press of the same moment
        return swallowing;
    case QEvent::MouseMove:
    case QEvent::MouseButtonRelease: {
        const bool swallowed = swallowing;
        if (static_cast<QMouseEvent *>(event)->buttons() == Qt::NoButton) {
            swallowing = false;
        }
        return swallowed;
    }
    case QEvent::KeyRelease:
        releasedKey = static_cast<QKeyEvent *>(event)->key();
        keyReleaseTime = static_cast<QKeyEvent *>(event)->timestamp();
        return false;
    case QEvent::KeyPress:
        return isHeldOnButton(*static_cast<QKeyEvent *>(event));
    default:
        return false;
    }
}

bool PressGuard::isHeldOnButton(const QKeyEvent &press) const
{
    switch (press.key()) {
    case Qt::Key_Space:
    case Qt::Key_Return:
    case Qt::Key_Enter:
    case Qt::Key_Escape: {
        const bool isHeld = press.isAutoRepeat()
            || (press.key() == releasedKey && press.timestamp() == keyReleaseTime);
        return isHeld && qobject_cast<QAbstractButton *>(QApplication::focusWidget());
    }
    default:
        return false;
    }
}

bool PressGuard::isStray(QWindow *window, const QMouseEvent &press)
{
    const ulong time = press.timestamp();
    if (time == 0) {
        return false; // not from the window system
    }
    // The window system counts in 32 bits and starts anew after seven weeks.
    const auto sinceLast = static_cast<quint32>(time - lastTime);
    const int interval = qMax(QApplication::doubleClickInterval(), leastInterval);
    const QPoint moved = press.globalPos() - lastPosition;
    const int distance = QGuiApplication::styleHints()->mouseDoubleClickDistance();
    const bool isNext = lastTime != 0 && sinceLast <= static_cast<quint32>(interval)
        && qMax(qAbs(moved.x()), qAbs(moved.y())) <= distance;
    // Qt repeats the press that closed a menu for the window below: the same press, so it counts.
    const bool isSame = time == lastTime;
    lastTime = time;
    lastPosition = press.globalPos();
    if (isNext && !isSame && window != lastWindow) {
        return true;
    }
    lastWindow = window;
    return false;
}
