#pragma once

#include <QObject>
#include <QPoint>
#include <QPointer>

class QKeyEvent;
class QMouseEvent;
class QWindow;

// Makes a press count once: with the mouse, and with a key that is held on a button.
//
// A list, a box and a dialog close with the first press of a double click, and the next one would
// press the button that they covered. A press is swallowed, with all that follows up to its
// release, when it comes within the double-click time (half a second at least) and the double-click
// distance of the last press and falls on another window than that. The press after a swallowed one
// is judged in the same way: by its time and distance from the swallowed press, and by the window
// of the last press that counted.
//
// Space, Enter and Escape do not repeat while a button has the focus. Under X11, Qt takes most
// repetitions for new presses: it looks for the release and the press of one moment, which often
// come in two packets.
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
    bool isHeldOnButton(const QKeyEvent &press) const;

    QPointer<QWindow> lastWindow; // of the last press that counted; null when it was destroyed
    ulong lastTime = 0; // of the last press, in milliseconds; 0 before the first one
    QPoint lastPosition; // of the last press, on the screen
    bool swallowing = false; // until the release
    int releasedKey = 0; // the last one
    ulong keyReleaseTime = 0; // of that key, in milliseconds
};
