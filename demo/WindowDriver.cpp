#include "WindowDriver.h"

#include "widgets/LightIndicator.h"

#include <QAbstractButton>
#include <QComboBox>

namespace {

template <typename Widget>
Widget *named(const QWidget *window, const QString &name)
{
    const auto widgets = window->findChildren<Widget *>();
    for (Widget *widget : widgets) {
        if (widget->accessibleName() == name) {
            return widget;
        }
    }
    qFatal("no such widget: %s", qPrintable(name));
}

} // namespace

WindowDriver::WindowDriver(QWidget *mainWindow)
    : driven(mainWindow)
{
    tx = named<QComboBox>(driven, QStringLiteral("Transmitter IP"));
    rx = named<QComboBox>(driven, QStringLiteral("Receiver IP"));
    txLight = named<LightIndicator>(driven, QStringLiteral("Transmitter IP status"));
    rxLight = named<LightIndicator>(driven, QStringLiteral("Receiver IP status"));
}

void WindowDriver::press(const QString &button) const
{
    press(driven, button);
}

void WindowDriver::press(QWidget *window, const QString &button)
{
    const auto buttons = window->findChildren<QAbstractButton *>();
    for (QAbstractButton *candidate : buttons) {
        if (candidate->text() == button) {
            candidate->click();
            return;
        }
    }
    named<QAbstractButton>(window, button)->click();
}

void WindowDriver::enter(QComboBox *selector, const QString &text)
{
    selector->setEditText(text);
}

bool WindowDriver::choose(QComboBox *selector, const QString &entry)
{
    const int index = selector->findText(entry, Qt::MatchExactly | Qt::MatchCaseSensitive);
    if (index < 0) {
        return false;
    }
    selector->setCurrentIndex(index);
    emit selector->activated(index);
    return true;
}

bool WindowDriver::isOn(const LightIndicator *light)
{
    return light->accessibleDescription() == QLatin1String("On");
}
