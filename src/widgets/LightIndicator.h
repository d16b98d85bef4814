#pragma once

#include <QColor>
#include <QWidget>

// A small round lamp, grey while off and of its colour, a medium green from the start, while on.
// The disc fills the smaller side of the widget and sits in its centre; nothing else is painted.
//
// Assistive technology hears "On" or "Off" as the lamp's description, when it changes, too.
class LightIndicator final : public QWidget {
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(LightIndicator)

public:
    explicit LightIndicator(QWidget *parent = nullptr);

    // 16 by 16 pixels, which is also the least that a layout may give.
    QSize sizeHint() const override;

public slots:
    // Repaints only when the state changes.
    void setOn(bool on);
    // The colour shows while the lamp is on.
    void setColor(QColor c);

protected:
    void paintEvent(QPaintEvent *event) override;

private:
    bool lit = false;
    QColor color{0, 160, 0};
};
