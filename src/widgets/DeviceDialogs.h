#pragma once

#include <QString>
#include <QStringList>

#include <optional>

class QWidget;

// The two dialogs behind "Add Device" and "Remove Device". Each call shows its dialog modally over
// the parent and returns as soon as the operator has answered, whatever intakes wait for by then
// (see widgets/ModalDialog.h). A command that waited before the dialog came up goes on after it has
// been answered. The answers are values: what they name may have changed or gone meanwhile.
namespace DeviceDialogs {

// What the operator entered.
struct Answer {
    QString address; // trimmed; may be empty
    int port; // 1 to 65535
};

// Asks for an address and a port, which starts at 80. Nothing when the operator cancels or the
// program closes.
std::optional<Answer> askForDevice(QWidget *parent, const QString &title);

// Asks which of the hosts to remove; the first one is marked. Returns the host that is marked when
// the operator presses OK or double-clicks it. Nothing when the operator cancels or has taken the
// mark away.
std::optional<QString> askWhichToRemove(QWidget *parent, const QString &title,
                                        const QStringList &hosts);

} // namespace DeviceDialogs
