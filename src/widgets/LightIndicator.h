#pragma once

#include <QColor>
#include <QWidget>

// A small round lamp: grey while off, its colour (a medium green at first) while on. The disc is in
// the centre of the widget and as wide as its smaller side; nothing else is painted.
//
// The accessible description is "On" or "Off".
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
