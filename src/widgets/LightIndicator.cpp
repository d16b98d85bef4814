#include "widgets/LightIndicator.h"

#include <QPainter>

namespace {

constexpr QSize lampSize(16, 16);

QString describe(bool lit)
{
    return lit ? QStringLiteral("On") : QStringLiteral("Off");
}

} // namespace

LightIndicator::LightIndicator(QWidget *parent)
    : QWidget(parent)
{
    setMinimumSize(lampSize);
    setAccessibleDescription(describe(lit));
}

QSize LightIndicator::sizeHint() const
{
    return lampSize;
}

void LightIndicator::setOn(bool on)
{
    if (on == lit) {
        return;
    }
    lit = on;
    setAccessibleDescription(describe(lit));
    update();
}

void LightIndicator::setColor(QColor c)
{
    color = c;
    update();
}

void LightIndicator::paintEvent(QPaintEvent * /*event*/)
{
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setBrush(lit ? color : QColor(140, 140, 140));
    painter.setPen(Qt::NoPen);
    const int diameter = qMin(width(), height());
    painter.drawEllipse((width() - diameter) / 2, (height() - diameter) / 2, diameter, diameter);
}
