#pragma once

#include <QObject>
#include <QPoint>
#include <QPointer>

class QMouseEvent;
class QWindow;

// Swallows the presses of a double or triple click that fall on the window below what the first
// press closed. A list, a box and a dialog close with the first press, and the next one would press
// the button that they covered.
//
// A press is swallowed, with all that follows up to its release, when it comes within the
// double-click time (half a second at least) and the double-click distance of the last press and
// falls on another window than that. The press after a swallowed one is judged in the same way: by
// its time and distance from the swallowed press, and by the window of the last press that counted.
//
// Only events from the window system are judged, on their way to a QWindow. What the program itself
// sends to a widget passes.
class PressGuard final : public QObject {
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(PressGuard)

public:
    // Judges the presses on all windows of the application, for as long as the object lives.
    explicit PressGuard(QObject *parent);
    ~PressGuard() override = default;

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    bool isStray(QWindow *window, const QMouseEvent &press);

    QPointer<QWindow> lastWindow; // of the last press that counted; null when it was destroyed
    ulong lastTime = 0; // of the last press, in milliseconds; 0 before the first one
    QPoint lastPosition; // of the last press, on the screen
    bool swallowing = false; // until the release
};
