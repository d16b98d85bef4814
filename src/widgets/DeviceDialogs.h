#pragma once

#include <QString>
#include <QStringList>

#include <optional>

class QWidget;

// The two dialogs behind "Add Device" and "Remove Device". Each call runs its dialog modally over
// the parent and returns when the operator has answered.
namespace DeviceDialogs {

// What the operator entered.
struct Answer {
    QString address; // trimmed; may be empty
    int port; // 1 to 65535
};

// Asks for an address and a port, which starts at 80. Nothing when the operator cancels.
std::optional<Answer> askForDevice(QWidget *parent, const QString &title);

// Asks which of the hosts to remove; the first one is selected. Returns its index in the list, or
// nothing when the operator cancels.
std::optional<int> askWhichToRemove(QWidget *parent, const QString &title,
                                    const QStringList &hosts);

} // namespace DeviceDialogs
